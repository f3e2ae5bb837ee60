// variant_data.h - data of recalibration for tests.
#pragma once

#include <initializer_list>

#include "algo/vcall/recal/variant_datum.h"

struct VariantSet : VariantBlock {
  explicit VariantSet(size_t count = 0) : VariantBlock{std::vector<VariantDatum>(count), {}} {}

  // The values of the next datum.
  void add(std::initializer_list<double> values) { annotations.insert(annotations.end(), values); }
  VariantDatum& operator[](size_t i) { return data[i]; }
  // All, with their annotations.
  VariantData all() {
    settle();
    VariantData result;
    for (VariantDatum& datum : data) result.push_back(&datum);
    return result;
  }
};
