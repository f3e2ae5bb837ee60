#include "base/timer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

#include "temp_folder.h"

namespace {

// The rows above the one of the whole process.
std::string rows(bool reset) {
  std::string table = timer_table(reset);
  return table.substr(0, table.find("overall: "));
}

TEST(Timer, TableHasUsedTimersInNameOrder) {
  timer_table(true);
  timer("unused");
  Timer* second = timer("b step");
  second->user = 61'234'567;
  second->system = 999;
  second->real = 3'000'050'000;
  second->calls = 12;
  Timer* first = timer("a step");
  first->calls = 1;
  EXPECT_EQ(timer("a step"), first);
  EXPECT_EQ(rows(false),
            "a step: 1 calls 0.000 user 0.000 sys 0.000 real\n"
            "b step: 12 calls 61.234 user 0.000 sys 3000.050 real\n");
  EXPECT_NE(rows(true), "");
  EXPECT_EQ(rows(false), "");
  { TimerScope scope(first); }  // the pointer outlives a reset
  EXPECT_THAT(rows(true), testing::StartsWith("a step: 1 calls "));
}

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
