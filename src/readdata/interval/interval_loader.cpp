// interval_loader.cpp - IntervalList::load(): which of the three forms a file has, and a reader for each.
// A start that does not fit 32 bits is refused; an end that does not is the largest one, to be clipped later.

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "base/plain_file.h"
#include "base/text.h"
#include "readdata/interval/interval_list.h"

namespace {

constexpr uint32_t kTop = 0xFFFFFFFF;

// Reads lines through a buffer of 1024 bytes: of a longer line the buffer holds the first 1023 bytes, the
// rest is passed over. The line end is not part of the line.
class LineReader {
 public:
  explicit LineReader(FILE* stream) : stream_(stream) {}

  // False at the end of the file and at a read error, which error() tells apart.
  bool next() {
    size_t length = 0;
    bool any = false;
    ++number_;
    errno = 0;
    for (int c; (c = getc_unlocked(stream_)) != EOF;) {
      any = true;
      if (c == '\n') break;
      if (length < sizeof line_ - 1) line_[length++] = static_cast<char>(c);
    }
    if (ferror(stream_)) return error_ = errno ? errno : EIO, false;
    if (length > 0 && line_[length - 1] == '\r') --length;
    line_[length] = '\0';
    return any;
  }

  bool rewind() {
    number_ = error_ = 0;
    if (fseek(stream_, 0, SEEK_SET) == 0) return true;
    error_ = errno;
    return false;
  }

  char* line() { return line_; }
  bool startsWith(const char* text) const { return strncmp(line_, text, strlen(text)) == 0; }
  int number() const { return number_; }  // of the line last asked for, from 1
  int error() const { return error_; }    // an errno value, 0 for none

 private:
  FILE* stream_;
  int number_ = 0;
  int error_ = 0;
  char line_[1024];
};

std::vector<std::string> columnsOf(const char* line) {
  const char* end = line + strlen(line);
  while (line < end && isspace(static_cast<unsigned char>(*line))) ++line;
  while (line < end && isspace(static_cast<unsigned char>(end[-1]))) --end;
  return split(std::string_view(line, end - line), '\t');
}

bool beginsWithDigit(const std::string& text) {
  return isdigit(static_cast<unsigned char>(text[0]));
}

// The number that `text` begins with; anything above 32 bits is kTop + 1, no digit gives false.
bool number(const std::string& text, uint64_t& value) {
  const char* cursor = text.c_str();
  return beginsWithDigit(text) && scanUnsigned(cursor, kTop, value);
}

uint32_t capped(uint64_t value) {
  return static_cast<uint32_t>(value > kTop ? kTop : value);
}

}  // namespace

struct IntervalList::Loader {
  IntervalList& list;
  LineReader lines;

  bool detectKind();
  bool load();
  bool loadPlain();
  bool loadBed();
  bool loadPicard();
  bool readHeader(bool& more);
  bool addHeaderLine();
  bool addTarget();

  // What a loader returns at the end of its lines.
  bool endOf(const char* what) {
    if (!lines.error()) return true;
    fprintf(stderr, "Failed to read %s at line %d: %s\n", what, lines.number(), strerror(lines.error()));
    return false;
  }
};

bool IntervalList::load(const char* path) {
  kind_ = kPlain;
  header_contigs_.clear();
  per_contig_.clear();
  contig_index_.clear();
  total_ = 0;
  FileOwner stream(open_plain_file(path));
  if (!stream) {
    fprintf(stderr, "Failed to open file %s: %s\n", path, strerror(errno));
    return false;
  }
  Loader loader{*this, LineReader(stream.get())};
  if (!loader.detectKind() || !loader.load()) {
    fprintf(stderr,
            kind_ == kPicard ? "Failed to load Picard style interval list %s\n"
            : kind_ == kBed  ? "Failed to load BED file %s\n"
                             : "Failed to load intervals from file %s\n",
            path);
    return false;
  }
  countEntries();
  return true;
}

bool IntervalList::Loader::detectKind() {
  list.kind_ = kPlain;
  while (lines.next()) {
    if (lines.startsWith("#")) continue;
    if (lines.startsWith("@")) {
      if (!lines.startsWith("@HD\t")) continue;
      list.kind_ = kPicard;
      break;
    }
    if (lines.startsWith("browser") || lines.startsWith("track") || strchr(lines.line(), '\t')) {
      list.kind_ = kBed;
      break;
    }
  }
  if (!lines.error()) lines.rewind();
  return endOf("header");
}

