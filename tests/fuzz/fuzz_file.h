// fuzz_file.h - the temporary files of a fuzz target: a folder for the process, in memory where the system
// has that.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>

class FuzzFolder {
 public:
  FuzzFolder() {
    std::string form = access("/dev/shm", W_OK) == 0 ? "/dev/shm/fuzz_XXXXXX" : "/tmp/fuzz_XXXXXX";
    if (!mkdtemp(form.data())) abort();
    path_ = form;
  }
  ~FuzzFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  std::string path(const std::string& name) const { return path_ + "/" + name; }

  std::string write(const std::string& name, const std::string& bytes) const {
    FILE* file = fopen(path(name).c_str(), "wb");
    if (!file || fwrite(bytes.data(), 1, bytes.size(), file) != bytes.size() || fclose(file) != 0) abort();
    return path(name);
  }

 private:
  std::string path_;
};
