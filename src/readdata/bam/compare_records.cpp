// compare_records.cpp - the first difference of two records, for checks of identity between two inputs.
#include <algorithm>
#include <cstring>
#include <string_view>
#include <vector>

#include "readdata/bam/bam_record.h"

namespace {

struct Tag {
  std::string_view name;   // two letters
  const uint8_t* type;     // in the record
  std::string_view value;  // behind the type

  bool isInteger() const { return strchr("cCsSiI", *type) != nullptr; }
  // Orders tags by name, then value; integers of any width as one kind.
  int compare(const Tag& other) const {
    if (int order = name.compare(other.name)) return order;
    if (isInteger() && other.isInteger()) {
      const int64_t a = aux_int(type), b = aux_int(other.type);
      return a < b ? -1 : a > b;
    }
    const int kind = isInteger() ? 'i' : *type, other_kind = other.isInteger() ? 'i' : *other.type;
    if (kind != other_kind) return kind < other_kind ? -1 : 1;
    return value.compare(other.value);
  }
};

// The tags in order, or false with the name of the tag that cannot be walked in `corrupt`.
bool collectTags(const bam_record& record, std::vector<Tag>& tags, std::string& corrupt) {
  const uint8_t* const end = record.auxEnd();
  for (const uint8_t* at = end - record.l_aux; at < end;) {
    const char* letters = reinterpret_cast<const char*>(at);
    const int64_t size = end - at > 2 ? aux_size(at + 2, end) : -1;
    if (size < 0) {
      corrupt.assign(letters, std::min<size_t>(2, size_t(end - at)));
      return false;
    }
    tags.push_back({{letters, 2}, at + 2, {letters + 3, size_t(size)}});
    at += 3 + size;
  }
  std::sort(tags.begin(), tags.end(), [](const Tag& a, const Tag& b) { return a.compare(b) < 0; });
  return true;
}

std::string valueText(const Tag& tag) {
  const char type = char(*tag.type);
  if (tag.isInteger()) return "i:" + std::to_string(aux_int(tag.type));
  std::string text = std::string(1, type) + ":";
  if (type == 'f' || type == 'd') return text + std::to_string(aux_double(tag.type));
  if (type == 'A') return text + aux_char(tag.type);
  if (type != 'B') return text + aux_text(tag.type);
  static const char kHex[] = "0123456789abcdef";
  text += tag.value[0];
  for (size_t i = 5; i < std::min<size_t>(tag.value.size(), 37); ++i)
    text += std::string(" ") + kHex[uint8_t(tag.value[i]) >> 4] + kHex[tag.value[i] & 15];
  return text + " of " + std::to_string(tag.value.size() - 5) + " bytes";
}

std::string difference(const std::string& field, const std::string& a, const std::string& b) {
  return field + " differs: " + a + " and " + b;
}

std::string compareTags(const bam_record& a, const bam_record& b) {
  std::vector<Tag> tags[2];
  std::string corrupt;
  if (!collectTags(a, tags[0], corrupt))
    return "corrupt aux data for tag " + corrupt + " in the first bam file, read name " + a.name();
  if (!collectTags(b, tags[1], corrupt))
    return "corrupt aux data for tag " + corrupt + " in the second bam file, read name " + b.name();
  auto [at, other] = std::mismatch(tags[0].begin(), tags[0].end(), tags[1].begin(), tags[1].end(),
                                   [](const Tag& x, const Tag& y) { return x.compare(y) == 0; });
  const bool in_first = at != tags[0].end(), in_second = other != tags[1].end();
  if (!in_first && !in_second) return "";
  if (in_first && in_second && at->name == other->name)
    return difference("tag " + std::string(at->name), valueText(*at), valueText(*other));
  const bool only_first = in_first && (!in_second || at->name < other->name);
  const Tag& extra = only_first ? *at : *other;
  return "tag " + std::string(extra.name) + " is in the " + (only_first ? "first" : "second") +
         " only: " + valueText(extra);
}

std::string letters(const bam_record& record) {
  std::string text(size_t(record.l_seq), '\0');
  decodeBases(record.packedBases(), text.size(), text.data());
  return text;
}

std::string qualities(const bam_record& record) {
  std::string text(record.quals(), record.quals() + record.l_seq);
  if (!text.empty() && uint8_t(text[0]) == 0xff) return "*";
  for (char& c : text) c = char(std::min(uint8_t(c) + 33, 126));
  return text;
}

}  // namespace

std::string compare_records(const bam_record& a, const bam_record& b) {
  if (strcmp(a.name(), b.name()) != 0) return difference("name", a.name(), b.name());
  const struct {
    const char* name;
    int64_t a, b;
  } numbers[] = {
      {"flag", a.flag, b.flag},
      {"contig", a.ref_id, b.ref_id},
      {"position", a.pos, b.pos},
      {"mapping quality", a.mapq, b.mapq},
      {"bin", a.bin, b.bin},
      {"mate contig", a.next_ref_id, b.next_ref_id},
      {"mate position", a.next_pos, b.next_pos},
      {"template length", a.tlen, b.tlen},
      {"sequence length", a.l_seq, b.l_seq},
  };
  for (const auto& number : numbers)
    if (number.a != number.b)
      return difference(number.name, std::to_string(number.a), std::to_string(number.b));
  if (a.n_cigar != b.n_cigar || memcmp(a.cigarBytes(), b.cigarBytes(), 4 * size_t(a.n_cigar)) != 0)
    return difference("CIGAR", cigarString(a.cigarBytes(), a.n_cigar),
                      cigarString(b.cigarBytes(), b.n_cigar));
  std::string in_a = letters(a), in_b = letters(b);
  if (in_a != in_b) return difference("sequence", in_a, in_b);
  if (memcmp(a.quals(), b.quals(), size_t(a.l_seq)) != 0)
    return difference("qualities", qualities(a), qualities(b));
  return compareTags(a, b);
}