bool IntervalList::Loader::load() {
  return list.kind_ == kPicard ? loadPicard() : list.kind_ == kBed ? loadBed() : loadPlain();
}

bool IntervalList::Loader::loadPlain() {
  while (lines.next()) {
    if (lines.startsWith("#")) continue;
    Interval interval;
    if (!parse_interval(lines.line(), interval)) {
      fprintf(stderr, "Failed to parse string %s at line %d\n", lines.line(), lines.number());
      return false;
    }
    list.addInterval(interval);
  }
  return endOf("file");
}

bool IntervalList::Loader::loadBed() {
  while (lines.next()) {
    if (lines.startsWith("#")) continue;
    std::vector<std::string> columns = columnsOf(lines.line());
    if (columns.size() < 3) continue;
    list.registerContig(columns[0].c_str());
    uint64_t start, end;
    if (!number(columns[1], start) || !number(columns[2], end)) continue;
    if (start > kTop) {
      fprintf(stderr, "Invalid start %s at line %d\n", columns[1].c_str(), lines.number());
      return false;
    }
    list.addInterval({columns[0].c_str(), capped(start), capped(end)});
  }
  return endOf("file");
}

bool IntervalList::Loader::loadPicard() {
  bool more = false;
  if (!readHeader(more)) return false;
  for (; more; more = lines.next()) {
    if (!lines.startsWith("#") && !addTarget()) return false;
  }
  return endOf("file");
}

// Reads up to the first line behind the header; `more` tells whether there is one.
bool IntervalList::Loader::readHeader(bool& more) {
  bool good = true;
  while ((more = lines.next())) {
    if (lines.startsWith("#")) continue;
    if (!lines.startsWith("@")) break;
    good &= addHeaderLine();
  }
  return endOf("header") && good;
}

bool IntervalList::Loader::addHeaderLine() {
  std::vector<std::string> fields = columnsOf(lines.line() + 1);
  if (fields[0] != "SQ") return true;
  std::map<std::string, std::string> tags;
  for (size_t i = 1; i < fields.size(); ++i) {
    size_t colon = fields[i].find(':');
    tags.insert_or_assign(fields[i].substr(0, colon),
                          colon == std::string::npos ? "" : fields[i].substr(colon + 1));
  }
  bool good = true;
  auto complain = [&](const char* what) {
    fprintf(stderr, "%s in @SQ line at line %d\n", what, lines.number());
    good = false;
  };
  auto name = tags.find("SN"), length = tags.find("LN");
  uint64_t bases = 0;
  if (name == tags.end()) complain("Missing SN");
  if (name != tags.end() && list.contig_index_.count(name->second)) complain("Duplicated SN");
  if (length == tags.end()) complain("Missing LN");
  if (length != tags.end() && (!number(length->second, bases) || bases > kTop)) complain("Invalid LN");
  // With a faulty line too, which fails the load, so that its name is known to the lines behind it.
  if (name != tags.end() && !list.contig_index_.count(name->second)) {
    list.registerContig(name->second.c_str());
    list.header_contigs_.push_back({list.contig_index_.find(name->second)->first.c_str(), 0, capped(bases)});
  }
  return good;
}

bool IntervalList::Loader::addTarget() {
  std::vector<std::string> columns = columnsOf(lines.line());
  if (columns.size() != 5) {
    fprintf(stderr, "5 tab separated columns expected, got %d at line %d\n", int(columns.size()),
            lines.number());
    return false;
  }
  auto complain = [&](const char* what, const std::string& text) {
    fprintf(stderr, "%s %s at line %d\n", what, text.c_str(), lines.number());
    return false;
  };
  auto contig = list.contig_index_.find(columns[0]);
  if (contig == list.contig_index_.end()) return complain("Cannot find contig", columns[0]);
  uint64_t pos1, end;
  if (!number(columns[1], pos1) || pos1 < 1 || pos1 > kTop) return complain("Invalid start", columns[1]);
  if (!number(columns[2], end)) return complain("Invalid end", columns[2]);
  if (columns[3] != "+" && columns[3] != "-") return complain("Invalid strand flag", columns[3]);
  if (end > list.header_contigs_[contig->second].end)
    fprintf(stderr, "Warning: target out of bound at line %d\n", lines.number());
  IntervalEntry entry;
  entry.contig = columns[0].c_str();
  entry.start = capped(pos1 - 1);
  entry.end = capped(end);
  entry.negative_strand = columns[3] == "-";
  entry.name = columns[4];
  list.addEntry(std::move(entry));
  return true;
}
