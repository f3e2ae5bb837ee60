#include "algo/vcall/indel_candidates.h"

#include <algorithm>
#include <span>
#include <string_view>
#include <tuple>

#include "algo/vcall/read_window.h"
#include "base/bases.h"

namespace {

constexpr double kLeastShare = 0.25;  // of the reads over a place, those with an indel there
constexpr uint32_t kLeastCount = 5;   // of insertions or of deletions at a place, and of reads for an allele
constexpr uint32_t kContigMargin = 80;
constexpr size_t kClipFlank = 8;        // bases beyond an insertion that a clip must agree with
constexpr size_t kMatchedAlleles = 32;  // insertions of a place that clips are matched against

// An I or D of one read, as far to the left as the reference allows. An allele with its reads.
struct Indel {
  uint32_t anchor;   // the base before it
  uint32_t deleted;  // bases; 0 for an insertion
  std::string inserted;
  uint32_t count = 1;

  bool sameAs(const Indel& other) const {
    return anchor == other.anchor && deleted == other.deleted && inserted == other.inserted;
  }
  size_t length() const { return deleted + inserted.size(); }
  auto order() const { return std::tie(anchor, deleted, inserted); }
};

struct SoftClip {
  uint32_t border;  // where the aligned part begins (clip on the left) or ends
  bool right;
  uint32_t covered_from;  // start of the read's aligned part
  Read* read;
  uint32_t length;
  bool used = false;

  auto order() const { return std::tie(border, right); }
  std::string_view bases() const {
    const char* letters = read->getBases();
    return {right ? letters + (uint32_t(read->length) - length) : letters, length};
  }
};

class Discovery {
 public:
  Discovery(const ReferenceWindow& window, uint32_t start, uint32_t end, uint32_t min_mapq,
            size_t max_alleles)
      : window_(window), start_(start), end_(end), min_mapq_(min_mapq), max_alleles_(max_alleles) {
    for (std::vector<uint32_t>& total : totals_) total.resize(end - start);
  }

  void addSample(const std::vector<Read*>& reads) {
    indels_.clear();
    covered_.assign(end_ - start_ + 1, 0);
    for (Read* read : reads)
      if (read->mapq >= min_mapq_ && read->length > 0) addRead(*read);
    for (size_t i = 1; i < covered_.size(); ++i) covered_[i] += covered_[i - 1];

    sortByPlace(indels_);
    for (size_t i = 0, next; i < indels_.size(); i = next) {
      const uint32_t at = indels_[i].anchor - start_;
      for (next = i; next < indels_.size() && indels_[next].anchor == indels_[i].anchor; ++next)
        ++totals_[indels_[next].deleted == 0][at];
      if (kLeastShare * covered_[at] > double(next - i)) continue;
      for (size_t k = i; k < next; ++k) add(recorded_, indels_[k]);
    }
  }

  IndelCandidates::Map take() {
    sortByPlace(recorded_);
    std::sort(clips_.begin(), clips_.end(),
              [](const SoftClip& a, const SoftClip& b) { return a.order() < b.order(); });
    IndelCandidates::Map found;
    std::vector<Indel> alleles;
    for (size_t i = 0, next; i < recorded_.size(); i = next) {
      const uint32_t anchor = recorded_[i].anchor;
      alleles.clear();
      for (next = i; next < recorded_.size() && recorded_[next].anchor == anchor; ++next)
        add(alleles, recorded_[next]);
      if (std::max(totals_[0][anchor - start_], totals_[1][anchor - start_]) < kLeastCount) continue;
      if (anchor - window_.start < kContigMargin || anchor >= window_.end() - kContigMargin) continue;
      bySupport(alleles);
      matchClips(anchor, alleles);
      std::erase_if(alleles, [&](const Indel& a) { return a.count < kLeastCount || !isPlain(a); });
      bySupport(alleles);
      if (alleles.size() > max_alleles_) alleles.resize(max_alleles_);
      if (!alleles.empty()) found[anchor].push_back(record(anchor, alleles));
    }
    return found;
  }

