// fragment_name.h - which reads are of one sequenced fragment: names are unique in a read group only, for every lane may
// number its fragments from one on.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>

#include "readdata/bam/read.h"

// Holds while the read does. Orders by read group, then name.
struct FragmentName {
  int32_t group;  // Read::read_group
  std::string_view name;

  explicit FragmentName(const Read& read) : group(read.read_group), name(read.name) {}
  auto operator<=>(const FragmentName&) const = default;

  struct Hash {
    size_t operator()(const FragmentName& fragment) const {
      return std::hash<std::string_view>()(fragment.name) ^ size_t(fragment.group + 1) * 0x9E3779B97F4A7C15u;
    }
  };
};
