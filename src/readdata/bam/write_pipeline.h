// write_pipeline.h - a file written by a thread of its own, through two bounded queues of buffers.
//
//   filler   take() -> fills data, sets length -> put()          waits when all buffers are on their way
//   writer   filled queue -> one fwrite per buffer -> free queue
//
// Owns     its buffers and its thread; borrows the file, which must outlive it.
// Threads  one thread fills; the writing thread is inside.
// Errors   after a failed write nothing more is written, take() answers null and error() tells why.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <memory>
#include <mutex>
#include <vector>

#include "base/thread_coop.h"

struct WriteBuffer {
  std::unique_ptr<uint8_t[]> data;
  size_t capacity = 0;
  size_t length = 0;    // bytes to write
  size_t consumed = 0;  // bytes written; less than `length` after a failure
};

// A queue of limited length between two threads.
class BoundedQueue {
 public:
  explicit BoundedQueue(size_t capacity) : capacity_(capacity) {}

  void push(WriteBuffer* buffer);  // waits for room
  WriteBuffer* pop();              // waits for an entry; null when the queue is closed and empty
  void close();                    // what is in the queue can still be taken

 private:
  const size_t capacity_;
  std::mutex mutex_;  // guards all below
  std::condition_variable filled_, drained_;
  std::deque<WriteBuffer*> entries_;
  bool closed_ = false;
};

class WritePipeline {
 public:
  static constexpr size_t kBufferCount = 16;
  static constexpr size_t kBufferSize = 262144;

  explicit WritePipeline(FILE* file);
  ~WritePipeline();
  WritePipeline(const WritePipeline&) = delete;
  WritePipeline& operator=(const WritePipeline&) = delete;

  WriteBuffer* take();                  // an empty buffer; null after a failed write
  void put(WriteBuffer* buffer);        // to be written behind all others
  bool close();                         // waits for the last write; false after a failed one
  int error() const { return error_; }  // errno of the first failed write, or 0

 private:
  void writeAll();

  FILE* file_;
  std::vector<WriteBuffer> buffers_;
  BoundedQueue free_, filled_;
  std::atomic<int> error_{0};
  thread_coop writer_;
};
