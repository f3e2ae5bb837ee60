#include "algo/assembler/dangling_ends.h"

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <string_view>

using GRAPH::EdgeId;
using GRAPH::kNone;
using GRAPH::VertexId;

namespace {

constexpr int kMaxWalk = 1000;  // edges from an end to the reference, those of low weight included

}  // namespace

DanglingEnds::DanglingEnds(GRAPH::SeqKmerGraph& graph, int pruneFactor, int minBranchLength)
    : graph_(graph),
      prune_factor_(pruneFactor),
      min_length_(std::max(1, minBranchLength)),
      index_(static_cast<size_t>(graph.vertexLimit()), kNone) {
  for (VertexId v = graph.refSource; v != kNone && referenceIndex(v) == kNone;) {
    index_[static_cast<size_t>(v)] = static_cast<int32_t>(reference_.size());
    reference_.push_back(v);
    VertexId next = kNone;
    for (const EdgeId e : graph.outEdges(v))
      if (graph.edge(e).isRef) next = graph.target(e);
    v = next;
  }
}

int32_t DanglingEnds::referenceIndex(VertexId v) const {
  return static_cast<size_t>(v) < index_.size() ? index_[static_cast<size_t>(v)] : kNone;
}

int DanglingEnds::recoverDanglingTails() {
  int recovered = 0;
  alignments_ = 0;
  for (VertexId v = 0; v < graph_.vertexLimit(); ++v) {
    if (!graph_.hasVertex(v) || !graph_.isSink(v)) continue;
    if (graph_.refSink != kNone ? v == graph_.refSink : graph_.isRefVertex(v)) continue;
    recovered += recoverDanglingTail(v);
  }
  return recovered;
}

int DanglingEnds::recoverDanglingHeads() {
  int recovered = 0;
  alignments_ = 0;
  for (VertexId v = 0, limit = graph_.vertexLimit(); v < limit; ++v) {
    if (!graph_.hasVertex(v) || !graph_.isSource(v)) continue;
    if (graph_.refSource != kNone ? v == graph_.refSource : graph_.isRefVertex(v)) continue;
    recovered += recoverDanglingHead(v);
  }
  return recovered;
}

bool DanglingEnds::recoverDanglingTail(VertexId v) {
  if (!graph_.isSink(v))
    throw std::runtime_error("recover dangling tail for vertex out-degree " +
                             std::to_string(graph_.outDegree(v)));
  Path path;
  if (!findPath(v, true, path)) return false;
  const size_t first = static_cast<size_t>(path.join) + 1;
  const size_t end = std::min(reference_.size(), first + path.vertices.size() + kMaxGap);
  std::string reference, bases;
  for (size_t i = first; i < end; ++i) reference += graph_.vertex(reference_[i]).lastBase();
  for (const VertexId p : path.vertices) bases += graph_.vertex(p).lastBase();
  const int32_t length = alignedLength(reference, bases);
  if (length == 0) return false;

  VertexId from = path.vertices.back();
  size_t to = first + static_cast<size_t>(length);
  if (to == reference_.size()) {
    --to;
    path.vertices.pop_back();
    from = path.vertices.empty() ? reference_[static_cast<size_t>(path.join)] : path.vertices.back();
  }
  if (graph_.findEdge(from, reference_[to]) != kNone) return false;
  graph_.addEdge(from, reference_[to], path.edge);
  return true;
}

// A k-mer of a head stands for its first base here, as that of a tail for its last.
bool DanglingEnds::recoverDanglingHead(VertexId v) {
  if (!graph_.isSource(v))
    throw std::runtime_error("recover dangling head for vertex in-degree " +
                             std::to_string(graph_.inDegree(v)));
  Path path;
  if (!findPath(v, false, path)) return false;
  const int32_t begin = std::max(0, path.join - static_cast<int32_t>(path.vertices.size()) - kMaxGap);
  auto referenceBase = [this](int32_t i) {
    return graph_.vertex(reference_[static_cast<size_t>(i)]).kmer.front();
  };
  std::string reference, bases;  // backwards
  for (int32_t i = path.join; i-- > begin;) reference += referenceBase(i);
  for (const VertexId p : path.vertices) bases += graph_.vertex(p).kmer.front();
  const int32_t length = alignedLength(reference, bases);
  if (length == 0) return false;

  // The bases from its begin that are the reference's.
  const std::string_view kmer = graph_.vertex(path.vertices.back()).kmer;
  const int32_t begin_index = path.join - length;
  const int32_t most = std::min({length, static_cast<int32_t>(bases.size()), graph_.kmerSize - 1});
  int32_t shared = 0;
  while (shared < most && kmer[static_cast<size_t>(shared)] == referenceBase(begin_index + shared)) ++shared;
  if (begin_index + shared == 0) return false;
  VertexId from = referenceEndingWith(begin_index + shared - 1);
  if (shared == graph_.kmerSize - 1 && graph_.findEdge(from, path.vertices.back()) != kNone) return false;
  for (; shared < graph_.kmerSize - 1; ++shared) {
    const VertexId next = graph_.addVertex({kmer.substr(0, static_cast<size_t>(shared) + 1), 0});
    graph_.addEdge(from, next, path.edge);
    from = next;
  }
  graph_.addEdge(from, path.vertices.back(), path.edge);
  return true;
}

