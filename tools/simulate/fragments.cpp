#include "fragments.h"

#include <algorithm>
#include <stdexcept>
#include <tuple>

#include "rng.h"

namespace {

constexpr uint64_t kFragmentStream = 0x100;
constexpr uint32_t kNoPlace = UINT32_MAX;

// A stretch of known bases of a contig, in reference coordinates.
struct Room {
  uint32_t contig, start, end;
  uint64_t before = 0;  // bases in the rooms before this one
};

std::vector<Room> findRooms(const SimulateOptions& options, const Genome& genome) {
  std::vector<Room> rooms;
  for (uint32_t c = 0; c < genome.contigs.size(); ++c) {
    if (!options.contigHasReads(c)) continue;
    const std::string& bases = genome.contigs[c].bases;
    for (size_t at = 0; (at = bases.find_first_not_of('N', at)) != std::string::npos;) {
      size_t end = std::min(bases.find('N', at), bases.size());
      rooms.push_back({c, static_cast<uint32_t>(at), static_cast<uint32_t>(end), 0});
      at = end;
    }
  }
  return rooms;
}

class Planner {
 public:
  Planner(const SimulateOptions& options, const Genome& genome, const Sample& alleles, size_t sample,
          const HaplotypeSet& haplotypes, FragmentCounts& counts)
      : options_(options),
        genome_(genome),
        alleles_(alleles),
        haplotypes_(haplotypes),
        counts_(counts),
        sample_(sample),
        rng_(options.seed, kFragmentStream, sample),
        rooms_(findRooms(options, genome)) {
    for (Room& room : rooms_) {
      room.before = total_;
      total_ += room.end - room.start;
    }
    for (const WeightedHaplotype& haplotype : alleles_.haplotypes) weights_ += haplotype.weight;
  }

  std::vector<Fragment> plan() {
    uint64_t target = options_.pairs;
    if (target == 0)
      target = total_ * options_.depthOf(sample_) / (2 * static_cast<uint64_t>(options_.read_length));
    if (target > kMaxPairs) throw std::invalid_argument("more than 2^31 read pairs per sample");
    std::vector<Fragment> fragments;
    fragments.reserve(target);
    while (fragments.size() < target) {
      fragments.push_back(drawFragment());
      while (fragments.back().kind != FragmentKind::kUnmapped && fragments.size() < target &&
             rng_.happens(options_.duplicate))
        fragments.push_back(drawCopy(fragments.back()));
      copies_here_ = 0;
    }
    counts_.pairs = fragments.size();
    std::sort(fragments.begin(), fragments.end(), [](const Fragment& a, const Fragment& b) {
      if (a.first_contig != b.first_contig) return a.first_contig < b.first_contig;
      if (a.first_place != b.first_place) return a.first_place < b.first_place;
      return a.serial < b.serial;
    });
    return fragments;
  }

 private:
  static constexpr uint64_t kMaxPairs = uint64_t(1) << 31;

  Fragment drawFragment() {
    Fragment fragment;
    fragment.serial = fragment.molecule = next_serial_++;
    fragment.cluster = clusterOf(fragment.serial, rng_.below(static_cast<uint32_t>(options_.read_groups)));
    fragment.first_at_end = rng_.below(2);
    fragment.lost_end = rng_.below(2);
    fragment.qc_fail = rng_.happens(options_.qc_fail);
    fragment.haplotype = drawHaplotype();
    uint32_t kind = rng_.bits32();
    if (kind < options_.unmapped) {
      fragment.kind = FragmentKind::kUnmapped;
      fragment.first_contig = fragment.first_place = kNoPlace;
      return fragment;
    }
    if (kind < options_.unmapped + options_.half_mapped)
      fragment.kind = FragmentKind::kHalfMapped;
    else if (kind < options_.unmapped + options_.half_mapped + options_.chimera)
      fragment.kind = FragmentKind::kChimera;
    drawPieces(fragment);
    findFirstPlace(fragment);
    return fragment;
  }

  uint8_t drawHaplotype() {
    uint32_t draw = rng_.below(weights_);
    for (size_t i = 0;; ++i) {
      if (draw < alleles_.haplotypes[i].weight) return static_cast<uint8_t>(i);
      draw -= alleles_.haplotypes[i].weight;
    }
  }

  void drawPieces(Fragment& fragment) {
    int32_t read = options_.read_length;
    if (fragment.kind == FragmentKind::kChimera) {
      // A third of the chimeras change place inside a read, the others between the reads.
      bool split = rng_.below(3) == 0 && read >= 90;
      int32_t first = split ? rng_.between(read * 3 / 10, read * 7 / 10) : read + rng_.between(0, read / 2);
      int32_t second = 2 * read + rng_.between(0, read / 2);
      fragment.pieces = 2;
      fragment.piece[0] = drawPiece(fragment.haplotype, first);
      fragment.piece[1] = drawPiece(fragment.haplotype, second);
      fragment.piece[1].reversed = rng_.below(2);
      ++counts_.chimeras;
      if (fragment.piece[0].length() < static_cast<uint32_t>(read)) ++counts_.split_chimeras;
      return;
    }
    bool is_short = rng_.happens(options_.short_insert);
    int32_t length = is_short ? rng_.between(read / 3, read - 1)
                              : std::max(rng_.normal(options_.insert_mean, options_.insert_sd), read / 3);
    fragment.piece[0] = drawPiece(fragment.haplotype, length);
    if (fragment.piece[0].length() < static_cast<uint32_t>(read)) ++counts_.short_inserts;
  }

