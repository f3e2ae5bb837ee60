#include "algo/assembler/seq_graph_util.h"

#include <algorithm>
#include <cstdio>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "algo/assembler/graph_dot.h"
#include "algo/assembler/graph_reach.h"
#include "algo/assembler/split_shared_sequence.h"
#include "base/text.h"

using namespace GRAPH;

namespace {

// Visits all vertices in the order of their ids, and then those that the visits asked to see again, until
// there is none. `visit(v, again)` tells whether it changed the graph, and appends to `again`.
template <class Visit>
bool visitUntilStable(const SeqGraph& graph, Visit visit) {
  std::vector<VertexId> queue, again;
  std::vector<bool> queued(static_cast<size_t>(graph.vertexLimit()), true);
  for (VertexId v = 0; v < graph.vertexLimit(); ++v) queue.push_back(v);
  bool changed = false;
  for (size_t i = 0; i < queue.size(); ++i) {
    const VertexId v = queue[i];
    queued[static_cast<size_t>(v)] = false;
    if (!graph.hasVertex(v)) continue;
    again.clear();
    if (visit(v, again)) changed = true;
    queued.resize(static_cast<size_t>(graph.vertexLimit()));
    for (const VertexId next : again) {
      if (queued[static_cast<size_t>(next)]) continue;
      queued[static_cast<size_t>(next)] = true;
      queue.push_back(next);
    }
  }
  return changed;
}

// `v` has one in-edge, from a vertex that it may be joined to.
bool continuesChain(const SeqGraph& graph, VertexId v) {
  if (graph.inDegree(v) != 1 || v == graph.refSource) return false;
  const VertexId before = graph.source(graph.inEdges(v)[0]);
  return before != v && before != graph.refSink && graph.outDegree(before) == 1;
}

// The vertices that lead to `bottom` and nowhere else and may be split or merged, ordered by `less`, equal
// ones in the order of their edges.
template <class Less>
std::vector<VertexId> middlesAbove(const SeqGraph& graph, VertexId bottom, Less less) {
  std::vector<VertexId> middles;
  for (const EdgeId e : graph.inEdges(bottom)) {
    const VertexId v = graph.source(e);
    if (v != bottom && v != graph.refSink && graph.outDegree(v) == 1 && !graph.vertex(v).bases.empty())
      middles.push_back(v);
  }
  std::stable_sort(middles.begin(), middles.end(), less);
  return middles;
}

// Calls `take` with each run of two or more among the ordered `vertices` of which none is less than another.
template <class Less, class Take>
void forEachGroup(const std::vector<VertexId>& vertices, Less less, Take take) {
  for (auto from = vertices.begin(); from != vertices.end();) {
    auto to = from + 1;
    while (to != vertices.end() && !less(*from, *to)) ++to;
    if (to - from > 1) take(std::vector<VertexId>(from, to));
    from = to;
  }
}

// A graph by what its vertices and edges hold, whatever their ids.
struct Content {
  std::vector<std::string> vertices;
  std::vector<std::tuple<size_t, size_t, int32_t, bool>> edges;  // places in `vertices`

