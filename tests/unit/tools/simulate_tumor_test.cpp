// A simulated tumor shows its somatic sites at their fractions, the normal none of them; artefacts look as stated.
#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <map>
#include <set>

#include "read_back.h"
#include "simulate.h"
#include "temp_folder.h"

namespace {

// Reads of both samples on one contig, and the files about them.
struct Pair {
  explicit Pair(std::vector<std::string> args) {
    args.insert(args.end(), {"--out-dir", folder.path("a"), "--contigs", "chr1:150000", "--samples", "N",
                             "--tumor", "T", "--flag-duplicates", "--error", "perfect", "--fractions",
                             "0.05,0.5,0.2", "--somatic-snv-rate", "0.002", "--somatic-indel-rate", "0.001"});
    SimulateOptions options = parseOptions(args);
    summary = simulate(options).text();
    paths = OutputPaths(options);
    for (const char* sample : {"N", "T"}) reads.push_back(readBam(paths.sampleBam(sample)));
  }

  // Of the reads of a sample that may cover [start, start + 1), in order of their starts.
  std::vector<const ReadBack*> readsAt(size_t sample, int32_t start) const {
    std::vector<const ReadBack*> found;
    auto first = std::partition_point(reads[sample].begin(), reads[sample].end(), [&](const ReadBack& read) {
      return read.contig == 0 && read.start < start - 250;
    });
    for (auto read = first; read != reads[sample].end() && read->contig == 0 && read->start <= start; ++read)
      if (read->end() > start) found.push_back(&*read);
    return found;
  }

  // Reads that show the ALT of a VCF line, and all that show an allele there.
  std::pair<int, int> count(size_t sample, const std::vector<std::string>& line) const {
    std::pair<int, int> counts;
    int32_t start = std::stoi(line[1]) - 1;
    for (const ReadBack* read : readsAt(sample, start)) {
      std::string allele = alleleOf(*read, start, line[3].size());
      counts.first += allele == line[4];
      counts.second += !allele.empty();
    }
    return counts;
  }

