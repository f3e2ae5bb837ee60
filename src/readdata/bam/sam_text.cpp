#include "readdata/bam/sam_text.h"

#include <algorithm>
#include <cstdarg>

namespace {

[[gnu::format(printf, 2, 3)]] void appendFormat(std::string& text, const char* form, ...) {
  va_list args, again;
  va_start(args, form);
  va_copy(again, args);
  const int length = vsnprintf(nullptr, 0, form, args);
  va_end(args);
  if (length > 0) {
    const size_t old = text.size();
    text.resize(old + size_t(length) + 1);
    vsnprintf(text.data() + old, size_t(length) + 1, form, again);
    text.resize(old + size_t(length));
  }
  va_end(again);
}

const char* contigName(int32_t number, const bam_header& header) {
  if (number == -1) return "*";
  return number >= 0 && size_t(number) < header.names.size() ? header.names[size_t(number)].c_str()
                                                             : "INVALID_TID";
}

const char* mateContigName(const bam_record& record, const bam_header& header) {
  if (record.next_ref_id >= 0 && record.next_ref_id == record.ref_id) return "=";
  return contigName(record.next_ref_id, header);
}

long long pos1(int32_t position) {
  return static_cast<long long>(position) + 1;
}

void appendTag(const uint8_t* tag, std::string& text) {
  const uint8_t* type = tag + 2;
  switch (*type) {
    case 'A':
      return appendFormat(text, "\t%c%c:%c:%c", tag[0], tag[1], *type, aux_char(type));
    case 'f':
      return appendFormat(text, "\t%c%c:%c:%f", tag[0], tag[1], *type, aux_double(type));
    case 'd':
      return appendFormat(text, "\t%c%c:%c:%lf", tag[0], tag[1], *type, aux_double(type));
    case 'Z':
    case 'H':
      return appendFormat(text, "\t%c%c:%c:%s", tag[0], tag[1], *type, aux_text(type));
    case 'B':
      return appendFormat(text, "\t%c%c:%c:-", tag[0], tag[1], *type);
    default:
      return appendFormat(text, "\t%c%c:i:%lld", tag[0], tag[1], static_cast<long long>(aux_int(type)));
  }
}

}  // namespace

void to_text(const bam_record& record, const bam_header& header, std::string& buffer) {
  buffer.clear();
  appendFormat(buffer, "%s\t%d\t%s\t%lld\t%d\t", record.name(), record.flag,
               contigName(record.ref_id, header), pos1(record.pos), record.mapq);
  buffer += record.n_cigar > 0 ? cigarString(record.cigarBytes(), record.n_cigar) : "*";
  appendFormat(buffer, "\t%s\t%lld\t%d\t", mateContigName(record, header), pos1(record.next_pos),
               record.tlen);

  const size_t count = size_t(record.l_seq), sequence = buffer.size();
  buffer.resize(sequence + count);
  decodeBases(record.packedBases(), count, buffer.data() + sequence);
  if (count == 0) buffer += '*';
  buffer += '\t';
  const uint8_t* quals = record.quals();
  if (count == 0 || quals[0] == 0xff) {
    buffer += '*';
  } else {
    for (size_t i = 0; i < count; ++i) buffer += char(quals[i] + 33);
  }

  const uint8_t* const end = record.auxEnd();
  for (const uint8_t* at = end - record.l_aux; end - at > 3;) {
    const int64_t size = aux_size(at + 2, end);
    if (size < 0) break;
    appendTag(at, buffer);
    at += 3 + size;
  }
}

std::string shortText(const bam_record& record, const bam_header& header) {
  std::string text;
  appendFormat(text, "%s %u %u %d %s %lld %s %lld %d", record.name(), record.flag, record.mapq, record.l_seq,
               contigName(record.ref_id, header), pos1(record.pos), mateContigName(record, header),
               pos1(record.next_pos), record.tlen);
  return text;
}

void print_flag_legend(FILE* stream) {
  static constexpr struct {
    char letter;
    const char* text;
  } kLegend[] = {
      {'p', "paired in sequencing"},
      {'P', "mapped in a proper pair"},
      {'u', "unmapped"},
      {'U', "mate unmapped"},
      {'r', "on the reverse strand"},
      {'R', "mate on the reverse strand"},
      {'1', "first read of the pair"},
      {'2', "second read of the pair"},
      {'s', "secondary alignment"},
      {'q', "failed quality checks"},
      {'d', "duplicate"},
      {'S', "supplementary alignment"},
  };
  fputs("-------------------------\nflag desc\n", stream);
  for (const auto& entry : kLegend) fprintf(stream, "%c: %s\n", entry.letter, entry.text);
}
