// kmer_graph_builder.h - threads the reference and the reads of a region through a graph of k-mers.
// A k-mer that no sequence holds twice is one vertex, where all sequences with it meet. The others are non-unique: each
// sequence that comes to one gets a vertex of its own, unless it follows an edge that an earlier sequence made.
// Sequences  the reference, whole; of each read the stretches of A, C, G and T with qualities of at least `minBaseQual`,
//            if long enough for a k-mer. A read begins at its first unique k-mer.
// Owns       its records. The graph points into the sequences.
// Threads    one builder, one thread; used once.
// Errors     std::runtime_error.
// Cost       linear in the bases; memory in the distinct k-mers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "algo/assembler/assembly_read.h"
#include "algo/assembler/kmer_factory.h"
#include "algo/assembler/seq_graph.h"

class KmerGraphBuilder {
 public:
  enum Flag : uint32_t { kKeepThreadingGraphs = 32 };  // a dot file per sample

  // `pruneSampleCount` is carried along: the weight of an edge is the count of its best sample.
  // Throws "kmerSize must >= 1".
  KmerGraphBuilder(int kmerSize, int minBaseQual, int pruneSampleCount, bool allowRepeatKmersInRef,
                   uint32_t flags);

  // The graph, with refSource and refSink; the reference has at least k bases. With `uniqueOnly` nothing as soon as
  // lowComplexity() is known. Reads are threaded sample by sample, in the order given otherwise.
  std::optional<GRAPH::SeqKmerGraph> build(std::span<const AssemblyRead> reads, std::string_view reference,
                                           bool uniqueOnly);

  // In the order in which they were found.
  const std::vector<std::string_view>& nonUniqueKmers() const { return non_unique_; }
  // There are some, besides those of the reference if these are allowed.
  bool lowComplexity() const { return non_unique_.size() > allowed_; }
  int pruneSampleCount() const { return prune_sample_count_; }

 private:
  static constexpr int32_t kNonUnique = -2, kReference = -1;  // marks of k-mers; sample of the reference

  struct Sequence {
    const char* bases;
    int32_t length;
    int32_t sample;
  };

  void prepare(std::span<const AssemblyRead> reads, std::string_view reference);
  bool count(bool uniqueOnly);
  void clear();
  void thread();
  void threadSequence(const Sequence& sequence);
  GRAPH::VertexId vertexOf(const char* kmer, uint32_t hash);
  void pass(GRAPH::EdgeId e, bool isRef);
  void flush(int32_t sample);

  int kmer_size_, min_base_qual_, prune_sample_count_;
  bool allow_repeats_in_ref_;
  uint32_t flags_;
  std::vector<Sequence> sequences_;  // the reference first
  // The mark is the last sequence with the k-mer while counting, then its vertex, or kNonUnique.
  KMerFactory kmers_;
  std::vector<std::string_view> non_unique_;
  size_t allowed_ = 0;  // of them
  GRAPH::SeqKmerGraph graph_;
  std::vector<GRAPH::EdgeId> touched_;  // edges with counts of the present sample
};
