#include "algo/vcall/pairhmm/pair_hmm.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <optional>
#include <random>
#include <thread>

#include "algo/vcall/pairhmm/engine.h"
#include "algo/vcall/pairhmm/models.h"
#include "read_builder.h"

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// A read with a clip of it.
struct Fixture {
  explicit Fixture(const std::string& bases, int qual = 30, int mapq = 60) {
    record =
        readBuilder("r").at(0, 0).cigar(std::to_string(bases.size()) + "M").seq(bases).qual(qual).mapq(mapq);
    read.attach(record);
    read.getBases();
    clip.read = &read;
    clip.readEnd = static_cast<int>(bases.size());
  }
  bam_record record;
  BAMRead read;
  ReadClip clip;
};

// Runs `work` on a new thread with the engine `name`, as engines belong to their thread.
template <typename Work>
void withEngine(const char* name, Work work) {
  name ? setenv("phmm", name, 1) : unsetenv("phmm");
  std::thread(work).join();
  unsetenv("phmm");
}

// Records what a model sets.
struct Recorder : PairHMM::Engine {
  void resize(int, int, int) override {}
  void setPosition(int length, int pos, int base, int ins, int del, int gcp) override {
    EXPECT_EQ(static_cast<size_t>(pos), positions.size());
    EXPECT_GT(length, pos);
    positions.push_back({base, ins, del, gcp});
  }
  double score(int, const uint8_t*, int, const uint8_t*, bool) override { return 0; }

  std::vector<std::array<int, 4>> positions;
};

std::vector<int> column(const PairHMM::Model& model, const ReadClip& clip, size_t which) {
  Recorder recorder;
  model.setupRead(clip, recorder, false);
  std::vector<int> values;
  for (const auto& position : recorder.positions) values.push_back(position[which]);
  return values;
}

Allele allele(const std::string& bases, bool ref = false) {
  return {bases.data(), static_cast<int32_t>(bases.size()), 0, ref};
}

std::vector<double> likelihoods(const PairHMM& hmm, Fixture& fixture, const std::vector<Allele>& alleles,
                                int debug = PairHMM::kNoTrace) {
  std::vector<double> row(alleles.size());
  hmm.calcLikelihood({fixture.clip}, alleles, row.data(), 0, 1, debug);
  return row;
}

PairHMM indelHmm() {
  return PairHMM(std::make_unique<IndelModel>(45, 10));
}

TEST(PairHMM, RunsTheForcedEngine) {
  withEngine(nullptr, [] { EXPECT_THAT(threadEngines().name, testing::AnyOf("fhravx", "frhsse", "frh")); });
  for (const char* name : {"drh", "fhr", "frhsse", "fhravx"})
    withEngine(name, [name] {
      std::unique_ptr<PairHMM::Engine> expected;
      try {
        expected = makeEngine(name);
      } catch (const std::runtime_error& error) {
        EXPECT_THROW(threadEngines(), std::runtime_error);
        return;
      }
      const PairHMM::Engine &first = *threadEngines().first, &same = *expected;
      EXPECT_EQ(typeid(first), typeid(same));
      EXPECT_EQ(threadEngines().precise != nullptr, name[0] == 'f');
    });
  withEngine("zhr", [] { EXPECT_THROW(threadEngines(), std::runtime_error); });
}

// A row is the same whoever else is in the matrix; equal alleles are equal; NaN rows stay out; others are not touched.
TEST(PairHMM, FillsItsRowsOnly) {
  const std::string hap = "ACGTTGCAAGCTTAGCCATTGACCAGGTTA", other = "ACGTTGCAAGCTTAGACATTGACCAGGTTA";
  Fixture fits(hap.substr(5, 20)), out(hap.substr(5, 20)), last(other.substr(4, 22));
  const std::vector<Allele> alleles = {
      allele(hap, true), allele(other), {hap.data(), 0, 0, false}, allele(hap)};
  std::vector<double> rows(16, 7);
  rows[4] = kNaN;
  const std::vector<ReadClip> clips = {fits.clip, out.clip, last.clip, fits.clip};
  const PairHMM hmm = indelHmm();
  hmm.calcLikelihood(clips, alleles, rows.data(), 0, 3);
  EXPECT_GT(rows[0], rows[1] + 2);
  EXPECT_GT(rows[9], rows[8] + 2);
  EXPECT_EQ(rows[0], rows[3]);
  EXPECT_EQ(rows[2], 7);  // a dropped allele
  EXPECT_TRUE(std::isnan(rows[4]));
  EXPECT_THAT(std::vector<double>(rows.begin() + 12, rows.end()), testing::Each(7));
  std::vector<double> again(16, 7);
  hmm.calcLikelihood(clips, alleles, again.data(), 2, 3);
  EXPECT_EQ(again[8], rows[8]);
  EXPECT_EQ(again[9], rows[9]);
}

