#include "driver/driver_options.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <strings.h>
#include <sys/sysinfo.h>

#include "algo/driver_context.h"
#include "base/text.h"
#include "base/version.h"

int progress_enabled = 0;

namespace {

bool setThreadCount(const char* value, int& count) {
  count = int(std::clamp(strtol(value, nullptr, 10), 0L, long(INT32_MAX)));
  if (count >= 1) return true;
  fprintf(stderr, "Invalid thread count %s\n", value);
  return false;
}

template <class Policy>
struct Word {
  const char* word;
  Policy policy;
};

template <class Policy>
bool setPolicy(const char* value, const Word<Policy> (&words)[3], const char* option, Policy& policy) {
  for (const Word<Policy>& known : words)
    if (strcasecmp(value, known.word) == 0) {
      policy = known.policy;
      return true;
    }
  fprintf(stderr, "Invalid %s %s, %s/%s/%s expected\n", option, value, words[0].word, words[1].word,
          words[2].word);
  return false;
}

constexpr Word<InterPolicy> kInterPolicies[] = {
    {"least", InterPolicy::kLeast}, {"most", InterPolicy::kMost}, {"random", InterPolicy::kRandom}};
constexpr Word<IntraPolicy> kIntraPolicies[] = {
    {"first", IntraPolicy::kFirst}, {"last", IntraPolicy::kLast}, {"random", IntraPolicy::kRandom}};

bool refuse(const char* option, const char* value) {
  fprintf(stderr, "Invalid %s %s\n", option, value);
  return false;
}

// A number with an optional suffix K, M or G, which must not take it out of 64 bits; without one it is cut to them.
bool setMemory(const char* value, int64_t& bytes) {
  char* end;
  const long long number = strtoll(value, &end, 10);
  int shift = 0;
  switch (*end) {
    case 'k':
    case 'K':
      shift = 10;
      break;
    case 'm':
    case 'M':
      shift = 20;
      break;
    case 'g':
    case 'G':
      shift = 30;
      break;
  }
  if (shift) ++end;
  if (*end || number > INT64_MAX >> shift || number < INT64_MIN >> shift)
    return refuse("--scheduler_memory_capacity", value);
  bytes = number * (1LL << shift);
  return true;
}

// "SIZE/STEP"; what is not there keeps its value. A walk in steps of nothing would never end.
bool setShardParam(const char* value, uint32_t& size, uint32_t& step) {
  const char* cursor = value;
  uint64_t number;
  for (uint32_t* field : {&size, &step}) {
    if (!scanUnsigned(cursor, UINT32_MAX, number)) break;
    if (number == 0 || number > UINT32_MAX) return refuse("--shard_param", value);
    *field = uint32_t(number);
    if (*cursor++ != '/') break;
  }
  return true;
}

bool addKeyValues(const char* value, std::map<std::string, std::string>& values) {
  for (const auto& [key, text] : parseKeyValues(value)) values[key] = text;
  return true;
}

bool printVersion(const char*) {
  exit(puts(version_text()) < 0 || fflush(stdout) != 0 ? 1 : 0);
}

}  // namespace

void bindDriverOptions(OptionParser& parser, DriverOptions& o) {
  constexpr int kValue = required_argument, kFlag = no_argument;
  const char* const hidden = nullptr;

  parser.add({"reference", kValue, 'r', "Reference file (FASTA)"}, [&o](const char* value) {
    o.reference = value;
    return true;
  });
  parser.addList("input", 'i', "Read sequence input file (BAM/CRAM)", o.inputs);
  parser.addList("qual_cal", 'q', "Base quality calibration table", o.qual_cals);
  parser.add({"thread_count", kValue, 't', "Number of threads"},
             [&o](const char* value) { return setThreadCount(value, o.thread_count); });
  parser.add({"interval", kValue, 0, "Interval string or file (BED/Picard)"}, [&o](const char* value) {
    o.interval = value;
    return true;
  });
  parser.addInt("interval_padding", 0, "Amount to pad all intervals", o.interval_padding);
  parser.addFlag("skip_no_coor", 0, "Skip unmapped reads", o.skip_no_coor);
  parser.add({"passthru", kFlag, 0, hidden}, [&o](const char*) {
    o.mode = DriverContext::kNonTraversal;
    return true;
  });
  parser.addInt("scheduler_capacity", 0, hidden, o.scheduler_capacity);
  parser.addInt("shard_group_ref_len", 0, hidden, o.shard_group_ref_len);
  parser.addInt("shard_group_chr_num", 0, hidden, o.shard_group_chr_num);
  parser.add({"inter_shard_group_steal_policy", kValue, 0, hidden}, [&o](const char* value) {
    return setPolicy(value, kInterPolicies, "--inter_shard_group_steal_policy", o.inter_policy);
  });
  parser.add({"intra_shard_group_steal_policy", kValue, 0, hidden}, [&o](const char* value) {
    return setPolicy(value, kIntraPolicies, "--intra_shard_group_steal_policy", o.intra_policy);
  });
  parser.add({"scheduler_memory_capacity", kValue, 0, hidden},
             [&o](const char* value) { return setMemory(value, o.scheduler_memory_capacity); });
  parser.add({"shard", kValue, 0, hidden}, [&o](const char* value) {
    o.sharded = true;
    return parse_shard_list(value, o.shards);
  });
  parser.add({"shard_param", kValue, 0, hidden},
             [&o](const char* value) { return setShardParam(value, o.shard_size, o.step); });
  parser.addInt("debug", 0, hidden, o.debug);
  parser.addInt("progress", 0, hidden, progress_enabled);
  parser.add({"cram_read_options", kValue, 0, hidden},
             [&o](const char* value) { return addKeyValues(value, o.cram_read_options); });
  parser.add({"version", kFlag, 0, "Display version string"}, printVersion);
  parser.add({"help", kFlag, 'h', "Display help information"}, [&o](const char*) {
    o.mode = DriverContext::kHelp;
    return true;
  });
  parser.addList("read_filter", 0, "Read filter name and params", o.read_filters);
}

bool settleDriverOptions(DriverOptions& o) {
  if (o.thread_count == 0) o.thread_count = get_nprocs();
  o.shard_group_ref_len = std::max(o.shard_group_ref_len, 1);
  normalize(o.shards);

  const bool has_input = !o.inputs.empty() || o.reference;
  if (o.mode < 0 && has_input)
    o.mode = o.sharded ? DriverContext::kShardedTraversal : DriverContext::kTraversal;
  else if (o.mode < 0)
    o.mode = DriverContext::kNonTraversal;

  const char* fault = nullptr;
  if (o.mode != DriverContext::kShardedTraversal && o.sharded)
    fault = "Non-sharded mode with --shard options\n";
  else if (o.mode < DriverContext::kNonTraversal && !has_input)
    fault = "No input bam file or reference file is specified\n";
  else if (o.mode == DriverContext::kShardedTraversal && !o.sharded)
    fault = "Sharded mode without any --shard option\n";
  if (fault) fputs(fault, stderr);
  return !fault;
}
