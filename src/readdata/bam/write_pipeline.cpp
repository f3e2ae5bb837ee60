#include "readdata/bam/write_pipeline.h"

#include <cerrno>

void BoundedQueue::push(WriteBuffer* buffer) {
  std::unique_lock lock(mutex_);
  drained_.wait(lock, [this] { return entries_.size() < capacity_; });
  entries_.push_back(buffer);
  filled_.notify_one();
}

WriteBuffer* BoundedQueue::pop() {
  std::unique_lock lock(mutex_);
  filled_.wait(lock, [this] { return closed_ || !entries_.empty(); });
  if (entries_.empty()) return nullptr;
  WriteBuffer* buffer = entries_.front();
  entries_.pop_front();
  drained_.notify_one();
  return buffer;
}

void BoundedQueue::close() {
  std::lock_guard lock(mutex_);
  closed_ = true;
  filled_.notify_all();
}

WritePipeline::WritePipeline(FILE* file)
    : file_(file), buffers_(kBufferCount), free_(kBufferCount), filled_(kBufferCount) {
  for (WriteBuffer& buffer : buffers_) {
    buffer.data = std::make_unique<uint8_t[]>(kBufferSize);
    buffer.capacity = kBufferSize;
    free_.push(&buffer);
  }
  writer_.addWorker([this] { writeAll(); });
}

WritePipeline::~WritePipeline() {
  close();
}

WriteBuffer* WritePipeline::take() {
  WriteBuffer* buffer = free_.pop();
  if (error_ != 0) {
    free_.push(buffer);
    return nullptr;
  }
  buffer->length = buffer->consumed = 0;
  return buffer;
}

void WritePipeline::put(WriteBuffer* buffer) {
  filled_.push(buffer);
}

void WritePipeline::writeAll() {
  while (WriteBuffer* buffer = filled_.pop()) {
    if (error_ == 0) {
      errno = 0;
      buffer->consumed = fwrite(buffer->data.get(), 1, buffer->length, file_);
      if (buffer->consumed != buffer->length) error_ = errno != 0 ? errno : EIO;
    }
    free_.push(buffer);
  }
}

bool WritePipeline::close() {
  filled_.close();
  writer_.join();
  return error_ == 0;
}
