#include "algo/assembler/best_path_search.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <stdexcept>
#include <utility>

#include "algo/assembler/cigar_utils.h"
#include "algo/assembler/smith_waterman.h"
#include "base/text.h"
#include "base/timer.h"

using namespace GRAPH;

namespace {

double weight(const SimpleEdge& edge) {
  return std::max<double>(edge.multiplicity, 0.5);
}

// log10 of the sum of the weights out of `v`.
double weightOut(const SeqGraph& graph, VertexId v) {
  double sum = 0;
  for (const EdgeId e : graph.outEdges(v)) sum += weight(graph.edge(e));
  return std::log10(sum);
}

// The out-edges in the order in which they are walked and ties are broken.
std::vector<EdgeId> referenceFirst(const SeqGraph& graph, VertexId v) {
  std::vector<EdgeId> edges(graph.outEdges(v).begin(), graph.outEdges(v).end());
  std::stable_partition(edges.begin(), edges.end(), [&](EdgeId e) { return graph.edge(e).isRef; });
  return edges;
}

// Best paths from each vertex to refSink, found from their ends: a path is its first vertex and one of the
// paths from the next.
class PathLists {
 public:
  PathLists(const SeqGraph& graph, int limit)
      : graph_(graph),
        limit_(static_cast<size_t>(std::max(limit, 0))),
        lists_(static_cast<size_t>(graph.vertexLimit())) {
    findAll();
  }

  std::vector<GraphPath> ofSource() const {
    std::vector<GraphPath> all;
    const List& list = lists_[static_cast<size_t>(graph_.refSource)];
    for (size_t i = list.first; i < list.end; ++i) {
      all.push_back({.bases = {}, .score = paths_[i].score});
      for (size_t at = i; at != kEnd; at = paths_[at].rest)
        all.back().bases += graph_.vertex(paths_[at].vertex).bases;
    }
    return all;
  }

 private:
  static constexpr size_t kEnd = SIZE_MAX;

  struct Path {
    double score;
    VertexId vertex;
    size_t rest;  // the path from the next vertex, in paths_
  };
  enum class State : uint8_t { kNew, kOpen, kDone };
  struct List {
    size_t first = 0, end = 0;  // in paths_, best first
    State state = State::kNew;
  };
  struct Head {  // of the paths that go along one edge, the best that is left
    double first;
    size_t path, end;
    double score = 0;
    long key = 0;

    void weigh(const std::vector<Path>& paths, double all) {
      score = first + paths[path].score - all;
      key = std::lround(score * 1e8);
    }
  };
  struct Frame {
    VertexId vertex;
    std::vector<EdgeId> edges;  // closing ones are taken out
    size_t next = 0;
  };

  List& list(VertexId v) { return lists_[static_cast<size_t>(v)]; }

  // Depth first from refSource; a vertex is done when all behind it are.
  void findAll() {
    std::vector<Frame> open;
    auto enter = [&](VertexId v) {
      list(v).state = State::kOpen;
      open.push_back({v, v == graph_.refSink ? std::vector<EdgeId>() : referenceFirst(graph_, v)});
    };
    enter(graph_.refSource);
    while (!open.empty()) {
      Frame& frame = open.back();
      if (frame.next == frame.edges.size()) {
        makeList(frame);
        open.pop_back();
        continue;
      }
      const VertexId target = graph_.target(frame.edges[frame.next]);
      if (list(target).state == State::kOpen) {
        frame.edges.erase(frame.edges.begin() + static_cast<ptrdiff_t>(frame.next));
        continue;
      }
      ++frame.next;
      if (list(target).state == State::kNew) enter(target);
    }
  }

  // Merges the lists behind the edges. Paths behind one edge keep their order.
  void makeList(const Frame& frame) {
    List& made = list(frame.vertex);
    made.state = State::kDone;
    made.first = paths_.size();
    if (frame.vertex == graph_.refSink && limit_ != 0) paths_.push_back({0, frame.vertex, kEnd});
    const double all = weightOut(graph_, frame.vertex);
    heads_.clear();
    for (const EdgeId e : frame.edges) {
      const List& rest = list(graph_.target(e));
      if (rest.first == rest.end) continue;
      heads_.push_back({std::log10(weight(graph_.edge(e))), rest.first, rest.end});
      heads_.back().weigh(paths_, all);
    }
    while (!heads_.empty() && paths_.size() - made.first < limit_) {
      const auto best = std::max_element(heads_.begin(), heads_.end(),
                                         [](const Head& a, const Head& b) { return a.key < b.key; });
      paths_.push_back({best->score, frame.vertex, best->path});
      if (++best->path != best->end)
        best->weigh(paths_, all);
      else
        heads_.erase(best);
    }
    made.end = paths_.size();
  }

