#include "readdata/vcf/vcf_line.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace {

constexpr int64_t kNoNumber = -1;

// The decimal number from `from` to exactly `to`; kNoNumber for anything else, also one above 2^31 - 1.
int64_t parseCoordinate(const char* from, const char* to) {
  if (from == to) return kNoNumber;
  int64_t value = 0;
  for (; from < to; ++from) {
    if (*from < '0' || *from > '9') return kNoNumber;
    value = value * 10 + (*from - '0');
    if (value > std::numeric_limits<int32_t>::max()) return kNoNumber;
  }
  return value;
}

bool endsColumn(char c) {
  return c == '\0' || c == '\t';
}

}  // namespace

const char* findInfoEnd(const char* info) {
  while (strncmp(info, "END=", 4) != 0) {
    info = strchrnul(info, ';');
    if (*info++ == '\0') return nullptr;
  }
  return info + 4;
}

VCFLine::Result VCFLine::parse(char* text, uint32_t length) {
  line = text;
  if (memchr(text, '\0', length)) return kBad;
  while (length > 0 && text[length - 1] == '\r') text[--length] = '\0';

  char* const stop = text + length;
  const auto nextTab = [stop](char* from) { return static_cast<char*>(memchr(from, '\t', stop - from)); };
  char* const chrom_end = nextTab(text);
  if (!chrom_end) return kBad;
  char* tab = nextTab(chrom_end + 1);
  if (!tab) return kBad;
  const int64_t pos1 = parseCoordinate(chrom_end + 1, tab);
  if (pos1 == kNoNumber) return kBad;
  *chrom_end = '\0';
  pos = static_cast<int32_t>(pos1 - 1);

  int columns = 0;
  uint32_t ref_length = 0;  // bases
  while (tab && columns < kColumns) {
    *tab = '\0';
    char* const column = tab + 1;
    if (column - text > std::numeric_limits<uint16_t>::max()) return kTooWide;
    offsets[columns] = static_cast<uint16_t>(column - text);
    tab = columns + 1 < kColumns ? nextTab(column) : nullptr;
    if (columns == kRef) ref_length = static_cast<uint32_t>((tab ? tab : stop) - column);
    ++columns;
  }
  // The end of a longer line does not fit: any other empty text does as well.
  const char* absent = length <= std::numeric_limits<uint16_t>::max() ? stop : chrom_end;
  std::fill(offsets + columns, offsets + kColumns, static_cast<uint16_t>(absent - text));

  int64_t last = std::max<int64_t>(int64_t{pos} + ref_length, 0);
  if (const char* from = findInfoEnd(column(kInfo))) {
    const char* to = strchrnul(from, ';');
    if (to - from != 1 || *from != '.') {
      last = parseCoordinate(from, to);
      if (last == kNoNumber || last <= pos) return kBad;
    }
  }
  if (last > std::numeric_limits<int32_t>::max()) return kBad;
  end = static_cast<int32_t>(last);
  return kOk;
}

bool VCFLine::hasColumn(Column which) const {
  if (which == kId) return true;
  return offsets[which] > offsets[which - 1] && line[offsets[which] - 1] == '\0';
}

VCFFieldCursor::VCFFieldCursor(const VCFLine& record, int32_t sample_index)
    : line(&record), sample(sample_index) {
  if (sample < 0) {
    key = value = record.column(VCFLine::kInfo);
    columnEnd = strchr(value, '\0');
    index = 0;
    return;
  }
  key = record.column(VCFLine::kFormat);
  value = columnEnd = record.column(VCFLine::kSample);
  if (!record.hasColumn(VCFLine::kSample)) return;
  for (int32_t i = 0; i < sample; ++i) {
    value = strchrnul(value, '\t');
    if (*value == '\0') return;
    ++value;
  }
  columnEnd = strchrnul(value, '\t');
  index = 0;
}

bool VCFFieldCursor::next() {
  if (index < 0) return false;
  if (endsColumn(sample < 0 ? value[valueLength] : key[keyLength])) {
    index = -1;
    return false;
  }
  if (sample < 0) {
    key = value + valueLength;
    if (*key == ';') ++key;
    const char* stop = key;
    const char* equals = nullptr;
    for (; stop < columnEnd && *stop != ';'; ++stop)
      if (*stop == '=' && !equals) equals = stop;
    value = equals ? equals + 1 : stop;
    keyLength = static_cast<int32_t>((equals ? equals : stop) - key);
    valueLength = static_cast<int32_t>(stop - value);
  } else {
    key += keyLength;
    value += valueLength;
    if (index > 0) {  // both stand at what ended the item before
      ++key;
      if (value < columnEnd) ++value;
    }
    keyLength = static_cast<int32_t>(strchrnul(key, ':') - key);
    const void* colon = memchr(value, ':', columnEnd - value);
    valueLength = static_cast<int32_t>((colon ? static_cast<const char*>(colon) : columnEnd) - value);
  }
  ++index;
  return true;
}

bool VCFFieldCursor::is(const char* name) const {
  return index > 0 && strlen(name) == static_cast<size_t>(keyLength) && memcmp(name, key, keyLength) == 0;
}
