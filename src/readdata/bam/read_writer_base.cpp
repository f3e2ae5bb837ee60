#include "readdata/bam/read_writer_base.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <stdexcept>

#include "base/text.h"
#include "readdata/bam/bam_writer.h"
#include "readdata/bam/parallel_bam_writer.h"

int bamCompression(const ReadWriterBase::Options& options) {
  auto given = options.find("bam_compression");
  if (given == options.end()) return -1;
  return int(std::clamp(strtol(given->second.c_str(), nullptr, 10), long(INT_MIN), long(INT_MAX)));
}

std::string bamWriteMode(int level) {
  return level < 0 ? "w" : format("w%d", level);
}

ReadWriterBase::ReadWriterBase(std::string output, Options options)
    : output_(std::move(output)), options_(std::move(options)), level_(bamCompression(options_)) {}

std::string ReadWriterBase::modeText() const {
  return bamWriteMode(level_);
}

namespace {

void requireBam(const std::string& output, const std::string& format) {
  if (format != "bam")
    throw std::invalid_argument("cannot write " + output + ": output format " + format + " is not supported");
}

}  // namespace

std::unique_ptr<ParallelReadWriterBase> createReadWriter(const std::string& output, FastaFile*,
                                                         const ReadWriterBase::Options& options,
                                                         const std::string& format) {
  requireBam(output, format);
  return std::make_unique<ParallelBamWriter>(output, options);
}

std::unique_ptr<ReadWriterBase> createShardWriter(const std::string& output, FastaFile*,
                                                  const ReadWriterBase::Options& options,
                                                  const std::string& format) {
  requireBam(output, format);
  return std::make_unique<BamWriter>(output, options);
}
