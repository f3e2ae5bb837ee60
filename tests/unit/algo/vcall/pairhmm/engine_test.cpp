// Every engine that the processor has, against the plain recursion over the whole matrix in double precision.
#include "algo/vcall/pairhmm/engine.h"

#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

#include "algo/vcall/pairhmm/phred_tables.h"
#include "algo/vcall/pairhmm/read_batch.h"

namespace {

struct Qualities {
  int base, ins, del, gcp;
};

double phred(int q) {
  return std::pow(10, q / -10.0);
}

double plainForward(const std::string& read, const std::vector<Qualities>& quals, const std::string& hap) {
  const size_t R = read.size(), H = hap.size();
  using Matrix = std::vector<std::vector<double>>;
  Matrix M(R + 1, std::vector<double>(H + 1)), X = M, Y = M;
  Y[0].assign(H + 1, std::pow(2.0, 900));  // a scale that keeps 500 bases without a match within range
  for (size_t i = 1; i <= R; ++i) {
    const Qualities& q = quals[i - 1];
    const double mm = phredTables<double>().stayMatched(uint8_t(q.ins), uint8_t(q.del)),
                 xm = 1 - phred(q.gcp);
    for (size_t j = 1; j <= H; ++j) {
      const char a = read[i - 1], b = hap[j - 1];
      const double e = a == b || a == 'N' || b == 'N' ? 1 - phred(q.base) : phred(q.base) / 3;
      M[i][j] = (M[i - 1][j - 1] * mm + (X[i - 1][j - 1] + Y[i - 1][j - 1]) * xm) * e;
      X[i][j] = M[i - 1][j] * phred(q.ins) + X[i - 1][j] * phred(q.gcp);
      Y[i][j] = M[i][j - 1] * phred(q.del) + Y[i][j - 1] * phred(q.gcp);
    }
  }
  double total = 0;
  for (size_t j = 1; j <= H; ++j) total += M[R][j] + X[R][j];
  return std::log10(total / double(H)) - 900 * std::log10(2.0);
}

const uint8_t* bytes(const std::string& text) {
  return reinterpret_cast<const uint8_t*>(text.data());
}

class Engines : public testing::TestWithParam<const char*> {
 protected:
  Engines() {
    try {
      engine_ = makeEngine(GetParam());
    } catch (const std::runtime_error&) {
    }
  }
  void SetUp() override {
    if (!engine_) GTEST_SKIP() << "not on this processor";
  }

  std::string randomBases(size_t n, const char* letters = "ACGT") {
    std::string text(n, 0);
    for (char& c : text) c = letters[random_() % strlen(letters)];
    return text;
  }
  std::vector<Qualities> randomQualities(size_t n) {
    std::vector<Qualities> quals(n);
    for (auto& q : quals)
      q = {int(10 + random_() % 31), int(25 + random_() % 21), int(25 + random_() % 21), 10};
    return quals;
  }
  // Scores the read against all haplotypes in turn and compares each.
  void check(const std::string& read, const std::vector<Qualities>& quals,
             const std::vector<std::string>& haps) {
    size_t longest = 0;
    for (const auto& hap : haps) longest = std::max(longest, hap.size());
    engine_->resize(int(read.size()), int(longest), int(read.size()));
    for (size_t i = 0; i < read.size(); ++i) {
      const Qualities& q = quals[i];
      engine_->setPosition(int(read.size()), int(i), q.base, q.ins, q.del, q.gcp);
    }
    const bool in_float = GetParam()[0] == 'f';
    for (size_t h = 0; h < haps.size(); ++h) {
      const double expected = plainForward(read, quals, haps[h]);
      const double score =
          engine_->score(int(read.size()), bytes(read), int(haps[h].size()), bytes(haps[h]), false);
      SCOPED_TRACE("haplotype " + std::to_string(h) + " of " + std::to_string(haps[h].size()) +
                   " bases, read of " + std::to_string(read.size()));
      if (std::isinf(expected))
        EXPECT_EQ(score, expected);
      else if (!in_float || expected > -64)
        EXPECT_NEAR(score, expected, in_float ? 1e-3 : 1e-9);
      else
        EXPECT_LT(score, -63.9);
    }
  }

