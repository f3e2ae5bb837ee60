// run_inputs.h - what a run has opened and decided before it starts walking.
// Owns     reference, handles, cache and intervals. Contig names live in the cache's joined header, or in the
//          reference when there are no reads.
// Threads  filled on the main thread; constant while walkers run, which make their own clones from it.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "algo/preprocess/qual_transform.h"
#include "driver/driver_options.h"
#include "readdata/bam/bam_handle.h"
#include "readdata/bam/read_cache.h"
#include "readdata/interval/interval_list.h"
#include "readdata/ref/fasta_file.h"

struct RunInputs {
  DriverOptions options;
  std::string command_line;                         // argv[0] and the arguments before the first --algo
  std::string interval_file;                        // of --interval; empty when that was no file
  std::unique_ptr<IntervalList> intervals;          // padded and merged; null without --interval
  std::unique_ptr<FastaFile> reference;             // null without -r
  std::vector<std::unique_ptr<BAMHandle>> handles;  // in the order of -i
  std::unique_ptr<ReadCache> reads;                 // over all handles; null without -i
  std::vector<std::string> quality_tables;          // files of -q and --read_filter
  QualTransform::Groups quality_groups;             // made of them; empty without any
  std::vector<Contig> contigs;                      // what is traversed, NO_COOR last
  std::map<std::string, int32_t> contig_map;        // name -> place in `contigs`
};
