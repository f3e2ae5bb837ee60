// What the process says about itself: crash report, end of a failed worker, host.
#include <csignal>
#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <thread>

#include "base/crash.h"

namespace {

struct OddFailure {};

// Throws on a thread of its own, where nobody catches.
template <class Failure>
void throwUncaught(Failure failure) {
  install_crash_handlers();
  std::thread([&] { throw failure; }).join();
}

// One line of the exception, then one backtrace.
auto reportOf(const std::string& line) {
  return testing::AllOf(testing::HasSubstr(line + "\nBacktrace:\n"),
                        testing::Not(testing::ContainsRegex("Backtrace(.|\n)*Backtrace")),
                        testing::Not(testing::ContainsRegex("Uncaught(.|\n)*Uncaught")));
}

TEST(CrashDeathTest, UncaughtExceptionIsToldWithItsTypeAndTextAndABacktrace) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  auto aborted = testing::KilledBySignal(SIGABRT);
  EXPECT_EXIT(throwUncaught(std::runtime_error("disk on fire")), aborted,
              reportOf("Uncaught exception \"std::runtime_error\": disk on fire"));
  EXPECT_EXIT(throwUncaught(std::string("words")), aborted, testing::HasSubstr("\": words\nBacktrace:\n"));
  EXPECT_EXIT(throwUncaught<const char*>("plain"), aborted,
              reportOf("Uncaught exception \"char const*\": plain"));
  EXPECT_EXIT(throwUncaught(OddFailure()), aborted, testing::HasSubstr("OddFailure\": \nBacktrace:\n"));
}

TEST(CrashDeathTest, AbortGivesABacktraceAlone) {
  auto failed = [] {
    install_crash_handlers();
    abort();
  };
  EXPECT_EXIT(failed(), testing::KilledBySignal(SIGABRT), testing::StartsWith("Backtrace:\n"));
}

TEST(CrashDeathTest, FailedWorkerEndsAtOnceWithStatus255) {
  auto failed = [] {
    atexit([] { fputs("cleaned up", stderr); });
    exit_worker("no space left");
  };
  EXPECT_EXIT(failed(), testing::ExitedWithCode(255), testing::StrEq("no space left\n"));
}

}  // namespace
