// vcf_block.h - memory of the lines of a VCFCache: chains of blocks, which go back to a free list of the thread.
// Threads  a chain belongs to one thread; a block goes to the list of the thread that releases it.
// Cost     a chain of default blocks is freed in one splice.
#pragma once

#include <cstdint>

struct VCFBlock {
  static constexpr uint32_t kDefaultSize = 16384;  // bytes, with the header

  VCFBlock* next;
  uint32_t used, capacity;  // bytes of text
  uint32_t minPos, maxEnd;  // over its records

  char* text() { return reinterpret_cast<char*>(this + 1); }
};

static_assert(sizeof(VCFBlock) == 24);

// `size` bytes in all, empty; one of default size when `size` is 0. Throws std::bad_alloc.
VCFBlock* newVCFBlock(uint32_t size);
// One of default size goes to the thread's free list.
void releaseVCFBlock(VCFBlock* block);

class VCFBlockChain {
 public:
  VCFBlockChain() = default;
  VCFBlockChain(const VCFBlockChain&) = delete;
  VCFBlockChain& operator=(const VCFBlockChain&) = delete;
  ~VCFBlockChain() { clear(false); }

  bool empty() const { return head_ == nullptr; }
  VCFBlock* front() const { return head_; }
  uint32_t count() const { return count_; }
  void pushBack(VCFBlock* block);
  VCFBlock* popFront();
  // With `all_default` every block has the default size, and the whole chain is spliced into the free list.
  void clear(bool all_default);

 private:
  VCFBlock* head_ = nullptr;
  VCFBlock* tail_ = nullptr;
  uint32_t count_ = 0;
};
