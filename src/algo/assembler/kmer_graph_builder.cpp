#include "algo/assembler/kmer_graph_builder.h"

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <utility>

#include "algo/assembler/graph_dot.h"
#include "base/text.h"
#include "base/timer.h"

using GRAPH::EdgeId;
using GRAPH::kNone;
using GRAPH::VertexId;

namespace {

bool isUsable(char base) {
  return base == 'A' || base == 'C' || base == 'G' || base == 'T';
}

// The hashes of k-mers along a sequence, of those that are asked for.
class HashAlong {
 public:
  HashAlong(const char* bases, int k) : k_(k), at_(bases), hash_(bases, k) {}

  uint32_t of(const char* kmer) {
    if (kmer == at_ + 1)
      hash_.roll(*at_, kmer[k_ - 1]);
    else if (kmer != at_)
      hash_ = RollingHash(kmer, k_);
    at_ = kmer;
    return hash_.value();
  }

 private:
  int k_;
  const char* at_;
  RollingHash hash_;
};

int checked(int kmerSize) {
  if (kmerSize < 1) throw std::runtime_error("kmerSize must >= 1");
  return kmerSize;
}

}  // namespace

KmerGraphBuilder::KmerGraphBuilder(int kmerSize, int minBaseQual, int pruneSampleCount,
                                   bool allowRepeatKmersInRef, uint32_t flags)
    : kmer_size_(checked(kmerSize)),
      min_base_qual_(minBaseQual),
      prune_sample_count_(pruneSampleCount),
      allow_repeats_in_ref_(allowRepeatKmersInRef),
      flags_(flags),
      kmers_(kmerSize),
      graph_(kmerSize) {}

std::optional<GRAPH::SeqKmerGraph> KmerGraphBuilder::build(std::span<const AssemblyRead> reads,
                                                           std::string_view reference, bool uniqueOnly) {
  static Timer* prepare_timer = timer("assemble_kg_build_prepare");
  static Timer* count_timer = timer("assemble_kg_build_calcsize");
  static Timer* clear_timer = timer("assemble_kg_build_clear");
  static Timer* thread_timer = timer("assemble_kg_build_threading");
  assert(reference.size() >= static_cast<size_t>(kmer_size_));
  {
    TimerScope scope(prepare_timer);
    prepare(reads, reference);
  }
  {
    TimerScope scope(count_timer);
    if (!count(uniqueOnly)) return std::nullopt;
  }
  {
    TimerScope scope(clear_timer);
    clear();
  }
  TimerScope scope(thread_timer);
  thread();
  return std::move(graph_);
}

void KmerGraphBuilder::prepare(std::span<const AssemblyRead> reads, std::string_view reference) {
  sequences_.push_back({reference.data(), static_cast<int32_t>(reference.size()), kReference});
  for (const AssemblyRead& read : reads) {
    int32_t start = 0;
    for (int32_t i = 0; i <= read.length; ++i) {
      if (i < read.length && read.quals[i] >= min_base_qual_ && isUsable(read.bases[i])) continue;
      if (i - start >= kmer_size_) sequences_.push_back({read.bases + start, i - start, read.sample});
      start = i + 1;
    }
  }
  std::stable_sort(sequences_.begin() + 1, sequences_.end(),
                   [](const Sequence& a, const Sequence& b) { return a.sample < b.sample; });
}

// Fills the table of k-mers and the list of the non-unique ones; false when there must be none and are.
bool KmerGraphBuilder::count(bool uniqueOnly) {
  for (size_t n = 0; n < sequences_.size(); ++n) {
    const Sequence& sequence = sequences_[n];
    const auto mark = static_cast<int32_t>(n);
    const char* const last = sequence.bases + sequence.length - kmer_size_;
    HashAlong hash(sequence.bases, kmer_size_);
    KMer* before = nullptr;
    for (const char* at = sequence.bases; at <= last; ++at) {
      KMer* const followed = before ? kmers_.follow(*before, at) : nullptr;
      KMer& kmer = followed ? *followed : kmers_.find(at, hash.of(at), kNone);
      if (kmer.mark == mark) {
        non_unique_.emplace_back(kmer.bases, kmer_size_);
        kmer.mark = kNonUnique;
      } else if (kmer.mark != kNonUnique) {
        kmer.mark = mark;
      }
      before = &kmer;
    }
    if (n == 0 && allow_repeats_in_ref_) allowed_ = non_unique_.size();
    if (uniqueOnly && lowComplexity()) return false;
  }
  return true;
}

