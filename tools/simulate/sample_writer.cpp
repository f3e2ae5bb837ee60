#include "sample_writer.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <tuple>
#include <unistd.h>

#include "base/text.h"
#include "readdata/bam/bam_impl.h"
#include "record_maker.h"

namespace {

bam_header makeHeader(const SimulateOptions& options, const Genome& genome, size_t sample) {
  bam_header header;
  header.text = "@HD\tVN:1.6\tSO:coordinate\n";
  for (const GenomeContig& contig : genome.contigs) {
    header.names.push_back(contig.name);
    header.lengths.push_back(contig.length());
    header.text += "@SQ\tSN:" + contig.name + "\tLN:" + std::to_string(contig.length()) + "\n";
  }
  const std::string& name = options.samples[sample];
  for (int32_t group = 0; group < options.read_groups; ++group)
    header.text +=
        format("@RG\tID:%s\tSM:%s\tLB:%s-lib%d\tPL:ILLUMINA\tPU:%s.%d\n",
               RecordMaker::groupName(name, static_cast<size_t>(group)).c_str(), name.c_str(), name.c_str(),
               group % options.libraries + 1, RecordMaker::flowCell(sample).c_str(), group + 1);
  header.text += "@PG\tID:simulate\tPN:simulate\n";
  return header;
}

// Counts what a reader of the file can count.
struct RecordCounts {
  uint64_t records = 0, primary = 0, mapped = 0, half_mapped = 0, unplaced = 0, secondary = 0,
           supplementary = 0, flagged = 0, qc_fail = 0, proper = 0, apart = 0, soft = 0, hard = 0,
           inserted = 0, deleted = 0, mapq_0 = 0, mapq_60 = 0, mapq_between = 0;

  void add(const bam_record& record) {
    ++records;
    qc_fail += (record.flag & FLAG_QC_FAIL) != 0;
    flagged += (record.flag & FLAG_DUPLICATE) != 0;
    secondary += (record.flag & FLAG_SECONDARY) != 0;
    supplementary += (record.flag & FLAG_SUPPLEMENTARY) != 0;
    bool is_primary = (record.flag & (FLAG_SECONDARY | FLAG_SUPPLEMENTARY)) == 0;
    primary += is_primary;
    bool has[16] = {};
    for (uint32_t i = 0; i < record.n_cigar; ++i) has[cigarOp(record.cigarWord(i))] = true;
    soft += has[CIGAR_S];
    hard += has[CIGAR_H];
    inserted += has[CIGAR_I];
    deleted += has[CIGAR_D];
    if ((record.flag & FLAG_UNMAPPED) != 0) {
      ++(record.ref_id >= 0 ? half_mapped : unplaced);
      return;
    }
    ++mapped;
    ++(record.mapq == 0 ? mapq_0 : record.mapq < 60 ? mapq_between : mapq_60);
    if (!is_primary) return;
    proper += (record.flag & FLAG_PROPER_PAIR) != 0;
    apart += (record.flag & FLAG_MATE_UNMAPPED) == 0 && record.ref_id != record.next_ref_id;
  }
};

// A record whose turn has not come: the heap's order is (contig, position, fragment, order in it).
struct Waiting {
  uint32_t contig, start;  // UINT32_MAX without a place
  uint64_t serial;
  uint32_t part;
  bam_record record;
};

bool laterThan(const Waiting& a, const Waiting& b) {
  return std::tie(a.contig, a.start, a.serial, a.part) > std::tie(b.contig, b.start, b.serial, b.part);
}

class SortedWriter {
 public:
  SortedWriter(BAMImpl& bam, RecordCounts& counts) : bam_(bam), counts_(counts) {}

  void add(const Fragment& fragment, std::vector<bam_record>& records) {
    uint32_t part = 0;
    for (bam_record& record : records) {
      heap_.push_back({static_cast<uint32_t>(record.ref_id), static_cast<uint32_t>(record.pos),
                       fragment.serial, part++, std::move(record)});
      std::push_heap(heap_.begin(), heap_.end(), laterThan);
    }
    records.clear();
  }

