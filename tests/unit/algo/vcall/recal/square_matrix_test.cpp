#include "algo/vcall/recal/square_matrix.h"

#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>

#include "algo/vcall/recal/java_random.h"
#include "algo/vcall/recal/multivariate_gaussian.h"

namespace {

SquareMatrix productWithTranspose(const SquareMatrix& a) {
  SquareMatrix product(a.size());
  for (size_t i = 0; i < a.size(); ++i)
    for (size_t j = 0; j < a.size(); ++j)
      for (size_t k = 0; k < a.size(); ++k) product[i][j] += a[i][k] * a[j][k];
  return product;
}

TEST(SquareMatrix, FactorAndInverseGiveTheMatrixBack) {
  JavaUtil::Random random(4);
  for (size_t n : {1, 2, 6, 20}) {
    SquareMatrix a(n);
    for (size_t i = 0; i < n; ++i)
      for (size_t j = 0; j < n; ++j) a[i][j] = random.nextGaussian();
    const SquareMatrix sigma = productWithTranspose(a);
    SquareMatrix factor = sigma, inverse;
    ASSERT_EQ(factor.factorise(), 0u);
    ASSERT_TRUE(sigma.invert(inverse));
    for (size_t i = 0; i < n; ++i) {
      for (size_t j = 0; j < n; ++j) {
        double unit = 0, again = 0;
        for (size_t k = 0; k < n; ++k) unit += sigma[i][k] * inverse[k][j];
        for (size_t k = 0; k <= std::min(i, j); ++k) again += factor[i][k] * factor[j][k];
        EXPECT_NEAR(unit, i == j, 1e-8);
        EXPECT_NEAR(again, sigma[i][j], 1e-10);
      }
    }
  }
}

TEST(SquareMatrix, ASingularCovarianceIsToldAndUsed) {
  BayesianMultivariateGaussian gaussian(2);
  for (size_t i = 0; i < 2; ++i)
    for (size_t j = 0; j < 2; ++j) gaussian.sigma[i][j] = 4;
  testing::internal::CaptureStderr();
  gaussian.precomputePlain();
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              testing::StartsWith("Cholesky factorization failed (info = 2)\n"));
  EXPECT_NEAR(gaussian.cachedDenomLog10, -0.798179868358115 + 307.6526555685888 / 2, 1e-9);
  EXPECT_DOUBLE_EQ(gaussian.distance(std::vector<double>{2, 2}), 1) << "of the one dimension that there is";
}

TEST(SquareMatrix, NumbersThatAreNotFiniteAreRefused) {
  for (double value : {std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN()}) {
    SquareMatrix a(2), inverse;
    a[0][0] = a[1][1] = value;
    EXPECT_FALSE(a.invert(inverse));
    EXPECT_EQ(a.factorise(), 1u);
  }
}

// scipy.special.digamma
TEST(Digamma, IsThatOfTheTables) {
  EXPECT_NEAR(digamma(0.001), -1000.57557193181, 1e-10);
  EXPECT_NEAR(digamma(0.5), -1.96351002602142, 1e-13);
  EXPECT_NEAR(digamma(7), 1.87278433509847, 1e-13);
  EXPECT_NEAR(digamma(1e6), 13.8155100579642, 1e-12);
  EXPECT_NEAR(digamma(-0.5), 0.03648997397857652, 1e-13);
  for (double pole : {0, -3}) EXPECT_TRUE(std::isnan(digamma(pole)));
}

}  // namespace
