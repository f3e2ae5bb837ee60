// mate_info.h - what is known of mates that lie too far away to be in a window of reads, by the place of the read that
// looks for its mate.
// Coords   zero-based; `end` is exclusive.
// Threads  one object per thread.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <set>
#include <span>
#include <string>

#include "readdata/bam/read.h"
#include "readdata/vcf/vcf_line.h"

struct MateSummary {
  int32_t end = 0;
  int32_t five_prime = 0;
  int32_t flags = 0;  // SAM flag bits; the extended flag byte in bits 16 to 23
  int32_t score = 0;
  int32_t ordinal = 0;
};

class MateInfoBase {
 public:
  virtual ~MateInfoBase() = default;
  virtual const MateSummary* find(
      const Read& read) const = 0;  // of the read's mate; null when it is not known
};

// Mates told by the lines of score files.
class MateInfoByVcf final : public MateInfoBase {
 public:
  MateInfoByVcf();
  ~MateInfoByVcf() override;
  void clear();
  // Adds one entry per line; an entry that is there already stays. Throws std::runtime_error for a line of another
  // format.
  void add(std::span<const VCFLine> lines);
  const MateSummary* find(const Read& read) const override;

 private:
  struct Entry;
  struct Content;
  std::unique_ptr<Content> content_;
};
