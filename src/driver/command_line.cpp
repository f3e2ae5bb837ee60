#include "driver/command_line.h"

#include <cstring>

CommandLine splitCommandLine(int argc, const char* const argv[]) {
  CommandLine line;
  line.driver_count = argc;
  for (int i = 1; i < argc; ++i) {
    if (strcmp(argv[i], "--algo") == 0) {
      if (line.algos.empty()) line.driver_count = i;
      line.algos.push_back({argv + i + 1, 0});
    } else if (!line.algos.empty()) {
      ++line.algos.back().count;
    }
  }
  line.text = argv[0];
  for (int i = 1; i < line.driver_count; ++i) line.text.append(" ").append(argv[i]);
  return line;
}
