// assembly_reads.h - reads for the assembler, from sequences, and what graphs spell.
#pragma once

#include <deque>
#include <random>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "algo/assembler/assembly_read.h"
#include "algo/assembler/seq_graph.h"

inline std::string randomSequence(std::mt19937& random, size_t length) {
  std::string bases;
  while (bases.size() < length) bases += "ACGT"[random() % 4];
  return bases;
}

// The base that follows in the alphabet: never the same.
inline char otherBase(char base) {
  return "ACGT"[(std::string("ACGT").find(base) + 1) % 4];
}

class AssemblyReads {
 public:
  void add(const std::string& bases, int times = 1, int sample = 0, uint8_t qual = 30) {
    for (; times > 0; --times) {
      bases_.push_back(bases);
      quals_.emplace_back(bases.size(), qual);
      const auto length = static_cast<int32_t>(bases.size());
      reads_.push_back({bases_.back().data(), quals_.back().data(), length, sample});
    }
  }
  // Reads of `length` from all of `haplotype`, so that most bases have `depth`.
  void cover(const std::string& haplotype, size_t length, size_t depth) {
    for (size_t i = 0; i + length <= haplotype.size(); i += length / depth) add(haplotype.substr(i, length));
    add(haplotype.substr(haplotype.size() - length), 2);
  }
  std::vector<uint8_t>& quals(size_t read) { return quals_[read]; }
  operator std::span<const AssemblyRead>() const { return reads_; }

 private:
  std::deque<std::string> bases_;
  std::deque<std::vector<uint8_t>> quals_;
  std::vector<AssemblyRead> reads_;
};

// Whether a path from refSource to refSink spells `bases`; with `reference` one along edges with isRef.
inline bool spells(const GRAPH::SeqGraph& graph, const std::string& bases, bool reference = false) {
  if (graph.refSource == GRAPH::kNone || graph.refSink == GRAPH::kNone) return false;
  std::set<std::pair<GRAPH::VertexId, size_t>> seen;
  std::vector<std::pair<GRAPH::VertexId, size_t>> open = {{graph.refSource, 0}};
  while (!open.empty()) {
    auto [v, offset] = open.back();
    open.pop_back();
    const std::string& text = graph.vertex(v).bases;
    if (bases.compare(offset, text.size(), text) != 0) continue;
    offset += text.size();
    if (v == graph.refSink && offset == bases.size()) return true;
    for (const GRAPH::EdgeId e : graph.outEdges(v)) {
      const std::pair next(graph.target(e), offset);
      if ((!reference || graph.edge(e).isRef) && seen.insert(next).second) open.push_back(next);
    }
  }
  return false;
}
