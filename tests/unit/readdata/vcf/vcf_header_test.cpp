#include "readdata/vcf/vcf_header.h"

#include <gmock/gmock.h>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "readdata/stream/open_stream.h"
#include "temp_folder.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

VCFHeader parse(const std::string& text) {
  const TempFolder folder;
  const auto stream = openStream(folder.write("in.vcf", text), "r");
  VCFHeader header;
  header.samples = {"from before"};
  header.parse(*stream);
  return header;
}

std::string print(VCFHeader header) {
  const TempFolder folder;
  const auto stream = openStream(folder.path("out.vcf"), "w");
  header.print(*stream);
  EXPECT_EQ(stream->close(), 0);
  std::ifstream file(folder.path("out.vcf"), std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

constexpr char kColumns[] = "#CHROM\tPOS\tID\tREF\tALT\tQUAL\tFILTER\tINFO";

// In the order that print() gives, so that it survives as it stands.
const std::string kTypical =
    "##fileformat=VCFv4.2\n"
    "##ALT=<ID=NON_REF,Description=\"Any other allele, seen or not, at this place\">\n"
    "##FILTER=<ID=PASS,Description=\"All filters passed\">\n"
    "##FILTER=<ID=LowQual,Description=\"Low quality, QUAL<30 (a=b)\">\n"
    "##FORMAT=<ID=AD,Number=R,Type=Integer,Description=\"Depths, by allele\">\n"
    "##FORMAT=<ID=GT,Number=1,Type=String,Description=\"Genotype\">\n"
    "##INFO=<ID=AF,Number=A,Type=Float,Description=\"Frequency, by, allele,,\",Source=\"x\",Version=\"3\">\n"
    "##INFO=<ID=END,Number=1,Type=Integer,Description=\"Last base\">\n"
    "##contig=<ID=chr2,length=242193529,assembly=GRCh38>\n"
    "##contig=<ID=chr1,length=248956422,assembly=GRCh38>\n"
    "##contig=<ID=HLA-A*01:01:01:01,length=3503>\n"
    "##contig=<ID=odd,length=much,md5=abc>\n"
    "##fileDate=20150218\n"
    "##reference=file:///data/ref.fa\n"
    "##bcftools_viewCommand=view -s NA1,NA2 in.vcf; Date=Mon Feb 16 10:00:00 2015\n"
    "##no equals sign\n" +
    std::string(kColumns) + "\tFORMAT\tNA1\tNA 2\n";

TEST(VCFHeader, TypicalTextSurvives) {
  const VCFHeader header = parse(kTypical + "chr1\t1\t.\tA\tC\t.\t.\t.\tGT\t0/1\t./.\n");
  EXPECT_EQ(print(header), kTypical);
  EXPECT_THAT(header.samples, ElementsAre("NA1", "NA 2"));
  EXPECT_THAT(header.defs.at("INFO")[0].attrs[2], "Description=\"Frequency");
}

TEST(VCFHeader, VersionOrderAndLineEndsAreNormalised) {
  const VCFHeader header = parse(
      "##fileformat=VCFv4.1\r\n##fileformats=kept\r\n##INFO=<Number=0,ID=B,Type=Flag>\r\n##FILTER=<ID=z>"
      "\t\r\n"
      "##INFO=<ID=A>\n##FILTER=<ID=a>\n##X=<>\n##=\n##\n#comment\n" +
      std::string(kColumns) + "\tFORMAT\ts\r\n");
  EXPECT_EQ(print(header),
            "##fileformat=VCFv4.2\n##FILTER=<ID=z>\n##FILTER=<ID=a>\n##INFO=<ID=A>\n##INFO=<ID=B,Number=0,"
            "Type=Flag>\n"
            "##X=<ID=>\n##fileformats=kept\n##=\n##\n" +
                std::string(kColumns) + "\tFORMAT\ts\n");
}

TEST(VCFHeader, LinesOf4095BytesAreLost) {
  const std::string kept = "##k=" + std::string(4090, 'x');  // 4094 bytes
  const std::string lost = kept + 'x';
  EXPECT_THAT(parse(kept + "\n" + lost + "\n" + lost + lost + "\n##b=2\n").lines,
              ElementsAre(kept.substr(2), "b=2"));
  EXPECT_THAT(parse("##b=2\n" + lost).lines, ElementsAre("b=2"));
  EXPECT_THAT(parse("##b=2\n" + kept).lines, ElementsAre("b=2", kept.substr(2)));
  std::string wide = std::string(kColumns) + "\tFORMAT";
  for (int i = 0; i < 1000; ++i) wide += "\tsample";
  EXPECT_TRUE(parse(wide + "\n").samples.empty());
}

TEST(VCFHeader, ColumnLinesThatDoNotFitAreIgnored) {
  const std::string columns = kColumns;
  for (const std::string& line :
       {columns, columns + "\tFORMAT", columns + "\tFORMAT\t\t", columns + "\tFORMATS\ta",
        columns + "X\tFORMAT\ta", std::string("#CHROM\tPOS\tID\tFORMAT\ta"), columns + " FORMAT a"})
    EXPECT_TRUE(parse(line + "\n").samples.empty()) << line;
  EXPECT_THAT(parse(columns + "\tFORMAT\ta\t\tb").samples, ElementsAre("a", "", "b"));
}

TEST(VCFHeader, CompressedFloodIsRefused) {
  const TempFolder folder;
  const auto out = openStream(folder.path("flood.vcf.gz"), "w");
  std::string line = "##a=<" + std::string(4000, ',') + ">\n";  // 4,000 attributes
  for (int i = 0; i < 1000; ++i) out->write(line.data(), line.size());
  ASSERT_EQ(out->close(), 0);
  VCFHeader header;
  EXPECT_THROW(header.parse(*openStream(folder.path("flood.vcf.gz"), "r")), std::runtime_error);
}

TEST(VCFHeader, DefsKeepTheirPlaceWhenReplaced) {
  VCFHeader header;
  header.addDef("FILTER", "b", {{"Description", "\"x\""}});
  header.addDef("FILTER", "a", {});
  header.addDef("FILTER", "b", {{"Description", "\"y\""}, {"More", "1"}});
  header.addFormatDef("PL");
  header.addFormatDef("nothing standard");
  header.addInfoDef("DP");
  header.addLine("long", std::string(300, 'x'));
  header.addLine("longer", "%s");
  EXPECT_EQ(header.lines[0], "long=" + std::string(250, 'x'));  // 255 bytes
  header.removeLines("long");
  EXPECT_EQ(print(header),
            "##fileformat=VCFv4.2\n##FILTER=<ID=b,Description=\"y\",More=1>\n##FILTER=<ID=a>\n"
            "##FORMAT=<ID=PL,Number=G,Type=Integer,Description=\"The phred-scaled genotype likelihoods "
            "rounded to the "
            "closest integer\">\n##longer=%s\n" +
                std::string(kColumns) + "\n");
  header.removeFormatDef("PL");
  size_t cursor = 0;
  EXPECT_EQ(header.findDef("FORMAT", nullptr, &cursor), nullptr);
  header.removeDef("FILTER", nullptr);
  EXPECT_FALSE(header.defs.contains("FILTER"));
}

TEST(VCFHeader, CommandLine) {
  VCFHeader header;
  header.addCommandLine("Genotyper", "driver -r x.fa --algo Genotyper a\nb,c\"\\");
  EXPECT_THAT(print(header),
              testing::ContainsRegex(
                  "\n##TorvesinCommandLine.Genotyper=<ID=Genotyper,Version=\"torvesin-genomics-201611.03\","
                  "Date=\"20[0-9][0-9]-[0-9][0-9]-[0-9][0-9]T[0-9:]*Z\","
                  "CommandLine=\"driver -r x.fa --algo Genotyper a b,c\\\\\"\\\\\\\\\">\n"));
  for (const auto& [epoch, year] : {std::pair("1000000000", "Date=\"2001-09-09T01:46:40Z\""),
                                    {"1e9", "Date=\"20[2-9]"},
                                    {"-1", "Date=\"20[2-9]"},
                                    {"", "Date=\"20[2-9]"}}) {
    setenv("SOURCE_DATE_EPOCH", epoch, 1);
    VCFHeader dated;
    dated.addCommandLine("Genotyper", "driver");
    EXPECT_THAT(print(dated), testing::ContainsRegex(year)) << epoch;
  }
  unsetenv("SOURCE_DATE_EPOCH");
}

}  // namespace
