#include "algo/vcall/recal/gaussian_mixture_model.h"

#include <algorithm>
#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>

#include "variant_data.h"

namespace {

constexpr double kNear = 1e-9;

// Every number of a trained model.
std::vector<double> numbersOf(GaussianMixtureModel& model) {
  std::vector<double> numbers;
  for (const BayesianMultivariateGaussian& gaussian : model.gaussians()) {
    numbers.push_back(gaussian.log10MixtureWeight);
    numbers.insert(numbers.end(), gaussian.mu.begin(), gaussian.mu.end());
    numbers.insert(numbers.end(), gaussian.sigma[0], gaussian.sigma[0] + gaussian.n * gaussian.n);
  }
  return numbers;
}

// The expected numbers are printed by tests/support/mixture_constants.py, for these data and this start.
class OneStep : public testing::Test {
 protected:
  static constexpr size_t kDimensions = 3;

  void SetUp() override {
    for (size_t i = 0; i < data_.data.size(); ++i)
      for (size_t d = 0; d < kDimensions; ++d)
        data_.add({2 * std::sin(1 + double((i + 1) * (d + 1)) * 0.7) + (i % 3 == 0 ? 2 : 0)});
  }

  static MixtureOptions options(int mode) {
    MixtureOptions options;
    options.shrinkage = 1.5;
    options.dirichlet = 0.01;
    options.prior_counts = 12;
    options.partsize = 40;
    options.iter_for_marginal_mode = mode;
    return options;
  }

  static void start(GaussianMixtureModel& model) {
    const double means[2][3] = {{2, 1.5, 2}, {-0.5, 0, 0.5}};
    const double diagonals[2][3] = {{2, 1, 3}, {1, 2, 1.5}}, added[2] = {0.3, -0.2};
    for (size_t c = 0; c < 2; ++c) {
      BayesianMultivariateGaussian& gaussian = model.gaussians()[c];
      gaussian.hp_a = 12;
      gaussian.hp_b = 1.5;
      gaussian.hp_lambda = 0.01;
      for (size_t i = 0; i < kDimensions; ++i) {
        gaussian.mu[i] = means[c][i];
        for (size_t j = 0; j < kDimensions; ++j)
          gaussian.sigma[i][j] = 30 * (added[c] + (i == j ? diagonals[c][i] : 0));
      }
    }
  }

  static void fit(GaussianMixtureModel& model, const VariantData& all) {
    start(model);
    model.load(all);
    model.eStep();
    model.mStep();
    model.eStep();
    model.finalWeights();
  }

