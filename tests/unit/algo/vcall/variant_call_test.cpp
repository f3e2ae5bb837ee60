// The base of callers: options, and the record on its way through shards to the file.
#include <cmath>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>

#include "algo/vcall/variant_call_algo.h"
#include "bam_files.h"
#include "readdata/bam/bam_index.h"
#include "temp_folder.h"
#include "thrown.h"
#include "vcf_files.h"

namespace {

using testing::HasSubstr;

const std::string kBases = "ACGTACGTACGTACGTACGTACGTACGTACGTACGTACGT";  // of contig c

class Caller final : public VariantCallAlgo {
 public:
  class Worker;
  Caller(DriverContext* context, std::vector<const char*> args, bool gvcf)
      : VariantCallAlgo(context, int(args.size()), args.data()) {
    OptionParser parser;
    addAnnotationOption(parser);
    addEmitOptions(parser, "");
    addGivenOption(parser);
    addFileOptions(parser);
    parser.addText("gq_bands", 0, "", gq_bands_text_);
    std::vector<const char*> positional;
    parser.parse(int(args.size()), args.data(), positional);
    settle(positional, gvcf);
  }
  Algo::Engine* newEngine(DriverContext* context, int) override;
};

class Caller::Worker final : public VariantCallAlgo::Engine {
 public:
  using Engine::Engine;
  void advance(uint32_t, uint32_t) override {}
  using Engine::emitVariant;
  using Engine::fetchDb;
};

Algo::Engine* Caller::newEngine(DriverContext* context, int) {
  return new Worker(context, this);
}

// A reference with one contig, reads of two groups, and what else a run has.
class VariantCall : public testing::Test {
 protected:
  void setUp() {
    const std::string groups = "@RG\tID:g1\tSM:b\n@RG\tID:g2\tSM:a\n@RG\tID:g3\tSM:b\n";
    folder_.write("r.fa.fai", "c\t40\t3\t40\t41\n");
    reference_ = std::make_unique<FastaFile>(folder_.write("r.fa", ">c\n" + kBases + "\n"));
    const std::string bam = folder_.write(
        "in.bam",
        inBlocks(headerBytes({{"c", 40}}, "@HD\tVN:1.6\tSO:coordinate\n@SQ\tSN:c\tLN:40\n" + groups)));
    BamIndex::load(bam, 2, 1);
    handle_ = open_read_source(bam, nullptr, true);
    reads_ = std::make_unique<ReadCache>(std::vector<BAMHandle*>{handle_.get()}, true);
    context_.reference = reference_.get();
    context_.reads = reads_.get();
    context_.command_line = "driver";
  }

  std::unique_ptr<Caller> make(std::vector<const char*> args, bool gvcf = true) {
    args.insert(args.begin(), "Caller");
    return std::make_unique<Caller>(&context_, args, gvcf);
  }

  // Runs `work` on one shard after the other and returns the whole file.
  std::string run(std::vector<const char*> args, const std::vector<std::pair<uint32_t, uint32_t>>& shards,
                  const std::function<void(Caller::Worker&, uint32_t, uint32_t)>& work) {
    args.push_back(output_.c_str());
    const auto caller = make(args);
    caller->init();
    DriverContext own = context_;
    const std::unique_ptr<Algo::Engine> engine(caller->newEngine(&own, 0));
    for (const auto& [start, end] : shards) {
      own.shard.contig = "c";
      own.shard.start = start;
      own.shard.end = end;
      own.shard.sequence++;
      engine->startShard();
      work(static_cast<Caller::Worker&>(*engine), start, end);
      caller->merge(own.shard, engine->finishShard());
    }
    own.shard.contig = kNoCoor;
    engine->startShard();
    engine->processNoCoor();
    caller->merge(own.shard, engine->finishShard());
    caller->finish();
    EXPECT_FALSE(std::filesystem::exists(output_ + "_1"));
    return textOf(output_);
  }
  static std::string textOf(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
  }
  // CHROM to FILTER of the records.
  static std::string recordsOf(const std::string& text) {
    std::istringstream lines(text);
    std::string records;
    for (std::string line; std::getline(lines, line);) {
      if (line[0] == '#') continue;
      size_t end = 0;
      for (int i = 0; i < 7; ++i) end = line.find('\t', end + 1);
      records += line.substr(2, end - 2) + "\n";
    }
    return records;
  }

