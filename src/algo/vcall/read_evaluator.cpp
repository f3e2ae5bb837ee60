#include "algo/vcall/read_evaluator.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <string_view>
#include <utility>

#include "algo/assembler/cigar_utils.h"
#include "algo/assembler/smith_waterman.h"
#include "algo/vcall/model/genotype_assignment.h"
#include "algo/vcall/model/genotype_from_rows.h"
#include "base/in_chunks.h"
#include "base/timer.h"

namespace {

// Of a piece that an idle thread may take: at most so many reads x haplotypes, a few milliseconds; and of the reads of a
// region no more than this share, but for a few that are best evaluated together.
constexpr size_t kSharedPairs = 4096, kShares = 6, kFewReads = 2 * PairHMM::kRowsAtOnce;

// The haplotype ahead of all others, -1 without one.
int bestHaplotype(const double* row, size_t haplotypes) {
  if (haplotypes == 0 || std::isnan(row[0])) return -1;
  const size_t best = size_t(std::max_element(row, row + haplotypes) - row);
  for (size_t h = 0; h < haplotypes; ++h)
    if (h != best && !(row[best] - row[h] >= kInformativeMargin)) return -1;
  return int(best);
}

// A CIGAR with the place of its first aligned base.
struct Placed {
  CigarElements cigar;
  uint64_t start = 0;
};

// The read's bases against the haplotype. False when they do not align.
bool alignToHaplotype(std::string_view read, std::string_view haplotype, Placed& placed) {
  // Most reads are of one haplotype letter by letter. No other alignment scores as high, and of equal ones the aligner
  // takes the last.
  if (const size_t at = haplotype.rfind(read); at != haplotype.npos) {
    placed = {{{uint32_t(read.size()), &kOpM}}, at};
    return true;
  }
  if ((read.size() + 1) * (haplotype.size() + 1) > SMITHWATERMAN::SmithWaterman::kMaxCells ||
      std::max(read.size(), haplotype.size()) > SMITHWATERMAN::SmithWaterman::kMaxLength)
    return false;
  SMITHWATERMAN::SWPairwiseAlignment aligner;
  aligner.align(haplotype.data(), haplotype.size(), read.data(), read.size(),
                SMITHWATERMAN::haplotypeAlignScores, SMITHWATERMAN::OVERHANG_CLIP);
  const SMITHWATERMAN::AlignmentResult& result = aligner.result();
  if (!result.status.aligned || result.alignmentOffset < 0) return false;
  placed = {result.cigar, uint64_t(result.alignmentOffset)};
  return cigarReadLength(placed.cigar) == read.size();
}

// Walks a CIGAR of the haplotype against the reference, base by base of the haplotype.
class HaplotypeWalk {
 public:
  explicit HaplotypeWalk(const Cigar& cigar) : cigar_(cigar) {}

  // Passes what the haplotype lacks of the reference in front of its next base; bases of the reference.
  uint32_t passDeletions() {
    uint32_t passed = 0;
    for (; at_ < cigar_.size() && (!consumesRead(cigar_[at_]) || left() == 0); ++at_, used_ = 0)
      if (consumesReference(cigar_[at_]) && !consumesRead(cigar_[at_])) passed += cigarLength(cigar_[at_]);
    return passed;
  }
  // The next bases, all in the reference or none: at most `limit`, 0 at the end.
  uint32_t take(uint32_t limit, bool& inReference) {
    if (at_ >= cigar_.size()) return 0;
    const uint32_t count = std::min(limit, left());
    inReference = consumesReference(cigar_[at_]);
    used_ += count;
    return count;
  }

 private:
  uint32_t left() const { return cigarLength(cigar_[at_]) - used_; }

