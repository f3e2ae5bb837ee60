#include "algo/preprocess/recal_arguments.h"

#include "base/text.h"

namespace {

// What a file may ask for: contexts of 4^k cells, cycles of 2 * limit cells, per quality.
constexpr int kMaxContextSize = 6;
constexpr int kMaxCycle = 10000;
constexpr int kMaxQuality = 93;

struct Number {
  const char* name;
  int RecalArguments::*field;
  int least, most;
};

struct Text {
  const char* name;
  std::string RecalArguments::*field;
};

struct Switch {
  const char* name;
  bool RecalArguments::*field;
};

using A = RecalArguments;
constexpr Number kNumbers[] = {
    {"deletions_default_quality", &A::deletions_default_quality, -1, kMaxQuality},
    {"indels_context_size", &A::indels_context_size, 1, kMaxContextSize},
    {"insertions_default_quality", &A::insertions_default_quality, -1, kMaxQuality},
    {"low_quality_tail", &A::low_quality_tail, -1, kMaxQuality},
    {"maximum_cycle_value", &A::maximum_cycle_value, 1, kMaxCycle},
    {"mismatches_context_size", &A::mismatches_context_size, 1, kMaxContextSize},
    {"mismatches_default_quality", &A::mismatches_default_quality, -1, kMaxQuality},
    {"quantizing_levels", &A::quantizing_levels, 0, kMaxQuality + 1},
};
constexpr Text kTexts[] = {
    {"binary_tag_name", &A::binary_tag_name},           {"covariate", &A::covariate},
    {"default_platform", &A::default_platform},         {"force_platform", &A::force_platform},
    {"recalibration_report", &A::recalibration_report}, {"solid_nocall_strategy", &A::solid_nocall_strategy},
    {"solid_recal_mode", &A::solid_recal_mode},
};
constexpr Switch kSwitches[] = {
    {"no_standard_covs", &A::no_standard_covs},
    {"run_without_dbsnp", &A::run_without_dbsnp},
};

template <class Entries>
auto findEntry(const Entries& entries, const std::string& name) {
  const auto* at = std::begin(entries);
  while (at != std::end(entries) && name != at->name) ++at;
  return at == std::end(entries) ? nullptr : at;
}

}  // namespace

std::vector<std::pair<std::string, std::string>> RecalArguments::rows() const {
  auto word = [](bool value) { return std::string(value ? "true" : "false"); };
  auto number = [](int value) { return std::to_string(value); };
  return {
      {"binary_tag_name", binary_tag_name},
      {"covariate", covariate},
      {"default_platform", default_platform},
      {"deletions_default_quality", number(deletions_default_quality)},
      {"force_platform", force_platform},
      {"indels_context_size", number(indels_context_size)},
      {"insertions_default_quality", number(insertions_default_quality)},
      {"low_quality_tail", number(low_quality_tail)},
      {"maximum_cycle_value", number(maximum_cycle_value)},
      {"mismatches_context_size", number(mismatches_context_size)},
      {"mismatches_default_quality", number(mismatches_default_quality)},
      {"no_standard_covs", word(no_standard_covs)},
      {"quantizing_levels", number(quantizing_levels)},
      {"recalibration_report", recalibration_report},
      {"run_without_dbsnp", word(run_without_dbsnp)},
      {"solid_nocall_strategy", solid_nocall_strategy},
      {"solid_recal_mode", solid_recal_mode},
  };
}

bool RecalArguments::set(const std::string& name, const std::string& value) {
  if (const Text* text = findEntry(kTexts, name)) {
    this->*text->field = value;
    return true;
  }
  if (const Switch* entry = findEntry(kSwitches, name)) {
    this->*entry->field = value == "true";
    return value == "true" || value == "false";
  }
  const Number* entry = findEntry(kNumbers, name);
  if (!entry) return false;
  int64_t number;
  if (!parseInteger(value, entry->least, entry->most, number)) return false;
  this->*entry->field = int(number);
  return true;
}