  TempFolder folder_;
  std::unique_ptr<FastaFile> reference_;
  std::unique_ptr<BAMHandle> handle_;
  std::unique_ptr<ReadCache> reads_;
  DriverContext context_;
  std::string output_ = folder_.path("out.vcf");
};

Allele allele(const char* text) {
  return parseAllele(text, strlen(text));
}

// One sample has data for it: log10 likelihoods by genotype.
Site siteOf(uint32_t position, const char* ref, const std::vector<const char*>& alts,
            std::vector<double> gl) {
  Site site;
  site.position = position;
  site.ref = allele(ref);
  for (const char* alt : alts) site.alts.push_back(allele(alt));
  site.likelihoods = {{2, {}}, {2, std::move(gl)}};
  return site;
}

TEST_F(VariantCall, UsageFailures) {
  const auto text = [&](std::vector<const char*> args, bool gvcf = false) {
    return thrownBy([&] { make(args, gvcf); });
  };
  EXPECT_EQ(text({"o"}), "Caller: missing reference and bam input");
  EXPECT_EQ(text({"--merge", "o"}), "Caller: no partial files for merge");
  setUp();
  EXPECT_EQ(text({"o"}), "");
  EXPECT_EQ(text({}), "Caller: missing output file");
  EXPECT_EQ(text({"o", "p"}), "Caller: extra argument after output");
  EXPECT_EQ(text({"--merge", "o", "p"}), "Caller: --merge must not have input reference or bam files");
  EXPECT_EQ(text({"--emit_mode", "CONFIDENT", "o"}), "");
  EXPECT_EQ(text({"--emit_mode", "gVCF", "o"}), "Caller: unknown emit mode gVCF");
  EXPECT_EQ(text({"--emit_mode", "gVCF", "o"}, true), "");
  EXPECT_EQ(text({"--emit_mode", "gvcf", "--given", "g", "o"}, true),
            "Caller: cannot specify a given vcf in gvcf emit mode");
  EXPECT_EQ(text({"--emit_mode", "some", "o"}), "Caller: unknown emit mode some");
  EXPECT_EQ(text({"--gq_bands", "9,5", "o"}), "Caller: invalid GQ bands 9,5");
  for (const char* bad : {"", "x", "3x", "nan", "inf", "1e999"})
    EXPECT_EQ(text({"--call_conf", bad, "o"}), std::string("Caller: invalid call_conf ") + bad);
  EXPECT_EQ(text({"--emit_conf", "-1e1", "o"}), "");
  context_.reads = nullptr;
  EXPECT_EQ(text({"o"}), "Caller: missing bam input");
  context_.reads = reads_.get();
  context_.reference = nullptr;
  EXPECT_EQ(text({"o"}), "Caller: missing reference");
}

TEST_F(VariantCall, KnownIdsAndKeptAlleles) {
  setUp();
  const std::string db = folder_.path("db.vcf");
  std::vector<MadeRecord> known;
  const auto add = [&](int32_t pos, const std::string& rest, int32_t length = 1) {
    known.push_back({"c", pos, pos + length, "c\t" + std::to_string(pos + 1) + "\t" + rest + "\t.\t.\t.\n"});
  };
  add(2, "long\tGTACGTACGT\tG", 10);  // reaches over what follows
  add(5, "other\tC\tT");
  add(5, "rs5\tc\tA,g");
  add(8, "rs8\tACG\tA", 3);
  add(8, "rs8b\tA\tC");
  add(9, "ref\tT\tG");
  add(30, ".\tG\tT");
  writeVcf(db, known);
  const std::vector<double> het = {-40, 0, -40}, both = {-40, -40, -40, -40, 0, -40};
  const std::string text =
      run({"--dbsnp", db.c_str(), "--call_conf", "35"}, {{0, 20}, {20, 40}},
          [&](Caller::Worker& worker, uint32_t start, uint32_t) {
            const auto emit = [&](Site site, double qual) {
              site.likelihoods[0] = {2, {}};
              worker.emitVariant(site, qual);
            };
            if (start == 20) {
              emit(siteOf(29, "C", {"T"}, het), 50);  // nothing was fetched
              worker.fetchDb(25, 35);
              return emit(siteOf(30, "G", {"T"}, het), 50);
            }
            worker.fetchDb(4, 20);
            emit(siteOf(4, "A", {"C"}, het), 50);
            emit(siteOf(5, "C", {"G"}, het), 34.5);
            emit(siteOf(8, "A", {"C"}, het), 50);
            emit(siteOf(8, "ACG", {"A"}, het), 50);
            emit(siteOf(9, "C", {"G"}, het), 50);
            Site site = siteOf(10, "GTAC", {"GTAT", "GAC", "G"}, std::vector<double>(10, -40.0));
            site.likelihoods[1].gl[3] = 0;
            site.alts[0].length = site.alts[2].length = 0;
            emit(site, 50);
            site = siteOf(12, "ACGT", {"T", "CG"}, both);  // alternates that share the end of REF
            site.alts[0].refSuffix = 2;
            site.alts[1].refSuffix = 1;
            emit(site, 50);
          });
  EXPECT_EQ(recordsOf(text),
            "5\t.\tA\tC\t50.00\t.\n6\trs5\tC\tG\t34.50\tLowQual\n9\trs8b\tA\tC\t50.00\t.\n9\trs8\tACG\tA\t50."
            "00\t.\n"
            "10\t.\tC\tG\t50.00\t.\n11\t.\tGT\tG\t50.00\t.\n13\t.\tAC\tT,C\t50.00\t.\n"
            "30\t.\tC\tT\t50.00\t.\n31\t.\tG\tT\t50.00\t.\n");
  size_t flags = 0;
  for (size_t at = 0; (at = text.find(";DB", at)) != text.npos; ++at) ++flags;
  EXPECT_EQ(flags, 4u);
  EXPECT_THAT(text, HasSubstr("GT\tG\t50.00\t.\tAC=1;AF=0.500;AN=2;"));
}

}  // namespace
