// name_table.h - brings reads of one name together: the first waits in the table, the second takes it out.
// Threads  one object per thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

class NameTable {
 public:
  // Empties the table and makes room for as many names to be put in.
  void reset(size_t count);
  static uint32_t hashOf(const char* name);
  // The number under which the name waits, which it does no longer; -1 when it does not: it waits from now on under
  // `number`, which is not negative. Names must stay where they are.
  int32_t takeOrPut(const char* name, uint32_t hash, int32_t number);

 private:
  static constexpr int32_t kFree = 0, kTaken = -1;  // above: the number, plus 1
  struct Slot {
    uint32_t hash;
    int32_t content;
    const char* name;
  };
  std::vector<Slot> slots_;  // a power of two, at most half of them used
  size_t mask_ = 0;
};
