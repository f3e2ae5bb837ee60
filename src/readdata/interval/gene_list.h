// gene_list.h - genes and their coding transcripts from a RefSeq table: 16 tab-separated columns or more
// (bin, name, chrom, strand, txStart, txEnd, cdsStart, cdsEnd, exonCount, exonStarts, exonEnds, score, name2,
// cdsStartStat, cdsEndStat, exonFrames).
// Coords   as in the table: zero-based half open.
// Owns     genes, transcripts and names; the pointers are good for the life of the list.
// Threads  loaded on one thread, read-only afterwards.
// Errors   load() tells them on standard error and returns false; the list must then not be used.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

struct Gene;

struct Transcript {
  enum Stat { kNone = 0, kUnknown = 1, kIncomplete = 2, kComplete = 3 };  // of an end of the coding region

  int32_t bin = 0;
  int32_t strand = 1;  // -1 for "+", 1 for anything else
  int32_t tx_start = 0, tx_end = 0;
  int32_t cds_start = 0, cds_end = 0;
  int32_t exon_count = 0;
  std::vector<int32_t> exon_starts, exon_ends, exon_frames;  // exon_count of each
  int32_t score = 0;
  int32_t cds_start_stat = kNone, cds_end_stat = kNone;
  std::string name;
  const char* contig = nullptr;
  const Gene* gene = nullptr;
};

struct Gene {
  int32_t index = 0;  // in order of first sight
  std::string name;
  std::vector<const Transcript*> transcripts;
};

class GeneList {
 public:
  GeneList() = default;
  GeneList(const GeneList&) = delete;
  GeneList& operator=(const GeneList&) = delete;

  // Keeps the transcripts whose coding region is not empty and has known ends, complete or not. To be called
  // once.
  bool load(const char* path);

  const std::map<std::string, std::vector<const Transcript*>>& by_contig() const { return by_contig_; }
  const std::map<std::string, Gene>& by_gene() const { return by_gene_; }
  const std::vector<const Gene*>& genes() const { return genes_; }
  uint32_t transcript_total() const { return transcript_total_; }
  uint32_t exon_total() const { return exon_total_; }

 private:
  bool addLine(const std::string& line, const char* path);

  std::vector<std::unique_ptr<Transcript>> transcripts_;
  std::map<std::string, std::vector<const Transcript*>> by_contig_;
  std::map<std::string, Gene> by_gene_;
  std::vector<const Gene*> genes_;  // by Gene::index
  uint32_t transcript_total_ = 0;
  uint32_t exon_total_ = 0;
};
