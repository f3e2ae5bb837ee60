#include "readdata/vcf/variant_context.h"

#include <cstring>
#include <gmock/gmock.h>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "readdata/stream/open_stream.h"
#include "readdata/vcf/gq_block.h"
#include "temp_folder.h"

namespace {

using testing::ElementsAre;

std::string print(const VariantContext& record, const std::vector<std::string>& samples = {}) {
  std::string text;
  record.print(text, samples);
  return text;
}

VariantContext site(const char* ref) {
  VariantContext record;
  record.chrom = "chr1";
  record.start = 9;
  record.ref = ref;
  record.refLength = static_cast<int32_t>(strlen(ref));
  return record;
}

TEST(VariantContext, FullRecord) {
  VariantContext record = site("acGRtn");
  record.id = "rs1;rs2";
  record.alleles = {parseAllele("A", 1), parseAllele("<NON_REF>", 9), parseAllele("ag", 2)};
  record.alleles[2].refSuffix = 3;
  record.qual = 50.125;
  record.addFilter("q10");
  record.addFilter("s50");
  record.addInfo("MQ", "%.2f", 60.0);
  record.addInfo("AC", "%d", 1);
  record.addInfo("AC", "%d", 0);
  record.setFlag("DB", true);
  record.addGenotype("b", "AD", 3);
  record.addGenotype("b", "AD", 4);
  record.addGenotype("b", "PL", "%s", "0");
  record.addGenotype("a", "GT", "%d/%d", 0, 1);
  record.addGenotype("a", "DP", 7);
  record.addGenotype("hidden", "ZZ", 1);  // its key counts, though it is not printed
  EXPECT_EQ(
      print(record, {"b", "none", "a"}),
      "chr1\t10\trs1;rs2\tACGNTN\tA,<NON_REF>,agNTN\t50.12\tq10;s50\tAC=1,0;DB;MQ=60.00\tGT:AD:DP:PL:ZZ\t"
      "./.:3,4:.:0:.\t./.\t0/1:.:7:.:.\n");
}

// Whatever keys the samples have, FORMAT is their union.
TEST(VariantContext, FormatIsTheUnionOfRandomKeys) {
  std::mt19937 random(3);
  const std::vector<std::string> names = {"AD", "DP", "GQ", "GT", "PL", "a", "b"};
  for (int round = 0; round < 500; ++round) {
    VariantContext record = site("A");
    bool used[7] = {};
    for (const char* sample : {"r", "s", "t"})
      for (size_t i = 0; i < names.size(); ++i)
        if (random() % 3 == 0) {
          record.addGenotype(sample, names[i], 1);
          used[i] = true;
        }
    std::string expected = used[3] ? ":GT" : "";
    for (size_t i = 0; i < names.size(); ++i)
      if (used[i] && i != 3) expected += ":" + names[i];
    if (expected.empty()) expected = ":GT";
    EXPECT_THAT(print(record, {"r"}), testing::HasSubstr("\t.\t" + expected.substr(1) + "\t"));
  }
}

TEST(VariantContext, QualityIsAsPrintfSays) {
  std::mt19937_64 random(11);
  constexpr double kMost = std::numeric_limits<double>::max(), kInf = std::numeric_limits<double>::infinity();
  std::vector<double> values = {0,     -0.0,   0.005, 0.015, 0.125, 2.675,
                                9.995, 99.995, 1e22,  kMost, kInf,  -3.14159};
  for (int i = 0; i < 20000; ++i) {
    values.push_back(static_cast<double>(random() % 10000000) / 1000.0);
    values.push_back(static_cast<double>(random()) / 1e15);
  }
  VariantContext record = site("A");
  for (const double value : values) {
    record.qual = value;
    char expected[400];
    snprintf(expected, sizeof expected, "chr1\t10\t.\tA\t.\t%4.2f\t.\t.\n", value);
    ASSERT_EQ(print(record), expected);
  }
}

TEST(VariantContext, ReferenceBlock) {
  GQBlock block;
  block.start = 99;
  block.end = 103;
  block.ref = {'c', 'A', 'A', 'A'};
  block.DP = {30, 10, 40, 20};
  block.GQ = {9, 8, 7, 6};
  const auto line = [&block](std::vector<int32_t> likelihoods) {
    block.minPL = std::move(likelihoods);
    return print(VariantContext(block, "s", "chr2"), {"s"});
  };
  const std::string start = "chr2\t100\t.\tC\t<NON_REF>\t.\t.\tEND=103\tGT:DP:GQ:MIN_DP:PL\t";
  EXPECT_EQ(line({0, 30, 400}), start + "0/0:30:30:10:0,30,400\n");
  EXPECT_EQ(line({50, 20, 5}), start + "0/0:30:15:10:50,20,5\n");
  EXPECT_EQ(line({0, 0, 7}), start + "0/0:30:0:10:0,0,7\n");
  EXPECT_EQ(line({0, 500}), start + "0:30:99:10:0,500\n");
  EXPECT_EQ(line({0, 9, 8, 7, 6}), start + "0/0/0/0:30:6:10:0,9,8,7,6\n");
  EXPECT_EQ(line({}), "chr2\t100\t.\tC\t<NON_REF>\t.\t.\tEND=103\tGT:DP:GQ:MIN_DP\t:30:0:10\n");
  EXPECT_EQ(line({-2147483647 - 1, 2147483647}), start + "0:30:99:10:-2147483648,2147483647\n");
}

TEST(Allele, SymbolicTexts) {
  EXPECT_EQ(*parseAllele("<NON_REF>,<X>", 9).bases, kNonRefCode);
  EXPECT_EQ(*findSymbolicAllele("<*:DEL>", 7), kDeletionCode);
  EXPECT_EQ(findSymbolicAllele("<*:DEL>", 7), findSymbolicAllele("<*:DEL>x", 7));  // an address that stays
  const Allele unknown = parseAllele("<DUP>", 5);
  EXPECT_TRUE(unknown.isSymbolic());
  EXPECT_EQ(*unknown.bases, 0);
  for (const char* text : {"<>", "A", "*", "<NON_REF", "NON_REF>"}) {
    const Allele allele = parseAllele(text, strlen(text));
    EXPECT_EQ(allele.bases, text);
    EXPECT_EQ(allele.length, static_cast<int32_t>(strlen(text)));
    EXPECT_FALSE(allele.isSymbolic());
  }
}

}  // namespace
