#include "algo/vcall/joint/joint_site.h"

#include <algorithm>
#include <cstring>

#include "algo/vcall/joint/sample_columns.h"

namespace {

constexpr char kSpanningText[] = "*";
constexpr int32_t kSpanning = -2;  // index of an allele that is "*", until that has its place

bool isLetter(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

Allele parseAlternate(std::string_view word) {
  const Allele allele = parseAllele(word.data(), word.size());
  if (allele.isSymbolic() || isSpanningDeletion(allele) || std::all_of(word.begin(), word.end(), isLetter))
    return allele;
  return {};
}

// Whether the record deletes what lies at the position, as far as this allele goes.
bool deletes(const Event& event, const Allele& allele) {
  if (!event.starts) return event.refLength > allele.length;
  return isSpanningDeletion(allele) || *allele.bases == kDeletionCode;
}

}  // namespace

// ---- records ----

void RecordCursor::restart(std::span<const VCFLine> records) {
  records_ = records;
  next_ = front_ = 0;
  covering_.clear();
}

const VCFLine* RecordCursor::at(int32_t position) {
  const VCFLine* starting = nullptr;
  for (; next_ < records_.size() && records_[next_].pos <= position; ++next_) {
    const VCFLine& record = records_[next_];
    if (record.end <= position) continue;
    if (record.pos == position && !starting) starting = &record;
    if (front_ == covering_.size() || record.end > covering_.back()->end) covering_.push_back(&record);
  }
  while (front_ < covering_.size() && covering_[front_]->end <= position) ++front_;
  if (front_ == covering_.size()) {
    covering_.clear();
    front_ = 0;
  }
  if (starting) return starting;
  return front_ < covering_.size() ? covering_[front_] : nullptr;
}

bool hasBaseAlternate(const VCFLine& line) {
  const char* word = line.column(VCFLine::kAlt);
  while (!isLetter(*word)) {
    word = strchrnul(word, ',');
    if (*word++ == '\0') return false;
  }
  return true;
}

void Event::assign(const VCFLine* record, int32_t position) {
  line = record;
  alts.clear();
  nonRef = -1;
  if (!record) return;
  ref = record->column(VCFLine::kRef);
  refLength = static_cast<int32_t>(strlen(ref));
  starts = record->pos == position;
  isBlock = findInfoEnd(record->column(VCFLine::kInfo)) != nullptr;
  const char* word = record->column(VCFLine::kAlt);
  if (*word == '\0' || strcmp(word, ".") == 0) return;
  for (;; ++word) {
    const char* const end = strchrnul(word, ',');
    alts.push_back({parseAlternate({word, static_cast<size_t>(end - word)})});
    if (nonRef < 0 && alts.back().isNonRef()) nonRef = static_cast<int32_t>(alts.size()) - 1;
    word = end;
    if (*word == '\0') return;
  }
}

// ---- union ----

// Texts must not move, for the list and the lookup point at them.
void AlleleUnion::reserveScratch(const std::vector<Event>& events) {
  size_t bytes = 0;
  for (const Event& event : events) {
    if (!event.line || !event.starts || event.refLength >= ref_.length) continue;
    const auto tail = static_cast<size_t>(ref_.length - event.refLength);
    for (const EventAllele& alt : event.alts) bytes += static_cast<size_t>(alt.allele.length) + tail;
    if (bytes > kMaxScratch) failRecord(*event.line, "Too many alternates beside so long a reference allele");
  }
  scratch_.clear();
  scratch_.reserve(bytes);
}

int32_t AlleleUnion::find(const Event& event, const Allele& allele) {
  std::string_view text(allele.bases, static_cast<size_t>(allele.length));
  if (event.refLength < ref_.length) {
    const size_t start = scratch_.size();
    scratch_.append(text).append(ref_.bases + event.refLength, ref_.bases + ref_.length);
    text = std::string_view(scratch_).substr(start);
  }
  const auto [place, is_new] = places_.emplace(text, static_cast<int32_t>(alts_.size()) + 1);
  if (is_new) alts_.push_back({text.data(), static_cast<int32_t>(text.size())});
  return place->second;
}

void AlleleUnion::build(std::vector<Event>& events, const char* ref, int32_t refLength) {
  ref_ = {ref, refLength, 0, true};
  alts_.clear();
  places_.clear();
  places_.emplace(std::string_view(ref, static_cast<size_t>(refLength)), 0);
  reserveScratch(events);
  bool spanned = false;
  for (Event& event : events) {
    if (!event.line) continue;
    for (EventAllele& alt : event.alts) {
      alt.index = EventAllele::kDead;
      if (alt.isNonRef() || alt.allele.length == 0) continue;
      if (deletes(event, alt.allele)) {
        alt.index = kSpanning;
        spanned = true;
      } else if (event.starts && !alt.allele.isSymbolic()) {
        alt.index = find(event, alt.allele);
      }
    }
  }
  if (!spanned) return;
  alts_.push_back({kSpanningText, 1});
  for (Event& event : events)
    for (EventAllele& alt : event.alts)
      if (alt.index == kSpanning) alt.index = static_cast<int32_t>(alts_.size());
}

void AlleleUnion::keepBest(std::vector<Event>& events, const std::vector<double>& scores, size_t limit) {
  if (alts_.size() <= limit) return;
  std::vector<double> ordered(scores.begin() + 1, scores.end());
  size_t ties = 0;
  double threshold = 0;
  if (limit > 0) {
    const auto last = ordered.begin() + static_cast<ptrdiff_t>(limit) - 1;
    std::nth_element(ordered.begin(), last, ordered.end());
    threshold = *last;
    ties = static_cast<size_t>(std::count(ordered.begin(), last + 1, threshold));
  }
  std::vector<int32_t> renumbered(alts_.size() + 1, EventAllele::kDead);
  renumbered[0] = 0;
  size_t kept = 0;
  for (size_t alt = 0; alt < alts_.size() && kept < limit; ++alt) {
    const double score = scores[alt + 1];
    if (score > threshold || (score == threshold && ties == 0)) continue;
    if (score == threshold) --ties;
    alts_[kept++] = alts_[alt];
    renumbered[alt + 1] = static_cast<int32_t>(kept);
  }
  alts_.resize(kept);
  for (Event& event : events)
    for (EventAllele& alt : event.alts)
      if (alt.index > 0) alt.index = renumbered[static_cast<size_t>(alt.index)];
}

// ---- scores ----

void sumLikelihoods(const Event& event, const std::vector<int>& sampleMap, uint32_t maxPloidy,
                    std::vector<double>& scores) {
  if (!event.line) return;
  // By allele of the record, the reference first; several that are "*" count once.
  std::vector<int32_t> listed(event.alts.size() + 1, EventAllele::kDead);
  std::vector<bool> seen(scores.size(), false);
  bool any = false;
  for (size_t i = 0; i < event.alts.size(); ++i) {
    const int32_t index = event.alts[i].index;
    if (index <= 0 || seen[static_cast<size_t>(index)]) continue;
    seen[static_cast<size_t>(index)] = any = true;
    listed[i + 1] = index;
  }
  if (!any) return;

  SampleColumns columns;
  std::vector<int32_t> pl;
  columns.restart(*event.line);
  for (size_t sample = 0; sample < sampleMap.size() && columns.next(); ++sample) {
    uint32_t ploidy;
    if (sampleMap[sample] < 0 || !columns.likelihoods(event.alts.size(), maxPloidy, ploidy, pl)) continue;
    int32_t least = pl[0];
    std::vector<uint32_t> best;
    GenotypeWalk walk(ploidy);
    for (const int32_t value : pl) {
      if (value < least && std::any_of(walk.alleles().begin(), walk.alleles().end(),
                                       [&](uint32_t allele) { return listed[allele] > 0; })) {
        least = value;
        best = walk.alleles();
      }
      walk.next();
    }
    best.erase(std::unique(best.begin(), best.end()), best.end());
    for (const uint32_t allele : best)
      if (listed[allele] > 0) scores[static_cast<size_t>(listed[allele])] += least - pl[0];
  }
}