  // Anywhere in the genome, cut where it would reach into unknown bases.
  Piece drawPiece(uint8_t haplotype, int32_t wanted) {
    uint64_t at = (uint64_t(rng_.bits32()) * total_) >> 32;
    const Room& room = *(std::upper_bound(rooms_.begin(), rooms_.end(), at,
                                          [](uint64_t place, const Room& r) { return place < r.before; }) -
                         1);
    at -= room.before;
    const Haplotype& bases = haplotypes_[haplotype][room.contig];
    uint32_t low = bases.fromReference(room.start), high = bases.fromReference(room.end);
    uint32_t length = std::min(static_cast<uint32_t>(wanted), high - low);
    uint32_t start = std::min(bases.fromReference(room.start + static_cast<uint32_t>(at)), high - length);
    return {room.contig, start, start + length, false};
  }

  Fragment drawCopy(const Fragment& original) {
    Fragment copy = original;
    copy.serial = next_serial_++;
    copy.is_copy = true;
    bool optical = rng_.happens(options_.optical) && copies_here_ + 1 < kCellWidth;
    if (optical) {
      // The original's cell has room for it; x tells the copies of one original apart.
      copy.cluster.x = original.cluster.x / kCellWidth * kCellWidth + ++copies_here_;
      copy.cluster.y = original.cluster.y / kCellHeight * kCellHeight + rng_.below(kCellHeight);
      ++counts_.optical_copies;
      return copy;
    }
    copies_here_ = 0;
    uint32_t libraries = static_cast<uint32_t>(options_.libraries),
             library = original.cluster.group % libraries;
    uint32_t lanes = (static_cast<uint32_t>(options_.read_groups) - library + libraries - 1) / libraries;
    copy.cluster = clusterOf(copy.serial, library + libraries * rng_.below(lanes));
    ++counts_.pcr_copies;
    return copy;
  }

  // Each serial number has a cell of its own: multiplying by an odd number and folding high bits down are
  // both one to one on 31 bits.
  static Cluster clusterOf(uint64_t serial, uint32_t group) {
    constexpr uint32_t kMask = 0x7FFFFFFF;
    uint32_t cell = static_cast<uint32_t>(serial) * 0x2545F491u & kMask;
    cell ^= cell >> 15;
    cell = cell * 0x9E3779B1u & kMask;
    uint32_t tile = cell >> 24, column = cell >> 12 & 0xFFF, row = cell & 0xFFF;
    Cluster cluster;
    cluster.group = static_cast<uint16_t>(group);
    cluster.tile =
        static_cast<uint16_t>(1000 * (1 + (tile >> 6)) + 100 * (1 + (tile >> 4 & 3)) + 1 + (tile & 15));
    cluster.x = kEdge + column * kCellWidth;
    cluster.y = kEdge + row * kCellHeight;
    return cluster;
  }

  void findFirstPlace(Fragment& fragment) const {
    std::pair<uint32_t, uint32_t> first{kNoPlace, kNoPlace};
    for (int i = 0; i < fragment.pieces; ++i) {
      const Piece& piece = fragment.piece[i];
      const Haplotype& bases = haplotypes_[fragment.haplotype][piece.contig];
      uint32_t start = bases.toReference(piece.start), end = bases.toReference(piece.end);
      first = std::min(first, {piece.contig, start});
      // A secondary alignment may lie in the other copy of a repeat.
      const std::vector<RepeatCopy>& repeats = genome_.contigs[piece.contig].repeats;
      auto copy = std::partition_point(repeats.begin(), repeats.end(),
                                       [&](const RepeatCopy& one) { return one.here.end <= start; });
      for (; copy != repeats.end() && copy->here.start < end; ++copy)
        first = std::min(first, {copy->other_contig, copy->other_start});
    }
    std::tie(fragment.first_contig, fragment.first_place) = first;
  }

  static constexpr uint32_t kCellWidth = 8, kCellHeight = 16, kEdge = 1024;  // pixels

  const SimulateOptions& options_;
  const Genome& genome_;
  const Sample& alleles_;
  const HaplotypeSet& haplotypes_;
  FragmentCounts& counts_;
  size_t sample_;
  Rng rng_;
  std::vector<Room> rooms_;
  uint64_t total_ = 0;  // bases in the rooms
  uint32_t weights_ = 0;
  uint64_t next_serial_ = 0;
  uint32_t copies_here_ = 0;  // optical copies in the present cell
};

}  // namespace

std::vector<Fragment> planFragments(const SimulateOptions& options, const Genome& genome,
                                    const Sample& sample_alleles, size_t sample,
                                    const HaplotypeSet& haplotypes, FragmentCounts& counts) {
  return Planner(options, genome, sample_alleles, sample, haplotypes, counts).plan();
}
