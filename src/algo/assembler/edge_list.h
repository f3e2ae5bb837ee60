// edge_list.h - the ids of the edges at one side of a vertex: nearly always a few, which need no memory of their own.
// Owns     its ids.
// Threads  one thread at a time.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>

namespace GRAPH {

using EdgeId = int32_t;

class EdgeList {
 public:
  EdgeList() = default;
  EdgeList(const EdgeList& other) : size_(other.size_), capacity_(std::max(other.size_, kInside)) {
    if (capacity_ > kInside) ids_.far = new EdgeId[capacity_];
    std::copy(other.begin(), other.end(), data());
  }
  EdgeList(EdgeList&& other) noexcept { swap(other); }
  EdgeList& operator=(EdgeList other) noexcept {
    swap(other);
    return *this;
  }
  ~EdgeList() {
    if (capacity_ > kInside) delete[] ids_.far;
  }

  size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  const EdgeId* begin() const { return capacity_ > kInside ? ids_.far : ids_.near; }
  const EdgeId* end() const { return begin() + size_; }
  EdgeId operator[](size_t i) const { return begin()[i]; }
  EdgeId front() const { return begin()[0]; }
  EdgeId back() const { return begin()[size_ - 1]; }

  void push_back(EdgeId e) {
    if (size_ == capacity_) grow();
    data()[size_++] = e;
  }
  void clear() { size_ = 0; }
  void remove(EdgeId e) {  // keeps the order; `e` is in the list
    EdgeId* end = data() + size_;
    EdgeId* i = end - 1;
    while (*i != e) --i;
    std::copy(i + 1, end, i);
    --size_;
  }
  template <class Predicate>
  void removeIf(Predicate dead) {  // keeps the order
    size_ = static_cast<uint32_t>(std::remove_if(data(), data() + size_, dead) - data());
  }

 private:
  static constexpr uint32_t kInside = 4;

  EdgeId* data() { return capacity_ > kInside ? ids_.far : ids_.near; }
  void swap(EdgeList& other) noexcept {
    std::swap(ids_, other.ids_);
    std::swap(size_, other.size_);
    std::swap(capacity_, other.capacity_);
  }
  void grow() {
    auto* more = new EdgeId[size_t{capacity_} * 2];
    std::copy(begin(), end(), more);
    if (capacity_ > kInside) delete[] ids_.far;
    ids_.far = more;
    capacity_ *= 2;
  }

  union {
    EdgeId near[kInside];
    EdgeId* far;
  } ids_ = {};
  uint32_t size_ = 0, capacity_ = kInside;
};

}  // namespace GRAPH