  VariantSet data_{90};
  JavaUtil::Random random_{1};
};

TEST_F(OneStep, IsThatOfTheFormulas) {
  const VariantData all = data_.all();
  GaussianMixtureModel model(2, kDimensions, options(0), &random_, nullptr);
  start(model);
  model.load(all);
  model.eStep();
  model.mStep();
  const double counts[] = {39.8823910815, 50.1176089185};
  const double means[][3] = {{1.57059496025, 1.5357260049, 1.15098289549},
                             {-0.0873684935769, -0.0591901108326, 0.247934714095}};
  const double scatter[][6] = {
      {111.890187832, 53.2514443826, 98.9728453244, 32.5429270042, 35.3766070942, 59.8665691582},
      {86.6640996112, -31.7111514827, 104.512445294, -8.92994311469, -10.3911353944, 134.575349466}};
  for (size_t c = 0; c < 2; ++c) {
    const BayesianMultivariateGaussian& gaussian = model.gaussians()[c];
    EXPECT_NEAR(gaussian.probSum, counts[c], kNear);
    EXPECT_NEAR(gaussian.hp_a, 12 + counts[c], kNear);
    for (size_t i = 0, k = 0; i < kDimensions; ++i) {
      EXPECT_NEAR(gaussian.mu[i], means[c][i], kNear);
      for (size_t j = 0; j <= i; ++j, ++k) EXPECT_NEAR(gaussian.sigma[i][j], scatter[c][k], kNear);
    }
  }
}

TEST_F(OneStep, DensitiesAreThoseOfTheFormulas) {
  const VariantData all = data_.all();
  GaussianMixtureModel model(2, kDimensions, options(0), &random_, nullptr);
  fit(model, all);
  EXPECT_NEAR(model.evaluateDatum({data_[0].annotations, kDimensions}), -2.17397447826, kNear);
  EXPECT_NEAR(model.evaluateDatum({data_[1].annotations, kDimensions}), -2.24417720491, kNear);
  const double by_dimension[] = {-0.701065765773, -0.833208235358, -1.10835599458};
  for (size_t d = 0; d < kDimensions; ++d)
    EXPECT_NEAR(model.evaluateDatumInOneDimension(data_[1], d), by_dimension[d], kNear);
  model.evaluateData(all, false);
  const double densities[] = {data_[0].lod, data_[1].lod, data_[45].lod};
  EXPECT_NEAR(densities[0], -2.17397447826, kNear);
  EXPECT_NEAR(densities[1], -2.24417720491, kNear);
  EXPECT_NEAR(densities[2], -2.13972825547, kNear);
  data_[45].lod = 1;
  model.evaluateData(all, true);
  EXPECT_EQ(data_[0].lod, 0);
  EXPECT_EQ(data_[45].lod, 1 - densities[2]);
}

TEST_F(OneStep, WhatIsMissingIsDrawn) {
  const VariantData all = data_.all();
  VariantDatum partial = data_[1];
  partial.missing = 0b101;
  const double expected[] = {-2.07304288203, -2.29189215078};
  for (int mode : {0, 1}) {
    JavaUtil::Random random(5 + mode);
    GaussianMixtureModel model(2, kDimensions, options(mode), &random, nullptr);
    fit(model, all);
    model.evaluateData({&partial}, false);
    EXPECT_NEAR(partial.lod, expected[mode], kNear) << mode;
  }
  MixtureOptions without = options(0);
  without.iter_for_marginal = 0;
  GaussianMixtureModel model(2, kDimensions, without, &random_, nullptr);
  fit(model, all);
  model.evaluateData({&partial}, false);
  EXPECT_TRUE(std::isnan(partial.lod));
  EXPECT_TRUE(std::isnan(model.evaluateDatumInOneDimension(partial, 0)));
  partial.missing = 0b111;
  EXPECT_EQ(findCulprit(partial, kDimensions, model, model), -1);
  partial.missing = 0b001;
  EXPECT_EQ(findCulprit(partial, kDimensions, model, model), 1) << "the first of equal ones that are there";
}

// Three clouds of known weight, mean and deviation; a fifth of the values of some data are missing.
VariantSet clouds(size_t count) {
  JavaUtil::Random draw(3);
  const double weights[] = {0.5, 0.3, 0.2};
  VariantSet data(count);
  for (VariantDatum& datum : data.data) {
    double u = draw.nextDouble();
    int cloud = 0;
    while (cloud < 2 && u > weights[cloud]) u -= weights[cloud++];
    for (int d = 0; d < 4; ++d)
      data.add({3.0 * cloud * (d % 2 ? -1 : 1) + (0.5 + 0.1 * d) * draw.nextGaussian()});
    if (draw.nextDouble() < 0.2) datum.missing = 1;
  }
  return data;
}

TEST(GaussianMixtureModel, FindsTheCloudsThatDataAreDrawnFrom) {
  VariantSet data = clouds(20000);
  JavaUtil::Random random(47382911);
  GaussianMixtureModel model(3, 4, {}, &random, nullptr);
  model.train(data.all());
  ASSERT_TRUE(model.converged());
  std::sort(model.gaussians().begin(), model.gaussians().end(),
            [](const auto& a, const auto& b) { return a.mu[0] < b.mu[0]; });
  const double weights[] = {0.5, 0.3, 0.2};
  for (int c = 0; c < 3; ++c) {
    const BayesianMultivariateGaussian& gaussian = model.gaussians()[size_t(c)];
    EXPECT_NEAR(std::pow(10, gaussian.log10MixtureWeight), weights[c], 0.01);
    for (size_t d = 0; d < 4; ++d) {
      EXPECT_NEAR(gaussian.mu[d], 3.0 * c * (d % 2 ? -1 : 1), 0.05);
      EXPECT_NEAR(std::sqrt(gaussian.sigma[d][d]), 0.5 + 0.1 * double(d), 0.02);
    }
  }
}

TEST(GaussianMixtureModel, ThreadsChangeNothing) {
  std::vector<double> numbers[2], values[2];
  for (int threads : {0, 4}) {
    VariantSet data = clouds(5000);
    JavaUtil::Random random(9);
    MixtureOptions options;
    options.partsize = 300;
    thread_coop pool;
    GaussianMixtureModel model(5, 4, options, &random, threads > 0 ? &pool : nullptr);
    const auto work = [&] {
      model.train(data.all());
      model.evaluateData(data.all(), false);
      for (const VariantDatum& datum : data.data) values[threads > 0].push_back(datum.lod);
    };
    for (int i = 1; i < threads; ++i) pool.addWorker([] {});
    threads > 0 ? pool.addWorker(work) : work();
    pool.join();
    numbers[threads > 0] = numbersOf(model);
  }
  EXPECT_EQ(numbers[0], numbers[1]);
  EXPECT_EQ(values[0], values[1]);
}

TEST(GaussianMixtureModel, FewOrDegenerateDataStillMakeAModel) {
  for (size_t count : {1, 2, 10}) {
    VariantSet data(count);
    for (size_t i = 0; i < count; ++i) data.add({0.5, 0.5, -1});
    JavaUtil::Random random(2);
    GaussianMixtureModel model(8, 3, {}, &random, nullptr);
    model.train(data.all());
    EXPECT_TRUE(model.converged()) << count;
    data[0].missing = 0b111;
    model.evaluateData(data.all(), false);
    EXPECT_TRUE(std::isfinite(data[0].lod)) << count;
  }
}

TEST(GaussianMixtureModel, NoDataAndOverflowEndWithoutAModel) {
  VariantSet data(3);
  for (double x : {1e200, -1e200, 1e200}) data.add({x, 1});
  JavaUtil::Random random(2);
  GaussianMixtureModel empty(2, 2, {}, &random, nullptr), overflowing(2, 2, {}, &random, nullptr);
  empty.train({});
  EXPECT_FALSE(empty.converged());
  overflowing.train(data.all());
  EXPECT_FALSE(overflowing.converged());
}

TEST(GaussianMixtureModel, RunsTheLeastNumberOfRounds) {
  VariantSet data = clouds(500);
  for (const auto& [max_iter, min_iter, rounds] :
       {std::tuple{150, 2, 2}, {150, 5, 5}, {1, 2, 1}, {0, 2, 0}}) {
    JavaUtil::Random random(2);
    MixtureOptions options;
    options.max_iter = max_iter;
    options.min_iter = min_iter;
    options.prob_tol = 1;
    GaussianMixtureModel model(2, 4, options, &random, nullptr);
    testing::internal::CaptureStderr();
    model.train(data.all());
    const std::string told = testing::internal::GetCapturedStderr();
    EXPECT_THAT(told, testing::HasSubstr("Model after random init\nhp_a = 20.000000, hp_b = 1.000000"));
    EXPECT_THAT(told, testing::HasSubstr("Model after EM\n"));
    int seen = 0;
    for (size_t at = 0; (at = told.find("mixture weight delta", at)) != told.npos; ++at) ++seen;
    EXPECT_EQ(seen, rounds);
    EXPECT_TRUE(model.converged());
  }
}

}  // namespace
