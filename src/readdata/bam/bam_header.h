// bam_header.h - the header of one BAM file.
// Threads  constant once read; shared by the clones of a handle.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct bam_header {
  std::vector<std::string> names;  // contigs in file order
  std::vector<uint32_t> lengths;   // bases, parallel to `names`
  std::string text;                // SAM header lines

  size_t contigCount() const { return names.size(); }
};
