#include "algo/vcall/recal/plot_file.h"

#include <algorithm>
#include <cstdio>
#include <limits>

#include "algo/vcall/recal/text_file.h"

namespace {

using Sample = std::vector<const VariantDatum*>;

// At most `most` of the data, all equally likely.
void drawSample(Sample& data, size_t most, JavaUtil::Random& random) {
  for (size_t i = 0; i < std::min(most, data.size()); ++i) {
    const auto step = size_t(random.nextDouble() * double(data.size() - i));
    std::swap(data[i], data[i + step]);
  }
  if (data.size() > most) data.resize(most);
}

// Of the positive set, the negative set, and those of neither.
Sample sampleOf(const VariantData& data, size_t most, JavaUtil::Random& random) {
  Sample positive, negative, others;
  for (const VariantDatum* datum : data) {
    if (datum->atTrainingSite && !datum->isOutlier) positive.push_back(datum);
    if (datum->atAntiTrainingSite) negative.push_back(datum);
    if (!datum->atTrainingSite && !datum->atAntiTrainingSite) others.push_back(datum);
  }
  Sample all;
  for (Sample* set : {&positive, &negative, &others}) {
    drawSample(*set, most, random);
    all.insert(all.end(), set->begin(), set->end());
  }
  return all;
}

// Of values, which count as outliers beyond `limit`: those would leave the rest a few points of the grid.
struct Range {
  double low = std::numeric_limits<double>::max(), high = std::numeric_limits<double>::lowest();
  void take(double x, double limit) {
    low = std::min(low, std::max(x, -limit));
    high = std::max(high, std::min(x, limit));
  }
  double at(int step, int steps) const { return steps < 2 ? low : low + (high - low) * step / (steps - 1); }
};

double medianOf(const VariantData& data, size_t annotation) {
  std::vector<double> values;
  values.reserve(data.size());
  for (const VariantDatum* datum : data) values.push_back(datum->annotations[annotation]);
  const auto middle = values.begin() + ptrdiff_t(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  if (values.size() % 2 != 0) return *middle;
  return (*middle + *std::max_element(values.begin(), middle)) / 2;
}

}  // namespace

void writePlotFile(const std::string& name, const std::string& path, const std::string& output,
                   const VarCalParam& param, const VariantData& data, double acceptedLod,
                   VarCalTraining& training) {
  TextFile file = openTextFile(name, path, "w");
  const Sample sample = sampleOf(data, size_t(std::max(param.plot_sample_size, 0)), training.random());
  std::vector<std::string> names = training.annotations();
  std::vector<double> medians(names.size());
  std::vector<Range> ranges(names.size());
  for (size_t i = 0; i < names.size(); ++i) {
    if (names[i] == "MQ" && param.max_mq > 0) names[i] = "logit_MQ";
    medians[i] = medianOf(data, i);
    for (const VariantDatum* datum : sample) ranges[i].take(datum->annotations[i], param.std_thresh);
  }
  const int steps = sample.empty() ? 0 : std::max(param.plot_simu_steps, 0);
  for (size_t i = 0; i < names.size(); ++i) {
    for (size_t j = i + 1; j < names.size(); ++j) {
      const char *const x = names[i].c_str(), *const y = names[j].c_str();
      fprintf(file.get(), "#%s_vqsr_data_%d_%d\n%s,%s,outcome,traning,known\n", output.c_str(), int(i),
              int(j), x, y);
      for (const VariantDatum* datum : sample)
        fprintf(file.get(), "%.4f,%.4f,%d,%d,%d\n", datum->annotations[i], datum->annotations[j],
                datum->lod >= acceptedLod, datum->atTrainingSite, datum->isKnown);
      fprintf(file.get(), "#%s_vqsr_simu_%d_%d\n%s,%s,lod\n", output.c_str(), int(i), int(j), x, y);
      std::vector<double> point = medians;
      for (int a = 0; a < steps; ++a) {
        point[i] = ranges[i].at(a, steps);
        for (int b = 0; b < steps; ++b) {
          point[j] = ranges[j].at(b, steps);
          const double lod = training.good().evaluateDatum(point) - training.bad().evaluateDatum(point);
          fprintf(file.get(), "%.4f,%.4f,%.4f\n", point[i], point[j], lod);
        }
      }
    }
  }
  closeTextFile(name, path, std::move(file));
}
