// graph_paths.h - small sequence graphs for tests, and all that their paths spell.
#pragma once

#include <algorithm>
#include <cmath>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "algo/assembler/seq_graph.h"

struct EdgeSpec {
  int from, to, multiplicity;
  bool is_ref = false;
};

// refSource is the first vertex, refSink the last.
inline GRAPH::SeqGraph seqGraph(const std::vector<std::string>& vertices,
                                const std::vector<EdgeSpec>& edges) {
  GRAPH::SeqGraph graph(10);
  for (const std::string& bases : vertices) graph.addVertex({bases});
  for (const EdgeSpec& e : edges) graph.addEdge(e.from, e.to, {e.multiplicity, e.is_ref});
  graph.refSource = 0;
  graph.refSink = graph.vertexLimit() - 1;
  return graph;
}

// Vertices of one to three of two letters, about `degree` edges out of each, to later ones alone unless
// `cyclic`.
inline GRAPH::SeqGraph randomGraph(std::mt19937& random, int vertices, double degree, bool cyclic) {
  std::vector<std::string> bases;
  for (int v = 0; v < vertices; ++v) {
    bases.emplace_back();
    for (auto left = 1 + random() % 3; left > 0; --left) bases.back() += "AC"[random() % 2];
  }
  std::map<std::pair<int, int>, EdgeSpec> edges;
  auto add = [&](int from, int to, bool is_ref) {
    edges.try_emplace({from, to}, EdgeSpec{from, to, int(1 + random() % 4), is_ref});
  };
  for (int v = 0, next = 0; v < vertices - 1; v = next) {
    next = std::min(vertices - 1, v + 1 + int(random() % 3));
    add(v, next, true);
  }
  for (int left = int(vertices * degree); left > 0; --left) {
    const int a = int(random() % size_t(vertices)), b = int(random() % size_t(vertices));
    if (cyclic)
      add(a, b, false);
    else if (a != b)
      add(std::min(a, b), std::max(a, b), false);
  }
  std::vector<EdgeSpec> list;
  for (const auto& [ends, edge] : edges) list.push_back(edge);
  return seqGraph(bases, list);
}

struct SpelledPath {
  std::string bases;
  double score;  // log10 of the product of the edges' shares
};

// All walks from `from` to vertices that `ends` accepts, of at most `longest` bases.
template <class Ends>
void spellPaths(const GRAPH::SeqGraph& graph, GRAPH::VertexId from, Ends ends, size_t longest,
                const SpelledPath& before, std::vector<SpelledPath>& all) {
  const SpelledPath path = {before.bases + graph.vertex(from).bases, before.score};
  if (path.bases.size() > longest) return;
  if (ends(from)) all.push_back(path);
  double sum = 0;
  for (const GRAPH::EdgeId e : graph.outEdges(from)) sum += std::max<double>(graph.edge(e).multiplicity, 0.5);
  for (const GRAPH::EdgeId e : graph.outEdges(from)) {
    const double share = std::max<double>(graph.edge(e).multiplicity, 0.5) / sum;
    spellPaths(graph, graph.target(e), ends, longest, {path.bases, path.score + std::log10(share)}, all);
  }
}

inline std::vector<SpelledPath> refPaths(const GRAPH::SeqGraph& graph, size_t longest = 1000) {
  std::vector<SpelledPath> all;
  spellPaths(
      graph, graph.refSource, [&](GRAPH::VertexId v) { return v == graph.refSink; }, longest, {{}, 0}, all);
  return all;
}

// The probability of each sequence from refSource to refSink, of the others in `all_ends` 0.
inline std::map<std::string, double> spelled(const GRAPH::SeqGraph& graph, bool all_ends, size_t longest) {
  std::map<std::string, double> found;
  if (!all_ends) {
    for (const SpelledPath& path : refPaths(graph, longest)) found[path.bases] += std::pow(10, path.score);
    return found;
  }
  std::vector<SpelledPath> all;
  for (GRAPH::VertexId v = 0; v < graph.vertexLimit(); ++v)
    if (graph.hasVertex(v) && graph.isSource(v))
      spellPaths(
          graph, v, [&](GRAPH::VertexId w) { return graph.isSink(w); }, longest, {{}, 0}, all);
  for (const SpelledPath& path : all) found[path.bases] = 0;
  return found;
}

// "A>C*3" per edge, with a '!' behind one of the reference, in order.
inline std::string edgesText(const GRAPH::SeqGraph& graph) {
  std::multiset<std::string> edges;
  for (GRAPH::EdgeId e = 0; e < graph.edgeLimit(); ++e)
    if (graph.hasEdge(e))
      edges.insert(graph.vertex(graph.source(e)).bases + ">" + graph.vertex(graph.target(e)).bases + "*" +
                   std::to_string(graph.edge(e).multiplicity) + (graph.edge(e).isRef ? "!" : ""));
  std::string text;
  for (const std::string& edge : edges) text += (text.empty() ? "" : " ") + edge;
  return text;
}
