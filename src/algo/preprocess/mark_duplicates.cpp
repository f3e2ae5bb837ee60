#include "algo/preprocess/mark_duplicates.h"

#include <algorithm>
#include <bit>
#include <cassert>
#include <cstdlib>
#include <cstring>
#include <tuple>
#include <utility>

#include "algo/preprocess/read_end.h"
#include "base/timer.h"

namespace {

constexpr uint16_t kNotPrimary = FLAG_SECONDARY | FLAG_SUPPLEMENTARY;
constexpr size_t kPlaceBits = 8192;  // of the filter of fragments' places

uint64_t mix(uint64_t hash) {
  constexpr uint64_t kMultiplier = 0x9E3779B97F4A7C15;
  hash *= kMultiplier;
  return (hash ^ hash >> 32) * kMultiplier;
}

size_t placeBit(int32_t library, uint32_t pos, bool reverse) {
  return mix(uint64_t{uint32_t(library)} << 33 ^ uint64_t{pos} << 1 ^ uint64_t{reverse}) >> 51;  // 13 bits
}

bool isPairable(const Read& read, bool fixmate) {
  return fixmate ? read.flag & FLAG_PAIRED : !isUnpaired(read);
}

bool isAny(const Read&, bool) {
  return true;
}

uint8_t exchangeBits(uint8_t orientation) {
  return static_cast<uint8_t>(orientation >> 1 | (orientation & 1) << 1);
}

}  // namespace

bool isUnpaired(const Read& read) {
  return (read.flag & (FLAG_PAIRED | FLAG_MATE_UNMAPPED)) != FLAG_PAIRED;
}

bool isChimeric(const Read& read) {
  return read.ref_id >= 0 && read.mate_ref_id >= 0 && read.ref_id != read.mate_ref_id;
}

DuplicateMarker::DuplicateMarker(const MarkRules& rules)
    : rules_(rules),
      fragment_places_(kPlaceBits / 64),
      optical_(rules.optical_dup_pix_dist),
      counts_(rules.library_count),
      optical_histograms_(rules.library_count) {}

void DuplicateMarker::markDup(std::span<Read* const> window, const MarkStep& step,
                              const MateInfoBase& mates) {
  static Timer* const mark_timer = timer("markDup");
  TimerScope scope(mark_timer);
  takeWindow(window, step, kNotPrimary | (rules_.fixmate ? 0 : FLAG_UNMAPPED));
  countOwn();
  findPairEnds(isPairable);

  pairs_.clear();
  fragments_.clear();
  rivals_.clear();
  for (const auto& [a, b] : pair_ends_) addPair(*a, *b);
  for (WindowRead* read : left_) judgeAlone(*read, mates);
  groupPairs();
  judgeFragments();
}

void DuplicateMarker::fixMates(std::span<Read* const> window, const MarkStep& step,
                               const MateInfoBase& mates) {
  static Timer* const fix_timer = timer("fixMate");
  TimerScope scope(fix_timer);
  takeWindow(window, step, kNotPrimary);
  findPairEnds(isAny);
  for (const auto& [a, b] : pair_ends_) {
    setMateFix(*a, sideOf(*b->read));
    setMateFix(*b, sideOf(*a->read));
  }
  for (WindowRead* read : left_) {
    if (!read->own || !hasFarMate(*read->read)) continue;
    if (const MateSummary* mate = mates.find(*read->read)) setMateFix(*read, mateSideOf(*read->read, *mate));
  }
}

// Windows overlap by more than half, so what is known of a read is kept. The reads of both windows are the first
// ones of the new window, in the same order. One that is freed may leave its address to a new one, but that starts later.
void DuplicateMarker::takeWindow(std::span<Read* const> window, const MarkStep& step,
                                 uint16_t skipped_flags) {
  const auto first = std::partition_point(window.begin(), window.end(),
                                          [&](const Read* read) { return read->start < step.from; });
  auto ordinal = static_cast<int32_t>(window.begin() - first);
  fixes_.clear();
  previous_.swap(reads_);
  reads_.resize(window.size());
  WindowRead* next = reads_.data();
  auto known = previous_.begin();
  for (Read* read : window) {
    while (known != previous_.end() && (known->read != read || known->start != read->start)) ++known;
    *next = known != previous_.end() ? *known++ : lookAt(*read, !(read->flag & skipped_flags));
    next->ordinal = ordinal++;
    next->mate_fix = -1;
    next->own = step.owns(*read);
    next->paired = next->duplicate = false;
    ++next;
  }
}

