#include "algo/assembler/cigar_utils.h"

#include <gtest/gtest.h>
#include <random>
#include <stdexcept>
#include <string>

#include "algo/assembler/smith_waterman.h"
#include "random_cigar.h"

namespace {
using namespace CigarUtils;

CigarElements cigar(const char* text) {
  CigarElements elements;
  while (*text != 0) {
    char* end;
    const auto length = static_cast<uint32_t>(strtoul(text, &end, 10));
    elements.emplace_back(length, &kCigarOperators[strchr(kCigarOps, *end) - kCigarOps]);
    text = end + 1;
  }
  return elements;
}

std::string randomBases(std::mt19937& random, size_t length, uint32_t letters) {
  std::string bases;
  while (bases.size() < length) bases += "ACGT"[random() % letters];
  return bases;
}

std::string computed(const std::string& ref, const std::string& alt) {
  CigarElements elements = cigar("1M");
  if (computeCigar(ref.data(), ref.size(), alt.data(), alt.size(), elements)) return cigarText(elements);
  EXPECT_TRUE(elements.empty());
  return "none";
}

TEST(ComputeCigar, CoversBothSequences) {
  EXPECT_EQ(computed("ACGTTGCAACGT", "ACGTTGCAACGT"), "12M");
  EXPECT_EQ(computed("ACGTTGCAACGT", "ACGTTCCAACGT"), "12M");
  EXPECT_EQ(computed("ACGT", ""), "4D");
  EXPECT_EQ(computed("ACGTTGCAACGT", "TTGCAACGT"), "3D9M");
  EXPECT_EQ(computed("ACGTTGCAACGT", "ACGTTGCAA"), "9M3D");
  EXPECT_EQ(computed("TTGCAACGT", "ACGTTGCAACGT"), "3I9M");
  // The padding is no different from unknown bases of the reference.
  EXPECT_EQ(computed("NNNNACGTTGCAACGT", "ACGTTGCAACGT"), "4D12M");
  EXPECT_EQ(computed("ACGTTGCAACGTNNNN", "ACGTTGCAACGT"), "12M4D");
  EXPECT_EQ(computed("ACGTTGCAACGT", "NNNNACGTTGCAACGT"), "none");
  EXPECT_EQ(computed(std::string(400, 'A'), std::string(400, 'T')), "none");
  testing::internal::CaptureStderr();
  EXPECT_EQ(computed("", "ACG"), "3I");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Warning in Smith-Waterman: zero ref length\n");
}

TEST(ComputeCigar, IsABestAlignmentOfEndToEndHaplotypes) {
  std::mt19937 random(17);
  const int32_t* scores = SMITHWATERMAN::haplotypeAlignScores;
  for (int n = 0; n < 2000; ++n) {
    const std::string ref = randomBases(random, 60 + random() % 60, 2 + random() % 3);
    std::string alt = ref;
    for (uint32_t edits = random() % 4; edits > 0; --edits) {
      const size_t at = random() % alt.size();
      if (random() % 3 == 0)
        alt[at] = "ACGT"[random() % 4];
      else if (random() % 2)
        alt.insert(at, randomBases(random, 1 + random() % 12, 4));
      else
        alt.erase(at, 1 + random() % 12);
    }
    CigarElements elements;
    ASSERT_TRUE(computeCigar(ref.data(), ref.size(), alt.data(), alt.size(), elements)) << ref << " " << alt;
    size_t r = 0, a = 0;
    int32_t score = 0;
    for (const auto& [length, op] : elements) {
      ASSERT_TRUE(*op == kOpM || *op == kOpI || *op == kOpD);
      for (uint32_t i = 0; i < length; ++i)
        score += *op == kOpM ? scores[ref.at(r + i) == alt.at(a + i) ? 0 : 1] : scores[i == 0 ? 2 : 3];
      if (op->consumesReference) r += length;
      if (op->consumesRead) a += length;
    }
    ASSERT_EQ(r, ref.size());
    ASSERT_EQ(a, alt.size());
    SMITHWATERMAN::SWPairwiseAlignment end_to_end;
    end_to_end.align(ref.data(), ref.size(), alt.data(), alt.size(), SMITHWATERMAN::haplotypeAlignScores,
                     SMITHWATERMAN::OVERHANG_GAP);
    ASSERT_EQ(score, end_to_end.result().score) << ref << " " << alt << " " << cigarText(elements);
  }
}

// These are not aligned: the answer is known.
TEST(ComputeCigar, FewMismatchesAreWhatAnAlignmentGives) {
  const std::string padding(10, 'N');
  std::mt19937 random(18);
  for (int n = 0; n < 20000; ++n) {
    const size_t length = 1 + random() % 24;
    const std::string unit = randomBases(random, 1 + random() % 4, 3);
    std::string ref;
    while (ref.size() < length) ref += unit;
    std::string alt = ref;
    for (int edits = 0; edits < 2; ++edits) alt[random() % alt.size()] = "ACGT"[random() % 4];
    SMITHWATERMAN::SWPairwiseAlignment aligner;
    aligner.align((padding + ref + padding).data(), ref.size() + 20, (padding + alt + padding).data(),
                  alt.size() + 20, SMITHWATERMAN::haplotypeAlignScores, SMITHWATERMAN::OVERHANG_CLIP);
    ASSERT_EQ(cigarText(aligner.result().cigar), std::to_string(ref.size() + 20) + "M") << ref << " " << alt;
    ASSERT_EQ(computed(ref, alt), std::to_string(ref.size()) + "M");
  }
}

TEST(TrimCigar, KeepsBasesOfTheReadAndGapsBesideThem) {
  const struct {
    const char* whole;
    size_t start, end;
    const char* trimmed;
  } cases[] = {
      {"30M", 10, 19, "10M"},
      {"5S10M5I10M", 3, 21, "2S10M5I2M"},
      {"10M3D10M", 10, 14, "3D5M"},
      {"10M3D10M", 5, 9, "5M3D"},
      {"10M3D10M", 5, 8, "4M"},
      {"10M3D10M", 11, 14, "4M"},
      {"4=1X5=100N10M", 2, 12, "2=1X5=100N3M"},
      {"2M2I2M", 0, 100, "2M2I2M"},
      {"2M2I2M", 6, 9, ""},
  };
  for (const auto& c : cases) EXPECT_EQ(cigarText(trimCigar(cigar(c.whole), c.start, c.end)), c.trimmed);
  for (const char* unsupported : {"3H10M", "5M1P5M"}) {
    try {
      trimCigar(cigar(unsupported), 0, 9);
      ADD_FAILURE();
    } catch (const std::runtime_error& error) {
      EXPECT_STREQ(error.what(), "Unsupported cigar operator in trimCigar");
    }
  }
}

std::string leftAligned(const char* text, const std::string& ref, const std::string& read) {
  return cigarText(
      leftAlignCigarSequentially(cigar(text), ref.data(), ref.size(), read.data(), read.size(), 0, 0));
}

TEST(LeftAlign, MovesGapsWithinTheElementBefore) {
  EXPECT_EQ(leftAligned("6M2D4M", "GCATATATTTCG", "GCATATTTCG"), "2M2D8M");
  EXPECT_EQ(leftAligned("6M2I4M", "GCATATTTCG", "GCATATATTTCG"), "2M2I8M");
  EXPECT_EQ(leftAligned("4S4M1I1M", "AAAAA", "AAAAAAAAAA"), "4S1I5M");
  // Two gaps meet and become one; a mismatch is not passed.
  EXPECT_EQ(leftAligned("3M1D2M1D2M", "GAAAAAAAC", "GAAAAAC"), "1M2D6M");
  EXPECT_EQ(leftAligned("6M1D2M", "GAAAAAAAC", "GAATAAAC"), "4M1D4M");
  testing::internal::CaptureStderr();
  EXPECT_EQ(leftAligned("6M1D20M", "GAAAAAAAC", "GAATAAAC"), "6M1D20M");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "leftAlignCigarSequentially failed for 6M1D20M \n");
}

