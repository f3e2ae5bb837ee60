// reference_window.h - the reference bases around a region.
// Coords   zero-based half open.
#pragma once

#include <cstdint>
#include <string>

struct ReferenceWindow {
  std::string bases;  // upper case
  uint32_t start = 0;

  uint32_t end() const { return start + static_cast<uint32_t>(bases.size()); }
  bool contains(uint32_t position) const { return position >= start && position < end(); }
  char at(uint32_t position) const { return bases[position - start]; }
  const char* from(uint32_t position) const { return bases.data() + (position - start); }
};
