// gvcf_writer.h - a VCF whose reference blocks are the same however the genome was cut into shards.
//
// The first and the last block of a shard are not in its file but in its result; the final writer joins them with
// their neighbours. In a partial file they stand as comment lines around the contig's records.
// Contract as in vcf_writer.h.
#pragma once

#include <algorithm>

#include "readdata/vcf/gq_block.h"
#include "readdata/vcf/vcf_writer.h"

class GVCFWriter final : public VCFWriter {
 public:
  // What lies in order of position: head, the records of the shard's file, tail. The caller
  // - makes `head` the first block when no record comes before it, else leaves it empty where the shard begins;
  // - makes `tail` the last block, which is the only one when there is just one, when no record comes behind it. Else
  //   it leaves it empty where the last of its records ends; when that is past the shard's end (a deletion), `start` is
  //   there and `end` at the start of its last record, so that records of the next shard inside the deletion are kept.
  // A shard may reach beyond its end: what the next one has of the same stretch is dropped. The index is never null,
  // also for a shard with no records; a result without one is passed over.
  struct Result : VCFWriter::Result {
    GQBlock head, tail;
  };

  using VCFWriter::VCFWriter;
  std::unique_ptr<VCFWriter> clone() override;
  using VCFWriter::merge;
  void merge(VCFWriter::Result* result, IOHandle* handle) override;
  void merge(const std::string& partialPath) override;

  // Of partial files: all positions of the contigs that they have must be in one of them.
  void expectAllPositions() { expectsAll_ = true; }

  // Writes the record of a block if it has positions, or its comment line when `mode` is not 0; with a negative one the
  // index of the contig begins behind that line. The block is then empty at its old end.
  void writeBlock(GQBlock& block, int mode);

 private:
  GVCFWriter(GVCFWriter& parent) : VCFWriter(parent) {}

  void beginContig(const std::string& contig);
  void endContigOf(const VCFWriter::Result* next);
  bool placeBehindPending(Result& result, IOHandle& handle);
  void dropCovered(GenomeIndex::ContigIndex& ci, IOHandle& handle);
  void writePending();
  uint32_t complete() const { return std::max(pending_.start, pending_.end); }
  void requireNextPart(const std::string& contig, const GQBlock& first, const std::string& partialPath);
  void requireWholeContig() const;
  bool mergeNextContig(GenomeIndex& partial, IOHandle& handle, const std::string& partialPath);
  void readBlock(GQBlock& block, std::string& contig, IOHandle& handle, const std::string& partialPath);

  GQBlock pending_;              // held open: its start is how far the output is complete
  ContigLengths lengths_;        // of the partial file being merged
  VariantContext record_;        // scratch of writeBlock()
  bool pendingIsFirst_ = false;  // in a partial file, until the contig's first block was written
  bool expectsAll_ = false;      // of the partial files
  uint32_t partStart_ = 0;       // of the contig, in the partial file merged last
  std::string lastPartial_;
};
