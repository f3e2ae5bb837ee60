// The files of a simulation against each other and against a recount.
#include <algorithm>
#include <cmath>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <iterator>
#include <locale>

#include "readdata/ref/fasta_file.h"
#include "simulated_data.h"

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

std::vector<std::string> referenceBases() {
  const SimulatedData& data = SimulatedData::get();
  FastaFile fasta(OutputPaths(data.options).reference);
  std::vector<std::string> contigs;
  for (const std::string& name : fasta.names()) {
    std::string& bases = contigs.emplace_back(fasta.entry(name)->length, 0);
    EXPECT_EQ(fasta.fetch(name.c_str(), 0, fasta.entry(name)->length, bases.data()), bases.size());
  }
  return contigs;
}

std::map<std::string, int> contigNumbers() {
  std::map<std::string, int> numbers;
  for (const ContigPlan& contig : SimulatedData::get().options.contigs)
    numbers.emplace(contig.name, static_cast<int>(numbers.size()));
  return numbers;
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

TEST(Simulate, SummaryEqualsARecountAndEverythingIsPresent) {
  using Test = std::function<bool(const ReadBack&)>;
  auto unmapped = [](const ReadBack& r) { return r.is(FLAG_UNMAPPED); };
  const std::vector<std::pair<std::string, Test>> kinds = {
      {"records", [](const ReadBack&) { return true; }},
      {"primary", [](const ReadBack& r) { return r.primary(); }},
      {"secondary", [](const ReadBack& r) { return r.is(FLAG_SECONDARY); }},
      {"supplementary", [](const ReadBack& r) { return r.is(FLAG_SUPPLEMENTARY); }},
      {"mapped", [&](const ReadBack& r) { return !unmapped(r); }},
      {"unmapped beside mate", [&](const ReadBack& r) { return unmapped(r) && r.contig >= 0; }},
      {"unplaced", [&](const ReadBack& r) { return unmapped(r) && r.contig < 0; }},
      {"properly paired", [](const ReadBack& r) { return r.primary() && r.is(FLAG_PROPER_PAIR); }},
      {"mate on another contig",
       [&](const ReadBack& r) {
         return r.primary() && !unmapped(r) && !r.is(FLAG_MATE_UNMAPPED) && r.contig != r.mate_contig;
       }},
      {"flagged duplicate", [](const ReadBack& r) { return r.is(FLAG_DUPLICATE); }},
      {"qc fail", [](const ReadBack& r) { return r.is(FLAG_QC_FAIL); }},
      {"soft clipped", [](const ReadBack& r) { return r.has(CIGAR_S); }},
      {"hard clipped", [](const ReadBack& r) { return r.has(CIGAR_H); }},
      {"with insertion", [](const ReadBack& r) { return r.has(CIGAR_I); }},
      {"with deletion", [](const ReadBack& r) { return r.has(CIGAR_D); }},
      {"mapq 0", [&](const ReadBack& r) { return !unmapped(r) && r.mapq == 0; }},
      {"mapq 1-59", [&](const ReadBack& r) { return !unmapped(r) && r.mapq > 0 && r.mapq < 60; }},
      {"mapq 60", [](const ReadBack& r) { return r.mapq == 60; }},
      {"adapter dimer reads",
       [](const ReadBack& r) { return r.contig < 0 && r.bases.find("GATCGGAAGAGC") < 3; }},
  };
  const SimulatedData& data = SimulatedData::get();
  for (size_t s = 0; s < data.reads.size(); ++s) {
    const Tally& tally = data.summary.samples[s].second;
    for (const auto& [what, test] : kinds) {
      auto count = static_cast<uint64_t>(std::count_if(data.reads[s].begin(), data.reads[s].end(), test));
      EXPECT_GT(count, 0u) << what;
      // A sequencing error may hide an adapter.
      if (what == "adapter dimer reads")
        EXPECT_NEAR(static_cast<double>(count), static_cast<double>(tallied(tally, what)),
                    0.1 * static_cast<double>(count));
      else
        EXPECT_EQ(count, tallied(tally, what)) << what;
    }
    EXPECT_EQ(tallied(tally, "primary"), 2 * tallied(tally, "pairs"));
    for (const char* what :
         {"pcr duplicates", "optical duplicates", "adapter reads", "chimeras split in a read"})
      EXPECT_GT(tallied(tally, what), 0u) << what;
  }
  for (const auto& [what, count] : data.summary.genome) EXPECT_GT(count, 0u) << what;
}

TEST(Simulate, RecordsAreSortedAndMatesAgree) {
  const SimulatedData& data = SimulatedData::get();
  for (const std::vector<ReadBack>& reads : data.reads) {
    auto place = [](const ReadBack& r) { return std::pair(static_cast<uint32_t>(r.contig), r.start); };
    EXPECT_TRUE(std::is_sorted(reads.begin(), reads.end(),
                               [&](const ReadBack& a, const ReadBack& b) { return place(a) < place(b); }));
    std::map<std::string, std::vector<const ReadBack*>> pairs;
    for (const ReadBack& read : reads)
      if (read.primary()) pairs[read.name].push_back(&read);
    for (const auto& [name, ends] : pairs) {
      ASSERT_EQ(ends.size(), 2u) << name;
      EXPECT_NE(ends[0]->is(FLAG_FIRST), ends[1]->is(FLAG_FIRST)) << name;
      EXPECT_EQ(ends[0]->tlen, -ends[1]->tlen) << name;
    }
    for (const ReadBack& read : reads) {
      const std::vector<const ReadBack*>& ends = pairs.at(read.name);
      const ReadBack& mate = *ends[ends[0]->is(FLAG_FIRST) == read.is(FLAG_FIRST) ? 1 : 0];
      EXPECT_EQ(std::pair(read.mate_contig, read.mate_start), std::pair(mate.contig, mate.start))
          << read.name;
      EXPECT_EQ(read.is(FLAG_MATE_UNMAPPED), mate.is(FLAG_UNMAPPED)) << read.name;
      EXPECT_EQ(read.is(FLAG_MATE_REVERSE), mate.is(FLAG_REVERSE)) << read.name;
      if (mate.is(FLAG_UNMAPPED)) continue;
      EXPECT_EQ(read.tags.at("MC"), mate.cigarText());
      EXPECT_EQ(read.tags.at("MQ"), std::to_string(mate.mapq));
    }
  }
}

TEST(Simulate, SplitReadsPointAtEachOther) {
  const SimulatedData& data = SimulatedData::get();
  std::map<std::pair<std::string, bool>, std::vector<const ReadBack*>> split_reads;
  for (const ReadBack& read : data.reads[0])
    if (read.tags.count("SA")) split_reads[{read.name, read.is(FLAG_FIRST)}].push_back(&read);
  EXPECT_EQ(split_reads.size(), tallied(data.summary.samples[0].second, "supplementary"));
  for (const auto& [key, parts] : split_reads) {
    ASSERT_EQ(parts.size(), 2u) << key.first;
    for (int i = 0; i < 2; ++i) {
      std::vector<std::string> fields = split(parts[i]->tags.at("SA"), ',');
      ASSERT_EQ(fields.size(), 6u);
      const ReadBack& other = *parts[1 - i];
      EXPECT_EQ(fields[0], data.options.contigs[other.contig].name);
      EXPECT_EQ(fields[1], std::to_string(other.start + 1));
      EXPECT_EQ(fields[2], other.is(FLAG_REVERSE) ? "-" : "+");
      EXPECT_EQ(fields[5], other.tags.at("NM") + ";");
    }
    EXPECT_NE(parts[0]->is(FLAG_SUPPLEMENTARY), parts[1]->is(FLAG_SUPPLEMENTARY));
  }
}

// The reference under an alignment, rebuilt from the read and MD alone; the differences met on the way.
std::string rebuildReference(const ReadBack& read, int* differences) {
  std::string aligned;  // the read without clips and insertions; '-' where it lacks bases
  size_t at = 0;
  *differences = 0;
  for (uint32_t word : read.cigar) {
    uint32_t length = cigarLength(word);
    if (cigarOp(word) == CIGAR_M) aligned += read.bases.substr(at, length);
    if (cigarOp(word) == CIGAR_D) aligned.append(length, '-');
    if (cigarOp(word) == CIGAR_I) *differences += static_cast<int>(length);
    if (consumesRead(word)) at += length;
  }
  size_t done = 0;
  const std::string& md = read.tags.at("MD");
  for (size_t i = 0; i < md.size();) {
    if (isdigit(static_cast<unsigned char>(md[i]))) {
      for (size_t run = std::stoul(md.substr(i)); run > 0; --run, ++done)
        if (done >= aligned.size() || aligned[done] == '-') return "MD matches what is not there";
      while (i < md.size() && isdigit(static_cast<unsigned char>(md[i]))) ++i;
      continue;
    }
    bool deletion = md[i] == '^';
    if (deletion) ++i;
    for (; i < md.size() && isupper(static_cast<unsigned char>(md[i])); ++i, ++done) {
      if (done >= aligned.size() || (aligned[done] == '-') != deletion) return "MD does not fit the CIGAR";
      aligned[done] = md[i];
      ++*differences;
    }
  }
  return done == aligned.size() ? aligned : "MD is of another length";
}

TEST(Simulate, MdRebuildsTheReferenceAndNmIsItsCount) {
  std::vector<std::string> reference = referenceBases();
  size_t tested = 0;
  for (const std::vector<ReadBack>& reads : SimulatedData::get().reads)
    for (const ReadBack& read : reads) {
      if (read.is(FLAG_UNMAPPED) || read.bases.empty()) continue;
      int differences = 0;
      std::string rebuilt = rebuildReference(read, &differences);
      EXPECT_EQ(rebuilt, reference[read.contig].substr(read.start, read.end() - read.start)) << read.name;
      EXPECT_EQ(std::to_string(differences), read.tags.at("NM")) << read.name;
      ++tested;
    }
  EXPECT_GT(tested, 40000u);
}

// --- truth ---

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
  const SimulatedData& data = SimulatedData::get();
  std::map<std::string, int> numbers = contigNumbers();
  size_t tested = 0, thin = 0, indels = 0, tested_multi = 0;
  for (const std::vector<std::string>& line : readVcf(OutputPaths(data.options).truth)) {
    int contig = numbers.at(line[0]);
    if (contig == 2) continue;
    int32_t start = std::stoi(line[1]) - 1;
    std::vector<std::string> alleles = split(line[4], ',');
    alleles.insert(alleles.begin(), line[3]);
    for (size_t s = 0; s < 3; ++s) {
      std::map<std::string, int> seen;
      int depth = 0;
      auto first =
          std::lower_bound(data.reads[s].begin(), data.reads[s].end(), std::pair(contig, start - 400),
                           [](const ReadBack& read, const std::pair<int, int32_t>& place) {
                             return read.contig >= 0 && std::pair(read.contig, read.start) < place;
                           });
      for (auto read = first; read != data.reads[s].end() && read->contig == contig && read->start <= start;
           ++read) {
        if (read->is(FLAG_UNMAPPED) || read->is(FLAG_DUPLICATE) || !read->primary()) continue;
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

// --- duplicates and qualities ---

}  // namespace
