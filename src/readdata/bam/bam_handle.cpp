#include "readdata/bam/bam_handle.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>

#include "base/plain_file.h"
#include "readdata/bam/bam_impl.h"

namespace {

[[noreturn]] void failOpen(const std::string& path, const char* reason) {
  fprintf(stderr, "Failed to open %s: %s\n", path.c_str(), reason);
  throw std::invalid_argument("Invalid input file");
}

// The first bytes of a regular file, which is what an index can point into.
size_t firstBytes(const std::string& path, void* buffer, size_t count) {
  FileOwner stream(open_plain_file(path.c_str()));
  if (stream == nullptr) failOpen(path, errno == ESPIPE ? "Not a regular file" : strerror(errno));
  size_t got = fread(buffer, 1, count, stream.get());
  if (ferror(stream.get())) failOpen(path, strerror(errno));
  return got;
}

[[noreturn]] void failFormat(const std::string& path, const char* what) {
  throw std::invalid_argument("Unknown format of input file " + path + ": " + what);
}

}  // namespace

std::unique_ptr<BAMHandle> open_read_source(const std::string& path, FastaFile* reference, bool load_index) {
  char start[4];
  size_t got = firstBytes(path, start, sizeof start);
  if (got == 0) failFormat(path, "it is empty");
  if (got == sizeof start && memcmp(start, "CRAM", sizeof start) == 0) {
    if (reference == nullptr) throw std::invalid_argument("cram input needs reference");
    failFormat(path, "CRAM is not supported");
  }
  if (!BGZFHandle::is_bgzf(path.c_str())) failFormat(path, "it is not a BAM file");
  auto bam = std::make_unique<BAMImpl>(path);
  bam->open("r");
  bam->readHeader();
  bam->setReference(reference);
  if (bam->bgzf().has_eof() == 0)
    fprintf(stderr, "Warning: BAM file %s has no end marker, it may be truncated\n", path.c_str());
  if (load_index) {
    checkBaiContigs(*bam->header, path);
    bam->setIndex(BamIndex::load(path, 0, static_cast<int64_t>(bam->header->contigCount())));
  }
  return bam;
}