// The columns of an alignment, one letter each; gap by gap shifted left by one column while the pair that
// changes sides matches on both.
std::string shiftedByOne(std::string columns, const std::string& ref, const std::string& read) {
  auto matches = [&](size_t column) {
    size_t r = 0, q = 0;
    for (size_t i = 0; i < column; ++i) {
      r += columns[i] != 'I';
      q += columns[i] != 'D';
    }
    return ref[r] == read[q];
  };
  for (size_t end = 0; end < columns.size(); ++end) {
    if (columns[end] == 'M') continue;
    size_t first = end;
    while (end < columns.size() && columns[end] == columns[first]) ++end;
    const size_t next = end;
    while (first > 0 && columns[first - 1] == 'M' && matches(first - 1)) {
      const std::string unshifted = columns;
      columns.erase(--first, 1).insert(--end, 1, 'M');
      if (!matches(end)) {
        columns = unshifted;
        break;
      }
    }
    end = next - 1;
  }
  std::string text;
  for (size_t i = 0, j; i < columns.size(); i = j) {
    for (j = i; j < columns.size() && columns[j] == columns[i]; ++j) {
    }
    text += std::to_string(j - i) + columns[i];
  }
  return text;
}

TEST(LeftAlign, SameAsShiftsByOneBase) {
  std::mt19937 random(23);
  int moved = 0;
  for (int n = 0; n < 20000; ++n) {
    const std::string unit = randomBases(random, 1 + random() % 3, 3);
    std::string ref, read, columns;
    while (ref.size() < 12) ref += random() % 6 == 0 ? randomBases(random, 1, 4) : unit;
    for (size_t r = 0; r < ref.size();) {
      const uint32_t length = 1 + random() % 4;
      const char op = columns.empty() || columns.back() != 'M' ? 'M' : "MMID"[random() % 4];
      for (uint32_t i = 0; i < length && r < ref.size(); ++i) {
        columns += op;
        if (op == 'M') read += random() % 30 == 0 ? 'T' : ref[r];
        if (op == 'I') read += unit[i % unit.size()];
        r += op != 'I';
      }
    }
    CigarElements elements = {{2, &kOpS}};
    for (char op : columns) appendElement(elements, 1, kCigarOperators[strchr(kCigarOps, op) - kCigarOps]);
    const std::string long_ref = "GG" + ref + "G", long_read = "CCCCC" + read + "C";
    const std::string aligned = cigarText(leftAlignCigarSequentially(
        elements, long_ref.data(), long_ref.size(), long_read.data(), long_read.size(), 2, 3));
    ASSERT_EQ(aligned, "2S" + shiftedByOne(columns, ref, read)) << ref << " " << read << " " << columns;
    moved += aligned != cigarText(elements);
  }
  EXPECT_GT(moved, 5000);
}

TEST(CigarElements, ConsolidateAndConvert) {
  EXPECT_EQ(cigarText(consolidate(cigar("0I3M0D2M1D1I2I0S"))), "5M1D3I");
  EXPECT_EQ(cigarText(consolidate(cigar("1I1D4M1D1I"))), "1I1D4M1D1I");
  std::mt19937 random(2);
  for (int n = 0; n < 100; ++n) {
    const Cigar words = randomCigar(random, 8, 1000, "MIDNP=X");
    EXPECT_EQ(toWords(fromWords(words)), words);
  }
  for (uint32_t op = 0; op < 9; ++op) {
    EXPECT_EQ(kCigarOperators[op].byte, kCigarOps[op]);
    EXPECT_EQ(kCigarOperators[op].consumesRead, consumesRead(op));
    EXPECT_EQ(kCigarOperators[op].consumesReference, consumesReference(op));
  }
  EXPECT_THROW(fromWords({5 << 4 | CIGAR_B}), std::runtime_error);
  EXPECT_THROW(toWords({{1 << 28, &kOpM}}), std::runtime_error);
}

}  // namespace
