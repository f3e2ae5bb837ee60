#include "algo/vcall/recal/text_file.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>

TextFile openTextFile(const std::string& name, const std::string& path, const char* mode) {
  TextFile file(fopen(path.c_str(), mode), fclose);
  if (!file)
    throw std::runtime_error(name + (name.empty() ? "" : ": ") + "cannot open file " + path + ", " +
                             strerror(errno));
  return file;
}

void closeTextFile(const std::string& name, const std::string& path, TextFile file) {
  const bool written = fflush(file.get()) == 0 && !ferror(file.get());
  if (fclose(file.release()) != 0 || !written)
    throw std::runtime_error(name + ": Failed to write to file " + path + ", " + strerror(errno));
}
