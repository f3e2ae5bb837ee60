#include "algo/vcall/recal/var_cal_training.h"

#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>

#include "variant_data.h"

namespace {

// MQ, FS and QD of true sites, half of them trained on, and of one in four that is false; FS is missing at every fifth.
VariantSet makeData(size_t count) {
  JavaUtil::Random draw(8);
  VariantSet data(count);
  for (size_t i = 0; i < count; ++i) {
    const bool good = i % 4 != 0;
    data.add({60 - std::abs((good ? 1 : 9) * draw.nextGaussian()), (good ? 2 : 12) + draw.nextGaussian(),
              (good ? 20 : 7) + 3 * draw.nextGaussian()});
    if (i % 5 == 0) data.annotations[3 * i + 1] = std::numeric_limits<double>::quiet_NaN();
    data[i].atTrainingSite = good && i % 2 == 1;
    data[i].pos = int32_t(i);
  }
  return data;
}

VarCalParam makeParam() {
  VarCalParam param;
  param.annotations = {"MQ", "FS", "QD"};
  return param;
}

TEST(VarCalTraining, NormalisesByTheTrainingSitesAndOrdersByVariance) {
  VariantSet data = makeData(2000);
  data.annotations[3 + 2] = 1e6;  // an outlier, which makes the others of its annotation seem alike
  const VarCalParam param = makeParam();
  const VariantData all = data.all();
  VarCalTraining training(param, all, nullptr);
  ASSERT_TRUE(training.recalibrate());
  EXPECT_EQ(training.annotations(), (std::vector<std::string>{"MQ", "FS", "QD"}));
  const size_t fs = 1;
  double sum = 0, squares = 0, n = 0;
  for (const VariantDatum& datum : data.data) {
    EXPECT_EQ(datum.missing, datum.pos % 5 == 0 ? uint64_t{1} << fs : 0);
    if (!datum.atTrainingSite || datum.missing) continue;
    sum += datum.annotations[fs];
    squares += datum.annotations[fs] * datum.annotations[fs];
    ++n;
  }
  EXPECT_NEAR(sum / n, 0, 1e-12);
  EXPECT_NEAR(squares / n, 1, 1e-12);
  EXPECT_TRUE(data[1].isOutlier);
  EXPECT_FALSE(data[3].isOutlier);
}

TEST(VarCalTraining, TellsTrueFromFalseAndTheReason) {
  VariantSet data = makeData(4000);
  VarCalParam param = makeParam();
  param.max_mq = 60;
  const VariantData all = data.all();
  VarCalTraining training(param, all, nullptr);
  ASSERT_TRUE(training.recalibrate());
  size_t wrong = 0, negative = 0;
  for (const VariantDatum& datum : data.data) {
    wrong += (datum.lod > 0) != (datum.pos % 4 != 0);
    negative += datum.atAntiTrainingSite && datum.pos % 4 == 0;
    EXPECT_FALSE(datum.isOutlier && datum.atAntiTrainingSite);
    EXPECT_TRUE(datum.culprit >= 0 && datum.culprit < 3 && !datum.isMissing(size_t(datum.culprit)));
  }
  EXPECT_LT(wrong, 100u);
  EXPECT_GT(negative, 400u);
}

TEST(VarCalTraining, ASeedGivesOneResult) {
  std::vector<double> lods[3];
  for (int seed : {1, 1, 2}) {
    VariantSet data = makeData(1000);
    VarCalParam param = makeParam();
    param.srand = seed;
    const VariantData all = data.all();
    VarCalTraining training(param, all, nullptr);
    ASSERT_TRUE(training.recalibrate());
    std::vector<double>& own = seed == 2 ? lods[2] : lods[lods[0].empty() ? 0 : 1];
    for (const VariantDatum& datum : data.data) own.push_back(datum.lod);
  }
  EXPECT_EQ(lods[0], lods[1]);
  EXPECT_NE(lods[0], lods[2]);
}

}  // namespace
