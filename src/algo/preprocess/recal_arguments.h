// recal_arguments.h - the settings under which a calibration table was made, as its first table tells them.
#pragma once

#include <string>
#include <utility>
#include <vector>

struct RecalArguments {
  std::string binary_tag_name = "null";
  std::string covariate = "ReadGroupCovariate,QualityScoreCovariate,ContextCovariate,CycleCovariate";
  std::string default_platform = "null";
  int deletions_default_quality = 45;
  std::string force_platform = "null";
  int indels_context_size = 3;
  int insertions_default_quality = 45;
  int low_quality_tail = 2;
  int maximum_cycle_value = 500;
  int mismatches_context_size = 2;
  int mismatches_default_quality = -1;
  bool no_standard_covs = false;
  int quantizing_levels = 16;
  std::string recalibration_report = "null";
  bool run_without_dbsnp = false;
  std::string solid_nocall_strategy = "THROW_EXCEPTION";
  std::string solid_recal_mode = "SET_Q_ZERO";

  // Names and values as text, in the order of the table.
  std::vector<std::pair<std::string, std::string>> rows() const;
  // False for an unknown name or a value that does not parse.
  bool set(const std::string& name, const std::string& value);

  bool operator==(const RecalArguments&) const = default;
};