  TempFolder folder;
  OutputPaths paths{SimulateOptions()};
  std::string summary;
  std::vector<std::vector<ReadBack>> reads;  // of the normal, of the tumor
};

// The share of reads with the somatic allele, over all SNVs of a fraction.
std::map<std::string, double> sharesOfSnvs(const Pair& pair, size_t sample) {
  std::map<std::string, std::pair<int, int>> sums;
  for (const std::vector<std::string>& line : readVcf(pair.paths.somatic)) {
    if (line[7].find("KIND=snv") == std::string::npos) continue;
    auto [alt, depth] = pair.count(sample, line);
    auto& sum = sums[split(line[7], ';')[0]];
    sum = {sum.first + alt, sum.second + depth};
  }
  std::map<std::string, double> shares;
  for (const auto& [name, sum] : sums) shares[name] = double(sum.first) / sum.second;
  return shares;
}

TEST(SimulateTumor, SomaticSitesAtTheirFractionsAndGermlineOnesInBoth) {
  Pair pair({"--seed", "5"});
  std::map<std::string, int> kinds;
  int outside = 0;
  for (const std::vector<std::string>& line : readVcf(pair.paths.somatic)) {
    double fraction = std::stod(line[7].substr(3));
    ++kinds[line[7]];
    EXPECT_EQ(pair.count(0, line).first, 0) << line[1];
    auto [alt, depth] = pair.count(1, line);
    // Five deviations, both reads of a pair counting; a long insertion is cut short by read ends.
    double spread = 5 * std::sqrt(2 * fraction * (1 - fraction) * depth) + 1;
    bool is_insertion = line[7].find("insertion") != std::string::npos;
    outside += alt > fraction * depth + spread || (!is_insertion && alt < fraction * depth - spread);
  }
  EXPECT_EQ(outside, 0);
  EXPECT_EQ(kinds.size(), 9u) << "three fractions of three kinds";
  for (const auto& [kind, number] : kinds) EXPECT_GE(number, 10) << kind;
  std::map<std::string, double> shares = sharesOfSnvs(pair, 1);
  EXPECT_NEAR(shares["AF=0.5"], 0.5, 0.02);
  EXPECT_NEAR(shares["AF=0.2"], 0.2, 0.015);
  EXPECT_NEAR(shares["AF=0.05"], 0.05, 0.01);

  int hets = 0;
  for (const std::vector<std::string>& line : readVcf(pair.paths.truth)) {
    if (line[3].size() > 1 || line[4].size() > 1 || line[9].find('0') == std::string::npos) continue;
    for (size_t sample : {0, 1}) {
      auto [alt, depth] = pair.count(sample, line);
      if (depth < 20) continue;
      EXPECT_NEAR(double(alt) / depth, 0.5, 5 * std::sqrt(0.5 / depth)) << line[1];
      ++hets;
    }
  }
  EXPECT_GT(hets, 60);
  // Without contamination nobody else's alleles are there, in spite of being known.
  std::set<std::string> carried;
  for (const std::vector<std::string>& line : readVcf(pair.paths.truth)) carried.insert(line[1]);
  for (const std::vector<std::string>& line : readVcf(pair.paths.known_sites))
    EXPECT_TRUE(carried.contains(line[1]) || pair.count(1, line).first == 0) << line[1];
  EXPECT_GT(readVcf(pair.paths.cosmic).size(), 100u);
}

TEST(SimulateTumor, ArtefactsAreOfTheirKind) {
  Pair pair({"--seed", "7", "--strand-artefact-rate", "0.001", "--end-artefact-rate", "0.001",
             "--oxidation-rate", "0.002", "--duplicate-rate", "0.3"});
  std::map<std::string, std::pair<int, int>> seen;  // by kind: reads that can show it, and that do
  std::map<std::string, int> in_normal, sites;
  for (const std::vector<std::string>& line : readVcf(pair.paths.artefacts)) {
    std::string kind = split(line[7], ';')[0].substr(5);
    bool both = line[7].find("SAMPLES=both") != std::string::npos;
    int32_t place = std::stoi(line[1]) - 1;
    std::map<std::string, std::set<bool>> molecules;
    std::set<bool> directions;
    for (size_t sample : {0, 1})
      for (const ReadBack* read : pair.readsAt(sample, place)) {
        int32_t at = offsetOf(*read, place);
        if (at < 0) continue;
        bool alt = read->bases[size_t(at)] == line[4][0], reversed = (read->flag & FLAG_REVERSE) != 0;
        bool near = std::min(at, int32_t(read->bases.size()) - 1 - at) < 10;
        bool first_is_reverse = reversed != ((read->flag & FLAG_SECOND) != 0);
        bool can = kind == "oxidation" ? first_is_reverse == (line[3] == "C") : kind == "strand" || near;
        if (alt) directions.insert(reversed);
        if (sample == 0) {
          in_normal[kind] += alt;
          EXPECT_TRUE(both || !alt) << line[1];
        } else {
          seen[kind].first += can;
          seen[kind].second += alt;
          EXPECT_TRUE(can || !alt) << kind << " " << line[1];
          if (kind == "oxidation") molecules[read->name].insert(alt);
        }
      }
    ++sites[kind];
    EXPECT_TRUE(kind != "strand" || directions.size() <= 1) << line[1];
    EXPECT_TRUE(kind != "oxidation" || line[3] + line[4] == "GT" || line[3] + line[4] == "CA");
    for (const auto& [name, alts] : molecules) EXPECT_EQ(alts.size(), 1u) << line[1] << " " << name;
  }
  const std::map<std::string, double> shares = {{"strand", 0.0875}, {"read_end", 0.6}, {"oxidation", 0.125}};
  for (const auto& [kind, share] : shares) {
    EXPECT_GT(sites[kind], 50) << kind;
    EXPECT_NEAR(double(seen[kind].second) / seen[kind].first, share, share / 6) << kind;
    EXPECT_GT(in_normal[kind], 20) << kind;
  }
  // The panel has half of the artefacts.
  std::set<std::string> panel;
  for (const std::vector<std::string>& line : readVcf(pair.paths.panel)) panel.insert(line[1]);
  int listed = 0, all = 0;
  for (const std::vector<std::string>& line : readVcf(pair.paths.artefacts)) {
    listed += panel.contains(line[1]);
    ++all;
  }
  EXPECT_NEAR(double(listed) / all, 0.5, 0.1);
}

}  // namespace