  const Cigar& cigar_;
  size_t at_ = 0;
  uint32_t used_ = 0;  // of the element
};

// From read against haplotype, and haplotype against reference, to read against reference. `start` is the reference's
// position of the haplotype's first base or first deletion. False when the haplotype ends before the read does, or when
// no base of the read lies on the reference.
bool compose(const Placed& onHaplotype, const Cigar& haplotype, uint64_t start, Placed& onReference) {
  HaplotypeWalk walk(haplotype);
  CigarElements& cigar = onReference.cigar;
  cigar.clear();
  uint64_t position = start;  // on the reference
  bool in_reference = false;
  for (uint64_t before = onHaplotype.start; before > 0;) {
    position += walk.passDeletions();
    const uint32_t count = walk.take(uint32_t(std::min<uint64_t>(before, UINT32_MAX)), in_reference);
    if (count == 0) return false;
    before -= count;
    if (in_reference) position += count;
  }
  bool begun = false;  // with a base on the reference
  uint32_t gap = 0;    // of the reference, since the last base of the read
  for (const auto& [length, op] : onHaplotype.cigar) {
    if (!op->consumesReference) {
      if (gap > 0 && begun && *op == kOpI) appendElement(cigar, std::exchange(gap, 0), kOpD);
      appendElement(cigar, length, *op);
      continue;
    }
    for (uint32_t left = length; left > 0;) {
      gap += walk.passDeletions();
      const uint32_t count = walk.take(left, in_reference);
      if (count == 0) return false;
      left -= count;
      if (!op->consumesRead) {
        if (in_reference) gap += count;
        continue;
      }
      if (!begun)
        position += gap;
      else
        appendElement(cigar, gap, kOpD);
      gap = 0;
      if (in_reference && !begun) {
        onReference.start = position;
        begun = true;
      }
      appendElement(cigar, count, in_reference ? kOpM : kOpI);
    }
  }
  return begun;
}

bool hasIndels(const CigarElements& cigar) {
  return std::any_of(cigar.begin(), cigar.end(),
                     [](const CigarElement& e) { return *e.second == kOpI || *e.second == kOpD; });
}

// Moves indels to the left; a deletion that comes to the start of the read only moves the read.
bool leftAlign(const ReferenceWindow& reference, std::string_view read, Placed& placed) {
  const uint64_t end = placed.start + cigarReferenceLength(placed.cigar);
  if (placed.start < reference.start || end > reference.end()) return false;
  if (!hasIndels(placed.cigar)) return true;
  placed.cigar =
      CigarUtils::leftAlignCigarSequentially(placed.cigar, reference.bases.data(), reference.bases.size(),
                                             read.data(), read.size(), placed.start - reference.start, 0);
  for (size_t i = 0; i < placed.cigar.size() && *placed.cigar[i].second != kOpM; ++i) {
    if (*placed.cigar[i].second != kOpD) continue;
    placed.start += placed.cigar[i].first;
    placed.cigar.erase(placed.cigar.begin() + ptrdiff_t(i));
    break;
  }
  return true;
}

// The part of a read's CIGAR in front of, or behind, a base; `position` is where the reference stands at the cut. False
// for an operator that has no place here.
bool cutCigar(const Read& read, int64_t base, bool front, CigarElements& part, uint64_t& position) {
  position = read.start;
  int64_t offset = 0;
  for (uint32_t i = 0; i < read.n_cigar; ++i) {
    const uint32_t word = read.cigarWord(i), length = cigarLength(word);
    if (cigarOp(word) > CIGAR_X) return false;
    const CigarOperator& op = kCigarOperators[cigarOp(word)];
    const bool cut = offset < base || (offset == 0 && cigarOp(word) == CIGAR_H);  // some of it lies in front
    const uint32_t before = !cut              ? 0
                            : op.consumesRead ? uint32_t(std::min<int64_t>(length, base - offset))
                                              : length;
    appendElement(part, front ? before : length - before, op);
    if (op.consumesReference) position += before;
    if (op.consumesRead) offset += length;
  }
  return true;
}

bool isClip(const CigarElement& element) {
  return *element.second == kOpS || *element.second == kOpH;
}

// What stands beside the new alignment of a clip: the old elements when they are clips alone or `joins`, else the bases
// as a clip, with the hard clip at the read's end.
CigarElements besides(const CigarElements& old, bool joins) {
  if (joins || std::all_of(old.begin(), old.end(), isClip)) return old;
  CigarElements clips;
  if (*old.front().second == kOpH) clips.push_back(old.front());
  appendElement(clips, uint32_t(cigarReadLength(old)), kOpS);
  if (*old.back().second == kOpH) clips.push_back(old.back());
  return clips;
}

// The alignment of the whole read from that of its clip.
bool complete(const ReadClip& clip, Placed& placed) {
  const Read& read = *clip.read;
  CigarElements front, back;
  uint64_t front_end = 0, back_start = 0;
  if (!cutCigar(read, clip.readStart, true, front, front_end) ||
      !cutCigar(read, clip.readEnd, false, back, back_start))
    return false;
  const uint64_t end = placed.start + cigarReferenceLength(placed.cigar);
  const bool front_joins = front_end == placed.start && !isClip(placed.cigar.front());
  const bool back_joins = back_start == end && !isClip(placed.cigar.back());
  if (front_joins) placed.start -= cigarReferenceLength(front);
  CigarElements all = besides(front, front_joins);
  for (const auto& [length, op] : placed.cigar) appendElement(all, length, *op);
  for (const auto& [length, op] : besides(back, back_joins)) appendElement(all, length, *op);
  placed.cigar = std::move(all);
  return cigarReadLength(placed.cigar) == size_t(read.length) && placed.start <= INT32_MAX;
}

bool isAlignedSo(const Read& read, uint32_t start, const Cigar& cigar) {
  if (read.start != start || read.n_cigar != cigar.size()) return false;
  for (uint32_t i = 0; i < read.n_cigar; ++i)
    if (read.cigarWord(i) != cigar[i]) return false;
  return true;
}

// Null when the read is to stay as it is.
std::unique_ptr<RealignedRead> realignRead(const AssemblyTask& task, const ReadClip& clip,
                                           const Haplotype& haplotype) {
  if (clip.length() <= 0) return nullptr;
  const std::string_view bases(clip.read->getBases() + clip.readStart, size_t(clip.length()));
  Placed on_haplotype, placed;
  if (!alignToHaplotype(bases, haplotype.bases, on_haplotype) ||
      !compose(on_haplotype, haplotype.cigar, task.trimmedInterval.start, placed) ||
      !leftAlign(task.reference, bases, placed) || !complete(clip, placed))
    return nullptr;
  Cigar words = CigarUtils::toWords(placed.cigar);
  const auto start = uint32_t(placed.start);
  if (isAlignedSo(*clip.read, start, words)) return nullptr;
  return std::make_unique<RealignedRead>(*clip.read, start, std::move(words));
}

}  // namespace

