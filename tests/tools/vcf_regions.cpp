// vcf_regions FILE: for each line "contig start end" on standard input (zero-based half open) the records of an
// indexed VCF file that overlap it, as VCFCache finds them. With -m a line "#contig start end" goes before them.
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>

#include "readdata/vcf/vcf_cache.h"

namespace {

void print(const VCFLine& record) {
  const char* column = record.line;
  for (int i = 0; i < 2 + VCFLine::kColumns; i++) {
    if (i > 1 && !record.hasColumn(static_cast<VCFLine::Column>(i - 2))) break;
    if (i > 0) putchar_unlocked('\t');
    const size_t length = strlen(column);
    fwrite_unlocked(column, 1, length, stdout);
    column += length + 1;
  }
  putchar_unlocked('\n');
}

void printRegions(VCFCache& cache, bool marks) {
  char contig[1024];
  for (int start, end; scanf("%1023s %d %d", contig, &start, &end) == 3;) {
    if (marks) printf("#%s %d %d\n", contig, start, end);
    cache.setContig(contig);
    cache.fetch(start, end);
    for (const VCFLine& record : cache.records())
      if (record.pos < end && record.end > start) print(record);
  }
}

}  // namespace

int main(int argc, char** argv) {
  const bool marks = argc == 3 && strcmp(argv[1], "-m") == 0;
  if (argc != 2 && !marks) {
    fprintf(stderr, "usage: vcf_regions [-m] FILE\n");
    return 2;
  }
  try {
    VCFCache cache(argv[argc - 1]);
    printRegions(cache, marks);
  } catch (const std::exception& e) {
    fprintf(stderr, "Error: %s\n", e.what());
    return 1;
  }
  return fflush(stdout) == 0 && !ferror(stdout) ? 0 : 1;
}
