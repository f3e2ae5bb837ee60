// gvcf_writer.h - a VCF whose reference blocks are the same however the genome was cut into shards.
//
// The first and the last block of a shard are not in its file but in its result; the final writer joins them with
// their neighbours. In a partial file they stand as comment lines around the contig's records.
// Contract as in vcf_writer.h.
#pragma once

#include "readdata/vcf/gq_block.h"
#include "readdata/vcf/vcf_writer.h"

class GVCFWriter final : public VCFWriter {
 public:
  struct Result : VCFWriter::Result {
    GQBlock head, tail;  // the shard's first block and its last one
  };

  using VCFWriter::VCFWriter;
  std::unique_ptr<VCFWriter> clone() override;
  using VCFWriter::merge;
  void merge(VCFWriter::Result* result, IOHandle* handle) override;
  void merge(const std::string& partialPath) override;

  // Writes the record of a block, or its comment line when `mode` is not 0; with a negative one the index of the contig
  // begins behind it. The block is then empty at its old end.
  void writeBlock(GQBlock& block, int mode);

 private:
  GQBlock pending_;              // held open: its start is how far the output is complete
  bool pendingIsFirst_ = false;  // in a partial file, until the contig's first block was written
};