DuplicateMarker::WindowRead DuplicateMarker::lookAt(Read& read, bool judged) const {
  WindowRead seen{};
  seen.read = &read;
  seen.start = read.start;
  seen.library = rules_.library_of_read_group[size_t(read.read_group)];
  seen.score = -1;
  seen.judged = judged;
  if (!judged) return seen;
  seen.five_prime = fivePrimeOf(read);
  seen.name_hash = NameTable::hashOf(read.name);
  return seen;
}

void DuplicateMarker::countOwn() {
  for (const WindowRead& own : reads_) {
    if (!own.own) continue;
    const Read& read = *own.read;
    DedupCounts& counts = counts_[size_t(own.library)];
    ++counts[kReads];
    if (isChimeric(read)) ++counts[kChimericPaired];
    ++counts[read.flag & kNotPrimary     ? kSecondarySupplementary
             : read.flag & FLAG_UNMAPPED ? kUnmapped
             : isUnpaired(read)          ? kUnpaired
                                         : kPaired];
  }
}

// Brings the judged reads that have a mate in the window together, the first in order first.
void DuplicateMarker::findPairEnds(bool (*wanted)(const Read& read, bool fixmate)) {
  static Timer* const find_timer = timer("find_pairEnds");
  TimerScope scope(find_timer);
  names_.reset(reads_.size());
  pair_ends_.clear();
  left_.clear();
  for (size_t i = 0; i < reads_.size(); ++i) {
    WindowRead& read = reads_[i];
    if (!read.judged || !wanted(*read.read, rules_.fixmate)) continue;
    const int32_t mate = names_.takeOrPut(read.read->name, read.name_hash, static_cast<int32_t>(i));
    if (mate < 0) continue;
    pair_ends_.emplace_back(&reads_[size_t(mate)], &read);
    reads_[size_t(mate)].paired = read.paired = true;
  }
  for (WindowRead& read : reads_)
    if (read.judged && !read.paired) left_.push_back(&read);
}

void DuplicateMarker::addPair(WindowRead& a, WindowRead& b) {
  if (rules_.fixmate) {
    setMateFix(a, sideOf(*b.read));
    setMateFix(b, sideOf(*a.read));
    if (!a.read->isMapped() || !b.read->isMapped()) {
      if (a.read->isMapped()) left_.push_back(&a);
      if (b.read->isMapped()) left_.push_back(&b);
      return;
    }
  }
  WindowRead *first = &a, *second = &b;
  if (second->five_prime < first->five_prime) std::swap(first, second);
  pairs_.push_back({first->library, first->five_prime, second->five_prime, first->ordinal,
                    first->read->mate_ref_id, 0, first, second, 0, nullptr,
                    static_cast<uint8_t>(first->read->isReverse() | second->read->isReverse() << 1), false,
                    false});
}

// A read without a mate in the window.
void DuplicateMarker::judgeAlone(WindowRead& own, const MateInfoBase& mates) {
  const Read& read = *own.read;
  if (!isPairable(read, rules_.fixmate) || !hasFarMate(read)) return addFragment(own);
  const MateSummary* const mate = mates.find(read);
  if (rules_.fixmate) {
    if (mate != nullptr) setMateFix(own, mateSideOf(read, *mate));
    if (mate == nullptr || !read.isMapped() || mate->flags & FLAG_UNMAPPED) return addFragment(own);
  }
  addFarPair(own, mate);
}