ReadEvaluator::ReadEvaluator(const PairHMM& hmm, thread_coop* pool, int chunkSize)
    : hmm_(hmm), pool_(pool), chunk_size_(chunkSize) {}

size_t ReadEvaluator::chunkRows(const AssemblyTask& task) const {
  const size_t reads = std::max<size_t>(task.reads.size(), 1);
  const size_t haplotypes = std::max<size_t>(task.haplotypes.size(), 1);
  if (chunk_size_ <= 0 || reads * haplotypes <= size_t(chunk_size_)) return reads;
  return (size_t(chunk_size_) + haplotypes - 1) / haplotypes;
}

size_t ReadEvaluator::pieceRows(const AssemblyTask& task) const {
  const size_t haplotypes = std::max<size_t>(task.haplotypes.size(), 1), rows = chunkRows(task);
  if (!pool_ || chunk_size_ <= 0) return rows;
  const size_t most = std::max(std::min(kSharedPairs / haplotypes, task.reads.size() / kShares), kFewReads);
  return std::min(rows, most / PairHMM::kRowsAtOnce * PairHMM::kRowsAtOnce);
}

void ReadEvaluator::calcLikelihoods(const AssemblyTask& task, std::vector<double>& rows) const {
  static Timer* const pairhmm_timer = timer("pairhmm");
  const size_t reads = task.reads.size(), haplotypes = task.haplotypes.size(), size = chunkRows(task);
  rows.assign(reads * haplotypes, 0);
  if (rows.empty()) return;
  std::vector<Allele> alleles(haplotypes);
  for (size_t h = 0; h < haplotypes; ++h) {
    const std::string& bases = task.haplotypes[h]->bases;
    alleles[h] = {bases.data(), int32_t(bases.size()), 0, task.haplotypes[h]->isRef};
  }
  if (task.debugLevel >= kDebugRegions && size < reads)
    debugPrint("CHUNK %s:%u-%u R%luxH%lu split into %lu chunks\n", task.contig, task.activeInterval.start + 1,
               task.activeInterval.end, reads, haplotypes, (reads + size - 1) / size);
  // By length: reads that are evaluated at once take as long as the longest of them.
  std::vector<size_t> order(reads);
  std::iota(order.begin(), order.end(), size_t(0));
  std::stable_sort(order.begin(), order.end(),
                   [&](size_t a, size_t b) { return task.reads[a].length() > task.reads[b].length(); });
  std::vector<ReadClip> clips;
  clips.reserve(reads);
  for (const size_t r : order) clips.push_back(task.reads[r]);
  std::vector<double> ordered(rows.size());
  for (size_t k = 0; k < reads; ++k)
    if (clips[k].length() <= 0) ordered[k * haplotypes] = std::numeric_limits<double>::quiet_NaN();
  inChunks(pool_, reads, pieceRows(task), [&](size_t first, size_t last) {
    TimerScope scope(pairhmm_timer);
    hmm_.calcLikelihood(clips, alleles, ordered.data(), unsigned(first), unsigned(last));
    makeRowsFinite({ordered.data() + first * haplotypes, (last - first) * haplotypes});
    for (size_t k = first; k < last; ++k)
      std::copy_n(ordered.data() + k * haplotypes, haplotypes, rows.data() + order[k] * haplotypes);
  });
}

void ReadEvaluator::realign(const AssemblyTask& task, const std::vector<double>& rows,
                            std::vector<std::unique_ptr<RealignedRead>>& made,
                            std::vector<Read*>& aligned) const {
  static Timer* const realign_timer = timer("realign");
  const size_t reads = task.reads.size(), haplotypes = task.haplotypes.size();
  made.clear();
  made.resize(reads);
  aligned.resize(reads);
  inChunks(pool_, reads, pieceRows(task), [&](size_t first, size_t last) {
    TimerScope scope(realign_timer);
    for (size_t r = first; r < last; ++r) {
      const int best = bestHaplotype(rows.data() + r * haplotypes, haplotypes);
      if (best >= 0) made[r] = realignRead(task, task.reads[r], *task.haplotypes[size_t(best)]);
      aligned[r] = made[r] ? made[r].get() : task.reads[r].read;
    }
  });
}
