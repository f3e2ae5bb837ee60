// A site on its way to the file: the decision, the record, reference blocks.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <string_view>

#include "algo/vcall/model/genotype_assignment.h"
#include "algo/vcall/variant_call_algo.h"

VariantCallAlgo::Engine::Engine(DriverContext* context, VariantCallAlgo* algo)
    : Algo::Engine(context, algo),
      call_conf_(algo->call_conf_),
      emit_conf_(algo->emit_conf_),
      emit_mode_(algo->emit_mode_),
      writer_(algo->writer_->clone()),
      bands_(algo->gq_bands_) {
  if (algo->given_) given_cache_ = std::make_unique<VCFCache>(*algo->given_);
  if (algo->dbsnp_) db_cache_ = std::make_unique<VCFCache>(*algo->dbsnp_);
}

// ---- shards ----

// Does what writes to the shard's file; a failure is told with the file's name.
template <typename Work>
void VariantCallAlgo::Engine::writeTemp(Work work) {
  try {
    work();
  } catch (const std::runtime_error&) {
    throw std::runtime_error(writer_->path() + ": " + strerror(errno) + "\n" + algo->name +
                             ": failed to write to temp file");
  }
}

void VariantCallAlgo::Engine::startShard() {
  Algo::Engine::startShard();
  const Shard& shard = context->shard;
  if (strcmp(shard.contig, kNoCoor) == 0) return;
  if (db_cache_) db_cache_->setContig(shard.contig);
  if (given_cache_) given_cache_->setContig(shard.contig);
  db_cursor_ = 0;
  vcall().openShardFile([this] { writer_->open(shardName(vcall().output_)); });
  writeTemp([&] { writer_->startContig(shard.contig); });
  if (vcall().emit_mode_ == kGvcf)
    bands_.startShard(static_cast<GVCFWriter&>(*writer_), shard.start, shard.end);
}

Algo::Result* VariantCallAlgo::Engine::finishShard() {
  auto result = std::make_unique<Result>();
  if (!writer_->isOpen()) return result.release();
  result->path = writer_->path();
  if (vcall().emit_mode_ == kGvcf) bands_.finishShard(*result);
  writeTemp([&] {
    writer_->endContig(*result);
    writer_->close();
  });
  return result.release();
}

void VariantCallAlgo::Engine::fetchDb(uint32_t start, uint32_t end) {
  if (!db_cache_) return;
  db_cache_->fetch(static_cast<int32_t>(start), static_cast<int32_t>(end));
  db_cache_->requireColumn(VCFLine::kInfo);
  db_cursor_ = 0;
}

void VariantCallAlgo::Engine::addRefConfidence(uint32_t start, uint32_t end, const char* refBases,
                                               const double* likelihoods, const int32_t* depth, int ploidy) {
  writeTemp([&] { bands_.addRefConfidence(start, end, refBases, likelihoods, depth, ploidy); });
}

// ---- the decision ----

int VariantCallAlgo::Engine::calculate(Site& site, double* qual, int emitMode, double callConf,
                                       double emitConf) {
  const int fallback = emitMode == kConfident || emitMode == kAll ? -1 : 0;
  informative_.clear();
  int numChr = 0;
  bool diploid = true;
  for (const GenotypeLikelihoods& likelihoods : site.likelihoods) {
    if (likelihoods.gl.empty()) continue;
    informative_.push_back(&likelihoods);
    numChr += static_cast<int>(likelihoods.ploidy);
    diploid = diploid && likelihoods.ploidy == 2;
  }
  model_.mleCounts.assign(site.alts.size(), 0);
  if (numChr == 0) return 0;
  if (site.alts.empty()) {
    *qual = std::numeric_limits<double>::quiet_NaN();
    return emitMode == kAll ? fallback : 0;
  }

  const std::vector<double>& priors = getPriors(numChr, site.isSNP);
  const int alts = static_cast<int>(site.alts.size());
  if (diploid)
    DiploidExactModel::compute(informative_, alts, priors, model_);
  else
    GeneralExactModel::compute(informative_, alts, priors, model_);

  int passing = 0;
  for (size_t a = 0; a < site.alts.size(); ++a) {
    if (site.alts[a].length > 0 && -10 * model_.log10PNonRef[a] > emitConf)
      ++passing;
    else if (emitMode != kGvcf && !hasGiven())
      site.alts[a].length = 0;
  }
  // What is added makes 0 of -0.
  *qual = -10 * (passing > 0 || hasGiven() ? model_.log10PosteriorAC0 : model_.log10PosteriorACgt0) + 0.0;
  if (emitMode != kAll && *qual < callConf && *qual < emitConf) return 0;
  return passing > 0 ? passing : fallback;
}

// ---- records ----

