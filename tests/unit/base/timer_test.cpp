#include "base/timer.h"

#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace {

TEST(Timer, ScopesAddUpFromAllThreads) {
  timer_table(true);
  Timer* step = timer("busy");
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([step] {
      for (int i = 0; i < 500; ++i) TimerScope scope(step);
      TimerScope none(nullptr);
      TimerScope scope(step);
      std::this_thread::sleep_for(std::chrono::milliseconds(30));
    });
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(step->calls, 4u * 501);
  EXPECT_GE(step->real, 4u * 30'000);
  timer_table(true);
}

}  // namespace