  const SeqGraph& graph_;
  const size_t limit_;
  std::vector<List> lists_;
  std::vector<Path> paths_;
  std::vector<Head> heads_;
};

// Stretches that have nothing in common align base by base where gaps cost little against the matches between them. Of
// a haplotype with this many events or two gaps the alignment is made again, with scores for which chance matches do not
// pay.
constexpr size_t kManyEvents = 3;
constexpr long kManyGaps = 2;
constexpr SMITHWATERMAN::Scores kFewGapScores = {100, -250, -700, -5};

// False when the path cannot be used.
bool placeOnReference(const Haplotype& reference, Haplotype& haplotype,
                      SMITHWATERMAN::SWPairwiseAlignment& aligner, const SMITHWATERMAN::Scores& scores) {
  static Timer* compute_cigar = timer("assemble_computecigar");
  CigarElements cigar;
  {
    TimerScope scope(compute_cigar);
    if (!CigarUtils::computeCigar(aligner, reference.bases.data(), reference.bases.size(),
                                  haplotype.bases.data(), haplotype.bases.size(), cigar, scores))
      return false;
  }
  if (cigarReferenceLength(cigar) < BestPathSearch::kMinReferenceBases) return false;
  cigar = CigarUtils::leftAlignCigarSequentially(cigar, reference.bases.data(), reference.bases.size(),
                                                 haplotype.bases.data(), haplotype.bases.size(), 0, 0);
  haplotype.cigar = CigarUtils::toWords(cigar);
  haplotype.eventMap.build(haplotype.bases, haplotype.cigar, reference.bases, reference.locus.start, 0);
  return true;
}

// With another alignment beside it where one with dearer gaps differs.
bool placeBothWays(const Haplotype& reference, Haplotype& haplotype,
                   SMITHWATERMAN::SWPairwiseAlignment& aligner) {
  if (!placeOnReference(reference, haplotype, aligner, SMITHWATERMAN::haplotypeAlignScores)) return false;
  const auto gaps = std::count_if(haplotype.cigar.begin(), haplotype.cigar.end(), [](uint32_t word) {
    return cigarOp(word) == CIGAR_I || cigarOp(word) == CIGAR_D;
  });
  if (haplotype.eventMap.size() < kManyEvents && gaps < kManyGaps) return true;
  Haplotype other = haplotype;
  if (placeOnReference(reference, other, aligner, kFewGapScores) && other.cigar != haplotype.cigar)
    haplotype.other = {std::move(other.cigar), std::move(other.eventMap)};
  return true;
}

}  // namespace

void BestPathSearch::findBestHaplotypes(const std::shared_ptr<AssemblyResult>& result,
                                        const Haplotype& refHaplotype, int limit, bool debug,
                                        AssemblyResultSet& set) {
  if (result == nullptr) throw std::runtime_error("NULL AssemblyResult");
  static Timer* find_haplotype = timer("findHaplotype");
  TimerScope scope(find_haplotype);
  if (result->graph == nullptr || result->status != AssemblyResult::kWithHaplotypes) {
    if (debug && result->graph == nullptr) fprintf(stderr, "graph is NULL, status is %d\n", result->status);
    return;
  }
  std::vector<GraphPath> paths = {checkGraph(*result->graph, refHaplotype)};
  for (GraphPath& path : findBestPaths(*result->graph, limit)) paths.push_back(std::move(path));
  SMITHWATERMAN::SWPairwiseAlignment aligner;
  for (GraphPath& path : paths) {
    if (Haplotype* known = set.find(path.bases)) {
      known->score = std::max(known->score, path.score);
      continue;
    }
    auto haplotype = std::make_unique<Haplotype>();
    haplotype->bases = std::move(path.bases);
    haplotype->isRef = haplotype->bases == refHaplotype.bases;
    haplotype->locus = refHaplotype.locus;
    haplotype->score = path.score;
    haplotype->kmerSize = result->kmerSize;
    if (!placeBothWays(refHaplotype, *haplotype, aligner)) continue;
    if (debug)
      fprintf(stderr, "Adding haplotype %s from graph with kmer %d\n", haplotype->text().c_str(),
              result->kmerSize);
    set.add(std::move(haplotype), result);
  }
}

std::vector<GraphPath> BestPathSearch::findBestPaths(const SeqGraph& graph, int limit) {
  return PathLists(graph, limit).ofSource();
}

GraphPath BestPathSearch::checkGraph(const SeqGraph& graph, const Haplotype& refHaplotype) {
  auto known = [&](VertexId v) { return v != kNone && graph.hasVertex(v); };
  if (!known(graph.refSource)) throw std::runtime_error("reference source vertex is NULL_Vertex");
  if (!known(graph.refSink)) throw std::runtime_error("reference sink vertex is NULL_Vertex");
  GraphPath path = {.bases = graph.vertex(graph.refSource).bases};
  VertexId v = graph.refSource;
  for (size_t steps = graph.vertexCount(); v != graph.refSink && steps > 0; --steps) {
    const auto& out = graph.outEdges(v);
    const auto* next = std::find_if(out.begin(), out.end(), [&](EdgeId e) { return graph.edge(e).isRef; });
    if (next == out.end()) break;
    path.score += std::log10(weight(graph.edge(*next))) - weightOut(graph, v);
    v = graph.target(*next);
    path.bases += graph.vertex(v).bases;
  }
  if (v != graph.refSink || path.bases != refHaplotype.bases)
    throw std::runtime_error(
        format("Mismatch between the reference haplotype and the reference path. for graph %s graph = %s "
               "haplotype = %s",
               format("ReadThreadingAssembler{kmerSize=%d}", graph.kmerSize).c_str(), path.bases.c_str(),
               refHaplotype.bases.c_str()));
  return path;
}
