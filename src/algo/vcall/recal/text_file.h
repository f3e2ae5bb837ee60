// text_file.h - text that is written beside calls, or read: tranches, plots, dumps.
// Errors   std::runtime_error that names the file, `name` of the algorithm in front, or nothing for an empty one.
#pragma once

#include <cstdio>
#include <memory>
#include <string>

using TextFile = std::unique_ptr<FILE, int (*)(FILE*)>;

// `mode` as for fopen.
TextFile openTextFile(const std::string& name, const std::string& path, const char* mode);
// Throws unless all that was written has reached the file.
void closeTextFile(const std::string& name, const std::string& path, TextFile file);