 private:
  static void sortByPlace(std::vector<Indel>& indels) {
    std::sort(indels.begin(), indels.end(),
              [](const Indel& a, const Indel& b) { return a.order() < b.order(); });
  }
  // Behind sorted alleles, of which the last may be the same one.
  static void add(std::vector<Indel>& alleles, Indel& indel) {
    if (!alleles.empty() && alleles.back().sameAs(indel))
      alleles.back().count += indel.count;
    else
      alleles.push_back(std::move(indel));
  }
  static void bySupport(std::vector<Indel>& alleles) {
    std::sort(alleles.begin(), alleles.end(), [](const Indel& a, const Indel& b) {
      return a.count != b.count ? a.count > b.count : a.order() < b.order();
    });
  }

  void addRead(Read& read) {
    const ReadWindow span = adapterFreeWindow(read);
    if (span.start >= span.end || read.n_cigar == 0) return;
    const uint32_t low = std::max(span.start, start_), high = std::min(span.end, end_);
    if (low < high) {
      ++covered_[low - start_];
      --covered_[high - start_];
    }
    uint32_t place = read.start, offset = 0;
    for (uint32_t i = 0; i < read.n_cigar; ++i) {
      const uint32_t word = read.cigarWord(i), length = cigarLength(word);
      if (cigarOp(word) == CIGAR_S) {
        addClip(read, span, length, offset > 0);
      } else if ((cigarOp(word) == CIGAR_I || cigarOp(word) == CIGAR_D) && place > span.start &&
                 place < span.end) {
        addIndel(read, span, place, length, cigarOp(word) == CIGAR_I ? int64_t(offset) : -1);
      }
      if (consumesReference(word)) place += length;
      if (consumesRead(word)) offset += length;
    }
  }

  // Clips whose insertion may lie in the region; where the adapter was cut there is none. One of no bases is none.
  void addClip(Read& read, ReadWindow span, uint32_t length, bool right) {
    const uint32_t border = right ? read.end : read.start;
    if (border != (right ? span.end : span.start) || border <= start_ || length == 0 ||
        length > uint32_t(read.length))
      return;
    if (right ? span.start >= end_ : border > end_) return;
    clips_.push_back({border, right, right ? span.start : border - 1, &read, length});
  }

  // `offset` of the inserted bases, -1 for a deletion.
  void addIndel(Read& read, ReadWindow span, uint32_t place, uint32_t length, int64_t offset) {
    constexpr uint32_t kSpan = IndelCandidates::kMaxIndelSpan;
    if (length == 0 || length > kSpan || place <= start_ || place - start_ > end_ - start_ + kSpan) return;
    if (place > window_.end() || (offset < 0 && length > window_.end() - place)) return;
    const char* text = offset < 0 ? window_.from(place) : read.getBases() + offset;
    uint32_t shift = 0;  // the last base of what is shifted must be the base before it
    const uint32_t limit = std::min(kSpan - length, place - 1 - start_);
    auto last = [&](uint32_t by) {
      return offset < 0 ? *(text + length - 1 - by) : text[length - 1 - by % length];
    };
    while (shift < limit && window_.at(place - 1 - shift) == last(shift)) ++shift;
    const uint32_t anchor = place - 1 - shift;
    if (anchor < span.start || anchor >= end_) return;
    // Stopped by the region's border only: the indel belongs to what is before.
    if (anchor == start_ && shift < kSpan - length && window_.at(anchor) == last(shift)) return;
    Indel indel{anchor, offset < 0 ? length : 0, {}};
    if (offset >= 0) {
      const uint32_t turn = length - shift % length;
      indel.inserted.assign(text + turn, length - turn).append(text, turn);
    }
    indels_.push_back(std::move(indel));
  }