// Far below what a float can hold every engine answers what double does.
TEST(PairHMM, RescuesInDouble) {
  std::mt19937 random(3);
  std::string hap(300, 0), read(200, 0);
  for (char& c : hap) c = "ACGT"[random() % 4];
  for (char& c : read) c = "ACGT"[random() % 4];
  Fixture fixture(read, 40);
  const std::vector<Allele> alleles = {allele(hap), allele(read)};
  std::vector<double> expected;
  withEngine("drh", [&] { expected = likelihoods(indelHmm(), fixture, alleles); });
  EXPECT_LT(expected[0], -100);
  for (const char* name : {"frh", "fhr", "fhravx", "frhsse"}) {
    std::vector<double> row;
    withEngine(name, [&] { row = likelihoods(indelHmm(), fixture, alleles); });
    EXPECT_NEAR(row[0], expected[0], 1e-6) << name;
    EXPECT_NEAR(row[1], expected[1], 1e-3) << name;
  }
}

// Rows taken by many threads in random order, between matrices of other sizes: each as on a fresh thread.
TEST(PairHMM, RowsDoNotDependOnTheThread) {
  std::mt19937 random(23);
  struct Matrix {
    std::vector<std::unique_ptr<Fixture>> reads;
    std::vector<std::string> haps;
    std::vector<ReadClip> clips;
    std::vector<Allele> alleles;
    std::vector<double> rows, expected;
  };
  std::vector<Matrix> matrices(6);
  std::vector<std::pair<Matrix*, unsigned>> jobs;
  const PairHMM hmm = indelHmm();
  for (Matrix& m : matrices) {
    std::string hap(20 + random() % 400, 0);
    for (char& c : hap) c = "ACGT"[random() % 4];
    for (size_t a = 0; a < 4; ++a) m.haps.push_back(hap), hap.erase(random() % (hap.size() - 4), a + 1);
    for (const auto& bases : m.haps) m.alleles.push_back(allele(bases));
    for (unsigned r = 0; r < 8; ++r) {
      std::string read = m.haps[0].substr(0, 1 + random() % (m.haps[0].size() - 1));
      for (size_t k = r % 2 * 40; k > 0; --k) read[random() % read.size()] = "ACGTN"[random() % 5];
      m.reads.push_back(std::make_unique<Fixture>(read));
      m.clips.push_back(m.reads.back()->clip);
      jobs.emplace_back(&m, r);
    }
    m.rows.resize(32), m.expected.resize(32);
    for (unsigned r = 0; r < 8; ++r)
      std::thread([&] { hmm.calcLikelihood(m.clips, m.alleles, m.expected.data(), r, r + 1); }).join();
    hmm.calcLikelihood(m.clips, m.alleles, m.rows.data(), 0, 8);  // together
    EXPECT_EQ(m.rows, m.expected);
  }
  for (int round = 0; round < 5; ++round) {
    std::shuffle(jobs.begin(), jobs.end(), random);
    std::vector<std::thread> threads;
    for (size_t t = 0; t < 4; ++t)
      threads.emplace_back([&, t] {
        for (size_t k = t; k < jobs.size(); k += 4) {
          auto [m, r] = jobs[k];
          hmm.calcLikelihood(m->clips, m->alleles, m->rows.data(), r, r + 1);
        }
      });
    for (auto& thread : threads) thread.join();
    for (Matrix& m : matrices) {
      EXPECT_EQ(m.rows, m.expected);
      std::fill(m.rows.begin(), m.rows.end(), 0);
    }
  }
}

