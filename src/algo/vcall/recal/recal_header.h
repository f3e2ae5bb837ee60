// recal_header.h - the header of a recalibrated VCF: that of the input, with the lines that tell of the new filters and
// INFO fields.
// Threads  one.
// Errors   std::runtime_error; every text names the file.
#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "algo/vcall/recal/tranche.h"
#include "readdata/stream/io_handle.h"

class RecalHeader {
 public:
  // `name` of the algorithm stands in front of errors.
  RecalHeader(std::string name, const RecalFilter& filter);

  // Takes the INFO lines of a recal file, which `stream` reads from its start. Lines of 4095 bytes or more are left out.
  void readInfoLines(IOHandle& stream, const std::string& path);

  using Sink = std::function<void(std::string_view)>;
  // Hands the lines of the input's header to `write`, in pieces. Those of filters that this run describes are left out;
  // in front of the line of columns stand the INFO lines whose ids the input lacks, in order of text, those of the
  // filters, and `commandLine`.
  void copy(IOHandle& input, const std::string& path, const std::string& commandLine, const Sink& write);

 private:
  void addFilter(const std::string& id, const std::string& description);
  [[noreturn]] void failRead(const IOHandle& stream, const std::string& path) const;
  // Whether the line of the input stays. Forgets the INFO line that it makes needless.
  bool keeps(std::string_view line);

  std::string name_;
  std::vector<std::string> filter_lines_;  // with newlines
  std::set<std::string, std::less<>> filter_ids_;
  std::map<std::string, std::string, std::less<>> info_lines_;  // by id, with newlines
};
