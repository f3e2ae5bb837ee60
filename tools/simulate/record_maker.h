// record_maker.h - the alignment records of one fragment. Alignments are those of the truth: the CIGAR follows
// from the haplotype's indels, cleaned up at the read ends as aligners do.
// Threads  one maker per thread; what a fragment becomes depends on the fragment alone.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "artefact.h"
#include "cigar_edit.h"
#include "fragments.h"
#include "quality_model.h"
#include "readdata/bam/bam_record.h"

class RecordMaker {
 public:
  struct Counts {
    uint64_t adapter_reads = 0;   // reads that go on into the adapter
    uint64_t adapter_dimers = 0;  // unmapped reads that begin with it
  };

  // Borrows everything but the names.
  RecordMaker(const SimulateOptions& options, const Genome& genome, const HaplotypeSet& haplotypes,
              const std::vector<Artefact>& artefacts, const std::string& sample_name, size_t sample);

  // Appends the fragment's records: each end's primary, then its supplementary and secondary ones.
  void make(const Fragment& fragment, std::vector<bam_record>& out);

  const Counts& counts() const { return counts_; }
  // As in the @RG header lines.
  static std::string groupName(const std::string& sample_name, size_t group);
  static std::string flowCell(size_t sample);

 private:
  // A stretch of the read with a place in the genome.
  struct Alignment {
    uint32_t contig = 0, start = 0;  // reference
    bool reversed = false;
    Cigar cigar;  // in reference order, clips soft, all of the read
    uint8_t mapq = 0;
    Differences differences;
    uint32_t end() const { return start + referenceLength(cigar); }
  };
  struct End {
    std::string bases;  // in the order of the cycles
    std::vector<uint8_t> quals;
    std::vector<Alignment> alignments;  // the primary one first; empty when unmapped
    bool mapped() const { return !alignments.empty(); }
  };

  void readEnd(const Fragment& fragment, bool at_end, Rng& rng, End& end);
  void readPiece(const Fragment& fragment, const Piece& piece, bool backwards, uint32_t count, Rng& rng,
                 End& end);
  bool slipped(const Haplotype& haplotype, const Piece& piece, bool reversed, uint32_t count, Rng& rng,
               Alignment& alignment, std::string& bases) const;
  void addJunk(bool second, Rng& rng, End& end, uint32_t& at_start, uint32_t& at_end) const;
  void addArtefacts(const Fragment& fragment, bool second, End& end) const;
  bool shows(const Artefact& artefact, const Fragment& fragment, bool second, bool reversed,
             uint32_t from_end) const;
  void finishAlignments(Rng& rng, End& end, uint32_t junk_start, uint32_t junk_end);
  void orient(const End& end, bool reversed);
  void writeEnd(const Fragment& fragment, const End& own, const End& mate, bool first, Rng& rng,
                std::vector<bam_record>& out);
  bool secondaryOf(const End& end, Rng& rng, Alignment& other);

  struct Draft;  // what encode() needs of one record
  void encode(const Fragment& fragment, const Draft& draft, std::vector<bam_record>& out);

  const SimulateOptions& options_;
  const Genome& genome_;
  const HaplotypeSet& haplotypes_;
  const std::vector<Artefact>& artefacts_;  // sorted by place
  QualityModel quality_;
  uint64_t stream_, artefact_stream_;
  std::string name_start_;
  std::vector<std::string> groups_;
  Counts counts_;

  End ends_[2];                // of the fragment at work; kept for their memory
  std::string oriented_;       // bases in reference order
  std::vector<uint8_t> data_;  // of the record at work
};
