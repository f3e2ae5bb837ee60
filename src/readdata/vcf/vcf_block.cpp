#include "readdata/vcf/vcf_block.h"

#include <new>
#include <utility>

namespace {

// Blocks of default size that wait for use. Plain data, so that a cache which outlives the thread's other objects may
// still look at it.
struct FreeList {
  VCFBlock* head;
  uint32_t count;
  bool closed;  // the thread ends: nothing waits any more
};

thread_local FreeList free_blocks;

struct FreeListOwner {
  ~FreeListOwner() {
    free_blocks.closed = true;
    while (free_blocks.head != nullptr)
      ::operator delete(std::exchange(free_blocks.head, free_blocks.head->next));
    free_blocks.count = 0;
  }
  void touch() {}  // makes it be destroyed at the thread's end
};

thread_local FreeListOwner free_blocks_owner;

constexpr uint32_t kDefaultCapacity = VCFBlock::kDefaultSize - sizeof(VCFBlock);

void waitForUse(VCFBlock* first, VCFBlock* last, uint32_t count) {
  free_blocks_owner.touch();
  last->next = free_blocks.head;
  free_blocks.head = first;
  free_blocks.count += count;
}

}  // namespace

VCFBlock* newVCFBlock(uint32_t size) {
  if (size == 0) size = VCFBlock::kDefaultSize;
  void* memory;
  if (size == VCFBlock::kDefaultSize && free_blocks.head != nullptr) {
    memory = std::exchange(free_blocks.head, free_blocks.head->next);
    free_blocks.count--;
  } else {
    memory = ::operator new(size);
  }
  return new (memory) VCFBlock{nullptr, 0, static_cast<uint32_t>(size - sizeof(VCFBlock)), UINT32_MAX, 0};
}

void releaseVCFBlock(VCFBlock* block) {
  if (block->capacity != kDefaultCapacity || free_blocks.closed)
    ::operator delete(block);
  else
    waitForUse(block, block, 1);
}

void VCFBlockChain::pushBack(VCFBlock* block) {
  block->next = nullptr;
  (tail_ != nullptr ? tail_->next : head_) = block;
  tail_ = block;
  count_++;
}

VCFBlock* VCFBlockChain::popFront() {
  VCFBlock* block = std::exchange(head_, head_->next);
  if (head_ == nullptr) tail_ = nullptr;
  count_--;
  return block;
}

void VCFBlockChain::clear(bool all_default) {
  if (all_default && head_ != nullptr && !free_blocks.closed) {
    waitForUse(head_, tail_, count_);
    head_ = tail_ = nullptr;
    count_ = 0;
  }
  while (head_ != nullptr) releaseVCFBlock(popFront());
}