  // Writes what comes before this place.
  void writeUntil(uint32_t contig, uint32_t start) {
    while (!heap_.empty() && std::tie(heap_.front().contig, heap_.front().start) < std::tie(contig, start))
      writeFirst();
  }
  void writeAll() {
    while (!heap_.empty()) writeFirst();
  }

 private:
  void writeFirst() {
    std::pop_heap(heap_.begin(), heap_.end(), laterThan);
    counts_.add(heap_.back().record);
    bam_.writeRecord(heap_.back().record);
    heap_.pop_back();
  }

  BAMImpl& bam_;
  RecordCounts& counts_;
  std::vector<Waiting> heap_;
};

Tally makeTally(const FragmentCounts& fragments, const RecordMaker::Counts& reads,
                const RecordCounts& records, size_t read_groups, size_t libraries) {
  return {{"pairs", fragments.pairs},
          {"pcr duplicates", fragments.pcr_copies},
          {"optical duplicates", fragments.optical_copies},
          {"short inserts", fragments.short_inserts},
          {"adapter reads", reads.adapter_reads},
          {"adapter dimer reads", reads.adapter_dimers},
          {"chimeras", fragments.chimeras},
          {"chimeras split in a read", fragments.split_chimeras},
          {"records", records.records},
          {"primary", records.primary},
          {"secondary", records.secondary},
          {"supplementary", records.supplementary},
          {"mapped", records.mapped},
          {"unmapped beside mate", records.half_mapped},
          {"unplaced", records.unplaced},
          {"properly paired", records.proper},
          {"mate on another contig", records.apart},
          {"flagged duplicate", records.flagged},
          {"qc fail", records.qc_fail},
          {"soft clipped", records.soft},
          {"hard clipped", records.hard},
          {"with insertion", records.inserted},
          {"with deletion", records.deleted},
          {"mapq 0", records.mapq_0},
          {"mapq 1-59", records.mapq_between},
          {"mapq 60", records.mapq_60},
          {"read groups", read_groups},
          {"libraries", libraries}};
}

}  // namespace

Tally writeSample(const SimulateOptions& options, const Genome& genome, const Variants& variants,
                  const std::vector<Artefact>& artefacts, size_t sample, const std::string& path) {
  HaplotypeSet haplotypes;
  for (const WeightedHaplotype& alleles : variants.samples[sample].haplotypes) {
    std::vector<Haplotype> contigs;
    for (uint32_t c = 0; c < genome.contigs.size(); ++c)
      contigs.emplace_back(genome.contigs[c], c, variants.sites, alleles.alleles);
    haplotypes.push_back(std::move(contigs));
  }
  FragmentCounts fragment_counts;
  std::vector<Fragment> fragments =
      planFragments(options, genome, variants.samples[sample], sample, haplotypes, fragment_counts);

  // The index of an earlier run must not stand beside a file that is not whole.
  std::string index_path = path + ".bai";
  if (unlink(index_path.c_str()) != 0 && errno != ENOENT)
    throw std::runtime_error("Failed to remove " + index_path + ": " + strerror(errno));
  auto header = std::make_shared<const bam_header>(makeHeader(options, genome, sample));
  checkBaiContigs(*header);
  BAMImpl bam(path);
  bam.open(("w" + std::to_string(options.compression)).c_str());
  bam.header = header;
  bam.writeHeader();
  BamIndex index;
  BamIndexHelper helper(index, header->contigCount(), path, bam.tell());
  bam.setIndexBuilder(&helper);
  RecordMaker maker(options, genome, haplotypes, artefacts, options.samples[sample], sample);
  RecordCounts record_counts;
  SortedWriter writer(bam, record_counts);
  std::vector<bam_record> records;
  for (const Fragment& fragment : fragments) {
    writer.writeUntil(fragment.first_contig, fragment.first_place);
    maker.make(fragment, records);
    writer.add(fragment, records);
  }
  writer.writeAll();
  helper.finish(bam.tell());
  bam.close();
  if (!index.save(index_path))
    throw std::runtime_error("Failed to write " + index_path + ": " + strerror(errno));
  return makeTally(fragment_counts, maker.counts(), record_counts, static_cast<size_t>(options.read_groups),
                   static_cast<size_t>(options.libraries));
}
