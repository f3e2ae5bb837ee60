// gq_block_text.cpp - the comment line by which a block travels:
//
//   #FGQB <length> <low> <high> <contig> <start, one-based> <ref> <DP> <GQ> <minPL>     separated by tabs
//
// ref is run-length coded as the base and how often it is repeated (A5C: six A, one C), DP and GQ as value x count
// joined by '+' (12x3+14), minPL joined by commas.
#include <algorithm>
#include <charconv>
#include <cstring>
#include <limits>

#include "readdata/vcf/gq_block.h"

namespace {

constexpr char kTag[] = "#FGQB\t";
constexpr size_t kTagSize = sizeof kTag - 1;
constexpr size_t kMaxContigName = 1023;
// Of a block. A few bytes may stand for as many positions as they like: this is what bounds the memory. Longer contigs
// cannot be numbered by the bins of a .tbi either.
constexpr int32_t kMaxLength = 1 << 29;

void append(std::string& text, int64_t number) {
  char digits[24];
  text.append(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
}

template <typename T>
size_t runLength(const std::vector<T>& values, size_t from) {
  size_t to = from + 1;
  while (to < values.size() && values[to] == values[from]) ++to;
  return to - from;
}

void appendRuns(std::string& text, const std::vector<int32_t>& values) {
  for (size_t i = 0, count; i < values.size(); i += count) {
    count = runLength(values, i);
    if (i > 0) text += '+';
    append(text, values[i]);
    if (count == 1) continue;
    text += 'x';
    append(text, static_cast<int64_t>(count));
  }
  text += '\t';
}

// The characters of a line, one ahead; it never reads past the newline.
class Scanner {
 public:
  explicit Scanner(IOHandle& stream) : stream_(stream) { next(); }

  int peek() const { return next_; }
  int take() {
    const int taken = next_;
    if (taken != '\n') next();
    return taken;
  }
  bool skip(char expected) {
    if (next_ != static_cast<unsigned char>(expected)) return false;
    take();
    return true;
  }
  bool number(int32_t& value) {
    const bool negative = skip('-');
    if (!isDigit()) return false;
    int64_t sum = 0;
    while (isDigit()) {
      sum = sum * 10 + (take() - '0');
      if (sum > std::numeric_limits<int32_t>::max()) return false;
    }
    value = static_cast<int32_t>(negative ? -sum : sum);
    return true;
  }
  bool isDigit() const { return next_ >= '0' && next_ <= '9'; }

 private:
  void next() {
    unsigned char c;
    next_ = stream_.read(&c, 1) == 1 ? c : -1;
  }

  IOHandle& stream_;
  int next_;
};

template <typename T>
struct Run {
  T value;
  int32_t count;
};

// Runs are kept as such until all of them were seen to cover the block, so that a line's claims cost no memory.
template <typename T>
class Runs {
 public:
  explicit Runs(int32_t length) : left_(length) {}

  bool add(T value, int32_t count) {
    if (count < 1 || count > left_) return false;
    left_ -= count;
    runs_.push_back({value, count});
    return true;
  }
  bool complete() const { return left_ == 0; }
  void expand(std::vector<T>& values, int32_t length) const {
    values.clear();
    values.reserve(static_cast<size_t>(length));
    for (const Run<T>& run : runs_) values.insert(values.end(), static_cast<size_t>(run.count), run.value);
  }

 private:
  std::vector<Run<T>> runs_;
  int32_t left_;
};

bool readBases(Scanner& scanner, Runs<char>& runs) {
  while (scanner.peek() > ' ') {
    const char base = static_cast<char>(scanner.take());
    int32_t repeated = 0;
    if (scanner.isDigit() && (!scanner.number(repeated) || repeated >= kMaxLength)) return false;
    if (!runs.add(base, repeated + 1)) return false;
  }
  return scanner.skip('\t') && runs.complete();
}

bool readNumbers(Scanner& scanner, Runs<int32_t>& runs) {
  if (scanner.skip('\t')) return runs.complete();
  do {
    int32_t value, count = 1;
    if (!scanner.number(value)) return false;
    if (scanner.skip('x') && !scanner.number(count)) return false;
    if (!runs.add(value, count)) return false;
  } while (scanner.skip('+'));
  return scanner.skip('\t') && runs.complete();
}

bool readLikelihoods(Scanner& scanner, std::vector<int32_t>& values) {
  if (scanner.peek() == '\n') return true;
  do {
    int32_t value;
    if (!scanner.number(value)) return false;
    values.push_back(value);
  } while (scanner.skip(','));
  return scanner.peek() == '\n';
}

bool readLine(GQBlock& block, Scanner& scanner, std::string& contig, const ContigLengths* lengths) {
  int32_t length, start;
  if (!scanner.number(length) || !scanner.skip('\t') || !scanner.number(block.low) || !scanner.skip('\t') ||
      !scanner.number(block.high) || !scanner.skip('\t'))
    return false;
  while (scanner.peek() > '\n' && contig.size() < kMaxContigName) contig += static_cast<char>(scanner.take());
  if (contig.empty() || !scanner.skip('\t') || !scanner.number(start) || !scanner.skip('\t')) return false;

  const int64_t end = int64_t{start} - 1 + length;
  if (start < 1 || length > kMaxLength || end < 0 || end > std::numeric_limits<int32_t>::max()) return false;
  if (lengths != nullptr) {
    const auto known = lengths->find(contig);
    if (known != lengths->end() && end > known->second) return false;
  }
  block.start = static_cast<uint32_t>(start - 1);
  block.end = static_cast<uint32_t>(end);
  length = std::max(length, 0);

  Runs<char> ref(length);
  Runs<int32_t> depth(length), quality(length);
  if (!readBases(scanner, ref) || !readNumbers(scanner, depth) || !readNumbers(scanner, quality))
    return false;
  if (!readLikelihoods(scanner, block.minPL)) return false;

  ref.expand(block.ref, length);
  depth.expand(block.DP, length);
  quality.expand(block.GQ, length);
  return true;
}

}  // namespace

std::string formatFGQB(const GQBlock& block, const std::string& contig) {
  std::string text = kTag;
  for (int32_t number : {static_cast<int32_t>(block.end - block.start), block.low, block.high}) {
    append(text, number);
    text += '\t';
  }
  text += contig;
  text += '\t';
  append(text, int64_t{block.start} + 1);
  text += '\t';
  for (size_t i = 0, count; i < block.ref.size(); i += count) {
    count = runLength(block.ref, i);
    text += block.ref[i];
    if (count > 1) append(text, static_cast<int64_t>(count) - 1);
  }
  text += '\t';
  appendRuns(text, block.DP);
  appendRuns(text, block.GQ);
  for (size_t i = 0; i < block.minPL.size(); ++i) {
    if (i > 0) text += ',';
    append(text, block.minPL[i]);
  }
  text += '\n';
  return text;
}

bool readFGQB(GQBlock& block, IOHandle& stream, std::string& contig, const ContigLengths* lengths) {
  block.reset(0);
  contig.clear();
  const int64_t offset = stream.seek(0, SEEK_CUR);
  if (offset < 0) return false;
  char tag[kTagSize];
  const int64_t got = stream.read(tag, kTagSize);
  if (got < 0) return false;
  if (got < static_cast<int64_t>(kTagSize) || memcmp(tag, kTag, kTagSize) != 0)
    return stream.seek(offset, SEEK_SET) >= 0;
  Scanner scanner(stream);
  return readLine(block, scanner, contig, lengths);
}
