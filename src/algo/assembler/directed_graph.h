// directed_graph.h - a directed graph of at most one edge per pair of vertices, with lists of edges in and out of each
// vertex.
// Owns     its vertices and edges; an id stays valid until it is removed, and is not used again.
// Order    vertices and edges are visited in the order in which they were made, whatever was removed: results depend on
//          nothing else.
// Threads  one graph, one thread.
#pragma once

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "algo/assembler/edge_list.h"

namespace GRAPH {

using VertexId = int32_t;
inline constexpr int32_t kNone = -1;

template <class V, class E>
class DirectedGraph {
 public:
  VertexId addVertex(V vertex) {
    vertices_.push_back({std::move(vertex), {}, {}, true});
    ++vertexCount_;
    return static_cast<VertexId>(vertices_.size()) - 1;
  }
  // There is no edge between the two yet.
  EdgeId addEdge(VertexId from, VertexId to, E edge) {
    assert(findEdge(from, to) == kNone);
    edges_.push_back({std::move(edge), from, to, true});
    const auto id = static_cast<EdgeId>(edges_.size()) - 1;
    vertices_[size_t(from)].out.push_back(id);
    vertices_[size_t(to)].in.push_back(id);
    ++edgeCount_;
    return id;
  }
  EdgeId findEdge(VertexId from, VertexId to) const {
    for (const EdgeId e : outEdges(from))
      if (target(e) == to) return e;
    return kNone;
  }
  void removeEdge(EdgeId e) {
    Edge& edge = edges_[size_t(e)];
    assert(edge.alive);
    edge.alive = false;
    vertices_[size_t(edge.from)].out.remove(e);
    vertices_[size_t(edge.to)].in.remove(e);
    --edgeCount_;
  }
  // Removes the edges for which `dead(id)`, in time linear in the graph whatever the degrees.
  template <class Predicate>
  void removeEdgesIf(Predicate dead) {
    for (EdgeId e = 0; e < edgeLimit(); ++e)
      if (hasEdge(e) && dead(e)) {
        edges_[size_t(e)].alive = false;
        --edgeCount_;
      }
    auto gone = [this](EdgeId e) { return !hasEdge(e); };
    for (Vertex& vertex : vertices_) {
      vertex.in.removeIf(gone);
      vertex.out.removeIf(gone);
    }
  }
  void removeVertex(VertexId v) {  // with its edges
    Vertex& vertex = vertices_[size_t(v)];
    assert(vertex.alive);
    while (!vertex.out.empty()) removeEdge(vertex.out.back());
    while (!vertex.in.empty()) removeEdge(vertex.in.back());
    vertex.alive = false;
    --vertexCount_;
  }

  // Ids run from 0 below these; some may be gone.
  VertexId vertexLimit() const { return static_cast<VertexId>(vertices_.size()); }
  EdgeId edgeLimit() const { return static_cast<EdgeId>(edges_.size()); }
  bool hasVertex(VertexId v) const { return vertices_[size_t(v)].alive; }
  bool hasEdge(EdgeId e) const { return edges_[size_t(e)].alive; }
  size_t vertexCount() const { return vertexCount_; }
  size_t edgeCount() const { return edgeCount_; }

  V& vertex(VertexId v) { return vertices_[size_t(v)].value; }
  const V& vertex(VertexId v) const { return vertices_[size_t(v)].value; }
  E& edge(EdgeId e) { return edges_[size_t(e)].value; }
  const E& edge(EdgeId e) const { return edges_[size_t(e)].value; }
  VertexId source(EdgeId e) const { return edges_[size_t(e)].from; }
  VertexId target(EdgeId e) const { return edges_[size_t(e)].to; }
  // In the order of their making. Removal of an edge changes the lists of its ends.
  const EdgeList& inEdges(VertexId v) const { return vertices_[size_t(v)].in; }
  const EdgeList& outEdges(VertexId v) const { return vertices_[size_t(v)].out; }
  size_t inDegree(VertexId v) const { return inEdges(v).size(); }
  size_t outDegree(VertexId v) const { return outEdges(v).size(); }
  bool isSource(VertexId v) const { return inEdges(v).empty(); }
  bool isSink(VertexId v) const { return outEdges(v).empty(); }
  bool isSingletonOrphan(VertexId v) const { return isSource(v) && isSink(v); }

 private:
  struct Vertex {
    V value;
    EdgeList in, out;
    bool alive;
  };
  struct Edge {
    E value;
    VertexId from, to;
    bool alive;
  };

  std::vector<Vertex> vertices_;
  std::vector<Edge> edges_;
  size_t vertexCount_ = 0, edgeCount_ = 0;
};

}  // namespace GRAPH
