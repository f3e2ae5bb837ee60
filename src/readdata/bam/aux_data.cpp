// aux_data.cpp - the optional fields behind the qualities of a record: two letters, a type, a value.
#include <cstring>
#include <emmintrin.h>

#include "readdata/bam/bam_record.h"

namespace {

template <typename T>
T load(const uint8_t* bytes) {
  T value;
  memcpy(&value, bytes, sizeof value);
  return value;
}

int numberSize(uint8_t type) {
  switch (type) {
    case 'c':
    case 'C':
      return 1;
    case 's':
    case 'S':
      return 2;
    case 'i':
    case 'I':
    case 'f':
      return 4;
    case 'd':
      return 8;
    default:
      return 0;
  }
}

constexpr int kTagSize = 3;  // two letters and the type

// The first zero byte of [at, end), or null. Most texts are shorter than a call of memchr is worth.
const uint8_t* findZero(const uint8_t* at, const uint8_t* end) {
  const __m128i zero = _mm_setzero_si128();
  for (; end - at >= 16; at += 16) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
    if (int found = _mm_movemask_epi8(_mm_cmpeq_epi8(bytes, zero)))
      return at + __builtin_ctz(unsigned(found));
  }
  for (; at < end; at++)
    if (*at == 0) return at;
  return nullptr;
}

// Whether the two letters stand side by side anywhere in [at, end). Most tags that are asked for are absent, and
// to see that at 16 bytes a step is far cheaper than to walk the fields.
bool holdsPair(const uint8_t* at, const uint8_t* end, const char* pair) {
  const __m128i first = _mm_set1_epi8(pair[0]), second = _mm_set1_epi8(pair[1]);
  for (; end - at > 16; at += 16) {
    const __m128i here = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
    const __m128i next = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at + 1));
    if (_mm_movemask_epi8(_mm_and_si128(_mm_cmpeq_epi8(here, first), _mm_cmpeq_epi8(next, second))))
      return true;
  }
  for (; end - at > 1; at++)
    if (at[0] == uint8_t(pair[0]) && at[1] == uint8_t(pair[1])) return true;
  return false;
}

}  // namespace

int64_t aux_size(const uint8_t* type, const uint8_t* end) {
  if (type >= end) return -1;
  const uint8_t* value = type + 1;
  const int64_t room = end - value;
  int64_t size = -1;
  if (*type == 'A') {
    size = 1;
  } else if (*type == 'Z' || *type == 'H') {
    if (const uint8_t* zero = findZero(value, end)) size = zero - value + 1;
  } else if (*type == 'B') {
    if (room < 5 || numberSize(*value) == 0) return -1;
    size = 5 + int64_t(numberSize(*value)) * load<uint32_t>(value + 1);
  } else if (numberSize(*type) > 0) {
    size = numberSize(*type);
  }
  return size <= room ? size : -1;
}

uint8_t* aux_find(const bam_record& record, const char* two_letter_tag) {
  if (record.l_aux < kTagSize + 1) return nullptr;
  const auto tag = load<uint16_t>(reinterpret_cast<const uint8_t*>(two_letter_tag));
  uint8_t* const end = record.auxEnd();
  if (!holdsPair(end - record.l_aux, end, two_letter_tag)) return nullptr;
  for (uint8_t* at = end - record.l_aux; end - at > kTagSize;) {
    int64_t size = aux_size(at + 2, end);
    if (size < 0) return nullptr;
    if (load<uint16_t>(at) == tag) return at + 2;
    at += kTagSize + size;
  }
  return nullptr;
}

int aux_find_checked(const bam_record& record, const char* two_letter_tag, uint8_t*& found) {
  const auto tag = load<uint16_t>(reinterpret_cast<const uint8_t*>(two_letter_tag));
  uint8_t* const end = record.auxEnd();
  found = nullptr;
  int count = 0;
  for (uint8_t* at = end - record.l_aux; at < end;) {
    int64_t size = end - at > kTagSize ? aux_size(at + 2, end) : -1;
    if (size < 0) return -1;
    if (load<uint16_t>(at) == tag && count++ == 0) found = at + 2;
    at += kTagSize + size;
  }
  return count;
}

int64_t aux_int(const uint8_t* type) {
  if (!type) return 0;
  switch (*type) {
    case 'c':
      return load<int8_t>(type + 1);
    case 'C':
      return type[1];
    case 's':
      return load<int16_t>(type + 1);
    case 'S':
      return load<uint16_t>(type + 1);
    case 'i':
      return load<int32_t>(type + 1);
    case 'I':
      return load<uint32_t>(type + 1);
    default:
      return 0;
  }
}

double aux_double(const uint8_t* type) {
  if (type && *type == 'd') return load<double>(type + 1);
  if (type && *type == 'f') return load<float>(type + 1);
  return 0;
}

float aux_float(const uint8_t* type) {
  return type && *type == 'f' ? load<float>(type + 1) : float(aux_double(type));
}

char aux_char(const uint8_t* type) {
  return type && *type == 'A' ? char(type[1]) : '\0';
}

const char* aux_text(const uint8_t* type) {
  return type && (*type == 'Z' || *type == 'H') ? reinterpret_cast<const char*>(type + 1) : "";
}

void aux_delete(bam_record& record, uint8_t* type) {
  if (!type) return;
  uint8_t* const end = record.auxEnd();
  uint8_t* const from = type - 2;
  int64_t size = aux_size(type, end);
  uint8_t* const rest = size < 0 ? end : type + 1 + size;
  memmove(from, rest, size_t(end - rest));
  record.data_len -= int32_t(rest - from);
  record.l_aux -= int32_t(rest - from);
}

void aux_append(bam_record& record, const char* tag, char type, size_t length, const void* bytes) {
  record.growData(size_t(record.data_len) + kTagSize + length + size_t(record.l_seq));
  uint8_t* at = record.auxEnd();
  memcpy(at, tag, 2);
  at[2] = uint8_t(type);
  if (length > 0) memcpy(at + kTagSize, bytes, length);
  record.data_len += int32_t(kTagSize + length);
  record.l_aux += int32_t(kTagSize + length);
}

void aux_delete_all(bam_record& record, const char* two_letter_tag) {
  uint8_t* found = aux_find(record, two_letter_tag);
  if (!found) return;
  // One pass over the rest, however many there are; what cannot be walked stays as it is.
  uint8_t* const end = record.auxEnd();
  uint8_t* to = found - 2;
  uint8_t* at = to;
  while (end - at > kTagSize) {
    int64_t size = aux_size(at + 2, end);
    if (size < 0) break;
    const bool keep = memcmp(at, two_letter_tag, 2) != 0;
    if (keep) memmove(to, at, size_t(kTagSize + size));
    if (keep) to += kTagSize + size;
    at += kTagSize + size;
  }
  memmove(to, at, size_t(end - at));
  to += end - at;
  record.data_len -= int32_t(end - to);
  record.l_aux -= int32_t(end - to);
}

void strip_pg(bam_record& record) {
  aux_delete_all(record, "PG");
}
