// gvcf_inputs.h - the GVCF files of a joint run: opened, checked against the reference, and their headers made one.
// Coords   zero-based half open.
// Owns     everything in it.
// Threads  opened by one thread, with the pool's help; then constant, but for the caches, which engines copy.
// Errors   std::invalid_argument with the run's name in front for a file that does not fit; std::runtime_error that
//          names the file for one that cannot be read.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "base/thread_coop.h"
#include "readdata/interval/interval.h"
#include "readdata/vcf/vcf_cache.h"
#include "readdata/vcf/vcf_contigs.h"
#include "readdata/vcf/vcf_header.h"

struct GVCFInputs {
  // Of a sample whose file does not tell.
  static constexpr uint32_t kUsualPloidy = 2;
  static constexpr uint32_t kMaxPloidy = 1000;

  // What is to be opened, and for whom.
  struct Run {
    std::string name;  // in front of messages
    bool uniquifySamples = false;
    thread_coop* pool = nullptr;  // null: files are opened one by one
    int threads = 1;              // that will have shards of their own, and descriptors for them
  };

  std::vector<std::string> paths;                 // in the order given; of those used
  std::vector<std::unique_ptr<VCFCache>> caches;  // one per path
  std::vector<std::vector<int>>
      sampleMaps;                  // by path and column of that file: the output's column, -1: not used
  std::vector<uint32_t> ploidies;  // per sample of the output, from the first record of its file
  VCFHeader header;                // of all files; without what only GVCFs have

  // Of the samples, kUsualPloidy at least.
  uint32_t largestPloidy() const;

  // Opens `paths` and fills the rest. Makes room for their descriptors, and says in an std::invalid_argument how many
  // are needed when there is none. With a pool a file that cannot be opened ends the process with its text, status 255.
  void open(const Run& run, std::vector<std::string> paths, const std::vector<Contig>& contigs);

 private:
  void openCaches(const Run& run);
  void mergeVCFHeaders(const Run& run, const std::vector<Contig>& contigs);
  void addInput(const Run& run, size_t input, const std::vector<Contig>& contigs,
                const ContigMap& contig_map);
  void dropUnused();
  void removeGVCFLines();
};
