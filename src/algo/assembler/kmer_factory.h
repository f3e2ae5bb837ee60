// kmer_factory.h - the k-mers of the sequences of an assembly, each once, with what is known of it.
// Owns     the records: they come from blocks that are freed with the factory, none before. The bases belong to the
//          sequences.
// Threads  one thread at a time.
// Errors   std::runtime_error above kMaxKmers.
// Source   the hash of a window, updated base by base: Karp, Rabin, Efficient randomized pattern-matching algorithms,
//          IBM J. Res. Dev. 31 (1987).
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

// A k-mer; its length is that of the factory.
struct KMer {
  KMer* next;         // in its bucket
  const char* bases;  // where it was first seen
  uint32_t hash;
  int32_t mark;  // the caller's
};
static_assert(sizeof(KMer) == 24);

// The hash of a k-mer from that of the one before it.
class RollingHash {
 public:
  // `bases` has at least `k` bases, k >= 1.
  RollingHash(const char* bases, int k) {
    for (int i = 0; i < k; ++i) {
      sum_ = sum_ * kFactor + static_cast<uint8_t>(bases[i]);
      if (i > 0) first_ *= kFactor;
    }
  }
  void roll(char out, char in) {
    sum_ = (sum_ - static_cast<uint8_t>(out) * first_) * kFactor + static_cast<uint8_t>(in);
  }
  uint32_t value() const {
    const uint64_t mixed = (sum_ ^ sum_ >> 32) * 0x9E3779B97F4A7C15u;
    return static_cast<uint32_t>(mixed >> 32);
  }

 private:
  static constexpr uint64_t kFactor = 0xD6E8FEB86659FD93u;

  uint64_t sum_ = 0, first_ = 1;  // the weight of the first base
};

class KMerFactory {
 public:
  static constexpr size_t kMaxKmers = size_t{1} << 22;

  explicit KMerFactory(int kmerSize);

  // The record made right behind that of the k-mer one base before `bases`, when it is that of the k-mer at `bases`: a
  // sequence mostly goes where an earlier one went, and then a letter tells what else takes a search. Null otherwise.
  KMer* follow(KMer& before, const char* bases) const {
    KMer* const next = &before + 1;
    return next->bases == before.bases + 1 && next->bases[kmer_size_ - 1] == bases[kmer_size_ - 1] ? next
                                                                                                   : nullptr;
  }
  // The record of the k-mer at `bases`, which outlives the factory; made with `mark` when there is none.
  KMer& find(const char* bases, uint32_t hash, int32_t mark);
  size_t size() const { return size_; }

  // Calls `visit(KMer&)` for each k-mer, in the order in which they were first seen.
  template <class Visit>
  void forEach(Visit visit) {
    for (size_t i = 0; i < size_; ++i) visit(blocks_[i / kBlock][i % kBlock]);
  }

 private:
  static constexpr size_t kBlock = 256, kFirstBuckets = 1024;  // one k-mer per bucket at most, on average

  void grow();

  size_t kmer_size_;
  size_t size_ = 0;
  std::vector<std::unique_ptr<KMer[]>> blocks_;  // each with one more, which stays unused
  std::vector<KMer*> buckets_;                   // a power of two
};
