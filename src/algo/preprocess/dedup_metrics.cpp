#include "algo/preprocess/dedup_metrics.h"

#include <boost/math/tools/roots.hpp>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string_view>

#include "base/plain_file.h"
#include "base/text.h"

namespace {

constexpr const char* kCounterNames[kDedupCounters] = {"chimeric_paired",
                                                       "duped",
                                                       "duped_chimeric_paired",
                                                       "duped_paired",
                                                       "duped_unpaired",
                                                       "isize_errors",
                                                       "optical_dup",
                                                       "paired",
                                                       "reads",
                                                       "secondary_supplementary",
                                                       "unmapped",
                                                       "unpaired",
                                                       "R_errors",
                                                       "U_errors"};

constexpr char kTableTitle[] =
    "LIBRARY\tUNPAIRED_READS_EXAMINED\tREAD_PAIRS_EXAMINED\tUNMAPPED_READS\tUNPAIRED_READ_DUPLICATES\t"
    "READ_PAIR_DUPLICATES\tREAD_PAIR_OPTICAL_DUPLICATES\tPERCENT_DUPLICATION\tESTIMATED_LIBRARY_SIZE\n";
constexpr std::string_view kLibraryMark = "#LIBRARY";
constexpr int64_t kMostCounted = int64_t{1} << 60;
constexpr double kFarthestRoot = 1e30;

// How many times the distinct pairs seen would be distinct after `fold` times the sequencing.
std::string returnOfSequencing(int64_t pairs, int64_t distinct, int64_t size) {
  std::string text = "\n#HISTOGRAM\nBIN\tVALUE\n";
  const auto total = static_cast<double>(size);
  for (int fold = 1; fold <= 100; ++fold)
    text += format(
        "%.1f\t%f\n", double(fold),
        (1 - std::exp(-fold * static_cast<double>(pairs) / total)) * total / static_cast<double>(distinct));
  return text;
}

// The next word of the line, empty at its end.
std::string_view nextWord(std::string_view& line) {
  constexpr std::string_view kBlank = " \t\r";
  line.remove_prefix(std::min(line.find_first_not_of(kBlank), line.size()));
  const std::string_view word = line.substr(0, line.find_first_of(kBlank));
  line.remove_prefix(word.size());
  return word;
}

// Lines of one file with parts. A last line that was cut short is refused.
class PartReader {
 public:
  explicit PartReader(const std::string& path) : path_(path), file_(open_plain_file(path.c_str())) {
    if (!file_) failOpen();
  }
  ~PartReader() { free(buffer_); }
  PartReader(const PartReader&) = delete;

  bool next(std::string_view& line) {
    errno = 0;
    const ssize_t length = getdelim(&buffer_, &capacity_, '\n', file_.get());
    if (length < 0) {
      if (ferror(file_.get())) failOpen();
      return false;
    }
    if (buffer_[length - 1] != '\n') fail();
    line = {buffer_, size_t(length) - 1};
    return true;
  }
  [[noreturn]] void fail() const { throw std::invalid_argument("Dedup: cannot read file " + path_); }

 private:
  [[noreturn]] void failOpen() const {
    throw std::invalid_argument("Dedup: cannot open file " + path_ + ": " + strerror(errno));
  }

  const std::string path_;
  FileOwner file_;
  char* buffer_ = nullptr;
  size_t capacity_ = 0;
};

}  // namespace

void LibraryMetrics::add(const DedupCounts& counted) {
  for (int i = 0; i < kDedupCounters; ++i)
    if (counted[i] != 0) counts[kCounterNames[i]] += counted[i];
}

void LibraryMetrics::add(const LibraryMetrics& other) {
  for (const auto& [name, value] : other.counts) counts[name] += value;
  optical += other.optical;
}

int64_t LibraryMetrics::count(DedupCounter counter) const {
  const auto found = counts.find(kCounterNames[counter]);
  return found == counts.end() ? 0 : found->second;
}

