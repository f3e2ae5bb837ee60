#include "algo/preprocess/mate_info.h"

#include <algorithm>
#include <compare>
#include <cstring>
#include <vector>

#include "algo/preprocess/score_line.h"

struct MateInfoByVcf::Entry {
  uint32_t position = 0;  // of the read that is looked for
  int32_t name_key = 0;
  const char* name = nullptr;
  MateSummary summary;

  bool operator<(const Entry& other) const {
    if (position != other.position) return position < other.position;
    if (name_key != other.name_key) return name_key < other.name_key;
    return strcmp(name, other.name) < 0;
  }
};

namespace {

constexpr size_t kNameBlock = size_t{1} << 20;  // bytes

// The two reads of a pair have keys of their own.
int32_t nameKey(const char* name, bool selector) {
  uint64_t hash = 0;
  for (; *name; ++name) hash = hash * 131 + static_cast<uint64_t>(int64_t{static_cast<signed char>(*name)});
  return static_cast<int32_t>(static_cast<uint32_t>(hash * 2) | uint32_t{selector});
}

// Texts of less than a block in large blocks. They stay where they are until clear().
class NameStore {
 public:
  const char* keep(const char* name) {
    const size_t size = strlen(name) + 1;
    if (size > kNameBlock - used_) {
      ++current_;
      used_ = 0;
    }
    if (current_ == blocks_.size()) blocks_.push_back(std::make_unique<char[]>(kNameBlock));
    char* const kept = blocks_[current_].get() + used_;
    memcpy(kept, name, size);
    used_ += size;
    return kept;
  }
  void clear() { current_ = used_ = 0; }

 private:
  std::deque<std::unique_ptr<char[]>> blocks_;  // the first ones are used again after clear()
  size_t current_ = 0, used_ = 0;
};

}  // namespace

// An ordered set as a sorted list: it is made anew for each window, from lines that come almost in order.
struct MateInfoByVcf::Content {
  std::vector<Entry> entries;
  NameStore names;
};

MateInfoByVcf::MateInfoByVcf() : content_(std::make_unique<Content>()) {}

MateInfoByVcf::~MateInfoByVcf() = default;

void MateInfoByVcf::clear() {
  content_->entries.clear();
  content_->names.clear();
}

void MateInfoByVcf::add(std::span<const VCFLine> lines) {
  std::vector<Entry>& entries = content_->entries;
  const auto old_count = static_cast<std::ptrdiff_t>(entries.size());
  for (const VCFLine& line : lines) {
    const ScoreInfo info = parseScoreInfo(line.column(VCFLine::kInfo));
    Entry& entry = entries.emplace_back();
    entry.position = static_cast<uint32_t>(line.pos);
    entry.name = content_->names.keep(info.name);
    entry.name_key = nameKey(info.name, !(info.summary.flags & FLAG_FIRST));
    entry.summary = info.summary;
  }
  // Of equal entries the first one stays.
  std::stable_sort(entries.begin() + old_count, entries.end());
  std::inplace_merge(entries.begin(), entries.begin() + old_count, entries.end());
  const auto equal = [](const Entry& a, const Entry& b) { return !(a < b); };
  entries.erase(std::unique(entries.begin(), entries.end(), equal), entries.end());
}

const MateSummary* MateInfoByVcf::find(const Read& read) const {
  std::string scratch;
  Entry sought;
  sought.position = read.start;
  sought.name = scoreLineName(read.name, scratch);
  sought.name_key = nameKey(sought.name, read.flag & FLAG_FIRST);
  const auto found = std::lower_bound(content_->entries.begin(), content_->entries.end(), sought);
  return found == content_->entries.end() || sought < *found ? nullptr : &found->summary;
}
