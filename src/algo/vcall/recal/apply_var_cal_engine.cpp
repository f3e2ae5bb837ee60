#include "algo/vcall/recal/apply_var_cal_engine.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <span>
#include <stdexcept>
#include <utility>

#include "base/text.h"
#include "base/timer.h"

namespace {

constexpr size_t kMaxItems = 100;  // of a recal line; each is looked for among those of the record
constexpr char kLodKey[] = "VQSLOD", kEndKey[] = "END";

// Behind REF, whatever END says: VarCal counts so.
int64_t endOf(const VCFLine& line) {
  return int64_t{line.pos} + int64_t(strlen(line.column(VCFLine::kRef)));
}

std::string placeOf(const VCFLine& line, char separator) {
  return std::string(line.line) + separator + std::to_string(int64_t{line.pos} + 1);
}

// Calls take(key, item) for each item of an INFO text that is not empty.
template <typename Take>
void forItems(std::string_view info, const Take& take) {
  for (size_t from = 0; from < info.size();) {
    const size_t end = std::min(info.find(';', from), info.size());
    const std::string_view item = info.substr(from, end - from);
    if (!item.empty() && item != ".") take(item.substr(0, item.find('=')), item);
    from = end + 1;
  }
}

}  // namespace

ApplyVarCal::Engine::Engine(DriverContext* context, ApplyVarCal* algo)
    : Algo::Engine(context, algo),
      input_(std::make_unique<VCFCache>(*algo->input_)),
      recal_(std::make_unique<VCFCache>(*algo->recalibration_)),
      writer_(algo->writer_->clone()) {}

void ApplyVarCal::Engine::startShard() {
  Algo::Engine::startShard();
  const Shard& shard = context->shard;
  if (strcmp(shard.contig, kNoCoor) == 0) return;
  const FastaIndexEntry* const entry = context->reference->entry(shard.contig);
  contig_end_ = entry ? uint32_t(entry->length) : 0;
  input_->setContig(shard.contig);
  recal_->setContig(shard.contig);
  owner().openShardFile([this] { writer_->open(shardName(owner().output_)); });
  writer_->startContig(shard.contig);
}

Algo::Result* ApplyVarCal::Engine::finishShard() {
  auto result = std::make_unique<Result>();
  if (!writer_->isOpen()) return result.release();
  result->path = writer_->path();
  result->taken = std::exchange(taken_, 0);
  result->recalibrated = std::exchange(recalibrated_, 0);
  writer_->endContig(*result);
  writer_->close();
  return result.release();
}

void ApplyVarCal::Engine::advance(uint32_t from, uint32_t to) {
  if (writer_->isOpen()) applyAll(from, to);
}

// Records before the first base of a contig, and behind its last one, belong to the steps there.
void ApplyVarCal::Engine::applyAll(uint32_t from, uint32_t to) {
  const int32_t begin = from == 0 ? -1 : int32_t(from);
  const int32_t end = to >= contig_end_ ? INT32_MAX : int32_t(to);
  {
    static Timer* const db_timer = timer("fetch_db");
    TimerScope scope(db_timer);
    input_->fetch(begin, end);
    recal_->fetch(begin, end);
    recal_->requireColumn(VCFLine::kInfo);
    cursor_ = 0;
    position_ = kNowhere;
  }
  for (const VCFLine& line : input_->records()) {
    if (line.pos < begin) continue;
    if (line.pos >= end) break;
    apply(line);
  }
}

void ApplyVarCal::Engine::apply(const VCFLine& line) {
  const VariantClass kind(line.column(VCFLine::kRef), line.column(VCFLine::kAlt));
  const VCFLine* recal = nullptr;
  if (kind.belongsTo(owner().filter_.model)) {
    ++taken_;
    recal = findRecal(line);
  }
  if (recal)
    recalibrate(line, *recal);
  else
    write(line, line.column(VCFLine::kFilter), line.column(VCFLine::kInfo));
}

