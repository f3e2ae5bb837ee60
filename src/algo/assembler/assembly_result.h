// assembly_result.h - what the assembly of a region gives: a graph per k-mer size, and the haplotypes of all.
// Owns     everything in it.
// Threads  one object, one thread.
// Errors   std::runtime_error with the stated text; the set is then as it was.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "algo/assembler/haplotype.h"
#include "algo/assembler/seq_graph.h"

struct AssemblyResult {
  enum Status : int32_t { kFailed = 0, kJustAssembled = 1, kWithHaplotypes = 2 };

  Status status = kFailed;
  std::shared_ptr<GRAPH::SeqGraph> graph;  // null when there is none
  int kmerSize = 0;
};

// Haplotypes are known by their bases: no two have the same.
class AssemblyResultSet {
 public:
  // The reference haplotype comes first and is always there, as one match against itself. Its locus is the
  // region to be genotyped at first. Throws "input haplotype == NULL".
  explicit AssemblyResultSet(std::unique_ptr<Haplotype> refHaplotype);

  // A result takes the place of one with the same k-mer size. Throws "input assembly result == NULL".
  void add(std::shared_ptr<AssemblyResult> result);
  // Adds a haplotype and, when the set does not have it, the result it came from. Throws "input haplotype
  // == NULL", "input assembly result == NULL" and, when find() knows its bases, "SW Error: this haplo has
  // already been added".
  void add(std::unique_ptr<Haplotype> haplotype, const std::shared_ptr<AssemblyResult>& result);

  // The haplotype with these bases; null when there is none.
  Haplotype* find(std::string_view bases) const;
  // The result that a haplotype of the set came from; null for the reference and for strangers.
  const AssemblyResult* resultOf(const Haplotype& haplotype) const;

  const std::vector<std::unique_ptr<Haplotype>>& haplotypes() const { return haplotypes_; }
  // Leaves the set without haplotypes, fit for destruction alone.
  std::vector<std::unique_ptr<Haplotype>> takeHaplotypes();
  const Haplotype& refHaplotype() const { return *haplotypes_[0]; }
  const std::map<int, std::shared_ptr<AssemblyResult>>& results() const { return results_; }

  // For debugging: lines on what the set holds, and a dot file of the graphs of all k-mer sizes.
  std::string dump() const;
  void writeGraphs(const std::string& file_name) const;

  Interval genotypingRegion;

 private:
  struct Entry {
    Haplotype* haplotype;
    std::shared_ptr<AssemblyResult> result;
  };

  std::vector<std::unique_ptr<Haplotype>> haplotypes_;
  std::unordered_map<std::string_view, Entry> byBases_;     // looked up, never walked
  std::map<int, std::shared_ptr<AssemblyResult>> results_;  // by k-mer size
};
