// command_line.h - cuts the command line into the driver's own arguments and one range per --algo.
// Threads  pure functions on argv, which they point into.
#pragma once

#include <string>
#include <vector>

// What stands between one --algo and the next: an algorithm's name and its arguments; may be empty.
struct AlgoRange {
  const char* const* args;
  int count;
};

struct CommandLine {
  int driver_count = 0;  // argv[0] and the arguments before the first --algo
  std::vector<AlgoRange> algos;
  std::string text;  // the driver's arguments, separated by blanks
};

CommandLine splitCommandLine(int argc, const char* const argv[]);
