// bgzf_file.h - private to BGZFHandle: what its source files share.
#pragma once

#include <cstdio>
#include <deque>
#include <future>
#include <memory>
#include <sys/types.h>
#include <vector>

#include "readdata/stream/bgzf_handle.h"

struct BGZFHandle::File {
  ~File() {
    if (stream != nullptr) fclose(stream);  // only readers leave it to us: there is nothing to lose
  }

  FILE* stream = nullptr;
  int descriptor = -1;             // of the file itself, also for clones
  std::shared_ptr<File> base;      // of a clone: whose descriptor it reads
  std::unique_ptr<char[]> buffer;  // of the stream, in read mode
};

// What a block passes through on its way in. Nothing in it outlives the call, so that the open files of a thread, of which
// there may be thousands, share it.
struct BGZFHandle::Intake {
  std::unique_ptr<uint8_t[]> compressed = std::make_unique_for_overwrite<uint8_t[]>(bgzf::kMaxSize);
  BlockInflater inflater;

  static Intake& ofThread();
};

// One block on its way through the pool.
struct BGZFHandle::Record {
  Record(int level, bool fast)
      : input(new uint8_t[bgzf::kMaxSize]), output(new uint8_t[bgzf::kMaxSize]), compressor(level, fast) {}

  std::unique_ptr<uint8_t[]> input;
  std::unique_ptr<uint8_t[]> output;
  uint32_t input_size = 0;
  int output_size = 0;  // negative when the block could not be made
  uint32_t index = 0;
  BlockCompressor compressor;
  std::future<void> done;
};

struct BGZFHandle::Parallel {
  thread_coop* pool;
  size_t limit;  // records there may be
  std::vector<std::unique_ptr<Record>> records;
  std::vector<Record*> free;
  std::deque<Record*> in_flight;  // in the order of the file
};
