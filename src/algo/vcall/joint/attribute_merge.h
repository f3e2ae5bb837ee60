// attribute_merge.h - the INFO values of all inputs at a position, reduced to those of the joint record: sums of RAW_MQ
// and DP, of the others the median.
// Threads  one object per thread.
// Errors   std::runtime_error with the record's place for a DP that is no integer.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "algo/vcall/joint/joint_site.h"
#include "readdata/vcf/variant_context.h"

class AttributeMerge {
 public:
  void clear();
  // Takes the values of an input's record: of one that starts here all that are one number, of one that covers the
  // position DP alone. What is computed anew from the samples is passed over.
  void add(const Event& event);
  bool hasDepth() const { return attrs_.contains("DP"); }  // DP was given by an INFO column
  // Writes the reduced values, and MQ from RAW_MQ and the depth of the records that have it.
  void annotateAttributes(VariantContext& record) const;

 private:
  struct Values {
    bool allInteger = true;
    std::vector<double> values;
  };
  std::map<std::string, Values, std::less<>> attrs_;
  double raw_mq_ = 0, raw_mq_depth_ = 0;  // of the records that have both
};
