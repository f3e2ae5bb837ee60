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

TEST(Simulate, ReadsShowTheTruthAtPlausibleFractions) {
  TempFolder folder;
  // Three samples (the third the child of the others), four contigs, the third of them without reads.
  const SimulateOptions options =
      parseOptions({"--out-dir", folder.path("a"), "--contigs", "chr1:60000,chr2:20000,chr3:5000,chr4:8000",
                    "--depth", "40", "--samples", "3", "--seed", "11", "--flag-duplicates", "--indel-rate",
                    "0.0008", "--snp-rate", "0.002"});
  const Summary summary = simulate(options);
  for (const auto& [what, count] : summary.genome) EXPECT_GT(count, 0u) << what;
  for (const auto& [sample, tally] : summary.samples)
    for (const auto& [what, count] : tally) EXPECT_GT(count, 0u) << what;
  std::vector<std::vector<ReadBack>> reads;  // per sample
  for (const std::string& sample : options.samples)
    reads.push_back(readBam(OutputPaths(options).sampleBam(sample)));
  std::map<std::string, int> numbers;
  for (const ContigPlan& contig : options.contigs) numbers.emplace(contig.name, int(numbers.size()));
  size_t tested = 0, thin = 0, indels = 0, tested_multi = 0;
  for (const std::vector<std::string>& line : readVcf(OutputPaths(options).truth)) {
    int contig = numbers.at(line[0]);
    if (contig == 2) continue;
    int32_t start = std::stoi(line[1]) - 1;
    std::vector<std::string> alleles = split(line[4], ',');
    alleles.insert(alleles.begin(), line[3]);
    for (size_t s = 0; s < 3; ++s) {
      std::map<std::string, int> seen;
      int depth = 0;
      auto first = std::lower_bound(reads[s].begin(), reads[s].end(), std::pair(contig, start - 400),
                                    [](const ReadBack& read, const std::pair<int, int32_t>& place) {
                                      return read.contig >= 0 && std::pair(read.contig, read.start) < place;
                                    });
      for (auto read = first; read != reads[s].end() && read->contig == contig && read->start <= start;
           ++read) {
        std::string allele = alleleOf(*read, start, line[3].size());
        if (allele.empty()) continue;
        ++seen[allele];
        ++depth;
      }
      if (depth < 12) {
        ++thin;
        continue;
      }
      const std::string& genotype = line[9 + s];
      for (size_t a = 0; a < alleles.size(); ++a) {
        auto copies = std::count(genotype.begin(), genotype.end(), static_cast<char>('0' + a));
        double fraction = static_cast<double>(seen[alleles[a]]) / depth;
        std::string where = line[0] + ":" + line[1] + " " + line[3] + ">" + alleles[a] + " " + genotype;
        // Five standard deviations, and some loss to errors and to reads that end inside a long allele.
        double spread = 5 * std::sqrt(0.25 / depth);
        double low[] = {0, 0.4 - spread, 0.8}, high[] = {0.12, 0.5 + spread, 1};
        EXPECT_GE(fraction, low[copies]) << where;
        EXPECT_LE(fraction, high[copies]) << where;
      }
      ++tested;
      indels += alleles[0].size() != alleles[1].size();
      tested_multi += alleles.size() > 2;
    }
  }
  EXPECT_GT(tested, 400u);
  EXPECT_GT(indels, 60u);
  EXPECT_GT(tested_multi, 3u);
  EXPECT_LT(thin, tested / 5);
}

}  // namespace
