#include "driver/run_control.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <sys/sysinfo.h>
#include <system_error>
#include <thread>
#include <unistd.h>

#include "algo/algo.h"
#include "algo/output_check.h"
#include "base/crash.h"
#include "base/host.h"
#include "base/log.h"
#include "base/text.h"
#include "base/timer.h"
#include "base/version.h"
#include "driver/command_line.h"
#include "driver/merger.h"
#include "driver/open_inputs.h"
#include "driver/target_list.h"
#include "driver/walker.h"

namespace {

using AlgoStack = std::vector<std::unique_ptr<Algo>>;

void printUsage(const char* program, const OptionParser& parser) {
  fprintf(stderr, "Usage: %s [options] --algo <algo_name> [algo_options]\n", program);
  parser.print(stderr, "\nOptions:");
  fprintf(stderr, "\nFor algo specific help information, type\n");
  fprintf(stderr, "    %s --help --algo <algo_name>\n", program);
  fprintf(stderr, "\nAvailable algos:\n");
  for (const auto& [name, builder] : AlgoBuilder::registry())
    if (builder->visible()) fprintf(stderr, "  %s\n", name.c_str());
}

// The builder that the range names; null, after a message, when there is none.
AlgoBuilder* findBuilder(const AlgoRange& range) {
  if (range.count < 1) {
    fprintf(stderr, "Missing algo name\n");
    return nullptr;
  }
  auto found = AlgoBuilder::registry().find(range.args[0]);
  if (found != AlgoBuilder::registry().end()) return found->second;
  fprintf(stderr, "Unknown algo %s\n", range.args[0]);
  return nullptr;
}

// Each algorithm prints its own help while it is constructed.
void printAlgoHelp(const CommandLine& line) {
  DriverContext context;
  context.mode = DriverContext::kHelp;
  context.command_line = line.text;
  for (const AlgoRange& range : line.algos) {
    if (&range != &line.algos.front()) fputc('\n', stderr);
    if (AlgoBuilder* builder = findBuilder(range))
      std::unique_ptr<Algo> shown(builder->create(&context, range.count, range.args));
  }
}

// What was asked for is read in full: a stray word is most often a file that lost its -i.
void refuseStrayArguments(const std::vector<const char*>& stray) {
  if (stray.empty()) return;
  fprintf(stderr, "Unexpected argument %s\n", stray.front());
  throw ExitRun{1};
}

std::string hostSummary(const DriverOptions& options) {
  return format("sw version: %s\n", version_text()) + host_report() +
         format("threads: %d max %d\n", options.thread_count, get_nprocs());
}

AlgoStack buildAlgos(const CommandLine& line, DriverContext& context, std::string& summary) {
  AlgoStack algos;
  summary += "algo:";
  for (const AlgoRange& range : line.algos) {
    AlgoBuilder* builder = findBuilder(range);
    if (!builder) throw ExitRun{1};
    algos.emplace_back(builder->create(&context, range.count, range.args));
    if (!algos.back()) throw ExitRun{1};
    summary.append(" ").append(range.args[0]);
  }
  summary += "\n";
  return algos;
}

// An input that cannot tell its number of reads keeps the count out of the summary and out of the per-shard
// lines.
void summarizeReads(RunInputs& run, std::string& summary) {
  const bool all_counted = std::all_of(run.handles.begin(), run.handles.end(),
                                       [](const auto& handle) { return handle->hasReadCount(); });
  if (all_counted)
    summary += format("reads: %lu\n", (unsigned long)(run.reads ? run.reads->readTotal() : 0));
  else if (run.options.debug > 0)
    run.options.debug = std::min(run.options.debug, INT_MAX - kDebugWithoutReads) + kDebugWithoutReads;
}

// Leaves without destructors, which would finish outputs and wait for threads. What is half written goes.
template <class Work>
void exitAtOnceOnFailure(OutputGuard& outputs, Work work) {
  int status;
  try {
    return work();
  } catch (const ExitRun& exit) {
    status = exit.status;
  } catch (const std::exception& failure) {
    fprintf(stderr, "%s\n", failure.what());
    status = 1;
  }
  outputs.discard();
  fflush(stderr);
  _exit(status);
}

// Runs `start`, which starts a thread, and says how many threads were wanted when there are no more to be had.
template <class Start>
void startThread(const DriverOptions& options, Start start) {
  try {
    start();
  } catch (const std::system_error& failure) {
    throw std::runtime_error(format("Failed to start %d threads: %s", options.thread_count, failure.what()));
  }
}

void startWorker(thread_coop& pool, const DriverOptions& options, std::function<void()> body) {
  startThread(options, [&] { pool.addWorker(std::move(body)); });
}

// One phase of the algorithms' life, init or finish. It may hand work to the pool, so the other threads serve
// tasks.
void runPhase(const char* name, thread_coop& pool, const DriverOptions& options,
              const std::function<void()>& work) {
  TimerScope scope(timer(name));
  if (options.mode == DriverContext::kNonTraversal) return work();
  for (int i = 1; i < options.thread_count; ++i) startWorker(pool, options, [] {});
  startWorker(pool, options, work);
  pool.join();
}

void tellOutside(const std::vector<Contig>& contigs, const IntervalMap& regions) {
  for (const Interval& region : regionsOutside(contigs, regions))
    if (strcmp(region.contig, kNoCoor) != 0)
      fprintf(stderr, "Interval %s is outside of its contig, ignored\n", toText(region).c_str());
}

// The entries of the contig or interval list, which the targets point into.
std::vector<TargetEntry> listEntries(const RunInputs& run) {
  if (!run.intervals) return wholeContigs(run.contigs);
  IntervalMap regions;
  run.intervals->append_to(regions);
  tellOutside(run.contigs, regions);
  std::vector<TargetEntry> entries = clipToContigs(run.contigs, regions);
  for (const auto& [contig, unused] : regions)
    fprintf(stderr, "Unknown contig %s, ignored\n", contig.c_str());
  return entries;
}

std::vector<Target> listTargets(const RunInputs& run, const std::vector<TargetEntry>& entries) {
  if (!run.options.sharded) return wholeTargets(entries);
  tellOutside(run.contigs, run.options.shards);
  for (const auto& [contig, unused] : run.options.shards)
    if (contig != kNoCoor && !run.contig_map.count(contig))
      fprintf(stderr, "Unknown contig %s, ignored\n", contig.c_str());
  return intersectTargets(entries, run.options.shards);
}

void execute(const RunInputs& run, std::vector<Target> targets, const std::vector<Algo*>& algos,
             thread_coop& pool, OutputGuard& outputs) {
  TimerScope scope(timer("execute"));
  Sharder sharder(std::move(targets), run.options);
  std::thread merger;
  std::vector<std::unique_ptr<Walker>> walkers;
  // Once a thread is at work, nothing that it uses may be taken down.
  exitAtOnceOnFailure(outputs, [&] {
    startThread(run.options, [&] { merger = std::thread(Merger(sharder, algos)); });
    for (int i = 0; i < run.options.thread_count; ++i) {
      walkers.push_back(std::make_unique<Walker>(sharder, run, algos, &pool, i));
      startWorker(pool, run.options, [walker = walkers.back().get()] { (*walker)(); });
    }
  });
  pool.join();
  walkers.clear();
  merger.join();
}

void traverse(RunInputs& run, const std::vector<Algo*>& algos, thread_coop& pool, OutputGuard& outputs,
              std::string& summary) {
  const bool nobody_wants_no_coor =
      std::all_of(algos.begin(), algos.end(), [](Algo* algo) { return algo->skipNoCoor(); });
  if (nobody_wants_no_coor) run.options.skip_no_coor = true;
  if (!run.options.skip_no_coor) appendNoCoor(run);

  const std::vector<TargetEntry> entries = listEntries(run);
  std::vector<Target> targets = listTargets(run, entries);
  const uint64_t bases = totalBases(targets);
  if (bases > 0) {
    summary += format("contig: %zu intervals %lu bases\n", targets.size(), (unsigned long)bases);
  } else if (targets.empty()) {
    fputs("Empty input intervals\n", stderr);
    throw ExitRun{1};
  }
  execute(run, std::move(targets), algos, pool, outputs);
}

// From init to finish: outputs are open.
void runAlgos(RunInputs& run, const std::vector<Algo*>& algos, thread_coop& pool, OutputGuard& outputs,
              std::string& summary) {
  runPhase("init", pool, run.options, [&] {
    for (Algo* algo : algos) {
      algo->init();
      outputs.add(algo->outputs());
    }
  });
  if (run.options.mode != DriverContext::kNonTraversal) traverse(run, algos, pool, outputs, summary);
  runPhase("done", pool, run.options, [&] {
    for (Algo* algo : algos) algo->finish();
  });
}

// The road of a run, in order. Everything up to the summary is done on this thread alone.
void runSteps(int argc, char* argv[]) {
  RunInputs run;
  OptionParser parser;
  bindDriverOptions(parser, run.options);
  if (argc < 2) return printUsage(argc ? argv[0] : "driver", parser);

  const CommandLine line = splitCommandLine(argc, argv);
  std::vector<const char*> stray;
  switch (parser.parse(line.driver_count, argv, stray)) {
    case OptionParser::kOk:
      break;
    case OptionParser::kRefused:
      throw ExitRun{1};
    case OptionParser::kUnknownOption:
      fputs("Unknown option\n", stderr);
      printUsage(argv[0], parser);
      throw ExitRun{1};
  }
  if (!settleDriverOptions(run.options)) throw ExitRun{1};
  run.command_line = line.text;
  loadIntervals(run);

  if (run.options.mode == DriverContext::kHelp)
    return line.algos.empty() ? printUsage(argv[0], parser) : printAlgoHelp(line);
  if (line.algos.empty()) {
    fputs("Please specify at least one algo.\n", stderr);
    printUsage(argv[0], parser);
    throw ExitRun{1};
  }
  refuseStrayArguments(stray);

  std::string summary = hostSummary(run.options);
  OutputGuard outputs;  // outlives the pool's threads, which clean up by it
  thread_coop pool;
  set_worker_clean_up([&outputs] { outputs.discard(); });
  DriverContext context;
  context.outputs = &outputs;
  context.mode = run.options.mode;
  context.command_line = run.command_line;
  context.pool = &pool;
  context.thread_count = run.options.thread_count;
  openInputs(run, line.algos.size(), summary);
  context.reference = run.reference.get();
  context.reads = run.reads.get();
  context.quality_tables = run.quality_tables;
  if (run.options.mode != DriverContext::kNonTraversal) buildContigs(run);

  context.intervals = run.intervals.get();
  context.interval_file = run.interval_file;
  AlgoStack algos = buildAlgos(line, context, summary);
  std::vector<Algo*> stack;
  for (const auto& algo : algos) stack.push_back(algo.get());
  refuseOutputClashes(context, stack);
  summarizeReads(run, summary);
  log_text("%s", summary.c_str());
  summary.clear();

  exitAtOnceOnFailure(outputs, [&] {
    runAlgos(run, stack, pool, outputs, summary);
    for (auto& algo : algos) {
      const std::vector<OutputFile> files = algo->outputs();
      algo.reset();
      outputs.release(files);
    }
  });
  run.reads.reset();
  for (auto& handle : run.handles) handle.reset();
  run.reference.reset();
  run.intervals.reset();

  summary += timer_table(true);
  log_text("%s", summary.c_str());
}

}  // namespace

int runDriver(int argc, char* argv[]) {
  try {
    runSteps(argc, argv);
    return 0;
  } catch (const ExitRun& exit) {
    return exit.status;
  } catch (const std::exception& failure) {
    fprintf(stderr, "%s\n", failure.what());
    return 1;
  }
}
