// simulate - makes a small genome, its variants and its sequencing reads, for tests, demo and benchmarks.
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "simulate.h"

int main(int argc, char** argv) {
  try {
    SimulateOptions options = parseOptions(std::vector<std::string>(argv + 1, argv + argc));
    std::string text = options.help ? optionHelp() : simulate(options).text();
    if (fputs(text.c_str(), stdout) < 0 || fclose(stdout) != 0) {
      perror("simulate: standard output");
      return 1;
    }
    return 0;
  } catch (const std::exception& error) {
    fprintf(stderr, "simulate: %s\n", error.what());
    return 1;
  }
}
