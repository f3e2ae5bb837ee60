#include "algo/vcall/recal/var_cal_training.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <numeric>
#include <stdexcept>
#include <strings.h>

#include "base/in_chunks.h"
#include "base/text.h"
#include "base/timer.h"

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
// A Phred-scaled mapping quality near its limits is one value for many sites: what is added there spreads it.
constexpr double kMQOffset = 0.01, kMQJitter = 0.05, kMQTolerance = 1e-6;
constexpr double kDither = 0.01;        // for annotations of few values
constexpr double kMissingSpread = 0.1;  // standard deviations
constexpr double kLeastDeviation = 1e-5;
constexpr size_t kChunk = 4096;      // data that a thread scores at a time
constexpr double kLargestLod = 1e6;  // beyond, a density is 0 in double precision

constexpr const char* kDithered[] = {"HaplotypeScore", "FS", "InbreedingCoeff", "SQR"};

bool isDithered(const std::string& annotation) {
  return std::any_of(std::begin(kDithered), std::end(kDithered),
                     [&](const char* name) { return strcasecmp(annotation.c_str(), name) == 0; });
}

struct Moments {
  double mean = kNaN, deviation = kNaN;
};

// Of the annotation's values, over the data that `counts` takes and that have one.
template <typename Counts>
Moments momentsOf(const VariantData& data, size_t annotation, const Counts& counts) {
  double sum = 0, squares = 0;
  size_t n = 0;
  const auto each = [&](const auto& take) {
    for (const VariantDatum* datum : data)
      if (counts(*datum) && !datum->isMissing(annotation)) take(datum->annotations[annotation]);
  };
  each([&](double x) { sum += x, ++n; });
  if (n == 0) return {};
  const double mean = sum / double(n);
  each([&](double x) { squares += (x - mean) * (x - mean); });
  return {mean, std::sqrt(squares / double(n))};
}

// Throws unless the training data say something of the annotation.
void requireMoments(const Moments& moments, const char* annotation, const char* model) {
  if (!std::isfinite(moments.mean))
    throw std::runtime_error(
        format("There is no training data for annotation %s for var_type %s. Please "
               "remove %s from annotations\n",
               annotation, model, annotation));
  if (!(moments.deviation >= kLeastDeviation))
    throw std::runtime_error(
        format("Training data is constant for annotation %s for var_tpe %s. Please "
               "remove %s from annotations\n",
               annotation, model, annotation));
}

// Those of the data that belong to a set, without spare room.
template <typename Belongs>
VariantData setOf(const VariantData& data, const Belongs& belongs) {
  VariantData set(size_t(std::count_if(data.begin(), data.end(), belongs)));
  std::copy_if(data.begin(), data.end(), set.begin(), belongs);
  return set;
}

}  // namespace

VarCalTraining::VarCalTraining(const VarCalParam& param, const VariantData& data, thread_coop* pool)
    : param_(param), data_(data), annotations_(param.annotations), random_(param.srand), pool_(pool) {}

bool VarCalTraining::recalibrate() {
  logitMQ();
  dither();
  fprintf(stderr, "data size = %lu\n", (unsigned long)data_.size());
  static Timer* const recalibrate_timer = timer("vqsr::recalibrate");
  TimerScope scope(recalibrate_timer);
  findMissing();
  normalizeData();
  reorderAnnotations();

  VariantData positive = positiveSet();
  const bool few = positive.size() < size_t(std::max(param_.min_training_variants, 0));
  fprintf(stderr, "positive training data size %lu%s\n", (unsigned long)positive.size(),
          few ? " (Warning: too few training variants sites!)" : "");
  if (positive.empty()) {
    fputs("could not find training data. Skip the recalibration.\n", stderr);
    return false;
  }

  good_ = trainModel("vqsr::trainGoodModel", param_.positiveComponents(), std::move(positive));
  if (failed_) return false;
  good_->evaluateData(data_, false);

  VariantData negative = negativeSet();
  fprintf(stderr, "negative training data size %lu\n", (unsigned long)negative.size());
  bad_ = trainModel("vqsr::trainBadModel", param_.negativeComponents(), std::move(negative));
  if (failed_) return false;
  bad_->evaluateData(data_, true);
  computeLod();
  return true;
}

std::unique_ptr<GaussianMixtureModel> VarCalTraining::trainModel(const char* timer_name, int components,
                                                                 VariantData data) {
  TimerScope scope(timer(timer_name));
  auto model = std::make_unique<GaussianMixtureModel>(size_t(components), annotations_.size(), param_.mixture,
                                                      &random_, pool_);
  model->train(std::move(data));
  failed_ = !model->converged();
  return model;
}

// From the difference of the densities.
void VarCalTraining::computeLod() {
  static Timer* const culprit_timer = timer("findCulprit");
  TimerScope scope(culprit_timer);
  inChunks(pool_, data_.size(), kChunk, [&](size_t first, size_t last) {
    for (size_t i = first; i < last; ++i) {
      VariantDatum& datum = *data_[i];
      datum.lod = std::isnan(datum.lod) ? -kLargestLod : std::clamp(datum.lod, -kLargestLod, kLargestLod);
      datum.culprit = int8_t(findCulprit(datum, annotations_.size(), *good_, *bad_));
    }
  });
}

