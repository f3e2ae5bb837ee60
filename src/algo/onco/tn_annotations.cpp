#include "algo/onco/tn_annotations.h"

#include <cmath>
#include <limits>
#include <string_view>

#include "algo/vcall/annotate/rank_sum_fields.h"
#include "algo/vcall/annotate/rank_sum_test.h"
#include "readdata/bam/bam_record.h"

namespace {

constexpr size_t kLongestUnit = 6;  // of a microsatellite, bases

// The shortest text that `text` consists of copies of.
size_t unitLength(std::string_view text) {
  for (size_t unit = 1; unit <= text.size() / 2; ++unit)
    if (text.size() % unit == 0 && text.substr(unit) == text.substr(0, text.size() - unit)) return unit;
  return text.size();
}

// Copies of `unit` in the reference that follow one another around `position`, where one begins or the last ends.
int countCopies(std::string_view bases, size_t position, std::string_view unit) {
  int copies = 0;
  for (size_t at = position; bases.substr(at, unit.size()) == unit; at += unit.size()) ++copies;
  for (size_t at = position; at >= unit.size() && bases.substr(at - unit.size(), unit.size()) == unit;
       at -= unit.size())
    ++copies;
  return copies;
}

bool isOf(const LocusRead& read, int32_t sample, int32_t allele) {
  return read.counts() && read.sample == sample && read.allele == allele;
}

void annotateRankSums(const LocusReads& reads, int32_t sample, int32_t allele, const std::string& column,
                      VariantContext& record) {
  std::vector<const SiteRead*> compared;  // those of the reference first
  const auto file = [&](int32_t wanted) {
    for (const LocusRead& read : reads.reads())
      if (isOf(read, sample, wanted) && isComparable(read)) compared.push_back(&read);
  };
  file(0);
  const size_t references = compared.size();
  file(allele);

  const double neighbours = neighbourQuality(compared);
  if (!std::isnan(neighbours)) record.addGenotype(column, "NBQPS", "%0.3f", neighbours);
  std::vector<int32_t> reference(references), alternate(compared.size() - references);
  if (alternate.empty()) return;
  int64_t distance = 0;
  for (size_t i = references; i < compared.size(); ++i) distance += readEndDistance(*compared[i]);
  record.addGenotype(column, "ReadPosEndDistPS", "%0.3f", double(distance) / double(alternate.size()));
  if (reference.empty()) return;
  for (const RankSumField& field : kRankSumFields) {
    if (field.field == AnnotationField::ReadPosEndDist) continue;
    for (size_t i = 0; i < compared.size(); ++i)
      (i < references ? reference[i] : alternate[i - references]) = field.value(*compared[i]);
    record.addGenotype(column, std::string(field.name) + "PS", "%0.3f", rankSumZ(alternate, reference));
  }
}

}  // namespace

TandemRepeat TandemRepeat::find(const ReferenceWindow& reference, uint32_t position, const std::string& ref,
                                const std::string& alt) {
  size_t shared = 0;
  while (shared < ref.size() && shared < alt.size() && ref[shared] == alt[shared]) ++shared;
  const bool longer = alt.size() > ref.size();
  const std::string_view event = std::string_view(longer ? alt : ref).substr(shared);
  const uint64_t place = uint64_t(position) + shared;
  TandemRepeat found;
  // One side is nothing but what both begin with.
  if (event.empty() || shared != std::min(ref.size(), alt.size())) return found;
  if (place < reference.start || place > reference.end()) return found;
  const size_t unit = unitLength(event);
  if (unit > kLongestUnit) return found;
  const int in_ref = countCopies(reference.bases, place - reference.start, event.substr(0, unit));
  const int change = int(event.size() / unit), in_alt = in_ref + (longer ? change : -change);
  if (in_ref < 1 || in_alt < 1) return found;
  found.isRepeat = true;
  found.unit = event.substr(0, unit);
  found.repeats = {in_ref, in_alt};
  return found;
}

Orientation orientationOf(const Read& read) {
  const bool first = read.flag & FLAG_FIRST, second = read.flag & FLAG_SECOND;
  if (!(read.flag & FLAG_PAIRED) || first == second) return Orientation::kNone;
  return first != read.isReverse() ? Orientation::kF1R2 : Orientation::kF2R1;
}

AlleleEvidence evidenceOf(const LocusReads& reads, int32_t sample, int32_t allele) {
  AlleleEvidence sum;
  for (const LocusRead& read : reads.reads()) {
    const bool is_alt = isOf(read, sample, allele);
    if (!is_alt && !isOf(read, sample, 0)) continue;
    ++(is_alt ? sum.altCount : sum.refCount);
    (is_alt ? sum.altQualSum : sum.refQualSum) += read.qual;
    const Orientation orientation = orientationOf(*read.read);
    if (orientation == Orientation::kF1R2) ++(is_alt ? sum.altF1R2 : sum.refF1R2);
    if (orientation == Orientation::kF2R1) ++(is_alt ? sum.altF2R1 : sum.refF2R1);
  }
  return sum;
}

double foxog(const AlleleEvidence& evidence, char ref, char alt) {
  const int32_t both = evidence.altF1R2 + evidence.altF2R1;
  const bool of_c = ref == 'C' && alt == 'A', of_g = ref == 'G' && alt == 'T';
  if (both == 0 || (!of_c && !of_g)) return std::numeric_limits<double>::quiet_NaN();
  return double(of_c ? evidence.altF2R1 : evidence.altF1R2) / both;
}

void annotateSample(const LocusReads& reads, int32_t sample, int32_t allele, char ref, char alt,
                    const std::string& column, VariantContext& record) {
  const AlleleEvidence evidence = evidenceOf(reads, sample, allele);
  record.addGenotype(column, "AD", "%d", evidence.refCount);
  record.addGenotype(column, "AD", "%d", evidence.altCount);
  record.addGenotype(column, "AF", "%.3f", evidence.altFraction());
  record.addGenotype(column, "QSS", "%lld,%lld", static_cast<long long>(evidence.refQualSum),
                     static_cast<long long>(evidence.altQualSum));
  record.addGenotype(column, "ALT_F1R2", evidence.altF1R2);
  record.addGenotype(column, "ALT_F2R1", evidence.altF2R1);
  record.addGenotype(column, "REF_F1R2", evidence.refF1R2);
  record.addGenotype(column, "REF_F2R1", evidence.refF2R1);
  const double oxidised = foxog(evidence, ref, alt);
  if (!std::isnan(oxidised)) record.addGenotype(column, "FOXOG", "%.3f", oxidised);
  annotateRankSums(reads, sample, allele, column, record);
}
