// variant_call_algo.h - what all callers share: options, header, the site decision, genotypes, annotations, dbSNP ids,
// reference blocks and the way of a record to the file. A caller finds candidate alleles and their likelihoods.
//
//   calculate     is there a variant, and which alternates stay
//   emitVariant   genotypes, annotations, filter, dbSNP, the line
//   addRefConfidence   positions without a record (mode gvcf)
//
// Coords   zero-based half open; likelihoods are log10, QUAL and GQ phred.
// Threads  the algorithm is constant while engines run; each engine has readers, priors and scratch of its own.
// Errors   std::invalid_argument and std::runtime_error with the algorithm's name in front.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "algo/algo.h"
#include "algo/vcall/annotate/annotator.h"
#include "algo/vcall/given_alleles.h"
#include "algo/vcall/gvcf_bands.h"
#include "algo/vcall/model/allele_priors.h"
#include "algo/vcall/model/exact_model.h"
#include "algo/vcall/model/site_context.h"
#include "readdata/vcf/gvcf_writer.h"
#include "readdata/vcf/vcf_cache.h"
#include "readdata/vcf/vcf_header.h"

class VariantCallAlgo : public Algo {
 public:
  class Engine;
  class Result;

  enum EmitMode : int { kVariant = 0, kConfident = 1, kAll = 2, kGvcf = 3 };

  std::vector<OutputFile> outputs() const override;
  std::vector<std::string> inputs() const override;
  // Log tables, dbSNP and given files, the output with its header; with --merge the whole job.
  void init() override;
  void merge(const Shard& shard, Algo::Result* result) override;
  void finish() override;

 protected:
  VariantCallAlgo(DriverContext* context, int count, const char* const args[]);
  ~VariantCallAlgo() override;

  // Bind options, in groups that each caller's help text puts between its own. A value that cannot be is thrown as
  // std::invalid_argument while parsing.
  void addAnnotationOption(OptionParser& parser);                         // annotation
  void addEmitOptions(OptionParser& parser, const char* emit_mode_help);  // call_conf, emit_conf, emit_mode
  void addGivenOption(OptionParser& parser);                              // given
  void addFileOptions(OptionParser& parser);                              // dbsnp; hidden: merge
  // Of a file that is read; an empty name is refused.
  void addFile(OptionParser& parser, const char* option, int shortLetter, const char* help,
               std::function<void(const char* path)> take);
  // Gives the help that was asked for, and returns false; else parses the arguments and settles what is common.
  bool readArguments(OptionParser& parser, const std::string& usage, int count, const char* const args[],
                     bool gvcf_allowed);
  // Takes the positional arguments, checks the common options and the run's inputs, and sets mode_mask and wanted_,
  // which the caller may change until init(). The usage texts are thrown as std::invalid_argument; an unknown annotation
  // is told on standard error and dropped.
  void settle(const std::vector<const char*>& positional, bool gvcf_allowed);
  // Chromosomes per sample, known when init() runs.
  virtual int ploidy() const { return 2; }
  // Whether the evidence is the run's reads.
  virtual bool needsReads() const { return true; }
  // What stands behind the output on the command line, unless it is a --merge run. By default nothing may.
  virtual void takeFurtherArguments(const std::vector<std::string>& arguments);
  // Sets samples_, by default with sample_of_group_ from the read groups. First step of init(), before side inputs and
  // the header; it may still change wanted_.
  virtual void takeSamples();
  // An indexed VCF of the run's reference; null for an empty path.
  std::unique_ptr<VCFCache> openVcf(const std::string& path) const;
  // What is said of a VCF of other contigs, behind the name.
  virtual std::string contigFault(const std::string& path) const {
    return ": contigs in vcf " + path + " are not compatible with the reference";
  }
  // Header lines of the caller itself: those that the common ones replace or stand behind, and those behind them.
  virtual void startHeader(VCFHeader&) {}
  virtual void addHeaderLines(VCFHeader&) {}

  // The samples of the output in column order: of reads the SM of the read groups, sorted.
  std::vector<std::string> samples_;
  std::vector<int32_t> sample_of_group_;  // by Read::read_group

  double call_conf_ = 30, emit_conf_ = 30;
  int emit_mode_ = kVariant;
  // As given, in order: a name adds to the set that every run has, one behind '!' removes from it.
  std::vector<std::string> annotations_;
  AnnotationSet wanted_;
  AnnotatorList annotators_;
  std::string output_, dbsnp_file_, given_file_;
  std::string gq_bands_text_ = "1-60,60-99/10,99";
  std::vector<int32_t> gq_bands_;
  bool merge_ = false;
  std::vector<std::string> partials_;
  std::unique_ptr<VCFCache> dbsnp_, given_;  // engines have copies
  std::unique_ptr<VCFWriter> writer_;

