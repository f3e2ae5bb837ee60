#include "algo/demo/alignment_summary_metric.h"

#include <algorithm>
#include <cstdlib>

#include "base/text.h"

namespace {

constexpr int32_t kMinAdapterRead = 16;    // shorter unmapped reads are never adapter
constexpr int kAdapterMismatches = 1;      // allowed
constexpr int kHighMapq = 20;              // phred, from here on a read is of high quality
constexpr uint8_t kHighBaseQuality = 20;   // phred
constexpr double kBadCycleFraction = 0.8;  // of all reads

double ratio(int64_t part, int64_t whole) {
  return whole ? double(part) / double(whole) : 0;
}

bool isNoCall(char base) {
  return base == 'N' || base == 'n' || base == '.';
}

}  // namespace

std::vector<std::string> AlignmentSummarySettings::defaultAdapters() {
  return {"AATGATACGGCGACCACCGAGATCTACACTCTTTCCCTACACGACGCTCTTCCGATCT",
          "AGATCGGAAGAGCGGTTCAGCAGGAATGCCGAGACCGATCTCGTATGCCGTCTTCTGCTTG",
          "AATGATACGGCGACCACCGAGATCTACACTCTTTCCCTACACGACGCTCTTCCGATCT",
          "AGATCGGAAGAGCACACGTCTGAACTCCAGTCACNNNNNNNNATCTCGTATGCCGTCTTCTGCTTG",
          "AATGATACGGCGACCACCGAGATCTACACTCTTTCCCTACACGACGCTCTTCCGATCT",
          "AGATCGGAAGAGCTCGTATGCCGTCTTCTGCTTG"};
}

void AlignmentSummaryMetric::Counters::add(const Counters& o) {
  total_reads += o.total_reads;
  pf_reads += o.pf_reads;
  pf_noise_reads += o.pf_noise_reads;
  pf_reads_aligned += o.pf_reads_aligned;
  pf_aligned_bases += o.pf_aligned_bases;
  pf_hq_aligned_reads += o.pf_hq_aligned_reads;
  pf_hq_aligned_bases += o.pf_hq_aligned_bases;
  pf_hq_aligned_q20_bases += o.pf_hq_aligned_q20_bases;
  reads_aligned_in_pairs += o.reads_aligned_in_pairs;
  adapter_reads += o.adapter_reads;
  positive_strand_reads += o.positive_strand_reads;
  pair_reads += o.pair_reads;
  chimeras += o.chimeras;
  total_bases += o.total_bases;
  indels += o.indels;
  mismatches += o.mismatches;
  aligned_bases += o.aligned_bases;
  hq_aligned_bases += o.hq_aligned_bases;
}

void AlignmentSummaryMetric::merge(const ReadMetrics& other) {
  const auto& same = static_cast<const AlignmentSummaryMetric&>(other);
  count_.add(same.count_);
  if (bad_cycles_.size() < same.bad_cycles_.size()) bad_cycles_.resize(same.bad_cycles_.size());
  for (size_t cycle = 0; cycle < same.bad_cycles_.size(); cycle++)
    bad_cycles_[cycle] += same.bad_cycles_[cycle];
  for (const auto& [mismatches, reads] : same.hq_mismatches_) hq_mismatches_[mismatches] += reads;
}

uint64_t AlignmentSummaryMetric::memorySize() const {
  constexpr uint64_t kMapNode = 64;  // bytes of a map entry, about
  return sizeof *this + sizeof(int64_t) * bad_cycles_.capacity() + kMapNode * hq_mismatches_.size();
}

void AlignmentSummaryMetric::update(Read& read, ReferenceSource& reference) {
  if (read.flag & (FLAG_SECONDARY | FLAG_SUPPLEMENTARY)) return;
  count_.total_reads++;
  count_.total_bases += read.length;
  if (read.flag & FLAG_QC_FAIL) return;

  count_.pf_reads++;
  const auto* own = dynamic_cast<const BAMRead*>(&read);
  if (own && aux_int(aux_find(own->record(), "XN")) == 1) count_.pf_noise_reads++;
  if (!read.isMapped()) {
    if (isAdapter(read)) count_.adapter_reads++;
    return;
  }
  if (!settings_->has_reference) return;
  count_.pf_reads_aligned++;
  if (!read.isReverse()) count_.positive_strand_reads++;
  if ((read.flag & (FLAG_PAIRED | FLAG_MATE_UNMAPPED)) == FLAG_PAIRED) countPairing(read);
  compareBases(read, reference);
}