namespace {

// The `i`th base from the end of an allele as it is written.
char fromEnd(const Allele& allele, int32_t suffix, const VariantContext& record, int32_t i) {
  return i < suffix ? record.ref[record.refLength - 1 - i] : allele.bases[allele.length - 1 - (i - suffix)];
}

int32_t suffixOf(const Allele& allele, const VariantContext& record) {
  return allele.refSuffix < record.refLength ? std::max(allele.refSuffix, 0) : 0;
}

// How many bases REF and the alternates end in alike, without the last that each must keep. With symbolic alternates
// alone, or none, REF is one base.
int32_t commonSuffix(const VariantContext& record) {
  int32_t common = record.refLength - 1;
  for (const Allele& allele : record.alleles) {
    if (allele.isSymbolic() || isSpanningDeletion(allele)) continue;
    const int32_t suffix = suffixOf(allele, record);
    common = std::min(common, allele.length + suffix - 1);
    for (int32_t i = 0; i < common; ++i)
      if (fromEnd(allele, suffix, record, i) != record.ref[record.refLength - 1 - i]) common = i;
  }
  return common;
}

char upper(char base) {
  return base >= 'a' && base <= 'z' ? static_cast<char>(base - 'a' + 'A') : base;
}

bool sameBases(std::string_view text, const char* bases, size_t length) {
  return text.size() == length &&
         std::equal(text.begin(), text.end(), bases, [](char a, char b) { return upper(a) == upper(b); });
}

// Whether an ALT word is that alternate of the record.
bool sameAlternate(std::string_view word, const Allele& allele, const VariantContext& record) {
  if (allele.isSymbolic()) return false;
  const auto suffix = static_cast<size_t>(suffixOf(allele, record)), own = static_cast<size_t>(allele.length);
  return word.size() == own + suffix && sameBases(word.substr(0, own), allele.bases, own) &&
         sameBases(word.substr(own), record.ref + record.refLength - suffix, suffix);
}

bool hasAlternateOf(std::string_view alt, const VariantContext& record) {
  for (size_t from = 0; from <= alt.size();) {
    const size_t comma = std::min(alt.find(',', from), alt.size());
    const std::string_view word = alt.substr(from, comma - from);
    for (const Allele& allele : record.alleles)
      if (sameAlternate(word, allele, record)) return true;
    from = comma + 1;
  }
  return false;
}

}  // namespace

void VariantCallAlgo::Engine::setAlleles(const Site& site, VariantContext& record) const {
  record.ref = site.ref.bases;
  record.refLength = site.ref.length;
  for (const Allele& alt : site.alts)
    if (alt.length > 0) record.alleles.push_back(alt);
  const int32_t common = site.trims ? commonSuffix(record) : 0;
  if (common > 0) {
    for (Allele& allele : record.alleles) {
      if (allele.isSymbolic() || isSpanningDeletion(allele)) continue;
      const int32_t suffix = suffixOf(allele, record);
      allele.refSuffix = std::max(suffix - common, 0);
      allele.length -= std::max(common - suffix, 0);
    }
    record.refLength -= common;
  }
  record.start = site.position;
  record.end = site.position + static_cast<uint32_t>(record.refLength);
}

void VariantCallAlgo::Engine::placeRecord(const Site& site, VariantContext& record) const {
  record.clear();
  record.chrom = context->shard.contig;
  setAlleles(site, record);
}

void VariantCallAlgo::Engine::makeRecord(const Site& site, double qual, VariantContext& record) {
  placeRecord(site, record);
  record.qual = qual;
  startRecord(site, record);

  const bool gvcf = vcall().emit_mode_ == kGvcf;
  pileup_.clear();
  row_reads_.clear();
  if (site.pileup) collectPileup(site, vcall().sample_of_group_, pileup_);
  if (site.rows) collectRows(site, row_reads_);
  const GQStatistics gq = assignGenotypes(site, row_reads_, pileup_, vcall().samples_, gvcf, record, calls_);
  SiteContext described;
  described.site = &site;
  described.model = &model_;
  described.qual = qual;
  described.calls = calls_;
  described.reads = site.rows ? row_reads_ : pileup_;
  described.pileup = pileup_;
  described.gqMean = gq.mean;
  described.gqStddev = gq.stddev;
  described.gvcf = gvcf;
  for (const AnnotationDef* def : vcall().annotators_)
    def->object->annotate(record, described, vcall().wanted_);

  if (qual < call_conf_) record.addFilter("LowQual");
  setId(record);
}

void VariantCallAlgo::Engine::setId(VariantContext& record) {
  if (!db_cache_) return;
  const std::span<const VCFLine> known = db_cache_->records();
  const auto position = static_cast<int32_t>(record.start);
  while (db_cursor_ < known.size() && known[db_cursor_].pos < position) ++db_cursor_;
  if (const VCFLine* const same = findKnown(known.subspan(db_cursor_), record)) {
    record.id = same->column(VCFLine::kId);
    record.setFlag("DB", true);
  }
}

const VCFLine* VariantCallAlgo::Engine::findKnown(std::span<const VCFLine> known,
                                                  const VariantContext& record) {
  const auto position = static_cast<int32_t>(record.start);
  for (const VCFLine& line : known) {
    if (line.pos > position) break;
    if (line.pos == position &&
        sameBases(line.column(VCFLine::kRef), record.ref, static_cast<size_t>(record.refLength)) &&
        hasAlternateOf(line.column(VCFLine::kAlt), record))
      return &line;
  }
  return nullptr;
}

void VariantCallAlgo::Engine::writeRecord(const VariantContext& record) {
  writeTemp([&] {
    if (vcall().emit_mode_ == kGvcf) bands_.beforeRecord(record.start, record.end);
    writer_->write(record, vcall().samples_);
  });
}

void VariantCallAlgo::Engine::emitVariant(const Site& site, double qual) {
  makeRecord(site, qual, record_);
  writeRecord(record_);
}