TEST(PairHMM, TracesTheAskedCell) {
  const std::string hap = "ACGTA", ref = "ACGTT";
  Fixture fixture("CGT");
  const std::vector<Allele> alleles = {allele(hap), allele(ref, true)};
  for (auto [index, refs, haps] :
       {std::tuple{-1, 1, 1}, {0, 0, 1}, {1, 1, 0}, {2, 0, 0}, {PairHMM::kNoTrace, 0, 0}}) {
    testing::internal::CaptureStderr();
    likelihoods(indelHmm(), fixture, alleles, index);
    const std::string text = testing::internal::GetCapturedStderr();
    EXPECT_EQ(text.find("REF\tACGTT\n") != text.npos, refs == 1) << index << text;
    EXPECT_EQ(text.find("HAP\tACGTA\n") != text.npos, haps == 1) << index << text;
    EXPECT_EQ(text.find("fm[3,1] = ") != text.npos, refs + haps > 0) << text;
    EXPECT_EQ(text.find("sum = ") != text.npos, refs + haps > 0) << text;
  }
}

TEST(PairHMM, ConfigureTellsWhatIsWrong) {
  auto configure = [](std::unique_ptr<PairHMM::Model> model, const std::string& text) {
    testing::internal::CaptureStderr();
    std::string told;
    try {
      const bool ok = PairHMM(std::move(model)).configure(text);
      told = ok ? "ok " : "bad ";
    } catch (const std::invalid_argument& error) {
      told = error.what();
    }
    return told + testing::internal::GetCapturedStderr();
  };
  const struct {
    const char *text, *told;
  } cases[] = {
      {"indelGOP=40,indelGCP=12,unknown=0.5", "ok "},
      {"indelGOP=1.5", "bad PairHMM param indelGOP value 1.5 is not an integer\n"},
      {"indelGCP=256", "bad PairHMM param indelGCP value 256 is out of range\n"},
      {"indelGCP=-1", "bad PairHMM param indelGCP value -1 is out of range\n"},
      {"indelGOP", ": invalid phmm_param format indelGOP"},
      {"indelGOP=40,indelGCP=", ": invalid phmm_param format indelGOP=40,indelGCP="},
      {"indelGOP=40x", ": invalid phmm_param format indelGOP=40x"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(configure(std::make_unique<IndelModel>(45, 10), c.text), c.told) << c.text;
  const struct {
    const char *text, *told;
  } haplo[] = {
      {"filterPoorModeledRead=2,mapQualCap=255,pcrErrorRate=0", "ok "},
      {"filterPoorModeledRead=3e9", "bad PairHMM param filterPoorModeledRead value 3e+09 is out of range\n"},
      {"maxErrorsForRead=inf", "bad PairHMM param maxErrorsForRead value inf is out of range\n"},
      {"constantGCP=nan", "bad PairHMM param constantGCP value nan is not an integer\n"},
  };
  for (const auto& c : haplo) EXPECT_EQ(configure(std::make_unique<HaploModel>(3), c.text), c.told) << c.text;
}

TEST(IndelModel, GapsCostLessInHomopolymers) {
  Fixture fixture("CAAAAAGTT" + std::string(30, 'C'), 255);
  fixture.clip.readStart = 1;
  IndelModel model(45, 10);
  std::vector<int> expected = {43, 43, 43, 43, 43, 45, 45, 45};
  expected.resize(38, 30);
  EXPECT_EQ(column(model, fixture.clip, 1), expected);
  EXPECT_EQ(column(model, fixture.clip, 2), expected);
  EXPECT_THAT(column(model, fixture.clip, 0), testing::Each(127));
  EXPECT_TRUE(model.configure({{"indelGOP", 40}, {"indelGCP", 7}}));
  EXPECT_EQ(column(model, fixture.clip, 1)[0], 38);
  EXPECT_THAT(column(model, fixture.clip, 3), testing::Each(7));
}

// The caps, by counting copies of every unit at every place.
TEST(HaploModel, CapsGapsInRepeats) {
  std::mt19937 random(11);
  HaploModel model(PairHMM::kAggressive);
  for (int round = 0; round < 200; ++round) {
    std::string bases, unit(1 + random() % 10, 0);
    for (char& c : unit) c = "ACG"[random() % 3];
    for (size_t n = random() % 30; n > 0; --n) bases += "ACGT"[random() % 4];
    for (size_t n = random() % 12; n > 0; --n) bases += unit;
    bases += "T";
    for (size_t n = random() % 10; n > 0; --n) bases += "AC"[random() % 2];
    Fixture fixture(bases);
    const std::vector<int> caps = column(model, fixture.clip, 1);
    const int n = static_cast<int>(bases.size());
    for (int i = 0; i + 1 < n; ++i) {
      auto copies = [&](int u, int way) {  // of the unit behind base i, beyond itself
        int count = 0;
        for (int at = i + 1 + way * u; at >= 0 && at + u <= n; at += way * u, ++count)
          if (bases.substr(size_t(at), size_t(u)) != bases.substr(size_t(i) + 1, size_t(u))) break;
        return count;
      };
      int u = 1;
      while (u <= 8 && i + u < n && copies(u, 1) == 0) ++u;
      if (u > 8 || i + u >= n) u = 1;
      const int repeats = std::min(copies(u, 1) + copies(u, -1), 20);
      const int cap = std::max(int(std::lround(41 - std::exp(repeats / (M_PI * 2)))), 10);
      ASSERT_EQ(caps[size_t(i)], std::min(cap, 45)) << bases << " at " << i;
    }
    EXPECT_EQ(caps.back(), 45);
  }
}

TEST(HaploModel, LimitsBaseQualities) {
  Fixture fixture("ACGTACGTAA");
  for (int i = 0; i < 4; ++i) fixture.read.quals[i] = uint8_t(16 + i);
  fixture.read.quals[9] = 255;  // none
  fixture.read.mapq = 25;
  HaploModel model(PairHMM::kNone);
  EXPECT_THAT(column(model, fixture.clip, 0), testing::ElementsAre(6, 6, 18, 19, 25, 25, 25, 25, 25, 25));
  EXPECT_THAT(column(model, fixture.clip, 1), testing::Each(45));
  EXPECT_TRUE(model.configure({{"mapQualCap", 18}, {"baseQualThresh", 0}, {"constantGCP", 12}}));
  EXPECT_THAT(column(model, fixture.clip, 0), testing::ElementsAre(16, 17, 18, 18, 18, 18, 18, 18, 18, 18));
  EXPECT_THAT(column(model, fixture.clip, 3), testing::Each(12));

  TumorNormalModel both(PairHMM::kNone, 1);
  EXPECT_TRUE(both.configure({{"normal:constantGCP", 20}, {"constantGCP", 5}, {"tumor:mapQualCap", 30}}));
  EXPECT_EQ(column(both, fixture.clip, 3)[0], 5);
  EXPECT_EQ(column(both, fixture.clip, 0)[5], 30);
  EXPECT_EQ(column(both, fixture.clip, 0)[9], 25);
  EXPECT_EQ((std::vector{both.mapQualCap(0), both.mapQualCap(1)}), (std::vector<uint8_t>{30, 0}));
  fixture.clip.sample = 1;
  EXPECT_EQ(column(both, fixture.clip, 3)[0], 20);
  EXPECT_EQ(column(both, fixture.clip, 0)[5], 25);
}

TEST(HaploModel, FinishRead) {
  Fixture fixture(std::string(100, 'A'));
  HaploModel model(PairHMM::kNone);
  HaploModel lenient(PairHMM::kNone);
  ASSERT_TRUE(lenient.configure({{"filterPoorModeledRead", 0}}));
  const struct {
    std::vector<double> row;
    int ref;
    std::vector<double> expected;
  } cases[] = {
      {{-1, -20, -3}, -1, {-1, -5.5, -3}},
      {{-1, -20, -3}, 0, {-1, -7.5, -3}},   // the floor leaves the reference out
      {{-20, -8, -9}, 0, {-12.5, -8, -9}},  // 2 errors at -4 are just allowed
      {{-20, -8.1, -9}, 0, {kNaN, -8.1, -9}},
      {{-7, -30, -31}, 0, {-7, -30, -31}},  // but the reference may be what fits
  };
  for (const auto& c : cases) {
    std::vector<double> row = c.row;
    model.finishRead(fixture.clip, row.data(), 3, c.ref);
    for (size_t i = 0; i < 3; ++i)
      if (std::isnan(c.expected[i]))
        EXPECT_TRUE(std::isnan(row[i]));
      else
        EXPECT_DOUBLE_EQ(row[i], c.expected[i]);
    row = c.row;
    lenient.finishRead(fixture.clip, row.data(), 3, c.ref);
    EXPECT_FALSE(std::isnan(row[0]));
  }
  fixture.clip.readEnd = 50;  // ceil(1.0) = 1 error
  std::vector<double> row = {-5, -5};
  model.finishRead(fixture.clip, row.data(), 2, -1);
  EXPECT_TRUE(std::isnan(row[0]));
}

}  // namespace