// ---- annotations ----

void VarCalTraining::logitMQ() {
  const auto at = std::find(annotations_.begin(), annotations_.end(), "MQ");
  if (at == annotations_.end()) return;
  const auto index = size_t(at - annotations_.begin());
  const double limit = param_.max_mq;
  const double center = std::log((kMQOffset + limit) / (kMQOffset + limit - limit));
  double largest = 0;
  for (VariantDatum* datum : data_) {
    double& value = datum->annotations[index];
    if (std::isnan(value)) continue;
    if (!(limit > 0)) {
      if (std::abs(value) < kMQOffset) value += kMQJitter * random_.nextGaussian();
      continue;
    }
    largest = std::max(largest, value);
    if (value >= limit + kMQTolerance || value <= -kMQOffset) {  // has no logit
      value = kNaN;
      continue;
    }
    value = std::log((value + kMQOffset) / (limit + kMQOffset - value));
    if (std::abs(value - center) < kMQOffset) value += kMQJitter * random_.nextGaussian();
  }
  if (limit > 0 && largest >= limit + kMQTolerance)
    fprintf(stderr, "maximum values of MQ in the vcf files is %f, bigger than --max_mq %f\n", largest, limit);
}

void VarCalTraining::dither() {
  for (size_t i = 0; i < annotations_.size(); ++i) {
    if (!isDithered(annotations_[i])) continue;
    for (VariantDatum* datum : data_)
      if (double& value = datum->annotations[i]; !std::isnan(value))
        value += kDither * random_.nextGaussian();
  }
}

void VarCalTraining::findMissing() {
  for (VariantDatum* datum : data_) {
    datum->missing = 0;
    for (size_t i = 0; i < annotations_.size(); ++i)
      datum->missing |= uint64_t{std::isnan(datum->annotations[i])} << i;
  }
}

// To mean 0 and deviation 1 over the training sites.
void VarCalTraining::normalizeData() {
  static Timer* const normalize_timer = timer("vqsr::normalizeData");
  TimerScope scope(normalize_timer);
  std::vector<Moments> moments;
  for (size_t i = 0; i < annotations_.size(); ++i) {
    moments.push_back(momentsOf(data_, i, [](const VariantDatum& datum) { return datum.atTrainingSite; }));
    fprintf(stderr, "an[%d] %s: mean = %f sigma = %f\n", int(i), annotations_[i].c_str(), moments[i].mean,
            moments[i].deviation);
  }
  for (size_t i = 0; i < annotations_.size(); ++i)
    requireMoments(moments[i], annotations_[i].c_str(), kModelNames[param_.var_type]);
  for (size_t i = 0; i < annotations_.size(); ++i)
    for (VariantDatum* datum : data_) {
      double& value = datum->annotations[i];
      value = datum->isMissing(i) ? kMissingSpread * random_.nextGaussian()
                                  : (value - moments[i].mean) / moments[i].deviation;
      datum->isOutlier = datum->isOutlier || std::abs(value) > param_.std_thresh;
    }
}

// Those that spread most over all data come first.
void VarCalTraining::reorderAnnotations() {
  const size_t count = annotations_.size();
  std::vector<double> variances(count);
  for (size_t i = 0; i < count; ++i) {
    const double deviation = momentsOf(data_, i, [](const VariantDatum&) { return true; }).deviation;
    variances[i] = deviation * deviation;
  }
  std::vector<size_t> order(count);
  std::iota(order.begin(), order.end(), size_t{0});
  std::stable_sort(order.begin(), order.end(),
                   [&](size_t a, size_t b) { return variances[a] > variances[b]; });

  std::string text = "reorder annotations by order of ";
  std::vector<std::string> names(count);
  for (size_t i = 0; i < count; ++i) {
    names[i] = annotations_[order[i]];
    text += format("%s(%f) ", names[i].c_str(), variances[order[i]]);
  }
  fprintf(stderr, "%s\n", text.c_str());
  annotations_ = std::move(names);
  std::vector<double> values(count);
  for (VariantDatum* datum : data_) {
    uint64_t missing = 0;
    for (size_t i = 0; i < count; ++i) {
      values[i] = datum->annotations[order[i]];
      missing |= uint64_t{datum->isMissing(order[i])} << i;
    }
    std::copy(values.begin(), values.end(), datum->annotations);
    datum->missing = missing;
  }
}

// ---- sets ----

VariantData VarCalTraining::positiveSet() const {
  return setOf(data_, [](const VariantDatum* datum) { return datum->atTrainingSite && !datum->isOutlier; });
}

// What the good model finds unlikely, and what resources call bad.
VariantData VarCalTraining::negativeSet() {
  const auto isUnlikely = [this](const VariantDatum* datum) {
    return !datum->isOutlier && std::isfinite(datum->lod) && datum->lod < param_.bad_lod_thresh;
  };
  for (VariantDatum* datum : data_)
    if (isUnlikely(datum)) datum->atAntiTrainingSite = true;
  return setOf(data_, [&](const VariantDatum* datum) {
    return datum->atAntiTrainingSite && (!datum->isAggregate || isUnlikely(datum));
  });
}
