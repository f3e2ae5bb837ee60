#include "algo/assembler/split_shared_sequence.h"

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace GRAPH {
namespace {

SeqGraph& known(SeqGraph* graph) {
  if (graph == nullptr) throw std::runtime_error("splitGraph is NULL");
  return *graph;
}

}  // namespace

SimpleEdge joined(const SimpleEdge& a, const SimpleEdge& b) {
  const int64_t sum = int64_t{a.multiplicity} + b.multiplicity;
  constexpr int64_t most = std::numeric_limits<int32_t>::max();
  return {.multiplicity = static_cast<int32_t>(std::min(sum, most)), .isRef = a.isRef || b.isRef};
}

void addOrJoinEdge(SeqGraph& graph, VertexId from, VertexId to, const SimpleEdge& edge) {
  const EdgeId there = graph.findEdge(from, to);
  if (there == kNone)
    graph.addEdge(from, to, edge);
  else
    graph.edge(there) = joined(graph.edge(there), edge);
}

SplitSharedSequence::SplitSharedSequence(SeqGraph* splitGraph, std::vector<VertexId> vertices)
    : graph_(known(splitGraph)), vertices_(std::move(vertices)) {
  const std::string_view first = graph_.vertex(vertices_[0]).bases;
  size_t suffix = first.size(), prefix = first.size();
  for (const VertexId v : vertices_) {
    const std::string_view bases = graph_.vertex(v).bases;
    const bool keeps_base = graph_.isSource(v) || v == graph_.refSource;
    suffix = std::min(suffix, bases.size() - (keeps_base && !bases.empty() ? 1 : 0));
    size_t same = 0;
    while (same < suffix && bases[bases.size() - 1 - same] == first[first.size() - 1 - same]) ++same;
    suffix = same;
  }
  for (const VertexId v : vertices_) {
    const std::string_view bases = graph_.vertex(v).bases;
    prefix = std::min(prefix, bases.size() - suffix);
    size_t same = 0;
    while (same < prefix && bases[same] == first[same]) ++same;
    prefix = same;
  }
  prefix_ = first.substr(0, prefix);
  suffix_ = first.substr(first.size() - suffix);
}

VertexId SplitSharedSequence::moveSuffix(VertexId bottom) {
  const VertexId shared = graph_.addVertex({.bases = suffix_});
  SimpleEdge sum = {.multiplicity = 0, .isRef = false};
  for (const VertexId v : vertices_) {
    SimpleEdge out = {.multiplicity = 0, .isRef = false};
    if (bottom == kNone) {
      for (const EdgeId e : graph_.inEdges(v)) out = joined(out, graph_.edge(e));
    } else {
      out = graph_.edge(graph_.outEdges(v)[0]);
      graph_.removeEdge(graph_.outEdges(v)[0]);
    }
    sum = joined(sum, out);
    std::string& bases = graph_.vertex(v).bases;
    bases.resize(bases.size() - suffix_.size());
    if (!bases.empty()) {
      graph_.addEdge(v, shared, out);
      continue;
    }
    for (const EdgeId e : graph_.inEdges(v)) addOrJoinEdge(graph_, graph_.source(e), shared, graph_.edge(e));
    graph_.removeVertex(v);
  }
  if (bottom != kNone) graph_.addEdge(shared, bottom, sum);
  return shared;
}

VertexId SplitSharedSequence::movePrefix(VertexId top) {
  const VertexId shared = graph_.addVertex({.bases = prefix_});
  SimpleEdge sum = {.multiplicity = 0, .isRef = false};
  for (const VertexId v : vertices_) {
    const SimpleEdge in = graph_.edge(graph_.inEdges(v)[0]);
    graph_.removeEdge(graph_.inEdges(v)[0]);
    sum = joined(sum, in);
    std::string& bases = graph_.vertex(v).bases;
    bases.erase(0, prefix_.size());
    if (!bases.empty()) {
      graph_.addEdge(shared, v, in);
      continue;
    }
    for (const EdgeId e : graph_.outEdges(v)) addOrJoinEdge(graph_, shared, graph_.target(e), in);
    graph_.removeVertex(v);
  }
  graph_.addEdge(top, shared, sum);
  return shared;
}

}  // namespace GRAPH
