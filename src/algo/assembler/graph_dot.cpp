#include "algo/assembler/graph_dot.h"

#include <algorithm>
#include <cstdio>
#include <string_view>
#include <utility>

#include "base/plain_file.h"

namespace GRAPH {
namespace {

std::string_view label(const MultiSampleKmerVertex& vertex) {
  return vertex.kmer;
}

std::string_view label(const SeqStringVertex& vertex) {
  return vertex.bases;
}

template <class Graph>
std::string lines(const Graph& graph, const std::string& prefix) {
  std::string text;
  for (EdgeId e = 0; e < graph.edgeLimit(); ++e) {
    if (!graph.hasEdge(e)) continue;
    const VertexId from = graph.source(e), to = graph.target(e);
    const bool dangling =
        (graph.isSource(from) && from != graph.refSource) || (graph.isSink(to) && to != graph.refSink);
    const std::string ends = "\t" + prefix + std::to_string(from) + " -> " + prefix + std::to_string(to);
    text += ends + " [" + (dangling ? "style=dotted,color=grey," : "") + "label=\"" +
            std::to_string(graph.edge(e).multiplicity) + "\"];\n";
    if (graph.edge(e).isRef) text += ends + " [color=red];\n";
  }
  for (VertexId v = 0; v < graph.vertexLimit(); ++v)
    if (graph.hasVertex(v))
      text += "\t" + prefix + std::to_string(v) + " [label=\"" + std::string(label(graph.vertex(v))) +
              "\",shape=box]\n";
  return text;
}

}  // namespace

std::string dotLines(const SeqKmerGraph& graph, const std::string& prefix) {
  return lines(graph, prefix);
}

std::string dotLines(const SeqGraph& graph, const std::string& prefix) {
  return lines(graph, prefix);
}

void writeDotFile(std::string name, const std::string& lines) {
  std::replace(name.begin(), name.end(), '/', '_');
  FileOwner file(fopen(name.c_str(), "w"));
  if (file != nullptr) {
    fprintf(file.get(), "digraph assemblyGraphs {\n%s}\n", lines.c_str());
    if (close_written(std::move(file))) return;
  }
  fprintf(stderr, "Failed to write graph %s: %m\n", name.c_str());
}

}  // namespace GRAPH