void DuplicateMarker::addFarPair(WindowRead& own, const MateSummary* mate) {
  const Read& read = *own.read;
  // The mate itself knows its strand better than the read does.
  const bool mate_reverse = mate != nullptr ? mate->flags & FLAG_REVERSE : read.flag & FLAG_MATE_REVERSE;
  PairRecord pair{own.library,
                  own.five_prime,
                  0,
                  own.ordinal,
                  read.mate_ref_id,
                  0,
                  &own,
                  nullptr,
                  0,
                  nullptr,
                  static_cast<uint8_t>(read.isReverse() | mate_reverse << 1),
                  false,
                  mate == nullptr};
  int32_t mate_ordinal = 0;
  if (mate != nullptr) {
    pair.pos2 = rules_.params.clip ? static_cast<uint32_t>(mate->five_prime)
                : mate_reverse     ? static_cast<uint32_t>(mate->end) - 1
                                   : static_cast<uint32_t>(read.mate_start);
    pair.mate_score = mate->score;
    mate_ordinal = mate->ordinal;
  }
  // The end that comes first in the genome is the first one, at whichever of the two the pair is seen.
  if (read.mate_ref_id < read.ref_id ||
      (mate != nullptr && read.mate_ref_id == read.ref_id && pair.pos1 > pair.pos2)) {
    std::swap(pair.pos1, pair.pos2);
    std::swap(pair.read1, pair.read2);
    pair.orientation = exchangeBits(pair.orientation);
    pair.ordinal = mate_ordinal;
  }
  pairs_.push_back(pair);
}

void DuplicateMarker::addFragment(WindowRead& own) {
  const Read& read = *own.read;
  if (!read.isMapped()) return;
  if (read.mate_ref_id >= 0 && !(read.flag & FLAG_MATE_UNMAPPED))
    rivals_.push_back(&own);
  else
    fragments_.push_back({own.library, own.five_prime, own.ordinal, read.isReverse(), &own});
}

void DuplicateMarker::setMateFix(WindowRead& own, const PairSide& mate) {
  if (!own.own) return;
  const Read& read = *own.read;
  const MateFix fix = fixMate(sideOf(read), mate);
  if (fix.flags == read.flag && fix.insert_size == read.tlen) return;
  own.mate_fix = static_cast<int32_t>(fixes_.size());
  fixes_.push_back(fix);
}

// Whether the mate is to be looked for in the score files.
bool DuplicateMarker::hasFarMate(const Read& read) const {
  return isChimeric(read) ||
         std::abs(int64_t{read.start} - read.mate_start) >= rules_.params.pair_start_dist_thr;
}

uint32_t DuplicateMarker::fivePrimeOf(const Read& read) const {
  if (rules_.params.clip) return static_cast<uint32_t>(unclippedFivePrime(read));
  return read.isReverse() ? read.end - 1 : read.start;
}

int32_t DuplicateMarker::scoreOf(WindowRead& read) {
  if (read.score < 0) read.score = qualityScore(*read.read);
  return read.score;
}

// ---- pairs ----

// Finds the groups with a hash table of chains; most pairs are alone in theirs.
void DuplicateMarker::groupPairs() {
  groups_.assign(std::bit_ceil(2 * pairs_.size() + 1), nullptr);
  const size_t mask = groups_.size() - 1;
  crowded_.clear();
  for (PairRecord& pair : pairs_) {
    if (pair.partial) continue;
    const uint64_t rest =
        uint64_t{uint32_t(pair.mate_contig)} << 32 ^ uint64_t(pair.library) << 2 ^ pair.orientation;
    const uint64_t hash = mix((uint64_t{pair.pos1} << 32 | pair.pos2) ^ mix(rest));
    for (size_t i = hash >> 20 & mask;; i = (i + 1) & mask) {
      PairRecord*& head = groups_[i];
      if (head == nullptr) {
        head = &pair;
        break;
      }
      if (head->pos1 != pair.pos1 || head->pos2 != pair.pos2 || head->library != pair.library ||
          head->orientation != pair.orientation || head->mate_contig != pair.mate_contig)
        continue;
      if (head->next == nullptr) crowded_.push_back(head);
      pair.next = head->next;
      head->next = &pair;
      break;
    }
  }
  for (PairRecord* first : crowded_) judgeGroup(first);
}

