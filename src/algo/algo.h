// algo.h - what every algorithm that --algo can name implements: the object of the run, its per-thread
// engines, and the partial results that travel from engine to merge.
//
//   constructor          once, main thread: parse, refuse; opens nothing
//   outputs              once, main thread: names the files that will be written; checked before any init
//   init                 once, before traversal: open outputs and side inputs
//   newEngine            once per walker
//     startShard         per shard, on the walker
//     advance            per step of the shard; reads up to `to` are loaded
//     processNoCoor      instead of advance, per batch of unmapped reads, in the NO_COOR shard
//     finishShard        per shard: the partial result, never null
//   merge                per shard, in genome order, one thread, no lock needed
//   deleteEngine         once per walker
//   finish               once, after the last merge
//
// Threads  engines run in parallel with each other and with merge(): what they share with the Algo is
//          constant during traversal or guarded by it.
// Errors   constructors throw std::invalid_argument whose text begins with the algorithm's name; anything
//          thrown later ends the process with that text.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "algo/algo_option.h"
#include "algo/driver_context.h"

// A file that a run will write.
struct OutputFile {
  std::string path;
  bool has_shard_files = false;  // path_N is replaced and removed on the way, N a number from -1 up
};

class Algo {
 public:
  class Engine;
  class Result;

  virtual ~Algo() = default;
  // Every file that this algorithm will create, empty or replace, so that none of them is an input or another
  // algorithm's.
  virtual std::vector<OutputFile> outputs() const { return {}; }
  // The files of its own that this algorithm reads, without those of the driver's options. Their indexes need not be
  // named.
  virtual std::vector<std::string> inputs() const { return {}; }
  virtual void init();  // checks the mode; an overriding version calls it first
  // Takes the content of `result` (null: nothing to do) and deletes it.
  virtual void merge(const Shard& shard, Result* result) = 0;
  virtual Engine* newEngine(DriverContext* context, int index) = 0;
  virtual void deleteEngine(Engine* engine);
  virtual bool skipNoCoor() { return true; }  // true: wants no unmapped reads
  virtual void finish() {}

  enum ModeBit : uint32_t { kTraversal = 1, kSharded = 2, kNonTraversal = 4, kHelpGiven = 1u << 31 };

  DriverContext* context = nullptr;
  std::string name;
  std::string builder_tag;
  uint32_t mode_mask = kTraversal;

 protected:
  Algo(DriverContext* context, int count, const char* const args[]);

  // In help mode a constructor gives its usage text and its table and returns; both go to standard error.
  void giveHelp(const std::string& usage, const OptionParser& parser);
  // In help mode that, and false; else parses the arguments into the bound fields and `positional`. Throws for an unknown
  // option.
  bool takeArguments(OptionParser& parser, const std::string& usage, int count, const char* const args[],
                     std::vector<const char*>& positional);
  // Throws unless a --merge run has neither reads nor reference, and at least one partial file.
  void requireMergeRun(size_t partial_count) const;

  // Opens a shard's file by `open`, unless the run has failed.
  void openShardFile(const std::function<void()>& open) const;

  // Ends a run whose shards are all merged: what is half written goes, `text` is told, and the status is 1.
  [[noreturn]] void exitAtEnd(const char* text) const;

  // context->command_line with " --algo" and this algorithm's arguments behind it.
  std::string command_line_;
};

class Algo::Engine {
 public:
  Engine(DriverContext* context, Algo* algo) : context(context), algo(algo) {}
  virtual ~Engine() = default;

  virtual void startShard();  // sets the span to the shard; widen it here to see reads beyond
  virtual void advance(uint32_t from, uint32_t to) = 0;  // afterwards reads wholly before span_start may go
  virtual void processNoCoor() = 0;
  virtual Result* finishShard() = 0;

  DriverContext* context;
  Algo* algo;
  uint32_t span_start = 0, span_end = 0;

 protected:
  std::string shardName(const std::string& text) const;  // text_N, N the shard's sequence number
};

class Algo::Result {
 public:
  virtual ~Result() = default;
  virtual uint64_t memorySize() const { return 1024; }  // bytes waiting for the merge
};

// A factory per algorithm, kept by name for the life of the process.
class AlgoBuilder {
 public:
  explicit AlgoBuilder(std::string tag) : tag(std::move(tag)) {}
  virtual ~AlgoBuilder() = default;
  // Null, with a message on standard error, ends the run.
  virtual Algo* create(DriverContext* context, int count, const char* const args[]) = 0;
  virtual bool visible() const = 0;  // listed in the usage

  std::string tag;

  static std::map<std::string, AlgoBuilder*>& registry();
};

// One static object per algorithm, in its own source file, is what registers it.
template <class T>
class TemplateAlgoBuilder final : public AlgoBuilder {
 public:
  explicit TemplateAlgoBuilder(const char* name) : TemplateAlgoBuilder(name, name) {}
  TemplateAlgoBuilder(const char* name, const char* tag) : AlgoBuilder(tag) { registry()[name] = this; }

  Algo* create(DriverContext* context, int count, const char* const args[]) override {
    auto algo = std::make_unique<T>(context, count, args);
    algo->builder_tag = tag;
    return algo.release();
  }
  bool visible() const override { return tag.empty() || tag[0] != '_'; }
};
