// qual_transform.h - gives reads calibrated base qualities as they enter the cache.
// Owns     tables are shared, and constant once built; one object per cache.
// Threads  one object per thread; tables are read by all.
#pragma once

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "algo/preprocess/covariates.h"
#include "algo/preprocess/recal_table.h"
#include "readdata/bam/input_set.h"
#include "readdata/bam/read_transform.h"

// The settings of one table: of the option -q the path alone, of a read filter the whole parameter string.
struct QualCalParams {
  std::string table;
  double prior = -1.0;      // above 0: in place of the reported quality of a read group
  int min_qual = 6;         // bases below keep their quality
  bool indel = false;       // BI and BD are made as well
  bool round_down = false;  // of static levels
  std::vector<int> levels;  // static quantization; empty: the table's own

  // "key=value,...". False, with the reason on standard error.
  bool parse(const std::string& text);
};

class QualTransform final : public ReadTransform {
 public:
  class Table;  // new qualities per read group of one calibration table

  // Tables in the order of the command line; the one that has a read group applies to its reads. Throws
  // std::invalid_argument for a table that cannot be read.
  static std::vector<std::shared_ptr<const Table>> load(const std::vector<QualCalParams>& params,
                                                        const std::vector<ReadGroup>& read_groups);

  explicit QualTransform(std::vector<std::shared_ptr<const Table>> tables);
  ~QualTransform() override;
  Read* transform(Read* read) override;
  bool needsBaseTags(int32_t read_group) const override;

 private:
  std::vector<std::shared_ptr<const Table>> tables_;
  std::unique_ptr<Covariates> covariates_;
};