void DuplicateMarker::judgeGroup(PairRecord* first) {
  members_.clear();
  for (PairRecord* pair = first; pair != nullptr; pair = pair->next) {
    pair->score = pair->mate_score;
    if (pair->read1) pair->score += scoreOf(*pair->read1);
    if (pair->read2) pair->score += scoreOf(*pair->read2);
    members_.push_back(pair);
  }
  const auto start = [](const PairRecord& pair) {
    return pair.read1 ? pair.read1->read->start : static_cast<uint32_t>(pair.read2->read->mate_start);
  };
  const auto name = [](const PairRecord& pair) { return (pair.read1 ? pair.read1 : pair.read2)->read->name; };
  std::sort(members_.begin(), members_.end(), [&](const PairRecord* a, const PairRecord* b) {
    if (a->score != b->score) return a->score < b->score;
    if (start(*a) != start(*b)) return start(*a) > start(*b);
    if (a->ordinal != b->ordinal) return a->ordinal > b->ordinal;
    return strcmp(name(*a), name(*b)) > 0;
  });
  for (PairRecord* pair : members_) {
    if (pair == members_.back()) break;  // the best one
    pair->duplicate = true;
    if (pair->read1) pair->read1->duplicate = true;
    if (pair->read2) pair->read2->duplicate = true;
  }
  if (rules_.optical_dup_pix_dist < 1) return;
  if (const int64_t found = opticalDuplicates()) {
    counts_[size_t(first->library)][kOpticalDup] += found;
    optical_histograms_[size_t(first->library)].add(static_cast<double>(found));
  }
}

// Among the members, 0 where the worst of them has its first end in another step: groups are counted once.
int64_t DuplicateMarker::opticalDuplicates() {
  const WindowRead* const place = members_.front()->read1;
  if (place == nullptr || !place->own) return 0;
  optical_.clear();
  for (const PairRecord* pair : members_) {
    const Read& read = *(pair->read1 ? pair->read1 : pair->read2)->read;
    optical_.add(read.read_group, read.name);
  }
  return optical_.count();
}

// ---- fragments ----

void DuplicateMarker::judgeFragments() {
  if (std::none_of(fragments_.begin(), fragments_.end(),
                   [](const FragmentRecord& fragment) { return fragment.read->own; }))
    return;
  std::fill(fragment_places_.begin(), fragment_places_.end(), 0);
  for (const FragmentRecord& fragment : fragments_) {
    const size_t bit = placeBit(fragment.library, fragment.pos, fragment.reverse);
    fragment_places_[bit / 64] |= uint64_t{1} << bit % 64;
  }
  // The lower ordinal comes behind: of equals it is the better one.
  const auto place = [](const FragmentRecord& a) { return std::tie(a.library, a.pos, a.reverse); };
  std::sort(fragments_.begin(), fragments_.end(), [&](const FragmentRecord& a, const FragmentRecord& b) {
    if (place(a) != place(b)) return place(a) < place(b);
    return a.ordinal > b.ordinal;
  });
  for (const PairRecord& pair : pairs_) {
    if (pair.duplicate) continue;
    if (pair.read1) beatFragments(*pair.read1);
    if (pair.read2) beatFragments(*pair.read2);
  }
  for (const WindowRead* rival : rivals_) beatFragments(*rival);

  const FragmentRecord* best = nullptr;  // of the place, so far
  for (const FragmentRecord& fragment : fragments_) {
    if (best == nullptr || place(*best) != place(fragment)) {
      best = &fragment;
      continue;
    }
    if (fragment.read->duplicate) continue;  // all of the place are
    const bool better = scoreOf(*fragment.read) >= scoreOf(*best->read);
    (better ? best : &fragment)->read->duplicate = true;
    if (better) best = &fragment;
  }
}

// Every fragment at the place of `read` is a copy.
void DuplicateMarker::beatFragments(const WindowRead& read) {
  const bool reverse = read.read->isReverse();
  const size_t bit = placeBit(read.library, read.five_prime, reverse);
  if (!(fragment_places_[bit / 64] >> bit % 64 & 1)) return;
  const auto sought = std::tie(read.library, read.five_prime, reverse);
  auto found = std::partition_point(fragments_.begin(), fragments_.end(), [&](const FragmentRecord& a) {
    return std::tie(a.library, a.pos, a.reverse) < sought;
  });
  for (; found != fragments_.end() && std::tie(found->library, found->pos, found->reverse) == sought; ++found)
    found->read->duplicate = true;
}
