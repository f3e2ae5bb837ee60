#include "algo/preprocess/base_alignment.h"

#include <cmath>
#include <gmock/gmock.h>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr double kOpen = 1e-4, kExtend = 0.1;

std::string randomBases(std::mt19937& random, int length) {
  std::string bases;
  for (int i = 0; i < length; i++) bases += "ACGT"[random() % 4];
  return bases;
}

struct Aligned {
  std::string read, reference;
  std::vector<uint8_t> quals, inserted;
  std::vector<int32_t> positions;

  std::vector<float> errors(double gap_open = 40) const {
    std::vector<float> errors(read.size());
    BaseAlignment(gap_open).compute({read.data(), quals.data(), positions.data(), inserted.data(),
                                     int(read.size()), reference.data(), int(reference.size())},
                                    errors.data());
    return errors;
  }
};

// Every path of states within the 16 diagonals of the band, one after the other.
class AllPaths {
 public:
  explicit AllPaths(const Aligned& aligned) : a_(aligned), right_(a_.read.size()) {}
  std::vector<double> errors() {
    for (int k = kLowest; k < kLowest + 16; k++) {
      walk(0, k, 'M', 1 - kOpen);
      walk(0, k, 'I', kOpen);
    }
    for (double& r : right_) r = 1 - r / all_;
    return right_;
  }

 private:
  // `p` is the probability of the path up to the entry of `state` at base i and position k.
  void walk(size_t i, int k, char state, double p) {
    if (k - int(i) < kLowest || k - int(i) >= kLowest + 16) return;
    if (i == a_.read.size()) return;
    if (state == 'D') {
      walk(i + 1, k + 1, 'M', p * (1 - kExtend));
      walk(i, k + 1, 'D', p * kExtend);
      return;
    }
    const double e = std::pow(10, -0.1 * std::max<int>(a_.quals[i], 4));
    const bool inside = k >= 0 && k < int(a_.reference.size());
    p *= state == 'I' ? 0.25 : inside && a_.read[i] == a_.reference[size_t(k)] ? 1 - e : e * 0.33333333333;
    path_.emplace_back(k, state);
    if (i + 1 == a_.read.size()) {
      all_ += p;
      for (size_t b = 0; b <= i; b++)
        if (path_[b] == std::pair(int(a_.positions[b]), a_.inserted[b] ? 'I' : 'M')) right_[b] += p;
    } else if (state == 'M') {
      walk(i + 1, k + 1, 'M', p * (1 - 2 * kOpen));
      walk(i + 1, k, 'I', p * kOpen);
      walk(i, k + 1, 'D', p * kOpen);
    } else {
      walk(i + 1, k + 1, 'M', p * (1 - kExtend));
      walk(i + 1, k, 'I', p * kExtend);
    }
    path_.pop_back();
  }

  static constexpr int kLowest =
      1 - BaseAlignment::kBand;  // of the alignments below, the lowest diagonal is 1

  const Aligned& a_;
  std::vector<std::pair<int, char>> path_;
  std::vector<double> right_;
  double all_ = 0;
};

TEST(BaseAlignment, EqualsTheSumOverAllPaths) {
  std::mt19937 random(1);
  for (int round = 0; round < 30; round++) {
    Aligned a;
    a.reference = randomBases(random, 8);
    const int gap = round % 3 - 1;  // of the reference, none, of the read
    for (int i = 0, k = gap > 0 ? 2 : 1; i < 5; i++) {
      const bool inserted = gap > 0 && i == 2;
      if (gap < 0 && i == 2) k++;
      a.inserted.push_back(inserted);
      a.positions.push_back(inserted ? k - 1 : k);
      a.read += inserted || random() % 5 == 0 ? "ACGT"[random() % 4] : a.reference[size_t(k)];
      k += !inserted;
      a.quals.push_back(uint8_t(random() % 41));
    }
    const std::vector<double> expected = AllPaths(a).errors();
    const std::vector<float> got = a.errors();
    for (size_t i = 0; i < got.size(); i++)
      EXPECT_NEAR(got[i], expected[i], 1e-5 + 1e-3 * expected[i]) << round << " " << i;
  }
}

Aligned plain(const std::string& reference, int start, int length) {
  Aligned a;
  a.reference = reference;
  a.read = reference.substr(size_t(start), size_t(length));
  for (int i = 0; i < length; i++) a.positions.push_back(start + i);
  a.inserted.assign(size_t(length), 0);
  a.quals.assign(size_t(length), 30);
  return a;
}

TEST(BaseAlignment, IsSureOfUniqueSequenceAndUnsureOfGapsInRepeats) {
  std::mt19937 random(2);
  const std::string left = randomBases(random, 60) + "C", right = "G" + randomBases(random, 60);
  for (float error : plain(left + right, 20, 80).errors()) EXPECT_LT(error, 1e-3);

  // One A of ten is missing from the read: any of them may be the one.
  const std::string reference = left + std::string(10, 'A') + right;
  Aligned a = plain(reference, 20, 100);
  a.read.erase(41, 1);
  for (size_t i = 41; i < 99; i++) a.positions[i]++;
  a.positions.pop_back(), a.quals.pop_back(), a.inserted.pop_back();
  const std::vector<float> errors = a.errors();
  for (size_t i = 0; i < errors.size(); i++) {
    const bool in_repeat = i >= 41 && i < 50;
    EXPECT_NEAR(errors[i], in_repeat ? double(50 - i) / 10 : 0, in_repeat ? 0.01 : 1e-3) << i;
  }
}

TEST(BaseAlignment, LongGapsAndReadsOverTheEndsOfTheReference) {
  std::mt19937 random(3);
  Aligned a = plain(randomBases(random, 300), 50, 200);
  a.read.erase(100, 50);  // a deletion of 50 bases
  a.positions.erase(a.positions.begin() + 100, a.positions.begin() + 150);
  a.quals.resize(150), a.inserted.resize(150);
  for (float error : a.errors()) EXPECT_LT(error, 0.3);
  EXPECT_LT(a.errors()[50], 1e-4);

  a = plain(a.reference, 0, 300);
  for (float error : a.errors()) EXPECT_LT(error, 1e-3);
  a = plain(a.reference, 0, 100);
  for (int32_t& position : a.positions) position -= 1000;  // beside all of it
  for (float error : a.errors()) EXPECT_TRUE(error >= 0 && error <= 1);
}

}  // namespace
