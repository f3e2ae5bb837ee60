// gvcf_events.h - events of a joint run from the text of their records.
#pragma once

#include <cstdint>
#include <deque>
#include <stdexcept>
#include <string>
#include <vector>

#include "algo/vcall/joint/joint_site.h"

// Owns the lines that its events point into.
class MadeEvents {
 public:
  // A record "POS REF ALT" at the one-based position `pos1`, with the columns behind it, as an event at `position`.
  Event& add(int32_t position, int32_t pos1, const std::string& ref, const std::string& alt,
             const std::string& info = ".", const std::string& format = "GT",
             const std::string& samples = "./.") {
    texts_.push_back("chr1\t" + std::to_string(pos1) + "\t.\t" + ref + "\t" + alt + "\t.\t.\t" + info + "\t" +
                     format + "\t" + samples);
    lines_.emplace_back();
    if (lines_.back().parse(texts_.back().data(), static_cast<uint32_t>(texts_.back().size())) !=
        VCFLine::kOk)
      throw std::runtime_error("not a record");
    events.emplace_back().assign(&lines_.back(), position);
    return events.back();
  }

  std::vector<Event> events;

 private:
  std::deque<std::string> texts_;
  std::deque<VCFLine> lines_;
};
