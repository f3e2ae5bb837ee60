// qual_transform.h - gives reads calibrated base qualities as they enter the cache.
// Owns     tables are shared, and constant once built; one object per cache.
// Threads  one object per thread; tables are read by all.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "algo/preprocess/covariates.h"
#include "readdata/bam/input_set.h"
#include "readdata/bam/read_transform.h"

// The settings of one table: of the option -q the path alone, of a read filter the whole parameter string.
struct QualCalParams {
  std::string table;
  double prior = -1.0;      // above 0: in place of the reported quality of a read group
  int min_qual = 6;         // qualities below are kept
  bool indel = false;       // BI and BD are made as well
  bool round_down = false;  // of static levels
  std::vector<int> levels;  // static quantization; empty: the table's own

  // "key=value,...". False, with the reason on standard error.
  bool parse(const std::string& text);
};

class QualTransform final : public ReadTransform {
 public:
  // What becomes of the qualities of one read group.
  struct Group;
  using Groups =
      std::vector<std::shared_ptr<const Group>>;  // by read group, null: its reads stay as they are

  // Tables in the order of the command line; the first that has a read group applies to its reads. Read groups
  // that stay as they are for their platform, or that no table has, are told on standard error. Throws
  // std::invalid_argument for a table that cannot be read.
  static Groups load(const std::vector<QualCalParams>& params, const std::vector<ReadGroup>& read_groups);

  explicit QualTransform(Groups groups);
  ~QualTransform() override;
  Read* transform(Read* read) override;
  bool needsBaseTags(int32_t read_group) const override;

 private:
  Groups groups_;
  std::vector<Covariates> covariates_;  // by read group
};
