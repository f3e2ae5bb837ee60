// driver_context.h - what the driver and every algorithm share of a run.
// Owns     nothing. The main thread holds one; each walker has a copy of its own with its own shard,
//          reference and reads.
#pragma once

#include <string>
#include <vector>

#include "algo/output_guard.h"
#include "algo/shard.h"
#include "base/thread_coop.h"
#include "readdata/bam/read_cache.h"
#include "readdata/interval/interval_list.h"
#include "readdata/ref/fasta_file.h"

struct DriverContext {
  enum Mode : int { kTraversal = 0, kShardedTraversal = 1, kNonTraversal = 2, kHelp = 31 };

  int mode = kTraversal;
  Shard shard;                              // the one being walked; empty in the main context
  FastaFile* reference = nullptr;           // null without -r
  ReadCache* reads = nullptr;               // null without -i
  const IntervalList* intervals = nullptr;  // null without --interval
  std::string interval_file;                // of --interval, empty when that was no file; main context only
  std::vector<std::string> quality_tables;  // files of -q and --read_filter; main context only
  std::string command_line;                 // argv[0] and the driver's own arguments, up to the first --algo
  thread_coop* pool = nullptr;
  int thread_count = 1;            // walkers of the run; main context only
  OutputGuard* outputs = nullptr;  // null: a failure leaves what it has written; main context only
};
