// Simulated files are the same for the same seed, and their reads show the truth.
#include "simulate.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <locale>
#include <map>

#include "base/text.h"
#include "read_back.h"
#include "temp_folder.h"

namespace {

struct CommaNumbers : std::numpunct<char> {
  char do_decimal_point() const override { return ','; }
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

TEST(Simulate, SameSeedGivesSameBytesInAnyLocaleAndFolder) {
  TempFolder folder;
  auto options = [&](const char* name, const char* seed) {
    return parseOptions({"--out-dir", folder.path(name), "--seed", seed, "--contigs", "a:30000,b:5000",
                         "--depth", "8", "--samples", "x,y", "--duplicate-rate", "0.1"});
  };
  std::string text = simulate(options("first", "5")).text();
  std::locale before = std::locale::global(std::locale(std::locale::classic(), new CommaNumbers));
  std::string again = simulate(options("second", "5")).text();
  std::locale::global(before);
  simulate(options("third", "6"));
  EXPECT_EQ(text, again);
  for (const char* name : {"reference.fa", "reference.fa.fai", "x.bam", "x.bam.bai", "y.bam", "y.bam.bai",
                           "truth.vcf.gz", "known_sites.vcf.gz"}) {
    std::string first = fileBytes(folder.path("first") + "/" + name);
    EXPECT_TRUE(first == fileBytes(folder.path("second") + "/" + name)) << name;
    if (std::string(name) == "reference.fa.fai") continue;
    EXPECT_FALSE(first == fileBytes(folder.path("third") + "/" + name)) << name;
  }
}

}  // namespace
