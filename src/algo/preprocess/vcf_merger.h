// vcf_merger.h - brings lines in VCF columns that come in any order into the order of the genome.
//
//   append     scatters lines over groups of neighbouring contigs, into block files of `block_size` lines
//   merge      sorts the groups side by side, and appends them to the output one after the other
//
// Order    contigs as in the list, then POS, then the whole line.
// Files    the output with its index; beside it, until merge() is done, names that begin with `path`_tmp_.
// Owns     its temporary files. The contig names and the pool are borrowed.
// Threads  one at a time; merge() works on the pool, and runs to its end with any number of threads or none.
// Errors   std::runtime_error. The output is then without its index, and compressed without its end marker; temporary
//          files stay.
// Memory   of the scatter: 16 MiB; of merge(): one block per running job.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "algo/preprocess/vcf_handle.h"
#include "base/thread_coop.h"
#include "readdata/interval/interval.h"
#include "readdata/vcf/vcf_writer.h"

class VcfMerger {
 public:
  VcfMerger(std::string path, std::vector<Contig> contigs, size_t block_size, thread_coop* thread_coop);
  virtual ~VcfMerger();
  VcfMerger(const VcfMerger&) = delete;
  VcfMerger& operator=(const VcfMerger&) = delete;

  virtual void addHeaderLines(VCFHeader&) {}  // beside the source and the contigs
  // Takes the lines of `stream`, named `path` in messages, up to its end. Header lines and lines of unknown contigs are
  // passed over.
  void append(FILE* stream, const std::string& path);
  void appendFile(const std::string& path);
  // Writes the output. To be called once.
  void merge();

 private:
  struct BlockFile {
    std::string path;
    std::string lines;   // not yet in the file, which is open only while it is written
    bool begun = false;  // the file is there
    uint64_t line_count = 0;
  };
  class Data;

  std::string groupPath(size_t group) const;
  BlockFile& addBlock(size_t group);
  void writeWaiting(BlockFile& block);
  void closeBlock(BlockFile& block);
  void writeLine(BlockFile& block, std::string_view line);
  VCFHeader makeHeader();

  std::vector<Contig> contigs_;
  std::string path_;
  std::vector<std::vector<BlockFile>> groups_;
  std::vector<uint32_t> group_of_contig_;
  ContigNumbers contig_index_;
  uint64_t block_size_;  // lines
  thread_coop* thread_coop_;
  std::atomic<bool> failed_ = false;  // jobs that have not begun need not
};
