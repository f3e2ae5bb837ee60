#include "algo/vcall/joint/attribute_merge.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <numeric>
#include <string_view>

#include "algo/vcall/joint/sample_columns.h"
#include "base/text.h"

namespace {

// Of the record itself, or made anew from genotypes and depths.
constexpr std::string_view kNotMerged[] = {"AC",      "AF",       "AN", "MLEAC",     "MLEAF",
                                           "END",     "DB",       "QD", "ExcessHet", "InbreedingCoeff",
                                           "GQ_MEAN", "GQ_STDDEV"};

// A value that is one number; infinities and what is no number are none.
bool parseFinite(std::string_view text, double& number) {
  return text.size() <= 300 && parseReal(std::string(text), number) && std::isfinite(number);
}

bool isDigits(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// As an integer, the fraction cut off.
std::string integerText(double number) {
  constexpr double kLimit = std::numeric_limits<int32_t>::max();
  return std::to_string(static_cast<int64_t>(std::clamp(number, -kLimit, kLimit)));
}

}  // namespace

void AttributeMerge::clear() {
  attrs_.clear();
  raw_mq_ = raw_mq_depth_ = 0;
}

void AttributeMerge::add(const Event& event) {
  if (!event.line || !event.line->hasColumn(VCFLine::kInfo)) return;
  double raw_mq = -1, depth = -1;
  for (VCFFieldCursor field(*event.line, -1); field.next();) {
    const std::string_view key(field.key, static_cast<size_t>(field.keyLength)),
        text(field.value, static_cast<size_t>(field.valueLength));
    const bool is_depth = key == "DP";
    if (!event.starts && !is_depth) continue;
    if (std::find(std::begin(kNotMerged), std::end(kNotMerged), key) != std::end(kNotMerged)) continue;
    double number;
    if (!parseFinite(text, number)) continue;
    const bool integer = isDigits(text);
    if (is_depth && !integer) failRecord(*event.line, "DP is no integer");
    if (is_depth) depth = number;
    if (key == "RAW_MQ") raw_mq = number;
    auto found = attrs_.find(key);
    if (found == attrs_.end()) found = attrs_.emplace(std::string(key), Values()).first;
    found->second.allInteger = found->second.allInteger && integer;
    found->second.values.push_back(number);
  }
  if (raw_mq < 0 || depth <= 0) return;
  raw_mq_ += raw_mq;
  raw_mq_depth_ += depth;
}

void AttributeMerge::annotateAttributes(VariantContext& record) const {
  for (const auto& [key, attr] : attrs_) {
    std::vector<double> values = attr.values;
    const bool sums = key == "DP" || key == "RAW_MQ";
    double number;
    if (sums) {
      number = std::accumulate(values.begin(), values.end(), 0.0);
    } else {
      const auto middle = values.begin() + static_cast<ptrdiff_t>(values.size() / 2);
      std::nth_element(values.begin(), middle, values.end());
      number = *middle;
    }
    record.eraseInfo(key);
    if (key != "RAW_MQ" && attr.allInteger)
      record.addInfo(key, "%s", integerText(number).c_str());
    else
      record.addInfo(key, "%.2f", number);
  }
  if (raw_mq_depth_ <= 0) return;
  record.eraseInfo("MQ");
  record.addInfo("MQ", "%.2f", std::sqrt(raw_mq_ / raw_mq_depth_));
}