  bool operator==(const Content&) const = default;
};

Content content(const SeqGraph& graph) {
  std::vector<VertexId> order;
  for (VertexId v = 0; v < graph.vertexLimit(); ++v)
    if (graph.hasVertex(v)) order.push_back(v);
  auto bases = [&](VertexId v) -> const std::string& { return graph.vertex(v).bases; };
  std::sort(order.begin(), order.end(), [&](VertexId a, VertexId b) { return bases(a) < bases(b); });
  Content all;
  std::vector<size_t> place(static_cast<size_t>(graph.vertexLimit()));  // the same for the same bases
  for (size_t i = 0; i < order.size(); ++i) {
    const bool same = i != 0 && bases(order[i]) == bases(order[i - 1]);
    place[static_cast<size_t>(order[i])] = same ? place[static_cast<size_t>(order[i - 1])] : i;
    all.vertices.push_back(bases(order[i]));
  }
  for (EdgeId e = 0; e < graph.edgeLimit(); ++e)
    if (graph.hasEdge(e))
      all.edges.emplace_back(place[static_cast<size_t>(graph.source(e))],
                             place[static_cast<size_t>(graph.target(e))], graph.edge(e).multiplicity,
                             graph.edge(e).isRef);
  std::sort(all.edges.begin(), all.edges.end());
  return all;
}

size_t countEnds(const SeqGraph& graph) {
  size_t ends = 0;
  for (VertexId v = 0; v < graph.vertexLimit(); ++v)
    if (graph.hasVertex(v)) ends += size_t{graph.isSource(v)} + size_t{graph.isSink(v)};
  return ends;
}

bool mergeDiamond(SeqGraph& graph, VertexId top) {
  if (graph.outDegree(top) < 2) return false;
  std::vector<VertexId> middles;
  VertexId bottom = kNone;
  for (const EdgeId e : graph.outEdges(top)) {
    const VertexId v = graph.target(e);
    if (graph.inDegree(v) != 1 || graph.outDegree(v) != 1 || v == graph.refSource || v == graph.refSink)
      return false;
    const VertexId below = graph.target(graph.outEdges(v)[0]);
    if (bottom != kNone && below != bottom) return false;
    bottom = below;
    middles.push_back(v);
  }
  SplitSharedSequence split(&graph, middles);
  if (!split.suffix().empty()) split.moveSuffix(bottom);
  if (!split.prefix().empty()) split.movePrefix(top);
  return !split.suffix().empty() || !split.prefix().empty();
}

bool mergeTailsOf(SeqGraph& graph, VertexId top, std::vector<VertexId>& again) {
  std::vector<VertexId> tails;
  for (const EdgeId e : graph.outEdges(top))
    if (graph.isSink(graph.target(e)) && graph.target(e) != graph.refSink) tails.push_back(graph.target(e));
  if (tails.size() < 2) return false;
  SplitSharedSequence split(&graph, tails);
  if (split.suffix().empty()) return false;
  for (const VertexId v : tails)
    for (const EdgeId e : graph.inEdges(v)) again.push_back(graph.source(e));
  split.moveSuffix(kNone);
  return true;
}

// Makes one vertex of `equal`, which all lead to the same one. Returns it.
VertexId mergeEqual(SeqGraph& graph, const std::vector<VertexId>& equal) {
  const bool has_ref = std::find(equal.begin(), equal.end(), graph.refSource) != equal.end();
  const VertexId kept = has_ref ? graph.refSource : equal[0];
  for (const VertexId v : equal) {
    if (v == kept) continue;
    SimpleEdge& out = graph.edge(graph.outEdges(kept)[0]);
    out = joined(out, graph.edge(graph.outEdges(v)[0]));
    for (const EdgeId e : graph.inEdges(v)) addOrJoinEdge(graph, graph.source(e), kept, graph.edge(e));
    graph.removeVertex(v);
  }
  return kept;
}

}  // namespace

bool SeqGraphUtil::zip(SeqGraph& graph) {
  bool changed = false;
  for (VertexId head = 0; head < graph.vertexLimit(); ++head) {
    if (!graph.hasVertex(head) || continuesChain(graph, head)) continue;
    std::vector<VertexId> chain;
    VertexId last = head;
    while (graph.outDegree(last) == 1 && continuesChain(graph, graph.target(graph.outEdges(last)[0]))) {
      last = graph.target(graph.outEdges(last)[0]);
      chain.push_back(last);
    }
    if (chain.empty()) continue;
    changed = true;
    for (const VertexId v : chain) graph.vertex(head).bases += graph.vertex(v).bases;
    if (graph.refSink == last) graph.refSink = head;
    std::vector<std::pair<VertexId, SimpleEdge>> out;
    for (const EdgeId e : graph.outEdges(last)) out.emplace_back(graph.target(e), graph.edge(e));
    for (const VertexId v : chain) graph.removeVertex(v);
    for (const auto& [target, edge] : out) graph.addEdge(head, target, edge);
  }
  return changed;
}

bool SeqGraphUtil::mergeDiamonds(SeqGraph& graph) {
  return visitUntilStable(
      graph, [&](VertexId top, std::vector<VertexId>& /*again*/) { return mergeDiamond(graph, top); });
}

