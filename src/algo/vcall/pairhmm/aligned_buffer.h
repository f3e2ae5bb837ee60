// aligned_buffer.h - memory for tables that are large, aligned to cache lines, and touched only as far as used.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>

template <typename T>
class AlignedBuffer {
 public:
  // Room for `size` elements. Growing forgets what was held: all elements are 0 then.
  void reserve(size_t size) {
    if (size <= capacity_) return;
    constexpr size_t kLine = 64;
    memory_.reset();
    capacity_ = 0;
    memory_.reset(std::calloc(size + kLine / sizeof(T), sizeof(T)));
    if (!memory_) throw std::bad_alloc();
    const auto address = reinterpret_cast<uintptr_t>(memory_.get());
    data_ = reinterpret_cast<T*>((address + kLine - 1) / kLine * kLine);
    capacity_ = size;
  }
  T* data() { return data_; }
  const T* data() const { return data_; }
  T& operator[](size_t i) { return data_[i]; }
  const T& operator[](size_t i) const { return data_[i]; }

 private:
  struct Free {
    void operator()(void* memory) const { std::free(memory); }
  };

  std::unique_ptr<void, Free> memory_;
  T* data_ = nullptr;
  size_t capacity_ = 0;
};