void ApplyVarCal::Engine::gatherRecal(int32_t position) {
  const std::span<const VCFLine> lines = recal_->records();
  while (cursor_ < lines.size() && lines[cursor_].pos < position) ++cursor_;
  here_.clear();
  for (size_t i = cursor_; i < lines.size() && lines[i].pos == position; ++i) here_.push_back({&lines[i]});
  std::stable_sort(here_.begin(), here_.end(),
                   [](const RecalLine& a, const RecalLine& b) { return a.line->end < b.line->end; });
  position_ = position;
}

// Where several lines of the recal file have one place and end, they are of the records that VarCal took, in order.
const VCFLine* ApplyVarCal::Engine::findRecal(const VCFLine& line) {
  if (line.pos != position_) gatherRecal(line.pos);
  const int64_t end = endOf(line);
  const auto first = std::partition_point(here_.begin(), here_.end(),
                                          [end](const RecalLine& r) { return r.line->end < end; });
  const auto last =
      std::partition_point(first, here_.end(), [end](const RecalLine& r) { return r.line->end == end; });
  if (first == last) return nullptr;
  size_t number = 0;
  if (passesFilters(line.column(VCFLine::kFilter), owner().ignore_input_filters_))
    number = std::min(first->given++, size_t(last - first) - 1);
  return first[ptrdiff_t(number)].line;
}

void ApplyVarCal::Engine::fail(const char* what, const VCFLine& recal) const {
  throw std::runtime_error(algo->name + ": " + what + " in the line of " + placeOf(recal, ':') +
                           " of the recalibration file " + recal_->path());
}

double ApplyVarCal::Engine::lodOf(const VCFLine& recal) const {
  VCFFieldCursor field(recal, -1);
  while (field.next()) {
    if (!field.is(kLodKey)) continue;
    double lod;
    if (!parseReal(std::string(field.value, size_t(field.valueLength)), lod) || !std::isfinite(lod))
      fail("VQSLOD is no number", recal);
    return lod;
  }
  fail("no VQSLOD", recal);
}

void ApplyVarCal::Engine::recalibrate(const VCFLine& line, const VCFLine& recal) {
  ++recalibrated_;
  const std::string name = owner().filter_.filterFor(lodOf(recal));
  filters_ = split(line.column(VCFLine::kFilter), ';');
  addFilter(filters_, name);
  filter_.clear();
  for (const std::string& word : filters_) filter_.append(filter_.empty() ? "" : ";").append(word);

  items_.clear();
  forItems(line.column(VCFLine::kInfo), [this](std::string_view key, std::string_view item) {
    items_.push_back({key, item});
  });
  size_t count = 0;
  forItems(recal.column(VCFLine::kInfo), [&](std::string_view key, std::string_view item) {
    if (++count > kMaxItems) fail("too many INFO fields", recal);
    if (key == kEndKey) return;
    const auto same =
        std::find_if(items_.begin(), items_.end(), [key](const InfoItem& other) { return other.key == key; });
    if (same == items_.end())
      items_.push_back({key, item});
    else
      same->text = item;
  });
  info_.clear();
  for (const InfoItem& item : items_) info_.append(info_.empty() ? "" : ";").append(item.text);
  write(line, filter_.c_str(), info_.empty() ? "." : info_.c_str());
}

// The line as it was but for two columns; columns that it does not have stay away.
void ApplyVarCal::Engine::write(const VCFLine& line, const char* filter, const char* info) {
  text_ = placeOf(line, '\t');
  for (int i = 0; i < VCFLine::kColumns; ++i) {
    const auto column = VCFLine::Column(i);
    if (!line.hasColumn(column)) break;
    const bool is_filter = column == VCFLine::kFilter, is_info = column == VCFLine::kInfo;
    text_.append("\t").append(is_filter ? filter : is_info ? info : line.column(column));
  }
  text_ += '\n';
  const int32_t start = std::max(line.pos, 0);  // POS 0 is in front of the first base
  writer_->writeLine(text_, start, std::max(line.end, start + 1));
}
