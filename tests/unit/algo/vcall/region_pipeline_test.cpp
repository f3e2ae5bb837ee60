#include "algo/vcall/region_pipeline.h"

#include <atomic>
#include <gtest/gtest.h>
#include <random>
#include <stdexcept>
#include <thread>

namespace {

std::unique_ptr<AssemblyTask> newTask(uint32_t number, size_t reads = 0) {
  auto task = std::make_unique<AssemblyTask>();
  task->activeInterval = {number, number + 1};
  task->paddedInterval = {number + 100, number + 200};
  task->fetched.resize(reads);
  return task;
}

void waitUntil(const auto& condition) {
  while (!condition()) std::this_thread::yield();
}

// A pool whose workers have nothing to do but its tasks.
struct Pool : thread_coop {
  explicit Pool(int workers) {
    for (int i = 0; i < workers; ++i) addWorker([] {});
    waitUntil([this] { return wantsTask(); });
  }
};

// Numbers of the tasks as they were called; a task counts in its skipFlag, once, that it was assembled.
struct Calls {
  std::vector<uint32_t> numbers;

  void assemble(AssemblyTask& task) {
    if (task.skipFlag) throw std::logic_error("assembled twice");
    task.skipFlag = true;
    task.state = AssemblyTask::kAssembled;
  }
  void call(AssemblyTask& task) {
    EXPECT_EQ(task.state, AssemblyTask::kAssembled);
    EXPECT_NE(task.skipFlag, task.inactive);
    numbers.push_back(task.activeInterval.start);
  }
  void expectUpTo(uint32_t count) const {
    ASSERT_EQ(numbers.size(), count);
    for (uint32_t i = 0; i < count; ++i) ASSERT_EQ(numbers[i], i);
  }
};

// Three walkers of one pool; gaps between regions need no assembly.
TEST(RegionPipeline, CallsInOrderWhateverThreadAssembles) {
  constexpr uint32_t kTasks = 2000;
  std::atomic<int> elsewhere = 0;
  Calls calls[3];
  uint32_t count[3];
  {
    thread_coop pool;
    for (unsigned w = 0; w < 3; ++w)
      pool.addWorker([&, w] {
        const std::thread::id id = std::this_thread::get_id();
        std::atomic<unsigned> random = w;
        RegionPipeline pipeline(
            [&, id](AssemblyTask& task) {
              for (unsigned turns = (random += 7919) % 1000; turns > 0; --turns) task.debugLevel ^= 1;
              calls[w].assemble(task);
              if (std::this_thread::get_id() != id) ++elsewhere;
            },
            &pool, [&](AssemblyTask& task) { calls[w].call(task); });
        // The last one goes on until another, which has ended, has helped.
        for (uint32_t i = 0; i < kTasks * (w + 1) || (w == 2 && elsewhere == 0); ++i) {
          count[w] = i + 1;
          auto task = newTask(i);
          task->inactive = i % 3 == 1;
          if (task->inactive) task->state = AssemblyTask::kAssembled;
          pipeline.addTask(std::move(task));
        }
        pipeline.drain();
        EXPECT_TRUE(pipeline.empty());
      });
    pool.join();
  }
  for (uint32_t w = 0; w < 3; ++w) calls[w].expectUpTo(count[w]);
}

// The pool's thread holds the first task until the walker has something to assemble itself.
void expectWaiting(size_t reads_each, size_t most) {
  Calls calls;
  std::atomic<bool> held = false, open = false;
  size_t added = 0, waiting = 0;
  const std::thread::id walker = std::this_thread::get_id();
  Pool pool(1);
  RegionPipeline pipeline(
      [&](AssemblyTask& task) {
        if (std::this_thread::get_id() == walker) {
          if (!open) waiting = added;
          open = true;
        } else {
          held = true;
          waitUntil([&] { return open.load(); });
        }
        calls.assemble(task);
      },
      &pool, [&](AssemblyTask& task) { calls.call(task); });
  for (; added < 50; ++added) {
    pipeline.addTask(newTask(uint32_t(added), reads_each));
    waitUntil([&] { return held.load(); });
    if (added == 0) {
      EXPECT_EQ(pipeline.firstNeeded(7000), 100u);
    }
  }
  pipeline.drain();
  EXPECT_EQ(waiting, most);
  calls.expectUpTo(50);
}

TEST(RegionPipeline, BoundsWhatWaits) {
  expectWaiting(0, RegionPipeline::kMaxWaiting);
  expectWaiting(RegionPipeline::kMaxWaitingReads / 4, 4);
}

TEST(RegionPipeline, ThrowsWhatATaskThrows) {
  for (const bool on_pool : {false, true}) {
    Calls calls;
    std::atomic<bool> held = false, thrown = false;
    const std::thread::id walker = std::this_thread::get_id();
    Pool pool(1);
    RegionPipeline pipeline(
        [&](AssemblyTask& task) {
          calls.assemble(task);
          const bool mine = std::this_thread::get_id() == walker;
          if (!mine) held = true;
          if (on_pool == mine) {
            waitUntil([&] { return thrown.load(); });
            return;
          }
          thrown = true;
          throw std::runtime_error("from " + std::to_string(task.activeInterval.start));
        },
        &pool, [&](AssemblyTask& task) { calls.call(task); });
    const auto run = [&] {
      for (uint32_t i = 0; i < 40; ++i) {
        pipeline.addTask(newTask(i));
        waitUntil([&] { return held.load(); });
      }
      pipeline.drain();
    };
    try {
      run();
      FAIL();
    } catch (const std::runtime_error& error) {
      if (on_pool) {
        EXPECT_EQ(error.what(), "from " + std::to_string(calls.numbers.size()));
      }
    }
    calls.expectUpTo(uint32_t(calls.numbers.size()));
    pool.join();
  }
}

}  // namespace