 private:
  void settleAnnotations();
  void mergePartials();
  void makeRoomInTables() const;
  std::unique_ptr<VCFWriter> openOutput(bool gvcf) const;
  void completeAnnotations();
  // variant_call_header.cpp
  void fillHeader(VCFHeader& header);
  void addContigLines(VCFHeader& header) const;
  void addAnnotationLines(VCFHeader& header) const;
  void addGvcfLines(VCFHeader& header) const;

  std::string emit_mode_text_;
};

// The part of an algorithm's result that reaches merge(): a file of lines for the shard, and in mode gvcf the blocks at
// its ends.
class VariantCallAlgo::Result final : public Algo::Result, public GVCFWriter::Result {
 public:
  std::string path;  // of the shard's file; empty when there is none
  uint64_t memorySize() const override;
};

class VariantCallAlgo::Engine : public Algo::Engine {
 public:
  Engine(DriverContext* context, VariantCallAlgo* algo);

  void startShard() override;
  void processNoCoor() override {}
  Algo::Result* finishShard() override;

 protected:
  // The cached priors of 0..numChr alternate chromosomes.
  const std::vector<double>& getPriors(int numChr, bool isSNP) { return priors_.getPriors(numChr, isSNP); }

  // Runs the model on the site's likelihoods. Returns the number of alternates that stay, 0 for nothing to emit, -1 for
  // a reference-only record that must be emitted all the same. An alternate that is too weak gets length 0, but not in
  // mode gvcf or with a given file. `qual` is set unless the return is 0 for want of data. A site without alternates has
  // no QUAL (NaN) and counts in mode all only.
  int calculate(Site& site, double* qual, int emitMode, double callConf, double emitConf);
  int calculate(Site& site, double* qual) {
    return calculate(site, qual, emit_mode_, call_conf_, emit_conf_);
  }

  // Writes the record of a site; of the model's last run the counts enter the annotations. Sites come in order of
  // position. REF and the alternates lose what all of them end in.
  void emitVariant(const Site& site, double qual);

  // Positions without a record, in mode gvcf; see BandCollector.
  void addRefConfidence(uint32_t start, uint32_t end, const char* refBases, const double* likelihoods,
                        const int32_t* depth, int ploidy);

  // The positions up to `end` are those of a record of the shard before, in mode gvcf; see BandCollector.
  void passOver(uint32_t end) { bands_.passOver(end); }

  // Makes the dbSNP records of [start, end) those that emitVariant() looks among. Before the records of a region.
  virtual void fetchDb(uint32_t start, uint32_t end);

  const VariantCallAlgo& vcall() const { return *static_cast<const VariantCallAlgo*>(algo); }
  size_t sampleCount() const { return vcall().samples_.size(); }
  int32_t sampleOf(const Read& read) const { return vcall().sample_of_group_[size_t(read.read_group)]; }
  bool hasGiven() const { return given_cache_ != nullptr; }

  // Called for each record when it has its place and alleles, before genotypes and annotations.
  virtual void startRecord(const Site&, VariantContext&) {}

  // Makes the record of a site: place and alleles.
  void placeRecord(const Site& site, VariantContext& record) const;
  // Takes the id of the dbSNP record with an alternate of this one, which is flagged DB.
  void setId(VariantContext& record);
  // The first of the records, in order of position, at the place of `record` with its REF and one of its alternates; null
  // when there is none.
  static const VCFLine* findKnown(std::span<const VCFLine> known, const VariantContext& record);

  // The two halves of emitVariant(). A record that waits between them needs its bases kept, for it does not own them.
  void makeRecord(const Site& site, double qual, VariantContext& record);
  void writeRecord(const VariantContext& record);

  double call_conf_, emit_conf_;
  int emit_mode_;
  AlleleCountResult model_;
  std::unique_ptr<VCFCache> given_cache_;  // null without a given file

 private:
  void setAlleles(const Site& site, VariantContext& record) const;
  template <typename Work>
  void writeTemp(Work work);

  AllelePriors priors_;
  std::unique_ptr<VCFCache> db_cache_;
  size_t db_cursor_ = 0;  // in the cache's records: those before lie behind the last record written
  std::unique_ptr<VCFWriter> writer_;
  BandCollector bands_;
  VariantContext record_;
  std::vector<const GenotypeLikelihoods*> informative_;  // scratch
  std::vector<SiteRead> pileup_, row_reads_;
  std::vector<GenotypeCall> calls_;
};
