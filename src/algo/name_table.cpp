#include "algo/name_table.h"

#include <algorithm>
#include <bit>
#include <cstring>

// Eight bytes at a time; names in a sorted window differ in their last digits.
uint32_t NameTable::hashOf(const char* name) {
  constexpr uint64_t kMultiplier = 0x9E3779B97F4A7C15;
  size_t length = strlen(name);
  uint64_t hash = length;
  for (; length >= 8; name += 8, length -= 8) {
    uint64_t word;
    memcpy(&word, name, 8);
    hash = (std::rotl(hash, 23) ^ word) * kMultiplier;
  }
  uint64_t word = 0;
  memcpy(&word, name, length);
  hash = (std::rotl(hash, 23) ^ word) * kMultiplier;
  return static_cast<uint32_t>(hash >> 32);
}

void NameTable::reset(size_t count) {
  const size_t size = std::bit_ceil(std::max<size_t>(16, 2 * count));
  if (slots_.size() < size) slots_.resize(size);
  mask_ = size - 1;
  std::fill_n(slots_.begin(), size, Slot{0, kFree, nullptr});
}

int32_t NameTable::takeOrPut(const char* name, uint32_t hash, int32_t number) {
  // The first on the way; used again, so that many pairs of one name do not fill the table.
  Slot* taken = nullptr;
  for (size_t i = hash & mask_;; i = (i + 1) & mask_) {
    Slot& slot = slots_[i];
    if (slot.content == kFree) {
      *(taken ? taken : &slot) = {hash, number + 1, name};
      return -1;
    }
    if (slot.content == kTaken && !taken) taken = &slot;
    if (slot.content == kTaken || slot.hash != hash || strcmp(slot.name, name) != 0) continue;
    const int32_t found = slot.content - 1;
    slot.content = kTaken;
    return found;
  }
}