void KmerGraphBuilder::clear() {
  kmers_.forEach([](KMer& kmer) {
    if (kmer.mark != kNonUnique) kmer.mark = kNone;
  });
}

void KmerGraphBuilder::thread() {
  for (size_t n = 0; n < sequences_.size(); ++n) {
    threadSequence(sequences_[n]);
    if (n + 1 == sequences_.size() || sequences_[n + 1].sample != sequences_[n].sample)
      flush(sequences_[n].sample);
  }
}

void KmerGraphBuilder::threadSequence(const Sequence& sequence) {
  const bool is_ref = sequence.sample == kReference;
  const char* kmer = sequence.bases;
  const char* last = sequence.bases + sequence.length - kmer_size_;
  HashAlong hash(kmer, kmer_size_);

  if (!is_ref)
    while (kmers_.find(kmer, hash.of(kmer), kNone).mark == kNonUnique)
      if (kmer++ == last) return;
  VertexId v = vertexOf(kmer, hash.of(kmer));
  if (is_ref) {
    if (graph_.refSource != kNone)
      throw std::runtime_error(
          "Found two refSources! prev: " + std::string(graph_.vertex(graph_.refSource).kmer) +
          ", new: " + std::string(graph_.vertex(v).kmer));
    graph_.refSource = v;
  }
  ++graph_.vertex(v).readCount;

  while (kmer != last) {
    ++kmer;
    const char base = kmer[kmer_size_ - 1];
    EdgeId edge = kNone;
    for (const EdgeId e : graph_.outEdges(v))
      if (graph_.vertex(graph_.target(e)).lastBase() == base) {
        edge = e;
        break;
      }
    if (edge == kNone) edge = graph_.addEdge(v, vertexOf(kmer, hash.of(kmer)), {{0, false}, 0, 0});
    pass(edge, is_ref);
    v = graph_.target(edge);
    ++graph_.vertex(v).readCount;
  }
  if (is_ref) graph_.refSink = v;
}

// That of a unique k-mer, a new one for others.
VertexId KmerGraphBuilder::vertexOf(const char* kmer, uint32_t hash) {
  KMer& known = kmers_.find(kmer, hash, kNone);
  if (known.mark >= 0) return known.mark;
  // Vertices of non-unique k-mers are many in reads without structure.
  if (graph_.vertexCount() == KMerFactory::kMaxKmers)
    throw std::runtime_error("too many k-mers in one region");
  const VertexId v = graph_.addVertex({{kmer, static_cast<size_t>(kmer_size_)}, 0});
  if (known.mark != kNonUnique) known.mark = v;
  return v;
}

void KmerGraphBuilder::pass(EdgeId e, bool isRef) {
  GRAPH::MultiSampleEdge& edge = graph_.edge(e);
  if (edge.sampleCount++ == 0) touched_.push_back(e);
  ++edge.multiplicity;
  edge.isRef |= isRef;
}

void KmerGraphBuilder::flush(int32_t sample) {
  for (const EdgeId e : touched_) graph_.edge(e).flush();
  touched_.clear();
  if ((flags_ & kKeepThreadingGraphs) != 0)
    GRAPH::writeDotFile(format("threading_%d.flush.%s.dot", kmer_size_,
                               sample == kReference ? "reference" : std::to_string(sample).c_str()),
                        GRAPH::dotLines(graph_));
}
