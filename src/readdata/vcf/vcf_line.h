// vcf_line.h - a record being read: views into its line, which is cut at tabs in place. No allocation anywhere.
// Coords   zero-based half open.
// Owns     nothing; lives no longer than the line's buffer.
// Threads  one object per thread.
#pragma once

#include <cstdint>

struct VCFLine {
  enum Column { kId, kRef, kAlt, kQual, kFilter, kInfo, kFormat, kSample, kColumns };
  enum Result { kOk = 0, kBad = -1, kTooWide = -2 };

  char* line = nullptr;  // CHROM, ended by NUL as the other columns are
  int32_t pos = 0;
  int32_t end = 0;
  // From `line`. An absent column has the offset of the line's end, or of another NUL when that is beyond 65,535.
  uint16_t offsets[kColumns] = {};

  // Cuts the `length` bytes at `text` into columns; those behind the first sample stay joined by tabs. text[length] is
  // the NUL that replaced the newline; carriage returns before it are dropped. END, unless it is ".", gives `end`, else
  // the length of REF does. A POS of 0, before the first base, is `pos` -1.
  // kBad for fewer than three columns, a NUL among the bytes, a POS that is no number from 0 to 2^31 - 1, an END that is
  // none or lies before POS, or a REF that reaches beyond 2^31 - 1; kTooWide when a column begins beyond 65,535 bytes.
  Result parse(char* text, uint32_t length);

  // Empty when absent.
  const char* column(Column which) const { return line + offsets[which]; }
  bool hasColumn(Column which) const;
};

static_assert(sizeof(VCFLine) == 32);

// The value of the first item of an INFO text that begins with "END="; it goes up to a ';' or the NUL. Null without one.
const char* findInfoEnd(const char* info);

// Walks the items of INFO, or the FORMAT keys of a record with the values of one sample.
struct VCFFieldCursor {
  const VCFLine* line = nullptr;
  int32_t sample = -1;              // negative: INFO
  int32_t index = -1;               // items passed; -1 when there are no more
  const char* columnEnd = nullptr;  // of INFO or of the sample; no value goes beyond
  const char* key = nullptr;
  const char* value = nullptr;
  int32_t keyLength = 0;
  int32_t valueLength = 0;

  // Before the first item. A sample that the line does not have leaves `index` at -1.
  VCFFieldCursor(const VCFLine& line, int32_t sample);
  // To the next item; false, and `index` -1, when there is none.
  bool next();
  bool is(const char* name) const;  // the current key
};