bool SeqGraphUtil::mergeTails(SeqGraph& graph) {
  return visitUntilStable(
      graph, [&](VertexId top, std::vector<VertexId>& again) { return mergeTailsOf(graph, top, again); });
}

bool SeqGraphUtil::splitSuffixes(SeqGraph& graph) {
  return visitUntilStable(graph, [&](VertexId bottom, std::vector<VertexId>& again) {
    auto less = [&](VertexId a, VertexId b) {
      return graph.vertex(a).bases.back() < graph.vertex(b).bases.back();
    };
    forEachGroup(middlesAbove(graph, bottom, less), less, [&](const std::vector<VertexId>& group) {
      const bool all_equal = std::all_of(group.begin(), group.end(), [&](VertexId v) {
        return graph.vertex(v).bases == graph.vertex(group[0]).bases;
      });
      if (all_equal) return;
      SplitSharedSequence split(&graph, group);
      if (!split.suffix().empty()) again.push_back(split.moveSuffix(bottom));
    });
    return !again.empty();
  });
}

bool SeqGraphUtil::mergeSuffixes(SeqGraph& graph) {
  return visitUntilStable(graph, [&](VertexId bottom, std::vector<VertexId>& again) {
    auto key = [&](VertexId v) {
      return std::pair<bool, std::string_view>(graph.isSource(v), graph.vertex(v).bases);
    };
    auto less = [&](VertexId a, VertexId b) { return key(a) < key(b); };
    forEachGroup(middlesAbove(graph, bottom, less), less,
                 [&](const std::vector<VertexId>& group) { again.push_back(mergeEqual(graph, group)); });
    return !again.empty();
  });
}

bool SeqGraphUtil::simplifyGraphOnce(SeqGraph& graph, const std::string& prefix, int cycle) const {
  auto step = [&](const char* name) {
    if (debug) writeDotFile(prefix + format("simplifyGraph.%d.", cycle) + name, dotLines(graph));
  };
  step("1.dot");
  bool changed = zip(graph);
  changed |= mergeDiamonds(graph);
  step("2.diamonds.dot");
  changed |= mergeTails(graph);
  step("2.tails.dot");
  changed |= splitSuffixes(graph);
  step("3.split_suffix.dot");
  changed |= mergeSuffixes(graph);
  step("4.merge_suffix.dot");
  return changed;
}

void SeqGraphUtil::simplifyGraph(SeqGraph& graph, const std::string& prefix, int maxCycles) const {
  constexpr int kFirstCompared = 6;
  Content before;
  for (int cycle = 1; cycle <= maxCycles; ++cycle) {
    if (!simplifyGraphOnce(graph, prefix, cycle)) return;
    if (cycle < kFirstCompared - 1) continue;
    Content now = content(graph);
    if (cycle >= kFirstCompared && now == before) return;
    before = std::move(now);
  }
  if (debug) {
    fprintf(stderr,
            "Infinite loop detected in simpliciation routines.  Writing current graph to debugMeMark.dot\n");
    writeDotFile("debugMeMark.dot", dotLines(graph));
  } else {
    fprintf(stderr, "Infinite loop detected in simplification routines for kmer graph %d\n", graph.kmerSize);
  }
}

AssemblyResult::Status SeqGraphUtil::cleanSequenceGraph(SeqGraph& graph) const {
  auto step = [&](const char* name) {
    if (debug) writeDotFile(format("sequenceGraph.%d.", graph.kmerSize) + name, dotLines(graph));
  };
  step("1.dot");
  zip(graph);
  step("2.zipped.dot");
  removeSingletonOrphanVertices(graph);
  step("3.removeSingletonOrphanVertices.dot");
  if (hasRefEnds(graph)) dropUnconnectedVertices(graph, dropUnconnectedPaths);
  step("3.pruned.dot");
  simplifyGraph(graph, "1_");
  step("4.merged.dot");
  if (!hasRefEnds(graph)) return AssemblyResult::kJustAssembled;
  if (dropUnconnectedPaths && countEnds(graph) > 2) dropUnconnectedVertices(graph);
  simplifyGraph(graph, "2_");
  step("5.final.dot");
  return AssemblyResult::kWithHaplotypes;
}
