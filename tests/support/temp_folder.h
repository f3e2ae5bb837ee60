// temp_folder.h - a folder for the files of one test, removed with all that is in it at the end.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>

class TempFolder {
 public:
  TempFolder() {
    std::string form = (std::filesystem::temp_directory_path() / "driver_test_XXXXXX").string();
    if (!mkdtemp(form.data())) throw std::runtime_error("No temporary folder");
    path_ = form;
  }
  ~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  std::string path(std::string_view name) const { return (path_ / name).string(); }

  // Makes a file of `content` and returns its path.
  std::string write(std::string_view name, std::string_view content) const {
    std::ofstream file(path(name), std::ios::binary);
    file.write(content.data(), static_cast<std::streamsize>(content.size()));
    file.close();
    if (!file) throw std::runtime_error("Cannot write " + path(name));
    return path(name);
  }

 private:
  std::filesystem::path path_;
};
