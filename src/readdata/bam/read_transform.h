// read_transform.h - changes reads as they enter a ReadCache.
// Threads  one object per cache; what it refers to is shared read-only.
#pragma once

#include "readdata/bam/read.h"

class ReadTransform {
 public:
  virtual ~ReadTransform() = default;
  // The read to keep, which may be another than the one given; the cache owns both.
  virtual Read* transform(Read* read) { return read; }
  // True when the reads of this read group need BI and BD to be present before transform().
  virtual bool needsBaseTags(int32_t /*read_group*/) const { return false; }
};