bool AlignmentSummaryMetric::isAdapter(Read& read) const {
  if (read.length < kMinAdapterRead) return false;
  const char* bases = read.getBases();
  for (const std::string& adapter : settings_->adapters) {
    const int32_t length = std::min(read.length, int32_t(adapter.size()));
    int mismatches = 0;
    for (int32_t i = 0; i < length && mismatches <= kAdapterMismatches; i++)
      mismatches += adapter[i] != 'N' && adapter[i] != bases[i];
    if (mismatches <= kAdapterMismatches) return true;
  }
  return false;
}

// A read whose mate is mapped too.
void AlignmentSummaryMetric::countPairing(const Read& read) {
  count_.reads_aligned_in_pairs++;
  const auto* own = dynamic_cast<const BAMRead*>(&read);
  const uint8_t* mate_mapq = own ? aux_find(own->record(), "MQ") : nullptr;
  if (mate_mapq && (aux_int(mate_mapq) < kHighMapq || read.mapq < kHighMapq)) return;
  count_.pair_reads++;
  if (std::abs(int64_t(read.tlen)) > settings_->max_insert_size || read.mate_ref_id != read.ref_id)
    count_.chimeras++;
}

void AlignmentSummaryMetric::compareBases(Read& read, ReferenceSource& reference) {
  const bool high_quality = read.mapq >= kHighMapq;
  if (high_quality) count_.pf_hq_aligned_reads++;
  const char* bases = read.length ? read.getBases() : nullptr;
  int64_t hq_mismatches = 0;
  int64_t offset = 0, pos = read.start;  // in the read, on the contig
  for (uint32_t i = 0; i < read.n_cigar; i++) {
    const uint32_t word = read.cigarWord(i);
    const int64_t length = cigarLength(word);
    if (cigarOp(word) == CIGAR_I || cigarOp(word) == CIGAR_D) count_.indels++;
    if (cigarClass(word) == 3 && bases) {
      const int64_t end = std::min<int64_t>(pos + length, UINT32_MAX);
      const ReferenceWindow window = reference.under(uint32_t(pos), uint32_t(end));
      const int64_t from = std::max<int64_t>(pos, window.start), to = std::min<int64_t>(end, window.end);
      if (from < to)
        hq_mismatches += compareBlock(read, bases, int32_t(offset + (from - pos)),
                                      window.bases + (from - window.start), int32_t(to - from), high_quality);
    }
    if (consumesRead(word)) offset += length;
    if (consumesReference(word)) pos += length;
  }
  if (high_quality) hq_mismatches_[hq_mismatches]++;
}

int64_t AlignmentSummaryMetric::compareBlock(const Read& read, const char* bases, int32_t offset,
                                             const char* reference, int32_t length, bool high_quality) {
  const char* block = bases + offset;
  const uint8_t* quals = read.quals + offset;
  // Most blocks have nothing to tell base by base; these two sums are what the compiler makes vectors of.
  int32_t odd = 0, q20 = 0;
  for (int32_t i = 0; i < length; i++) odd += block[i] != reference[i] || isNoCall(block[i]);
  const bool has_quals = read.quals[0] != 0xff;
  if (high_quality && has_quals)
    for (int32_t i = 0; i < length; i++) q20 += quals[i] >= kHighBaseQuality;

  int64_t converted = 0, mismatches = 0;
  const bool reverse = read.isReverse();
  const int64_t first_cycle = reverse ? read.length - 1 - offset : offset, step = reverse ? -1 : 1;
  if (odd > 0) growBadCycles(std::max(first_cycle, first_cycle + (length - 1) * step));
  int64_t* const cycles = bad_cycles_.data();
  for (int32_t i = 0; odd > 0 && i < length; i++) {
    const char base = block[i];
    if (base == reference[i] && !isNoCall(base)) continue;
    bool equal = base == reference[i] || base == '=';  // '=' is SAM's own word for "as the reference"
    if (!equal && settings_->bisulfite &&
        (reverse ? reference[i] == 'G' && base == 'A' : reference[i] == 'C' && base == 'T')) {
      equal = true;
      converted++;
    }
    mismatches += !equal;
    if (!equal || isNoCall(base)) cycles[first_cycle + i * step]++;
  }
  count_.pf_aligned_bases += length;
  count_.aligned_bases += length - converted;
  count_.mismatches += mismatches;
  if (!high_quality) return 0;
  count_.pf_hq_aligned_bases += length;
  count_.hq_aligned_bases += length - converted;
  count_.pf_hq_aligned_q20_bases += q20;
  return mismatches;
}

