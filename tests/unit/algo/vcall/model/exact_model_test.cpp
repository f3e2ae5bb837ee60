// The models against the definition: the likelihood of a count is the mean, over all ways to hand its chromosomes to
// the samples, of the product of the samples' likelihoods.
#include "algo/vcall/model/exact_model.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <random>

#include "algo/vcall/model/allele_priors.h"
#include "algo/vcall/model/genotype_index.h"
#include "base/log_math.h"

namespace {
using Vector = std::vector<double>;
using Cohort = std::vector<GenotypeLikelihoods>;
constexpr double kNear = 1e-3;

std::vector<const GenotypeLikelihoods*> pointers(const Cohort& cohort) {
  std::vector<const GenotypeLikelihoods*> all;
  for (const auto& sample : cohort) all.push_back(&sample);
  return all;
}

int chromosomes(const Cohort& cohort) {
  int sum = 0;
  for (const auto& sample : cohort) sum += int(sample.ploidy);
  return sum;
}

double sumOf(const Vector& v) {
  double sum = 0;
  for (double x : v) sum += x;
  return sum;
}

struct Expected {
  double likelihood0, likelihood1, posterior0, posterior1;
  int mle, map;
};

void normalize(double& a, double& b) {
  double sum = std::log10(std::pow(10, a) + std::pow(10, b));
  a -= sum, b -= sum;
}

double logChoose(int n, int k) {
  return (std::lgamma(n + 1) - std::lgamma(k + 1) - std::lgamma(n - k + 1)) / std::log(10.0);
}

Expected bruteForce(Cohort cohort, const Vector& priors) {
  std::erase_if(cohort, [](const auto& sample) { return sumOf(sample.gl) >= -0.1; });
  const int total = chromosomes(cohort);
  Vector likelihood(size_t(total) + 1);
  std::vector<uint32_t> copies(cohort.size());
  for (;;) {
    double x = 0;
    int ac = 0;
    for (size_t i = 0; i < cohort.size(); ++i) {
      x += cohort[i].gl[copies[i]] + logChoose(int(cohort[i].ploidy), int(copies[i]));
      ac += int(copies[i]);
    }
    likelihood[size_t(ac)] += std::pow(10, x - logChoose(total, ac));
    size_t i = 0;
    while (i < cohort.size() && ++copies[i] > cohort[i].ploidy) copies[i++] = 0;
    if (i == cohort.size()) break;
  }
  Expected e{std::log10(likelihood[0]), -1e6, 0, 0, 0, 0};
  double above = 0, most = 0, most_posterior = 0;
  for (int ac = 0; ac <= total; ++ac) {
    double x = likelihood[size_t(ac)], posterior = x * std::pow(10, priors[size_t(ac)]);
    if (ac > 0) above += x;
    if (x > most) most = x, e.mle = ac;
    if (posterior > most_posterior) most_posterior = posterior, e.map = ac;
    if (x < most * 1e-6) break;
  }
  if (total > 0) e.likelihood1 = std::log10(above);
  double present = 0;
  for (size_t i = 1; i < priors.size(); ++i) present += std::pow(10, priors[i]);
  e.posterior0 = e.likelihood0 + priors[0], e.posterior1 = e.likelihood1 + std::log10(present);
  normalize(e.likelihood0, e.likelihood1);
  normalize(e.posterior0, e.posterior1);
  return e;
}

void expectSite(const AlleleCountResult& r, const Expected& e, const Vector& priors) {
  EXPECT_NEAR(r.log10LikelihoodAC0, e.likelihood0, kNear);
  EXPECT_NEAR(r.log10LikelihoodACgt0, e.likelihood1, kNear);
  EXPECT_NEAR(r.log10PosteriorAC0, e.posterior0, kNear);
  EXPECT_NEAR(r.log10PosteriorACgt0, e.posterior1, kNear);
  EXPECT_EQ(r.log10PriorAC0, priors[0]);
  EXPECT_NEAR(r.log10PriorACgt0, std::log10(1 - std::pow(10, priors[0])), 1e-9);
}

// Mostly reference, some carriers, some that know nothing; the best genotype has 0.
Cohort randomCohort(std::mt19937& random, uint32_t ploidy_from, uint32_t ploidy_to, int alts) {
  auto pick = [&random](double from, double to) {
    return std::uniform_real_distribution<double>(from, to)(random);
  };
  Cohort cohort(1 + random() % 6);
  for (auto& sample : cohort) {
    sample.ploidy = ploidy_from + uint32_t(random() % (ploidy_to - ploidy_from + 1));
    sample.gl.resize(GenotypeIndex::count(sample.ploidy, size_t(alts) + 1));
    const double depth = random() % 5 == 0 ? 0 : pick(0, 6);
    const size_t best = random() % 2 ? 0 : random() % sample.gl.size();
    for (size_t g = 0; g < sample.gl.size(); ++g) sample.gl[g] = g == best ? 0 : -depth * pick(0.1, 1);
  }
  return cohort;
}

TEST(ExactModel, OneAlternateIsTheSumOverAllGenotypes) {
  std::mt19937 random(1);
  for (int round = 0; round < 200; ++round) {
    SCOPED_TRACE(round);
    const uint32_t low = 1 + uint32_t(round % 4);
    const Cohort cohort = randomCohort(random, low, round < 100 ? low : 4, 1);
    const Vector priors = log10AllelePriors(round % 3 ? 0.001 : 0.1, chromosomes(cohort));
    const Expected e = bruteForce(cohort, priors);
    AlleleCountResult r, diploid;
    GeneralExactModel::compute(pointers(cohort), 1, priors, r);
    expectSite(r, e, priors);
    EXPECT_EQ(r.mleCounts, std::vector<int32_t>{e.mle});
    EXPECT_EQ(r.log10PNonRef, Vector{e.map > 0 ? -1e6 : 0});
    if (round >= 100 || low != 2) continue;
    DiploidExactModel::compute(pointers(cohort), 1, priors, diploid);
    expectSite(diploid, e, priors);
    EXPECT_EQ(diploid.mleCounts, r.mleCounts);
    EXPECT_EQ(diploid.log10PNonRef, r.log10PNonRef);
  }
}

TEST(ExactModel, SamplesThatSayNothing) {
  const Vector priors = log10AllelePriors(0.001, 6);
  AlleleCountResult r;
  for (auto compute : {DiploidExactModel::compute, GeneralExactModel::compute}) {
    const Cohort nothing = {{2, {0, -0.05, -0.05}}, {2, {0, 0, 0}}, {2, {}}};
    compute(pointers(nothing), 1, priors, r);
    EXPECT_EQ(r.log10LikelihoodAC0, 0);
    EXPECT_EQ(r.log10LikelihoodACgt0, -1000000.0);
    EXPECT_EQ(r.log10PNonRef, Vector{0});
    EXPECT_EQ(r.mleCounts, std::vector<int32_t>{0});
    EXPECT_NEAR(r.log10PosteriorAC0, 0, 1e-12);
    // Just enough to count.
    compute(pointers({{2, {0, -0.05, -0.06}}}), 1, priors, r);
    EXPECT_GT(r.log10LikelihoodACgt0, -1);
    const Cohort many = {{2, {0, 0, 0, 0, 0, 0}}, {2, {}}};
    compute(pointers(many), 2, priors, r);
    EXPECT_EQ(r.log10LikelihoodACgt0, -1000000.0);
    EXPECT_EQ(r.mleCounts, (std::vector<int32_t>{0, 0}));
    EXPECT_NEAR(r.log10PNonRef[0], 0, 1e-12);
  }
}

TEST(ExactModel, LargeCohort) {
  const size_t samples = 12000;  // more than fit on the stack
  Cohort cohort(samples, {2, {0, -3, -12}});
  for (size_t i = 0; i < 3; ++i) cohort[i * 1000].gl = {-9, 0, -9};
  growLogTables(2 * samples + 1);
  AlleleCountResult diploid, general;
  const Vector priors = log10AllelePriors(0.001, 24000);
  DiploidExactModel::compute(pointers(cohort), 1, priors, diploid);
  GeneralExactModel::compute(pointers(cohort), 1, priors, general);
  EXPECT_EQ(diploid.mleCounts[0], general.mleCounts[0]);
  EXPECT_GE(diploid.mleCounts[0], 3);
  EXPECT_NEAR(diploid.log10PosteriorAC0 / general.log10PosteriorAC0, 1, 0.02);
}

TEST(AllelePriors, ThetaOverCount) {
  AllelePriors priors;
  const Vector snp = priors.getPriors(2, true);
  EXPECT_NEAR(std::pow(10, snp[0]), 1 - 0.0015, 1e-12);
  EXPECT_NEAR(std::pow(10, snp[2]), 0.0005, 1e-12);
  EXPECT_NEAR(priors.getPriors(2, false)[1], std::log10(0.000125), 1e-12);
  EXPECT_EQ(priors.getPriors(0, true), Vector{0});
  for (int n = 1000000; n < 1000009; ++n) EXPECT_EQ(priors.getPriors(n, n % 2).size(), size_t(n) + 1);
  EXPECT_EQ(snp, priors.getPriors(2, true));

  testing::internal::CaptureStderr();
  try {
    log10AllelePriors(0.8, 2);
    ADD_FAILURE() << "no error";
  } catch (const std::runtime_error& e) {
    EXPECT_STREQ(e.what(), "Invalid sum of priors");
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "The heterozygosity value is set too high, please reduce it to below 0.666667\n");
}
}  // namespace
