// var_cal_training.h - from the data of a call set to the log-odds of each variant.
// Threads  one thread calls; the models spread their work over the pool. A seed gives one result, at any number of
//          threads.
// Errors   std::runtime_error for annotations that say nothing.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "algo/vcall/recal/gaussian_mixture_model.h"
#include "algo/vcall/recal/var_cal.h"
#include "algo/vcall/recal/variant_datum.h"
#include "base/thread_coop.h"

class VarCalTraining {
 public:
  // Parameters, data and pool outlive the training; the pool may be null.
  VarCalTraining(const VarCalParam& param, const VariantData& data, thread_coop* pool);

  // Sets lod and culprit of all data, and makes their annotations normalised, in training order. Once only. False, with a
  // message, when there are no training data, and when a model failed.
  bool recalibrate();
  // A model has no valid state: the run ends without results.
  bool failed() const { return failed_; }

  // In training order, after recalibrate(): the data's annotations and the models have it.
  const std::vector<std::string>& annotations() const { return annotations_; }
  const GaussianMixtureModel& good() const { return *good_; }
  const GaussianMixtureModel& bad() const { return *bad_; }
  JavaUtil::Random& random() { return random_; }

 private:
  void logitMQ();
  void dither();
  void findMissing();
  void normalizeData();
  void reorderAnnotations();
  std::unique_ptr<GaussianMixtureModel> trainModel(const char* timer_name, int components, VariantData data);
  void computeLod();
  VariantData positiveSet() const;
  VariantData negativeSet();

  const VarCalParam& param_;
  const VariantData& data_;
  std::vector<std::string> annotations_;
  JavaUtil::Random random_;
  thread_coop* pool_;
  std::unique_ptr<GaussianMixtureModel> good_, bad_;
  bool failed_ = false;
};
