// assembly_result.h - what the assembly of a region gives: a graph per k-mer size, and the haplotypes of all of them.
// Owns     everything in it.
// Threads  one object, one thread.
// Errors   std::runtime_error with the stated text.
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

class AssemblyResultSet {
 public:
  // The reference haplotype comes first and is always there.
  explicit AssemblyResultSet(std::unique_ptr<Haplotype> refHaplotype);

  void add(std::shared_ptr<AssemblyResult> result);
  // Adds a haplotype of `result`. One with the bases of another is not kept, but lends it the better score.
  bool add(std::unique_ptr<Haplotype> haplotype, const std::shared_ptr<AssemblyResult>& result);

  const std::vector<std::unique_ptr<Haplotype>>& haplotypes() const { return haplotypes_; }
  std::vector<std::unique_ptr<Haplotype>> takeHaplotypes() { return std::move(haplotypes_); }
  const Haplotype& refHaplotype() const { return *haplotypes_[0]; }
  const std::map<int, std::shared_ptr<AssemblyResult>>& results() const { return results_; }
  std::string dump() const;  // for debug output

 private:
  std::vector<std::unique_ptr<Haplotype>> haplotypes_;
  std::unordered_map<std::string_view, Haplotype*> byBases_;
  std::map<int, std::shared_ptr<AssemblyResult>> results_;  // by k-mer size
};
