#include "algo/vcall/read_evaluator.h"

#include <cmath>
#include <cstring>
#include <deque>
#include <gtest/gtest.h>
#include <random>

#include "algo/assembler/cigar_utils.h"
#include "algo/vcall/pairhmm/models.h"
#include "algo/vcall/read_window.h"
#include "assembly_reads.h"
#include "read_builder.h"

namespace {

// A region of 300 bases at 1000, with haplotypes and reads over it.
struct ReadEvaluatorTest : testing::Test {
  std::mt19937 random{5};
  PairHMM hmm{std::make_unique<HaploModel>(PairHMM::kConservative)};
  AssemblyTask task;
  std::deque<bam_record> records;
  std::deque<BAMRead> reads;
  std::vector<double> rows;
  std::vector<std::unique_ptr<RealignedRead>> made;
  std::vector<Read*> aligned;

  ReadEvaluatorTest() {
    task.reference = {randomSequence(random, 400), 950};
    task.contig = "1";
    task.trimmedInterval = {1000, 1300};
    addHaplotype(ref());
  }
  std::string ref() const { return task.reference.bases.substr(50, 300); }
  void addHaplotype(const std::string& bases) {
    auto haplotype = std::make_unique<Haplotype>();
    haplotype->bases = bases;
    haplotype->isRef = task.haplotypes.empty();
    CigarElements cigar;
    ASSERT_TRUE(CigarUtils::computeCigar(ref().data(), 300, bases.data(), bases.size(), cigar));
    haplotype->cigar = CigarUtils::toWords(
        CigarUtils::leftAlignCigarSequentially(cigar, ref().data(), 300, bases.data(), bases.size(), 0, 0));
    task.haplotypes.push_back(std::move(haplotype));
  }
  void addRead(uint32_t start, const std::string& cigar, const std::string& bases) {
    records.push_back(readBuilder("r").at(0, int32_t(start)).cigar(cigar).seq(bases));
    reads.emplace_back().attach(records.back());
    ReadClip clip;
    ASSERT_TRUE(clipRead(reads.back(), {reads.back().start, reads.back().end}, 1000, 1300, clip));
    reads.back().getBases();
    task.reads.push_back(clip);
  }
  // The read as it is, with the bases of a haplotype from `offset`.
  void addRead(size_t haplotype, size_t offset, size_t length) {
    const std::string bases = task.haplotypes[haplotype]->bases.substr(offset, length);
    addRead(uint32_t(1000 + offset), std::to_string(bases.size()) + "M", bases);
  }
  // The bases with those of the reference in place of what the CIGAR pairs with it.
  std::string spell(const std::string& bases, const Cigar& cigar, uint32_t position) const {
    std::string spelled;
    for (const uint32_t word : cigar) {
      const uint32_t length = cigarLength(word);
      if (cigarOp(word) == CIGAR_M)
        spelled.append(task.reference.from(position), length);
      else if (cigarOp(word) == CIGAR_I)
        spelled += bases.substr(spelled.size(), length);
      if (consumesReference(word)) position += length;
    }
    return spelled;
  }
  void realign() { ReadEvaluator(hmm, nullptr, 0).realign(task, rows, made, aligned); }
  // Every read is of the one haplotype.
  void setBest(size_t haplotype) {
    rows.assign(task.reads.size() * task.haplotypes.size(), -9);
    for (size_t r = 0; r < task.reads.size(); ++r) rows[r * task.haplotypes.size() + haplotype] = -1;
  }
};

TEST_F(ReadEvaluatorTest, ValuesDoNotDependOnChunks) {
  for (int h = 0; h < 6; ++h) {
    std::string bases = ref();
    for (int i = 0; i < 3; ++i) bases[random() % 300] = 'A';
    if (h & 1) bases.erase(100 + random() % 90, size_t(h));
    addHaplotype(bases);
  }
  for (int r = 0; r < 60; ++r) addRead(random() % 7, random() % 200, 50 + random() % 50);
  addRead(1100, "80M", randomSequence(random, 80));
  task.reads.push_back(task.reads.back());
  task.reads.back().readEnd = task.reads.back().readStart;
  std::vector<double> want;
  ReadEvaluator(hmm, nullptr, 0).calcLikelihoods(task, want);
  ASSERT_EQ(want.size(), 62u * 7);
  EXPECT_TRUE(std::isnan(want[60 * 7]));
  EXPECT_TRUE(std::isnan(want[61 * 7]));
  for (size_t i = 0; i < want.size(); ++i) EXPECT_TRUE(std::isfinite(want[i]) || i % 7 == 0);
  std::vector<double> naive(7);
  for (size_t r = 0; r < 60; ++r) {
    std::vector<Allele> alleles;
    for (const auto& h : task.haplotypes)
      alleles.push_back({h->bases.data(), int32_t(h->bases.size()), 0, h->isRef});
    hmm.calcLikelihood({task.reads[r]}, alleles, naive.data(), 0, 1);
    EXPECT_EQ(0, memcmp(naive.data(), want.data() + r * 7, 7 * sizeof(double)));
  }
  thread_coop pool;
  for (int i = 0; i < 3; ++i) pool.addWorker([] {});
  std::vector<Read*> same;
  ReadEvaluator(hmm, nullptr, 0).realign(task, want, made, same);
  for (const int size : {1, 7, 30, 12800}) {
    rows.assign(3, 5);
    const ReadEvaluator evaluator(hmm, &pool, size);
    evaluator.calcLikelihoods(task, rows);
    ASSERT_EQ(rows.size(), want.size());
    EXPECT_EQ(0, memcmp(rows.data(), want.data(), want.size() * sizeof(double))) << size;
    std::vector<std::unique_ptr<RealignedRead>> own;
    evaluator.realign(task, rows, own, aligned);
    for (size_t r = 0; r < same.size(); ++r) {
      EXPECT_EQ(aligned[r]->cigarString(), same[r]->cigarString());
      EXPECT_EQ(aligned[r]->start, same[r]->start);
    }
  }
}

TEST_F(ReadEvaluatorTest, ReadsGoThroughTheirHaplotype) {
  int checked = 0;
  for (int round = 0; round < 200; ++round) {
    task.haplotypes.resize(1);
    task.reads.clear(), reads.clear(), records.clear();
    std::string bases = ref();
    for (int i = 0; i < 2; ++i) {
      const size_t at = 30 + random() % 220, length = 1 + random() % 12;
      if (random() & 1)
        bases.erase(at, length);
      else
        bases.insert(at, randomSequence(random, length));
    }
    addHaplotype(bases);
    for (int r = 0; r < 20; ++r) addRead(1, random() % 180, 40 + random() % 60);
    setBest(1);
    realign();
    if (spell(bases, task.haplotypes[1]->cigar, 1000) != bases) continue;  // it has mismatches
    ++checked;
    for (const Read* read : aligned) {
      Cigar cigar;
      for (uint32_t i = 0; i < read->n_cigar; ++i) cigar.push_back(read->cigarWord(i));
      const std::string letters(read->bases, size_t(read->length));
      EXPECT_EQ(spell(letters, cigar, read->start), letters) << read->cigarString();
    }
  }
  EXPECT_GT(checked, 100);
}

struct RealignCase {
  const char* what;
  std::string cigar, want;
  int start, want_start;  // of the region's 0
};

TEST_F(ReadEvaluatorTest, TheRestOfAReadKeepsItsPlaceWhereItCan) {
  std::string bases = ref().erase(101, 6);
  addHaplotype(bases);
  const std::string far = task.reference.bases.substr(20, 30) + bases;  // from 30 bases before the region
  const RealignCase cases[] = {
      {"in front", "180M", "131M6D49M", -30, -30},
      {"hard clip", "3H150M2H", "3H101M6D49M2H", 0, 0},
  };
  for (const RealignCase& c : cases) {
    SCOPED_TRACE(c.what);
    task.reads.clear();
    const uint32_t from = uint32_t(c.start + 30);
    addRead(uint32_t(1000 + c.start), c.cigar, far.substr(from, c.start < 0 ? 180 : 150));
    setBest(1);
    realign();
    EXPECT_EQ(aligned[0]->cigarString(), c.want);
    EXPECT_EQ(int(aligned[0]->start), 1000 + c.want_start);
  }
  // In front of the clip lies what does not join: the read was placed 6 bases too far to the left.
  task.reads.clear();
  addRead(964, "160M", far.substr(0, 160));
  setBest(1);
  realign();
  EXPECT_EQ(aligned[0]->cigarString(), "36S95M6D29M");
  EXPECT_EQ(aligned[0]->start, 1006u);
}

TEST_F(ReadEvaluatorTest, ReadsWithoutASingleBestHaplotypeStay) {
  addHaplotype(ref().erase(101, 6));
  addRead(1, 60, 100);
  const auto stays = [&](std::vector<double> row) {
    rows = std::move(row);
    realign();
    return aligned.size() == 1 && aligned[0] == task.reads[0].read && !made[0];
  };
  EXPECT_TRUE(stays({-1, -1}));
  EXPECT_TRUE(stays({-1.1, -1}));
  EXPECT_TRUE(stays({std::nan(""), -1}));
  EXPECT_FALSE(stays({-1.3, -1}));
  EXPECT_EQ(aligned[0]->cigarString(), "41M6D59M");
  // Nor does one move whose haplotype does not lead onto the reference.
  task.haplotypes[1]->cigar = parseCigar("30M");
  EXPECT_TRUE(stays({-9, -1}));
  task.haplotypes[1]->cigar = parseCigar("2000M");
  task.trimmedInterval.start = 1340;
  EXPECT_TRUE(stays({-9, -1}));
}

}  // namespace
