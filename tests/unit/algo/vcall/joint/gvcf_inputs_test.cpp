#include "algo/vcall/joint/gvcf_inputs.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "temp_folder.h"
#include "thrown.h"
#include "vcf_files.h"

namespace {

using testing::ElementsAre;

const std::string kBlocks = "##GVCFBlock0-20=minGQ=0(inclusive),maxGQ=20(exclusive)\n##GVCFBlock20-99=x\n";
const std::string kContigs = "##contig=<ID=chr1,length=1000>\n##contig=<ID=chr2,length=500>\n";
const std::vector<Contig> kReference = {{"chr1", 0, 1000}, {"chr2", 0, 500}, {"chr3", 0, 100}};

struct Files {
  TempFolder folder;
  std::vector<std::string> paths;

  // A file with these samples and, unless `columns` is empty, one record with these FORMAT and sample columns.
  void add(const std::string& samples, const std::string& columns = "", const std::string& lines = "",
           const std::string& blocks = kBlocks, const std::string& contigs = kContigs) {
    paths.push_back(folder.path(std::to_string(paths.size()) + ".g.vcf"));
    std::string start = kVcfColumns;
    start.back() = '\t';
    std::vector<MadeRecord> records;
    if (!columns.empty())
      records.push_back({"chr1", 4, 5, "chr1\t5\t.\tA\t<NON_REF>\t.\t.\tEND=5\t" + columns + "\n"});
    writeVcf(paths.back(), records,
             kVcfStart + lines + contigs + blocks + start + "FORMAT\t" + samples + "\n");
  }

  GVCFInputs open() const {
    GVCFInputs inputs;
    inputs.open({"Joint", false, nullptr, 1}, paths, kReference);
    return inputs;
  }

  std::string refusal() const {
    return thrownBy([this] { open(); });
  }
};

TEST(GVCFInputs, MakesOneHeaderWithoutWhatOnlyGVCFsHave) {
  Files files;
  const std::string gvcf_only =
      "##reference=file://"
      "a.fa\n##ALT=<ID=NON_REF,Description=\"x\">\n##FILTER=<ID=LowQual,Description=\"x\">\n"
      "##INFO=<ID=END,Number=1,Type=Integer,Description=\"x\">\n"
      "##FORMAT=<ID=MIN_DP,Number=1,Type=Integer,Description=\"x\">\n";
  files.add("b\ta", "",
            gvcf_only + "##source=one\n##INFO=<ID=RAW_MQ,Number=1,Type=Float,Description=\"x, y\">\n");
  files.add("c\ta\td", "",
            gvcf_only + "##source=two\n##INFO=<ID=own,Number=1,Type=Float,Description=\"z\">\n");

  const GVCFInputs inputs = files.open();
  EXPECT_THAT(inputs.header.samples, ElementsAre("b", "a", "c", "d"));
  EXPECT_THAT(inputs.sampleMaps, ElementsAre(ElementsAre(0, 1), ElementsAre(2, -1, 3)));
  EXPECT_THAT(inputs.header.lines, ElementsAre("source=one", "source=two"));
  std::vector<std::string> ids;
  for (const auto& [key, entries] : inputs.header.defs)
    for (const VCFHeaderDef& def : entries) ids.push_back(key + "/" + def.id);
  EXPECT_THAT(ids, ElementsAre("INFO/RAW_MQ", "INFO/own", "contig/chr1", "contig/chr2", "contig/chr3"));
}

TEST(GVCFInputs, CountsTheNumbersBetweenSlashesOfTheFirstGenotype) {
  Files files;
  files.add("a\tb\tc\td\te\tf\tg\th", "DP:GT\t1:0/1\t1:0\t1:0/0/12\t1:0|1\t1:.\t1:./.\t1\t1:0/x/1");
  EXPECT_THAT(files.open().ploidies, ElementsAre(2, 1, 3, 1, 1, 2, 2, 1));

  Files untold;  // no GT, and no record
  untold.add("a", "DP\t3");
  untold.add("b");
  EXPECT_THAT(untold.open().ploidies, ElementsAre(2, 2));
}

TEST(GVCFInputs, RefusesFilesThatDoNotFit) {
  struct Case {
    std::string blocks, contigs, text;
  };
  for (const Case& refused : {
           Case{kBlocks, "##contig=<ID=chr1,length=1001>\n",
                ": contigs in vcf % are not compatible with the reference"},
           Case{kBlocks, "##contig=<ID=chrX>\n", ": contigs in vcf % are not compatible with the reference"},
           Case{kBlocks, kContigs + "##contig=<ID=chrX,assembly=other>\n", ": Incompatible input file %"},
           Case{"##source=GVCFBlock\n", kContigs, ": Input file % is not a gvcf file"},
       }) {
    Files files;
    files.add("a");
    files.add("b", "", "", refused.blocks, refused.contigs);
    std::string text = "Joint" + refused.text;
    text.replace(text.find('%'), 1, files.paths[1]);
    EXPECT_EQ(files.refusal(), text);
  }

  Files files;
  files.add("a");
  std::filesystem::remove(files.paths[0] + ".idx");
  EXPECT_EQ(files.refusal(), "Failed to load index for " + files.paths[0]);
}

}  // namespace