VertexId DanglingEnds::referenceEndingWith(int32_t base) {
  const int32_t first = graph_.kmerSize - 1;  // the base that the first k-mer ends with
  if (base >= first) return reference_[static_cast<size_t>(base - first)];
  if (prefixes_.empty()) {
    const GRAPH::MultiSampleKmerVertex source = graph_.vertex(reference_[0]);
    const GRAPH::MultiSampleEdge edge{{source.readCount, true}, source.readCount, 0};
    for (int32_t length = 1; length <= first; ++length) {
      prefixes_.push_back(graph_.addVertex({source.kmer.substr(0, static_cast<size_t>(length)), 0}));
      if (length > 1) graph_.addEdge(prefixes_.end()[-2], prefixes_.back(), edge);
    }
    graph_.addEdge(prefixes_.back(), reference_[0], edge);
    graph_.refSource = prefixes_[0];
  }
  return prefixes_[static_cast<size_t>(base)];
}

bool DanglingEnds::findPath(VertexId end, bool backward, Path& path) const {
  path.vertices.clear();
  VertexId v = end;
  for (int steps = 0; referenceIndex(v) == kNone; ++steps) {
    const GRAPH::EdgeList& edges = backward ? graph_.inEdges(v) : graph_.outEdges(v);
    if (edges.size() != 1 || steps == kMaxWalk) return false;
    const GRAPH::MultiSampleEdge& edge = graph_.edge(edges.front());
    if (edge.edgeWeight < prune_factor_) {
      path.vertices.clear();
    } else {
      if (path.vertices.empty()) path.edge = edge;
      path.edge.multiplicity = std::min(path.edge.multiplicity, edge.multiplicity);
      path.edge.edgeWeight = std::min(path.edge.edgeWeight, edge.edgeWeight);
      path.vertices.push_back(v);
    }
    v = backward ? graph_.source(edges.front()) : graph_.target(edges.front());
  }
  path.join = referenceIndex(v);
  path.edge.isRef = false;
  if (path.vertices.size() < static_cast<size_t>(min_length_) || path.vertices.size() > kMaxLength)
    return false;
  for (const EdgeId e :
       backward ? graph_.outEdges(path.vertices.front()) : graph_.inEdges(path.vertices.front()))
    if (graph_.edge(e).edgeWeight >= prune_factor_) return false;
  std::reverse(path.vertices.begin(), path.vertices.end());
  return true;
}

int32_t DanglingEnds::alignedLength(const std::string& reference, const std::string& bases) {
  if (reference.empty()) return 0;
  const int32_t length = alignedLength(reference, reference.size(), bases);
  return length > 0 || reference.size() <= bases.size() ? length
                                                        : alignedLength(reference, bases.size(), bases);
}

int32_t DanglingEnds::alignedLength(const std::string& reference, size_t window, const std::string& bases) {
  if (++alignments_ > kMaxAlignments) return 0;
  aligner_.align(reference.data(), window, bases.data(), bases.size(), SMITHWATERMAN::haplotypeAlignScores,
                 SMITHWATERMAN::OVERHANG_LEADING_GAP);
  const CigarElements& cigar = aligner_.result().cigar;
  if (cigar.empty() || cigar.size() > 3 || *cigar.back().second != kOpM) return 0;
  size_t r = 0, b = 0, mismatches = 0, matches_at_end = 0;
  for (const auto& [length, op] : cigar) {
    matches_at_end = 0;
    if (*op == kOpM)
      for (size_t i = 0; i < length; ++i) {
        const bool match = reference[r + i] == bases[b + i];
        mismatches += !match;
        matches_at_end = match ? matches_at_end + 1 : 0;
      }
    if (op->consumesReference) r += length;
    if (op->consumesRead) b += length;
  }
  const size_t wanted = std::clamp<size_t>(bases.size() - 1, 1, kMinMatch);
  const bool good = mismatches <= std::max<size_t>(1, bases.size() / 4) && matches_at_end >= wanted;
  return good ? static_cast<int32_t>(r) : 0;
}
