#include "base/log.h"

#include <cstdlib>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

#include "temp_folder.h"

namespace {

std::vector<std::string> linesOf(const std::string& path) {
  std::ifstream file(path);
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) lines.push_back(line);
  return lines;
}

// Sends what is logged inside of `work` to a file and gives its lines.
template <class Work>
std::vector<std::string> logged(int level, Work work) {
  TempFolder folder;
  std::string path = folder.path("log");
  Logger::setDefaults(level, std::make_shared<FileLoggerEngine>(fopen(path.c_str(), "w")));
  work();
  Logger::setDefaults(LOG_INFO, nullptr);
  return linesOf(path);
}

TEST(Logger, WritesTagLevelAndMessageUpToItsLevel) {
  auto lines = logged(LOG_DEBUG, [] {
    Logger logger("Haplotyper");
    for (int level = LOG_ERROR; level <= LOG_TRACE; ++level)
      logger.log(level, "message %d of %s", level, "five");
    logger.log(LOG_ERROR, "%s", std::string(5000, 'x').c_str());
  });
  const char* words[] = {"ERROR", "WARN ", "INFO ", "DEBUG"};
  ASSERT_EQ(lines.size(), 5u);
  for (int level = 0; level < 4; ++level) {
    EXPECT_THAT(
        lines[level],
        testing::MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}/[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{6} Haplotyper " +
                              std::string(words[level]) + ":message " + std::to_string(level) + " of five"));
  }
  EXPECT_THAT(lines[4], testing::EndsWith("ERROR:" + std::string(5000, 'x')));
}

TEST(Logger, LinesOfManyThreadsStayWhole) {
  auto lines = logged(LOG_INFO, [] {
    Logger logger("many");
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
      threads.emplace_back([&logger, t] {
        for (int i = 0; i < 250; ++i) logger.log(LOG_INFO, "%s", std::string(100 + i, char('a' + t)).c_str());
      });
    for (auto& thread : threads) thread.join();
  });
  ASSERT_EQ(lines.size(), 1000u);
  for (const std::string& line : lines) {
    size_t colon = line.rfind(':');
    EXPECT_EQ(line.find_first_not_of(line[colon + 1], colon + 1), std::string::npos) << line;
    EXPECT_GE(line.size() - colon - 1, 100u);
  }
}

TEST(LoggerDeathTest, LevelComesFromTheEnvironment) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // a process that has made no logger yet
  auto levels = [](const char* value) {
    if (value)
      setenv("dbglevel", value, 1);
    else
      unsetenv("dbglevel");
    Logger logger("env");
    int highest = -1;
    for (int level = LOG_ERROR; level <= LOG_TRACE; ++level)
      if (logger.enabled(level)) highest = level;
    exit(highest);
  };
  EXPECT_EXIT(levels(nullptr), testing::ExitedWithCode(LOG_INFO), "");
  EXPECT_EXIT(levels("0"), testing::ExitedWithCode(LOG_ERROR), "");
  EXPECT_EXIT(levels("3"), testing::ExitedWithCode(LOG_DEBUG), "");
  EXPECT_EXIT(levels("99"), testing::ExitedWithCode(LOG_TRACE), "");
  EXPECT_EXIT(levels("loud"), testing::ExitedWithCode(LOG_INFO), "");
}

}  // namespace
