#include "algo/output_check.h"

#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <sys/stat.h>
#include <vector>

namespace {

bool sameFile(const std::string& a, const std::string& b) {
  struct stat status_a, status_b;
  return stat(a.c_str(), &status_a) == 0 && stat(b.c_str(), &status_b) == 0 && S_ISREG(status_a.st_mode) &&
         status_a.st_dev == status_b.st_dev && status_a.st_ino == status_b.st_ino;
}

std::vector<std::string> inputFiles(const DriverContext& context) {
  std::vector<std::string> files;
  if (context.reads)
    for (const BAMHandle* handle : context.reads->input().handles()) {
      files.push_back(handle->path);
      if (handle->index && !handle->index->path.empty()) files.push_back(handle->index->path);
    }
  if (context.reference) {
    files.push_back(context.reference->path());
    files.push_back(context.reference->path() + ".fai");
  }
  return files;
}

std::string realPath(const std::string& path) {
  std::unique_ptr<char, decltype(&free)> resolved(realpath(path.c_str(), nullptr), free);
  return resolved ? resolved.get() : path;
}

// Whether `input` is a file that a shard of `output` would be written to.
bool isShardFile(const std::string& input, const std::string& output) {
  for (const std::string& name : {input, realPath(input)}) {
    const size_t digits = name.find_last_not_of("0123456789") + 1;
    size_t mark = digits;
    if (mark > 0 && name[mark - 1] == '-') --mark;
    if (mark == 0 || name[mark - 1] != '_' || digits == name.size()) continue;
    if (sameFile(output + name.substr(mark - 1), input)) return true;
  }
  return false;
}

}  // namespace

void refuseInputsAsOutput(const std::string& algo_name, const DriverContext& context,
                          const std::string& output, const std::string& index) {
  for (const std::string& input : inputFiles(context))
    if (sameFile(output, input) || sameFile(index, input) || isShardFile(input, output))
      throw std::invalid_argument(algo_name + ": output file " + output + " would overwrite input file " +
                                  input);
}
