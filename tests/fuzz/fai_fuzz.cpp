// Any bytes as the index of a small FASTA, or, with a first byte that is odd, as the FASTA of a fixed index.
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include "fuzz_file.h"
#include "readdata/ref/fasta_file.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  static FuzzFolder folder;
  static const std::string fasta = folder.path("ref.fa"), index = fasta + ".fai";
  const std::string bytes(reinterpret_cast<const char*>(data + 1), size - 1);
  const bool as_fasta = data[0] & 1;
  folder.write("ref.fa", as_fasta ? bytes : ">a\nACgtn\nacg\n>b\nTTTT\r\nTT\r\n");
  folder.write("ref.fa.fai", as_fasta ? "a\t8\t3\t5\t6\nb\t6\t16\t4\t6\n" : bytes);
  try {
    FastaFile file(fasta);
    FastaFile clone(file);
    std::vector<char> buffer(64);
    for (const std::string& name : file.names()) {
      const uint32_t length = file.entry(name)->length;
      const uint32_t starts[] = {0, 1, length / 2, length - 1, length, 0xFFFFFFFF};
      for (uint32_t start : starts) {
        const uint32_t end = start > 0xFFFFFFFF - 64 ? 0xFFFFFFFF : start + 64;
        const uint32_t count = file.fetch(name.c_str(), start, end, buffer.data());
        if (count != clone.fetch(name.c_str(), start, end, buffer.data())) abort();
        if (count != FastaFile::kFailed && count > 64) abort();
      }
    }
  } catch (const std::invalid_argument&) {
    // refused, as it should be
  }
  return 0;
}