  // Adds clips to the insertions that they fit, the best supported first; one that fits none is an allele of its own.
  void matchClips(uint32_t anchor, std::vector<Indel>& alleles) {
    constexpr size_t kSpan = IndelCandidates::kMaxIndelSpan;
    const uint32_t behind = anchor + 1;
    const std::string_view after(window_.from(behind), std::min<size_t>(window_.end() - behind, kSpan));
    const std::string before(window_.from(behind) - std::min<size_t>(behind - window_.start, kClipFlank),
                             window_.from(behind));
    for (size_t i = 0; i < std::min(alleles.size(), kMatchedAlleles); ++i) {
      Indel& allele = alleles[i];
      if (allele.inserted.empty()) continue;
      // Aligners go on along the reference up to the first base in which it and the insertion differ.
      const std::string haplotype = allele.inserted + std::string(after);
      size_t shared = 0;
      while (shared < after.size() && haplotype[shared] == after[shared]) ++shared;
      const std::string_view rest = std::string_view(haplotype).substr(shared);
      const size_t open = std::max(shared, allele.inserted.size()) - shared + kClipFlank;
      for (SoftClip& clip : clipsAt(behind + uint32_t(shared), true))
        if (clip.covered_from <= anchor && rest.starts_with(clip.bases().substr(0, open))) take(clip, allele);

      const std::string left = before + allele.inserted;
      for (SoftClip& clip : clipsAt(behind, false)) {
        const std::string_view bases = clip.bases();
        if (left.ends_with(bases.substr(bases.size() - std::min(bases.size(), left.size()))))
          take(clip, allele);
      }
    }
    for (bool right : {false, true})
      for (const SoftClip& clip : clipsAt(behind, right))
        if (!clip.used && clip.covered_from <= anchor && clip.length <= kSpan &&
            clip.bases().back() != before.back())
          alleles.push_back({anchor, 0, std::string(clip.bases())});
    sortByPlace(alleles);
    std::vector<Indel> distinct;
    for (Indel& allele : alleles) add(distinct, allele);
    alleles.swap(distinct);
  }

  static void take(SoftClip& clip, Indel& allele) {
    allele.count += !clip.used;
    clip.used = true;
  }

  std::span<SoftClip> clipsAt(uint32_t border, bool right) {
    const auto key = std::tie(border, right);
    const auto first = std::lower_bound(clips_.begin(), clips_.end(), key,
                                        [](const SoftClip& a, const auto& b) { return a.order() < b; });
    const auto last = std::upper_bound(first, clips_.end(), key,
                                       [](const auto& a, const SoftClip& b) { return a < b.order(); });
    return {first, last};
  }

  bool isPlain(const Indel& allele) const {
    return allBases(allele.inserted) && allBases({window_.from(allele.anchor), allele.deleted + 1});
  }

  // The alternates behind the anchor base, over the longest deletion.
  GivenAlleles::Record record(uint32_t anchor, const std::vector<Indel>& alleles) const {
    uint32_t deleted = 0;
    for (const Indel& allele : alleles) deleted = std::max(deleted, allele.deleted);
    GivenAlleles::Record result;
    result.ref.assign(window_.from(anchor), deleted + 1);
    for (const Indel& allele : alleles)
      result.alts.push_back(result.ref[0] + allele.inserted + result.ref.substr(1 + allele.deleted));
    std::sort(result.alts.begin(), result.alts.end(), [](const std::string& a, const std::string& b) {
      return a.size() != b.size() ? a.size() < b.size() : a < b;
    });
    return result;
  }

  const ReferenceWindow& window_;
  const uint32_t start_, end_, min_mapq_;
  const size_t max_alleles_;
  std::vector<uint32_t> covered_;    // per position of the region, of one sample
  std::vector<uint32_t> totals_[2];  // deletions, insertions; of all samples
  std::vector<Indel> indels_;        // of one sample
  std::vector<Indel> recorded_;      // where they reach the share of reads
  std::vector<SoftClip> clips_;
};

}  // namespace

IndelCandidates::Map IndelCandidates::find(const std::vector<std::vector<Read*>>& samples,
                                           const ReferenceWindow& window, uint32_t start, uint32_t end) {
  start = std::max(start, window.start);
  end = std::min(end, window.end());
  if (start >= end) return {};
  Discovery discovery(window, start, end, min_base_qual_, max_alleles_);
  for (const std::vector<Read*>& reads : samples) discovery.addSample(reads);
  return discovery.take();
}
