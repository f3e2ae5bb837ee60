// Simulated files are the same for the same seed, and their reads show the truth.
#include "simulate.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <locale>
#include <map>

#include "base/text.h"
#include "readdata/bam/bam_impl.h"
#include "temp_folder.h"

namespace {

std::string fileBytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file) << path;
  return {std::istreambuf_iterator<char>(file), {}};
}

struct CommaNumbers : std::numpunct<char> {
  char do_decimal_point() const override { return ','; }
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

struct ReadBack {
  int32_t contig, start;
  uint16_t flag;
  Cigar cigar;
  std::string bases;

  int32_t end() const {
    int32_t end = start;
    for (uint32_t word : cigar)
      if (consumesReference(word)) end += static_cast<int32_t>(cigarLength(word));
    return end;
  }
};

// The reads of a BAM by which a genotype is judged.
std::vector<ReadBack> readBam(const std::string& path) {
  constexpr uint16_t kPassed = FLAG_UNMAPPED | FLAG_DUPLICATE | FLAG_SECONDARY | FLAG_SUPPLEMENTARY;
  BAMImpl bam(path);
  bam.open("r");
  bam.readHeader();
  std::vector<ReadBack> reads;
  for (bam_record record; bam.readRecord(record) > 0;) {
    if ((record.flag & kPassed) != 0) continue;
    ReadBack& read = reads.emplace_back(ReadBack{record.ref_id, record.pos, record.flag, {}, ""});
    for (uint32_t i = 0; i < record.n_cigar; ++i) read.cigar.push_back(record.cigarWord(i));
    read.bases.resize(size_t(record.l_seq));
    decodeBases(record.packedBases(), read.bases.size(), read.bases.data());
  }
  return reads;
}

// The columns of every line that is no header line.
std::vector<std::vector<std::string>> readVcf(const std::string& path) {
  BGZFHandle file;
  EXPECT_TRUE(file.openFile(path.c_str(), "r"));
  std::string text(1 << 22, 0);
  text.resize(static_cast<size_t>(file.read(text.data(), text.size())));
  std::vector<std::vector<std::string>> lines;
  for (const std::string& line : split(text, '\n'))
    if (!line.empty() && line[0] != '#') lines.push_back(split(line, '\t'));
  return lines;
}

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

// What a read says at a site: the sequence it has in place of `ref`, when it covers the site with room on
// both sides; else empty.
std::string alleleOf(const ReadBack& read, int32_t start, size_t ref_length) {
  constexpr int32_t kRoom = 6;
  auto stop = start + static_cast<int32_t>(ref_length);
  if (read.start > start - kRoom || read.end() < stop + kRoom) return "";
  std::string allele;
  int32_t place = read.start;
  size_t at = 0;
  for (uint32_t word : read.cigar) {
    for (uint32_t i = 0; i < cigarLength(word); ++i) {
      // An inserted base belongs to the reference base before it.
      int32_t belongs = consumesReference(word) ? place : place - 1;
      if (consumesRead(word) && cigarOp(word) != CIGAR_S && belongs >= start && belongs < stop)
        allele += read.bases[at];
      at += consumesRead(word);
      place += consumesReference(word) ? 1 : 0;
    }
  }
  return allele;
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
