#include "base/thread_coop.h"

#include <atomic>
#include <gtest/gtest.h>
#include <random>
#include <stdexcept>

namespace {

void sleepMicros(int micros) {
  std::this_thread::sleep_for(std::chrono::microseconds(micros));
}

// Leaves of a binary tree of the given depth, each inner node a task that waits for two others.
int countLeaves(thread_coop& pool, int depth, unsigned seed) {
  std::mt19937 random(seed);
  if (random() % 4 == 0) sleepMicros(random() % 200);
  if (depth == 0) return 1;
  auto left = pool.submit([&pool, depth, next = random()] { return countLeaves(pool, depth - 1, next); });
  auto right = pool.submit([&pool, depth, next = random()] { return countLeaves(pool, depth - 1, next); });
  pool.waitFor(left);
  pool.waitFor(right);
  return left.get() + right.get();
}

TEST(ThreadCoop, WaitingInsideTasksNeverDeadlocks) {
  for (int workers : {0, 1, 2, 5}) {
    SCOPED_TRACE(workers);
    thread_coop pool;
    for (int i = 0; i < workers; ++i) pool.addWorker([] {});
    EXPECT_EQ(countLeaves(pool, 7, workers), 128);
    pool.join();
  }
}

TEST(ThreadCoop, WaitingInsideTheBodyOfTheOnlyWorkerRunsItsTasks) {
  thread_coop pool;
  int leaves = 0;
  pool.addWorker([&] { leaves = countLeaves(pool, 6, 1); });
  pool.join();
  EXPECT_EQ(leaves, 64);
}

// Bodies that sleep, submit and wait at random, while the owner adds tasks too; several phases on one pool.
TEST(ThreadCoop, EveryTaskRunsOnceBeforeJoinReturns) {
  thread_coop pool;
  for (unsigned phase = 0; phase < 8; ++phase) {
    std::vector<std::atomic<int>> runs(600);
    std::atomic<int> bodies{0};
    auto add = [&](int number) {
      pool.addTask(std::make_shared<std::function<void()>>([&runs, number] {
        if (number % 7 == 0) sleepMicros(number % 300);
        ++runs[number];
      }));
    };
    for (unsigned worker = 0; worker < 5; ++worker) {
      pool.addWorker([&, worker] {
        std::mt19937 random(phase * 100 + worker);
        for (int i = 0; i < 100; ++i) {
          add(int(worker) * 100 + i);
          if (random() % 3 == 0) sleepMicros(random() % 150);
          if (random() % 5 == 0) {
            auto answer = pool.submit([i] { return i * i; });
            pool.waitFor(answer);
            EXPECT_EQ(answer.get(), i * i);
          }
        }
        ++bodies;
      });
    }
    for (int i = 500; i < 600; ++i) add(i);
    pool.join();
    EXPECT_EQ(bodies, 5);
    for (size_t i = 0; i < runs.size(); ++i) ASSERT_EQ(runs[i], 1) << "task " << i << " phase " << phase;
  }
}

// The pool has no users any more while the chain still grows.
TEST(ThreadCoop, TasksAddedByTheLastTasksRunToo) {
  thread_coop pool;
  std::atomic<int> steps{0};
  std::function<void()> step = [&] {
    if (++steps < 500) pool.addTask(std::make_shared<std::function<void()>>(step));
  };
  pool.addWorker([] {});
  pool.addTask(std::make_shared<std::function<void()>>(step));
  pool.join();
  EXPECT_EQ(steps, 500);
}

TEST(ThreadCoop, ExceptionOfSubmittedWorkComesOutOfTheFuture) {
  thread_coop pool;
  pool.addWorker([] {});
  auto failed = pool.submit([]() -> int { throw std::runtime_error("out of luck"); });
  pool.waitFor(failed);
  EXPECT_THROW(failed.get(), std::runtime_error);
  auto fine = pool.submit([] { return 5; });
  pool.waitFor(fine);
  EXPECT_EQ(fine.get(), 5);
  pool.join();
}

TEST(ThreadCoop, WaitingWorkerTakesATaskAndDestroysItBeforeItWaitsAgain) {
  thread_coop pool;
  pool.addWorker([] {});
  sleepMicros(50000);  // so that the worker waits
  auto held = std::make_shared<int>(1);
  std::weak_ptr<int> seen = held;
  pool.addTask(std::make_shared<std::function<void()>>([held] {}));
  held.reset();
  for (int i = 0; i < 5000 && !seen.expired(); ++i) sleepMicros(1000);
  EXPECT_TRUE(seen.expired());
  pool.join();
}

TEST(ThreadCoopDeathTest, FailureOnAWorkerEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  auto inBody = [] {
    thread_coop pool;
    pool.addWorker([] { throw std::runtime_error("body is broken"); });
    pool.join();
  };
  EXPECT_EXIT(inBody(), testing::ExitedWithCode(255), "^body is broken\n$");
  auto inTask = [] {
    thread_coop pool;
    pool.addWorker([] {});
    pool.addTask(
        std::make_shared<std::function<void()>>([] { throw std::invalid_argument("task is broken"); }));
    pool.join();
  };
  EXPECT_EXIT(inTask(), testing::ExitedWithCode(255), "^task is broken\n$");
}

}  // namespace
