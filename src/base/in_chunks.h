// in_chunks.h - one loop spread over the idle threads of a pool.
#pragma once

#include <cstddef>
#include <exception>
#include <future>
#include <vector>

#include "base/thread_coop.h"

// Calls work(first, last) for all of [0, count) in pieces of `size`, which is above 0. A piece goes to the pool (may be
// null) when a worker there has nothing else to do, the others are done here. Returns when all are done; an exception of
// a piece is thrown then.
template <typename Work>
void inChunks(thread_coop* pool, size_t count, size_t size, const Work& work) {
  std::vector<std::future<void>> given;
  std::exception_ptr failure;
  auto guarded = [&failure](const auto& step) {
    try {
      step();
    } catch (...) {
      if (!failure) failure = std::current_exception();
    }
  };
  for (size_t first = 0; first < count; first += size) {
    const size_t last = count - first > size ? first + size : count;
    guarded([&] {
      if (last < count && pool && pool->wantsTask())
        given.push_back(pool->submit([&work, first, last] { work(first, last); }));
      else
        work(first, last);
    });
    if (last == count) break;
  }
  for (std::future<void>& future : given) pool->waitFor(future);  // none may run on when this is left
  for (std::future<void>& future : given) guarded([&future] { future.get(); });
  if (failure) std::rethrow_exception(failure);
}