void AlignmentSummaryMetric::growBadCycles(int64_t cycle) {
  if (size_t(cycle) >= bad_cycles_.size()) bad_cycles_.resize(size_t(cycle) + 1);
}

double AlignmentSummaryMetric::medianMismatches() const {
  int64_t reads = 0;
  for (const auto& [mismatches, count] : hq_mismatches_) reads += count;
  auto at = [this](int64_t place) {  // one-based
    for (const auto& [mismatches, count] : hq_mismatches_)
      if ((place -= count) <= 0) return double(mismatches);
    return 0.0;
  };
  if (reads == 0) return 0;
  return reads % 2 ? at((reads + 1) / 2) : (at(reads / 2) + at(reads / 2 + 1)) / 2;
}

void AlignmentSummaryMetric::compute() {
  derived_ = {};
  const Counters& c = count_;
  if (c.total_reads < 1) return;
  derived_.pct_pf_reads = ratio(c.pf_reads, c.total_reads);
  derived_.pct_adapter = ratio(c.adapter_reads, c.total_reads);
  derived_.mean_read_length = ratio(c.total_bases, c.total_reads);
  for (int64_t count : bad_cycles_) derived_.bad_cycles += ratio(count, c.total_reads) >= kBadCycleFraction;
  if (!settings_->has_reference) return;
  derived_.pct_pf_reads_aligned = ratio(c.pf_reads_aligned, c.pf_reads);
  derived_.pf_hq_median_mismatches = medianMismatches();
  derived_.pf_mismatch_rate = ratio(c.mismatches, c.aligned_bases);
  int64_t hq_mismatches = 0;
  for (const auto& [mismatches, count] : hq_mismatches_) hq_mismatches += mismatches * count;
  derived_.pf_hq_error_rate = ratio(hq_mismatches, c.hq_aligned_bases);
  derived_.pf_indel_rate = ratio(c.indels, c.aligned_bases);
  derived_.pct_reads_aligned_in_pairs = ratio(c.reads_aligned_in_pairs, c.pf_reads_aligned);
  derived_.strand_balance = ratio(c.positive_strand_reads, c.pf_reads_aligned);
  derived_.pct_chimeras = ratio(c.chimeras, c.pair_reads);
}

void AlignmentSummaryMetric::titles(std::vector<std::string>& list) const {
  list.push_back(
      "TOTAL_READS\tPF_READS\tPCT_PF_READS\tPF_NOISE_READS\tPF_READS_ALIGNED\tPCT_PF_READS_ALIGNED\t"
      "PF_ALIGNED_BASES\tPF_HQ_ALIGNED_READS\tPF_HQ_ALIGNED_BASES\tPF_HQ_ALIGNED_Q20_BASES\t"
      "PF_HQ_MEDIAN_MISMATCHES\tPF_MISMATCH_RATE\tPF_HQ_ERROR_RATE\tPF_INDEL_RATE\tMEAN_READ_LENGTH\t"
      "READS_ALIGNED_IN_PAIRS\tPCT_READS_ALIGNED_IN_PAIRS\tBAD_CYCLES\tSTRAND_BALANCE\tPCT_CHIMERAS\t"
      "PCT_ADAPTER\t");
}

void AlignmentSummaryMetric::lines(std::vector<std::string>& list) const {
  const Counters& c = count_;
  const Derived& d = derived_;
  std::string line = format("%ld\t%ld\t%lf\t%ld\t%ld\t%lf\t%ld\t", c.total_reads, c.pf_reads, d.pct_pf_reads,
                            c.pf_noise_reads, c.pf_reads_aligned, d.pct_pf_reads_aligned, c.pf_aligned_bases);
  line += format("%ld\t%ld\t%ld\t%lf\t%lf\t", c.pf_hq_aligned_reads, c.pf_hq_aligned_bases,
                 c.pf_hq_aligned_q20_bases, d.pf_hq_median_mismatches, d.pf_mismatch_rate);
  line += format("%lf\t%lf\t%lf\t%ld\t%lf\t", d.pf_hq_error_rate, d.pf_indel_rate, d.mean_read_length,
                 c.reads_aligned_in_pairs, d.pct_reads_aligned_in_pairs);
  line += format("%ld\t%lf\t%lf\t%lf\t", d.bad_cycles, d.strand_balance, d.pct_chimeras, d.pct_adapter);
  list.push_back(line + "\n");
}
