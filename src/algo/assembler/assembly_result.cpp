#include "algo/assembler/assembly_result.h"

#include <cstdio>
#include <stdexcept>
#include <utility>

#include "algo/assembler/graph_dot.h"
#include "base/text.h"

AssemblyResultSet::AssemblyResultSet(std::unique_ptr<Haplotype> refHaplotype) {
  if (!refHaplotype) throw std::runtime_error("input haplotype == NULL");
  refHaplotype->isRef = true;
  refHaplotype->cigar = {static_cast<uint32_t>(refHaplotype->bases.size()) << 4 | CIGAR_M};
  refHaplotype->alignmentStart = 0;
  refHaplotype->eventMap.clear();
  genotypingRegion = refHaplotype->locus;
  byBases_[refHaplotype->bases] = {refHaplotype.get(), nullptr};
  haplotypes_.push_back(std::move(refHaplotype));
}

void AssemblyResultSet::add(std::shared_ptr<AssemblyResult> result) {
  if (!result) throw std::runtime_error("input assembly result == NULL");
  const int kmer_size = result->kmerSize;
  results_[kmer_size] = std::move(result);
}

void AssemblyResultSet::add(std::unique_ptr<Haplotype> haplotype,
                            const std::shared_ptr<AssemblyResult>& result) {
  if (!haplotype) throw std::runtime_error("input haplotype == NULL");
  if (!result) throw std::runtime_error("input assembly result == NULL");
  if (!byBases_.try_emplace(haplotype->bases, Entry{haplotype.get(), result}).second)
    throw std::runtime_error("SW Error: this haplo has already been added");
  haplotypes_.push_back(std::move(haplotype));
  results_.try_emplace(result->kmerSize, result);
}

Haplotype* AssemblyResultSet::find(std::string_view bases) const {
  const auto found = byBases_.find(bases);
  return found == byBases_.end() ? nullptr : found->second.haplotype;
}

const AssemblyResult* AssemblyResultSet::resultOf(const Haplotype& haplotype) const {
  const auto found = byBases_.find(haplotype.bases);
  return found == byBases_.end() || found->second.haplotype != &haplotype ? nullptr
                                                                          : found->second.result.get();
}

std::vector<std::unique_ptr<Haplotype>> AssemblyResultSet::takeHaplotypes() {
  byBases_.clear();  // its keys point into them
  return std::move(haplotypes_);
}

std::string AssemblyResultSet::dump() const {
  const Interval& locus = refHaplotype().locus;
  std::string text = "Ref haplotype coords " + (locus.contig == nullptr ? "unmapped" : toText(locus)) + "\n";
  text += format("Haplotype count %zu\n", haplotypes_.size());
  text += format("Kmer sizes count %zu\n", results_.size());
  text += "Kmer sizes values ";
  const char* separator = "";
  for (const auto& [kmer_size, result] : results_) {
    text += separator + std::to_string(kmer_size);
    separator = ",";
  }
  text += "\n";
  for (const auto& [kmer_size, result] : results_) {
    text += format("Kmer size %d ", kmer_size);
    if (result->graph == nullptr)
      text += format("graph is NULL, status is %d\n", result->status);
    else
      text += format("vertices %zu, edges %zu, status is %d\n", result->graph->vertexCount(),
                     result->graph->edgeCount(), result->status);
  }
  return text;
}

void AssemblyResultSet::writeGraphs(const std::string& file_name) const {
  std::string lines;
  for (const auto& [kmer_size, result] : results_) {
    if (result->graph == nullptr)
      fprintf(stderr, "Skipping writing of graph with kmersize %d\n", kmer_size);
    else
      lines += GRAPH::dotLines(*result->graph, format("k%d_", kmer_size));
  }
  GRAPH::writeDotFile(file_name, lines);
}
