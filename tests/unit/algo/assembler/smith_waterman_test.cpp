// The aligners against plain matrices in 64 bits, and their paths against their own scores.
#include "algo/assembler/smith_waterman.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

#include "algo/assembler/smith_waterman_kernel.h"

namespace {
using namespace SMITHWATERMAN;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kPairs = 4000;
#else
constexpr int kPairs = 100000;
#endif

std::string randomBases(std::mt19937& random, size_t length, uint32_t letters) {
  std::string bases;
  while (bases.size() < length) bases += "ACGTN"[random() % letters];
  return bases;
}

// Two sequences that share much, or nothing.
std::pair<std::string, std::string> randomPair(std::mt19937& random, size_t longest) {
  const uint32_t letters = 2 + random() % 4;
  std::string reference = randomBases(random, 1 + random() % longest, letters);
  if (random() % 4 == 0) return {reference, randomBases(random, 1 + random() % longest, letters)};
  std::string read = reference.substr(random() % reference.size());
  for (uint32_t edits = random() % 4; edits > 0; --edits) {
    const size_t at = random() % (read.size() + 1);
    if (random() % 2)
      read.insert(at, randomBases(random, 1 + random() % 5, letters));
    else
      read.erase(at, 1 + random() % 5);
  }
  if (read.empty()) read = "A";
  return {reference, read};
}

int64_t gapScore(const Scores& scores, int64_t length) {
  return length == 0 ? 0 : scores[2] + (length - 1) * scores[3];
}

// The best scores of all alignments that end in a cell: rows of reference, columns of read. Every gap is
// tried at its full length, so this knows no states.
std::vector<std::vector<int64_t>> plainMatrix(const std::string& reference, const std::string& read,
                                              const Scores& scores, bool gap_borders) {
  std::vector<std::vector<int64_t>> cells(reference.size() + 1, std::vector<int64_t>(read.size() + 1, 0));
  for (size_t i = 0; i <= reference.size(); ++i) {
    for (size_t j = 0; j <= read.size(); ++j) {
      if (i == 0 || j == 0) {
        cells[i][j] = gap_borders ? gapScore(scores, static_cast<int64_t>(i + j)) : 0;
        continue;
      }
      int64_t best = cells[i - 1][j - 1] + scores[reference[i - 1] == read[j - 1] ? 0 : 1];
      for (size_t k = 0; k < i; ++k)
        best = std::max(best, cells[k][j] + gapScore(scores, static_cast<int64_t>(i - k)));
      for (size_t k = 0; k < j; ++k)
        best = std::max(best, cells[i][k] + gapScore(scores, static_cast<int64_t>(j - k)));
      cells[i][j] = best;
    }
  }
  return cells;
}

// What the path of a result scores, overhangs being free where the strategy has it so.
int64_t rescore(const AlignmentResult& result, const std::string& reference, const std::string& read,
                const Scores& scores, OverhangStrategy strategy) {
  size_t row = static_cast<size_t>(result.alignmentOffset), column = 0;
  int64_t score = 0;
  for (size_t k = 0; k < result.cigar.size(); ++k) {
    const auto& [length, op] = result.cigar[k];
    if (*op == kOpM) {
      for (uint32_t i = 0; i < length; ++i)
        score += scores[reference.at(row + i) == read.at(column + i) ? 0 : 1];
    } else if (*op == kOpI) {
      const bool free_start = k == 0 && strategy == OVERHANG_NONE && result.status.leading_overhang;
      const bool free_end =
          k + 1 == result.cigar.size() && strategy == OVERHANG_LEADING_GAP && result.status.trailing_overhang;
      if (!free_start && !free_end) score += gapScore(scores, length);
    } else if (*op == kOpD) {
      score += gapScore(scores, length);
    } else {
      EXPECT_TRUE(*op == kOpS && strategy == OVERHANG_CLIP && (k == 0 || k + 1 == result.cigar.size()));
    }
    EXPECT_TRUE(k == 0 || op != result.cigar[k - 1].second);
    if (op->consumesReference) row += length;
    if (op->consumesRead) column += length;
  }
  EXPECT_EQ(column, read.size());
  EXPECT_LE(row, reference.size());
  EXPECT_TRUE(strategy != OVERHANG_GAP || row == reference.size());
  EXPECT_TRUE(strategy == OVERHANG_CLIP || strategy == OVERHANG_NONE || result.alignmentOffset == 0);
  EXPECT_TRUE(!result.status.aligned || row == static_cast<size_t>(result.bestRow));
  return score;
}

class EachStrategy : public testing::TestWithParam<OverhangStrategy> {};
INSTANTIATE_TEST_SUITE_P(SmithWaterman, EachStrategy,
                         testing::Values(OVERHANG_CLIP, OVERHANG_GAP, OVERHANG_LEADING_GAP, OVERHANG_NONE));

TEST_P(EachStrategy, ScoreIsTheBestAndThePathScoresIt) {
  const OverhangStrategy strategy = GetParam();
  // The usual scores; linear gaps; gaps so cheap that they follow each other; opening cheaper than extending.
  const Scores all_scores[] = {{200, -150, -260, -11}, {1, -1, -2, -2}, {3, -4, -1, 0}, {5, -9, -2, -6}};
  std::mt19937 random(11);
  SWPairwiseAlignmentWithAlterPath aligner;
  int tied = 0;
  for (int n = 0; n < kPairs; ++n) {
    const auto [reference, read] = randomPair(random, n % 16 == 0 ? 40 : 14);
    const Scores& scores = all_scores[n % 8 < 5 ? 0 : n % 8 - 4];
    aligner.align(reference.data(), reference.size(), read.data(), read.size(), scores, strategy);
    const AlignmentResult& result = aligner.result();

    const auto cells = plainMatrix(reference, read, scores, strategy == 1 || strategy == 2);
    int64_t best = cells.back().back();
    if (strategy != OVERHANG_GAP)
      for (const auto& row : cells) best = std::max(best, row.back());
    if (strategy == OVERHANG_CLIP || strategy == OVERHANG_LEADING_GAP)
      for (size_t j = 1; j <= read.size(); ++j) best = std::max(best, cells.back()[j]);
    ASSERT_EQ(result.score, best) << reference << " " << read;
    ASSERT_TRUE(!result.status.aligned || cells[size_t(result.bestRow)][size_t(result.bestColumn)] == best);
    // Where opening is cheaper, a run of insertions may be many, and its length does not tell their score.
    if (scores[2] > scores[3]) continue;
    ASSERT_EQ(rescore(result, reference, read, scores, strategy), best)
        << reference << " " << read << " " << cigarText(result.cigar);
    if (aligner.alternative() != nullptr) {
      ++tied;
      ASSERT_NE(cigarText(aligner.alternative()->cigar), cigarText(result.cigar));
      ASSERT_EQ(rescore(*aligner.alternative(), reference, read, scores, strategy), best);
    }
  }
  EXPECT_GT(tied, kPairs / 100);
}

TEST(SmithWatermanKernel, BothFillTheSameBytes) {
  if (!__builtin_cpu_supports("sse4.1")) GTEST_SKIP();
  std::mt19937 random(5);
  for (int n = 0; n < kPairs / 20; ++n) {
    const auto [reference, read] = randomPair(random, 60);
    const size_t stride = (read.size() + 3) / 4 * 4, words = reference.size() * stride / 4;
    struct alignas(16) Rows {
      int32_t h[80], e[80], profile[80];
    } rows[2];
    std::vector<int32_t> first(reference.size() + 1), last[2];
    std::vector<uint16_t> directions[2];
    std::vector<uint8_t> ties[2];
    uint8_t profile_row[256] = {};
    for (size_t i = 0; i < first.size(); ++i) first[i] = -static_cast<int32_t>(i * 7);
    for (int kernel = 0; kernel < 2; ++kernel) {
      for (size_t j = 0; j < stride; ++j) {
        rows[0].h[j] = -static_cast<int32_t>(random() % 5);
        rows[0].e[j] = kMinusInfinity;
        rows[0].profile[j] = static_cast<int32_t>(random() % 9) - 4;
      }
      last[kernel].resize(first.size());
      directions[kernel].resize(words);
      ties[kernel].resize(words);
    }
    rows[1] = rows[0];
    const Band band = n % 2 ? Band{-int32_t(random() % 70), int32_t(random() % 70)} : Band{-100, 100};
    for (int kernel = 0; kernel < 2; ++kernel) {
      Rows& r = rows[kernel];
      (kernel == 0 ? fillScalar : fillSse41)(
          {reference.data(), reference.size(), read.size(), stride, profile_row, r.profile, -3, -1, band,
           first.data(), last[kernel].data(), r.h, r.e, directions[kernel].data(), ties[kernel].data()});
    }
    ASSERT_EQ(directions[0], directions[1]);
    ASSERT_EQ(ties[0], ties[1]);
    ASSERT_EQ(last[0], last[1]);
    ASSERT_TRUE(std::equal(rows[0].h, rows[0].h + stride, rows[1].h));
  }
}

// Sequences of haplotypes, that repeat themselves, and that have little in common.
TEST(SmithWaterman, ABandChangesNothing) {
  std::mt19937 random(7);
  SWPairwiseAlignment banded, whole;
  for (int n = 0; n < kPairs / 50; ++n) {
    std::string reference, read;
    const std::string unit = randomBases(random, 1 + random() % (n % 2 ? 300 : 6), 4);
    for (const size_t length = 34 + random() % 300; reference.size() < length;) reference += unit;
    read = reference;
    for (uint32_t edits = random() % (n % 3 ? 6 : 40); edits > 0; --edits) {
      const size_t at = random() % (read.size() + 1);
      if (random() % 3 == 0)
        read.insert(at, randomBases(random, 1 + random() % (n % 5 ? 12 : 80), 5));
      else if (random() % 2 == 0 && read.size() > 100)
        read.erase(at, 1 + random() % (n % 5 ? 12 : 80));
      else if (at < read.size())
        read[at] = "ACGT"[random() % 4];
    }
    if (n % 7 == 0) read = randomBases(random, 34 + random() % 300, 4);
    for (SWPairwiseAlignment* aligner : {&banded, &whole})
      aligner->align(reference.data(), reference.size(), read.data(), read.size(), haplotypeAlignScores,
                     OVERHANG_CLIP, aligner == &banded ? uint32_t{ALIGN_END_TO_END} : 0);
    ASSERT_EQ(cigarText(banded.result().cigar), cigarText(whole.result().cigar)) << reference << " " << read;
    ASSERT_EQ(banded.result().score, whole.result().score);
    ASSERT_EQ(banded.result().alignmentOffset, whole.result().alignmentOffset);
    ASSERT_EQ(banded.result().bestRow, whole.result().bestRow);
    ASSERT_EQ(banded.result().bestColumn, whole.result().bestColumn);
  }
}

struct Fixed {
  const char *reference, *read;
  OverhangStrategy strategy;
  const char* cigar;
  int32_t offset, score, row, column;
};

TEST(SmithWaterman, PlacesEndsByStrategyAndTiesByRule) {
  const Fixed cases[] = {
      {"ACGTTGCAAC", "ACGTTGCAAC", OVERHANG_CLIP, "10M", 0, 2000, 10, 10},
      // The read hangs over either end, or lies within.
      {"ACGTTGCA", "TTTACGTTGCA", OVERHANG_CLIP, "3S8M", 0, 1600, 8, 11},
      {"ACGTTGCA", "TTTACGTTGCA", OVERHANG_NONE, "3I8M", 0, 1600, 8, 11},
      {"ACGTTGCA", "TTTACGTTGCA", OVERHANG_GAP, "3I8M", 0, 1318, 8, 11},
      {"ACGTTGCA", "TTTACGTTGCA", OVERHANG_LEADING_GAP, "3I8M", 0, 1318, 8, 11},
      {"ACGTTGCA", "ACGTTGCATT", OVERHANG_CLIP, "8M2S", 0, 1600, 8, 8},
      {"ACGTTGCA", "ACGTTGCATT", OVERHANG_LEADING_GAP, "8M2I", 0, 1600, 8, 8},
      {"ACGTTGCA", "ACGTTGCATT", OVERHANG_GAP, "8M2I", 0, 1329, 8, 10},
      {"ACGTTGCA", "ACGTTGCATT", OVERHANG_NONE, "8M2I", 0, 1329, 8, 10},
      {"GGGACGTTGCACC", "ACGTTGCA", OVERHANG_CLIP, "8M", 3, 1600, 11, 8},
      {"GGGACGTTGCACC", "ACGTTGCA", OVERHANG_NONE, "8M", 3, 1600, 11, 8},
      {"GGGACGTTGCACC", "ACGTTGCA", OVERHANG_GAP, "3D8M2D", 0, 1047, 13, 8},
      {"GGGACGTTGCACC", "ACGTTGCA", OVERHANG_LEADING_GAP, "3D8M", 0, 1318, 11, 8},
      // The later row wins in the last column, and the diagonal in the last row.
      {"ACTTAC", "AC", OVERHANG_CLIP, "2M", 4, 400, 6, 2},
      {"AC", "ACTTAC", OVERHANG_CLIP, "2M4S", 0, 400, 2, 2},
      {"ACG", "ACGTACG", OVERHANG_LEADING_GAP, "3M4I", 0, 600, 3, 3},
      // Gaps go left.
      {"CTAAAAGCGTAC", "CTAAGCGTAC", OVERHANG_CLIP, "2M2D8M", 0, 1729, 12, 10},
      {"CTAAGCGTAC", "CTAAAAGCGTAC", OVERHANG_CLIP, "2M2I8M", 0, 1729, 10, 12},
      // Nothing in common.
      {"AAAA", "TTT", OVERHANG_CLIP, "3S", 0, 0, -1, -1},
      // A base of the reference that is no letter of the five is an A.
      {"CRG", "CAG", OVERHANG_GAP, "3M", 0, 600, 3, 3},
      {"CAG", "CRG", OVERHANG_GAP, "3M", 0, 250, 3, 3},
  };
  for (const Fixed& c : cases) {
    SWPairwiseAlignment aligner;
    aligner.align(c.reference, strlen(c.reference), c.read, strlen(c.read), haplotypeAlignScores, c.strategy);
    const AlignmentResult& result = aligner.result();
    EXPECT_EQ(cigarText(result.cigar), c.cigar) << c.reference << " " << c.read << " " << c.strategy;
    EXPECT_EQ(result.alignmentOffset, c.offset) << c.reference << " " << c.read << " " << c.strategy;
    EXPECT_EQ(result.score, c.score) << c.reference << " " << c.read << " " << c.strategy;
    EXPECT_EQ(result.bestRow, c.row);
    EXPECT_EQ(result.bestColumn, c.column);
    EXPECT_EQ(result.status.aligned, c.row >= 0);
  }
}

TEST(SmithWaterman, PrefixUsesTheWholeReference) {
  SWPairwiseAlignmentPrefix aligner;
  // The better place in the last column is passed over.
  aligner.align("ACGTTGCA", 8, "ACGTTGCACGGACG", 14, haplotypeAlignScores, OVERHANG_CLIP);
  EXPECT_EQ(cigarText(aligner.result().cigar), "8M6S");
  EXPECT_EQ(aligner.result().bestColumn, 8);
  aligner.align("AAAA", 4, "TTTTT", 5, haplotypeAlignScores, OVERHANG_CLIP);
  EXPECT_EQ(cigarText(aligner.result().cigar), "5S");
  EXPECT_EQ(aligner.result().alignmentOffset, 0);
  EXPECT_EQ(aligner.result().bestRow, -1);
  EXPECT_FALSE(aligner.result().status.aligned);
}

TEST(SmithWaterman, CellsNearMinusInfinityDoNotWrap) {
  const std::string reference(3000, 'A');
  const int32_t gap = -((1 << 30) / (3000 + 3 + 8) - 1);
  for (int32_t extend : {gap, gap + 1}) {  // one kernel each
    const Scores scores = {1, gap, gap, extend};
    SWPairwiseAlignment aligner;
    aligner.align(reference.data(), 3000, "TTT", 3, scores, OVERHANG_GAP);
    EXPECT_EQ(aligner.result().score, plainMatrix(reference, "TTT", scores, true).back().back());
    EXPECT_LT(aligner.result().score, -1060000000);
  }
  // Scores that could wrap, and lengths that no memory would hold, are refused.
  SWPairwiseAlignment aligner;
  const Scores too_large = {1, gap - 2, gap - 2, -1};
  EXPECT_THROW(aligner.align(reference.data(), 3000, "TTT", 3, too_large, OVERHANG_GAP), std::runtime_error);
  const std::string huge(100000, 'A');
  EXPECT_THROW(
      aligner.align(huge.data(), huge.size(), huge.data(), huge.size(), haplotypeAlignScores, OVERHANG_CLIP),
      std::runtime_error);
  EXPECT_THROW(aligner.align("A", SIZE_MAX / 2, "A", 3, haplotypeAlignScores, OVERHANG_CLIP),
               std::runtime_error);
}

TEST(SmithWaterman, RefusesEmptySequencesAndForgetsTheLastResult) {
  SWPairwiseAlignment aligner;
  aligner.align("ACGT", 4, "ACGT", 4, haplotypeAlignScores, OVERHANG_CLIP);
  for (bool no_read : {false, true}) {
    try {
      aligner.align("A", no_read, "A", !no_read, haplotypeAlignScores, OVERHANG_CLIP);
      FAIL();
    } catch (const std::runtime_error& error) {
      EXPECT_STREQ(error.what(), no_read ? "strlen(read) == 0" : "strlen(reference) == 0");
    }
    EXPECT_EQ(aligner.result().bestRow, -1);
    EXPECT_TRUE(aligner.result().cigar.empty());
  }
}

}  // namespace
