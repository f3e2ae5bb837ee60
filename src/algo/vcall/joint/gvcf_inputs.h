// gvcf_inputs.h - the GVCF files of a joint run: opened, checked against the reference, and their headers made one.
// Coords   zero-based half open.
// Owns     everything in it.
// Threads  opened by one thread, with the pool's help; then constant, but for the caches, which engines copy.
// Errors   std::invalid_argument with `name` in front for a file that does not fit; std::runtime_error that names the
//          file for one that cannot be read.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "base/thread_coop.h"
#include "readdata/interval/interval.h"
#include "readdata/vcf/vcf_cache.h"
#include "readdata/vcf/vcf_header.h"

struct GVCFInputs {
  std::vector<std::string> paths;                 // in the order given, none twice
  std::vector<std::unique_ptr<VCFCache>> caches;  // one per path
  std::vector<std::vector<int>>
      sampleMaps;                  // by path and column of that file: the output's column, -1: not used
  std::vector<uint32_t> ploidies;  // per sample of the output, from the first record of its file
  VCFHeader header;                // of all files; without what only GVCFs have

  // Opens `paths` and fills the rest; see mergeVCFHeaders(). `pool` may be null.
  void open(const std::string& name, std::vector<std::string> paths, const std::vector<Contig>& contigs,
            bool uniquifySamples, thread_coop* pool);

 private:
  void openCaches(const std::string& name, thread_coop* pool);
  void mergeVCFHeaders(const std::string& name, const std::vector<Contig>& contigs, bool uniquifySamples);
};
