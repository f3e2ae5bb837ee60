// read_writer.h - ReadWriter copies all reads of a run to one sorted file; algorithms that change reads on
// the way derive from its three classes and override the engine's steps.
#pragma once

#include "algo/algo.h"
#include "readdata/bam/read_writer_base.h"

class ReadWriter : public Algo {
 public:
  class Engine;
  class Result;

  ReadWriter(DriverContext* context, int count, const char* const args[]);
  ~ReadWriter() override;

  std::vector<OutputFile> outputs() const override;
  void init() override;
  void merge(const Shard& shard, Algo::Result* result) override;
  Algo::Engine* newEngine(DriverContext* context, int index) override;
  bool skipNoCoor() override { return false; }

 protected:
  // For a derived algorithm, whose constructor adds its own options to the table and then calls
  // parseArguments().
  struct Derived {};
  ReadWriter(DriverContext* context, int count, const char* const args[], Derived);
  void addWriterOptions(OptionParser& parser);
  void parseArguments(OptionParser& parser, int count, const char* const args[]);
  std::string usage() const;

  std::string output_;         // empty: nothing is written
  std::string output_format_;  // as given, may be empty
  ReadWriterBase::Options writer_options_;
  std::string format_;  // "bam", known after init()
  std::shared_ptr<const bam_header> header_;
  std::unique_ptr<ParallelReadWriterBase> writer_;

  friend class Engine;
};

class ReadWriter::Result : public Algo::Result, public ParallelReadWriterBase::Result {
 public:
  uint64_t memorySize() const override;
};

class ReadWriter::Engine : public Algo::Engine {
 public:
  Engine(DriverContext* context, ReadWriter* algo);

  void startShard() override;
  void advance(uint32_t from, uint32_t to) override;
  void processNoCoor() override;
  Algo::Result* finishShard() override;
  virtual void writeRead(const bam_record& record);  // hands a record to the shard's writer

 protected:
  // Closes the shard's file and moves what the merge needs into `result`.
  void closeShard(ReadWriter::Result& result);

  std::unique_ptr<ReadWriterBase> writer_;  // null when there is no output
  std::vector<Read*> reads_;                // scratch of advance()
  bam_record record_;                       // scratch of a read being written
};