  std::mt19937 random_{17};
  std::unique_ptr<PairHMM::Engine> engine_;
};

TEST_P(Engines, AgreeOnEveryLengthAroundABlock) {
  for (size_t r = 1; r <= 35; ++r)
    for (size_t h : {1, 2, 3, 5, 8, 15, 16, 17, 33, 50}) {
      const std::string hap = randomBases(h, "ACGTN");
      std::string read = (hap + randomBases(35)).substr(0, r);
      if (r > 3) read[r / 2] = 'N';
      check(read, randomQualities(r), {hap});
    }
}

// Haplotypes that share ends in all ways: the tables of one serve the next.
TEST_P(Engines, ReuseSharedEnds) {
  for (int round = 0; round < 30; ++round) {
    const std::string base = randomBases(120 + random_() % 200);
    const size_t length = 20 + random_() % 100;
    std::string read = base.substr(random_() % (base.size() - length), length);
    for (size_t k = 0; k < 3; ++k) read[random_() % length] = "ACGTNacR"[random_() % 8];
    std::vector<std::string> haps = {base};
    for (int k = 0; k < 12; ++k) {
      std::string hap = haps[random_() % haps.size()];
      const size_t at = random_() % hap.size();
      switch (random_() % 6) {
        case 0:
          hap[at] = randomBases(1)[0];
          break;
        case 1:
          hap.insert(at, randomBases(1 + random_() % 30));
          break;
        case 2:
          hap.erase(at, 1 + random_() % 30);
          break;
        case 3:
          hap.resize(at + 1);
          break;  // shorter than what it shares with the one before
        case 4:
          hap.erase(0, at);
          break;  // the same at the other end
        default:
          break;  // equal
      }
      if (!hap.empty()) haps.push_back(hap);
    }
    if (round % 2) std::sort(haps.begin(), haps.end());
    check(read, randomQualities(length), haps);
  }
}

TEST_P(Engines, TakeExtremeQualities) {
  const std::string hap = randomBases(60), read = hap.substr(10, 40);
  for (Qualities q : {Qualities{255, 255, 255, 255},
                      {0, 45, 45, 10},
                      {30, 255, 6, 0},
                      {40, 3, 255, 10},
                      {2, 4, 4, 1},
                      {30, 0, 255, 10}}) {
    auto quals = randomQualities(read.size());
    quals[7] = quals[31] = q;
    check(read, quals, {hap, hap.substr(0, 30) + "A" + hap.substr(30)});
    check(read, std::vector<Qualities>(read.size(), q), {hap});
  }
}

TEST_P(Engines, GrowAndGoOnSmaller) {
  for (auto [r, h] : {std::pair<size_t, size_t>{10, 20}, {300, 2000}, {30, 5}, {1, 1}, {150, 400}}) {
    const std::string hap = randomBases(h);
    std::string read = hap.substr(h / 3, r);
    read += randomBases(r - read.size());
    check(read, randomQualities(r), {hap, hap.substr(0, h / 2) + 'T' + hap.substr(h / 2)});
  }
}

// To the last bit what the engine for single reads gives, whoever else is in the batch.
TEST(ReadBatch, ScoresAsTheEngineDoes) {
  if (!__builtin_cpu_supports("avx")) GTEST_SKIP() << "not on this processor";
  std::vector<const BatchKernel*> kernels = {&kBatchAvx};
  if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq"))
    kernels.push_back(&kBatchAvx512);
  std::mt19937 random(29);
  const auto engine = makeEngine("fhravx");
  for (const BatchKernel* kernel : kernels)
    for (int round = 0; round < 40; ++round) {
      std::vector<std::string> haps = {std::string(1 + random() % 300, 0)};
      for (char& c : haps[0]) c = "ACGTN"[random() % 100 ? random() % 4 : 4];
      while (haps.size() < 12) {
        std::string hap = haps[random() % haps.size()];
        const size_t at = random() % hap.size();
        if (random() % 2) hap[at] = "ACGTR"[random() % 5];
        if (random() % 3 == 0) hap.insert(at, hap.substr(at / 2, random() % 40));
        if (random() % 3 == 0) hap.erase(at / 2, at / 3);
        haps.push_back(hap);
      }
      if (round % 4) std::sort(haps.begin(), haps.end());
      size_t max_hap = 0, max_read = 0;
      std::vector<std::span<const uint8_t>> views;
      for (const auto& hap : haps) {
        max_hap = std::max(max_hap, hap.size());
        views.emplace_back(bytes(hap), hap.size());
      }
      ReadBatch batch(*kernel);
      std::vector<std::string> reads(1 + random() % batch.lanes());
      for (auto& read : reads) {
        const std::string& hap = haps[random() % haps.size()];
        read = hap.substr(random() % hap.size(), 1 + random() % 150);
        if (random() % 2) read[random() % read.size()] = 'N';
        max_read = std::max(max_read, read.size());
      }
      const auto describe = [](PairHMM::Engine& to, const std::string& read, int gcp) {
        for (size_t i = 0; i < read.size(); ++i)
          to.setPosition(int(read.size()), int(i), 20 + int(i) % 20, 45 - int(i) % 7, 30 + int(i) % 11, gcp);
      };
      batch.resize(int(max_read), int(max_hap), views);
      for (int again = 0; again < 2; ++again) {
        batch.start(int(max_read));
        std::vector<std::vector<double>> scores(haps.size());
        for (const auto& read : reads) {
          describe(batch.positions(), read, 10);
          ASSERT_TRUE(batch.add(int(read.size()), bytes(read)));
        }
        batch.score([&](size_t h, const double* of) { scores[h].assign(of, of + reads.size()); });
        engine->resize(int(max_read), int(max_hap), int(max_read));
        for (size_t r = 0; r < reads.size(); ++r) {
          describe(*engine, reads[r], 10);
          for (size_t h = 0; h < haps.size(); ++h)
            ASSERT_EQ(scores[h][r], engine->score(int(reads[r].size()), bytes(reads[r]), int(haps[h].size()),
                                                  bytes(haps[h]), false))
                << round << ' ' << h << ' ' << r;
        }
        std::reverse(reads.begin(), reads.end());
      }
      describe(batch.positions(), "AC", 0);
      EXPECT_FALSE(batch.add(2, bytes("AC")));  // no factor of a gap's end to work into the others
    }
}

TEST(PhredTables, AreWhatTheyStandFor) {
  const auto& tables = phredTables<double>();
  for (int a = 0; a < 256; ++a) {
    EXPECT_DOUBLE_EQ(tables.pow10Neg[a], phred(a));
    for (int b = 0; b < 256; ++b)
      ASSERT_NEAR(tables.stayMatched(uint8_t(a), uint8_t(b)), std::max(0.0, 1 - phred(a) - phred(b)), 1e-4)
          << a << ' ' << b;
  }
}

INSTANTIATE_TEST_SUITE_P(All, Engines,
                         testing::Values("drh", "frh", "dhr", "fhr", "drhsse", "frhsse", "dhrsse", "fhrsse",
                                         "drhavx", "frhavx", "dhravx", "fhravx"),
                         [](const auto& info) { return info.param; });

}  // namespace
