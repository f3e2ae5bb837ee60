#include "algo/vcall/given_alleles.h"

#include <gtest/gtest.h>

#include "temp_folder.h"
#include "vcf_files.h"

namespace {

std::string textOf(const std::map<uint32_t, std::vector<GivenAlleles::Record>>& records) {
  std::string text;
  for (const auto& [position, there] : records)
    for (const auto& record : there) {
      text += std::to_string(position) + ":" + record.ref + ">";
      for (const std::string& alt : record.alts) text += alt + ",";
      text.back() = ' ';
    }
  return text;
}

TEST(GivenAlleles, WhatIsTaken) {
  TempFolder folder;
  std::vector<MadeRecord> records;
  const auto add = [&](int32_t pos, const std::string& ref, const std::string& alt,
                       const char* filter = ".") {
    records.push_back(
        {"c", pos, pos + static_cast<int32_t>(ref.size()),
         "c\t" + std::to_string(pos + 1) + "\t.\t" + ref + "\t" + alt + "\t.\t" + filter + "\t.\n"});
  };
  add(8, "AAAA", "A");                  // begins before the region
  add(10, "a", "c,g", "PASS");          // lower case
  add(11, "A", "C", "q10");             // filtered
  add(12, "A", "<DEL>,*,.,C,R,C,a,,");  // what is no base, what is there already, the reference itself
  add(13, "A", "<NON_REF>");            // nothing left
  add(14, "CAGAG", "CAG,TAGAG");        // common suffix
  add(15, "TTT", "TT", "PASS");
  add(15, "CAT", "GAT");  // a SNP in the end
  add(15, "C", "G");      // the same again
  add(16, "AC", "GT");
  add(17, "R1", "C");
  add(18, "M", "C");
  add(20, "A", "C");  // behind the region
  const std::string path = folder.path("given.vcf");
  writeVcf(path, records);

  VCFCache cache(path);
  cache.setContig("c");
  GivenAlleles given;
  given.load(cache, 10, 20);
  EXPECT_EQ(textOf(given.snps), "10:A>C,G 12:A>C 15:C>G 18:M>C ");
  EXPECT_EQ(textOf(given.others), "14:CAG>C,TAG 15:TT>T 16:AC>GT ");
  given.load(cache, 19, 20);
  EXPECT_TRUE(given.empty());

  records.push_back({"c", 30, 31, "c\t31\t.\tA\tC\t.\n"});
  writeVcf(path, records);
  VCFCache cut(path);
  cut.setContig("c");
  try {
    given.load(cut, 10, 40);
    FAIL();
  } catch (const std::runtime_error& refused) {
    EXPECT_EQ(refused.what(), "Corrupted vcf file " + path + ": too few columns in the line of c:31");
  }
}

}  // namespace
