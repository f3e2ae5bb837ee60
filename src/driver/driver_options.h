// driver_options.h - the driver's own options: their defaults, and parsing the arguments before the first
// --algo.
// Units    shard_size, step, padding: bases; memory_capacity: bytes.
// Threads  filled on the main thread, read-only afterwards. `progress_enabled` is the one process-wide
//          setting.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "algo/algo_option.h"
#include "readdata/interval/interval.h"

// --progress: set once while the command line is parsed.
extern int progress_enabled;

// --debug is raised by this when some input cannot tell its reads; per-shard lines of a level above it leave
// them out.
inline constexpr int kDebugWithoutReads = 10;

enum class InterPolicy { kLeast, kMost, kRandom };
enum class IntraPolicy { kFirst, kLast, kRandom };

struct DriverOptions {
  std::optional<std::string> reference;
  std::vector<std::string> inputs;
  std::vector<std::string> qual_cals;
  std::vector<std::string> read_filters;
  int thread_count = 0;                 // the number of processors unless given
  std::optional<std::string> interval;  // the last one given
  int interval_padding = 0;
  bool skip_no_coor = false;
  int mode = -1;  // DriverContext::Mode once decided
  int scheduler_capacity = 1000000;
  int64_t scheduler_memory_capacity = int64_t(6) << 30;
  int shard_group_ref_len = -1;
  int shard_group_chr_num = 10;
  InterPolicy inter_policy = InterPolicy::kRandom;
  IntraPolicy intra_policy = IntraPolicy::kLast;
  bool sharded = false;  // some --shard was given
  IntervalMap shards;    // of --shard
  uint32_t shard_size = 1000000, step = 1000;
  int debug = 0;
  std::map<std::string, std::string> cram_read_options;
};

// Adds the driver's option table to `parser`, bound to the fields of `options`. --version ends the process.
void bindDriverOptions(OptionParser& parser, DriverOptions& options);

// After parsing: fills in what follows from other options, the mode first of all. False, with the reason told
// on standard error, when they contradict each other.
bool settleDriverOptions(DriverOptions& options);