int64_t estimateLibrarySize(int64_t pairs, int64_t duplicate_pairs, int64_t optical_pairs) {
  const int64_t drawn = pairs - optical_pairs, distinct = pairs - duplicate_pairs;
  if (drawn <= distinct || distinct < 1) return 0;
  const double ratio = static_cast<double>(distinct) / static_cast<double>(drawn);
  // In units of the draws. expm1() keeps the digits where the ratio is near 1 and the root far out.
  const auto excess = [ratio](double x) { return ratio / x + std::expm1(-1 / x); };
  double low = 1.0, high = 1e6;
  while (excess(low) <= 0) low *= 0.1;
  while (excess(high) >= 0) {
    high *= 10;
    if (high > kFarthestRoot) return 0;  // the ratio is 1 but for its last digit
  }
  const auto [left, right] =
      boost::math::tools::bisect(excess, low, high, [](double a, double b) { return b - a <= 1e-10; });
  return std::lrint((left + right) / 2 * static_cast<double>(drawn));
}

std::string DedupMetrics::table() const {
  std::string text = kTableTitle;
  for (size_t i = 0; i < libraries.size(); ++i) {
    const LibraryMetrics& library = libraries[i];
    const int64_t pairs = library.count(kPaired) / 2, duplicate_pairs = library.count(kDupedPaired) / 2;
    const int64_t examined = library.count(kPaired) + library.count(kUnpaired);
    const double duplication =
        examined > 0 ? static_cast<double>(library.count(kDuped)) / static_cast<double>(examined) : 0;
    const int64_t size = estimateLibrarySize(pairs, duplicate_pairs, library.count(kOpticalDup));
    text += format("%s\t%ld\t%ld\t%ld\t%ld\t%ld\t%ld\t%f\t%lld\n", names[i].c_str(), library.count(kUnpaired),
                   pairs, library.count(kUnmapped), library.count(kDupedUnpaired), duplicate_pairs,
                   library.count(kOpticalDup), duplication, static_cast<long long>(size));
    if (size != 0 && libraries.size() == 1) text += returnOfSequencing(pairs, pairs - duplicate_pairs, size);
  }
  return text;
}

std::string DedupMetrics::part() const {
  std::string text;
  for (const std::string& name : names) text += format("#LIBRARY %s\n", name.c_str());
  for (size_t i = 0; i < libraries.size(); ++i)
    for (const auto& [name, value] : libraries[i].counts)
      text += format("%d %s %zd\n", static_cast<int>(i), name.c_str(), static_cast<ssize_t>(value));
  return text;
}

void DedupMetrics::addPart(const std::string& path) {
  PartReader reader(path);
  std::vector<std::string> own_names;
  size_t lines = 0;
  for (std::string_view line; reader.next(line);) {
    ++lines;
    if (line.starts_with(kLibraryMark)) {
      line.remove_prefix(kLibraryMark.size());
      if (line.starts_with(' ')) line.remove_prefix(1);
      own_names.emplace_back(line);
      continue;
    }
    if (line.starts_with('#')) continue;
    size_t index;
    int64_t value;
    const std::string_view index_word = nextWord(line), name = nextWord(line);
    // An index cannot be beyond what so many lines speak of.
    if (!parseNumber(index_word, index) || index >= own_names.size() + lines || name.empty() ||
        !parseNumber(nextWord(line), value) || value < 0 || value > kMostCounted)
      reader.fail();
    if (index >= libraries.size()) libraries.resize(index + 1);
    int64_t& sum = libraries[index].counts[std::string(name)];
    if ((sum += value) > kMostCounted) reader.fail();
  }
  if (lines == 0) reader.fail();  // of a run that did not come to its end
  if (names.empty()) names = std::move(own_names);
  const size_t count = std::max(names.size(), libraries.size());
  names.resize(count);
  libraries.resize(count);
}
