// models.h - how likely a read is to be wrong at each of its positions, and what becomes of a finished row.
// Units    qualities are phred without offset, rows are log10 likelihoods.
// Threads  constant once configured.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "algo/vcall/pairhmm/pair_hmm.h"

class PairHMM::Model {
 public:
  // Applies the settings that it knows. False, told on standard error, for a value that cannot be.
  virtual bool configure(const std::map<std::string, double>& settings) = 0;
  virtual ~Model() = default;
  virtual unsigned maxReadLength(unsigned n) const { return n; }
  // Gives the qualities of each position of the clip to the engine.
  virtual void setupRead(const ReadClip& clip, Engine& engine, bool debug) const = 0;
  // Caps the row of the clip, `nAlleles` values; refIndex is below 0 without a reference. A NaN in front drops the read.
  virtual void finishRead(const ReadClip& clip, double* row, int nAlleles, int refIndex) const = 0;
};

// Gaps cost less inside of homopolymers. Settings "indelGOP" and "indelGCP".
class IndelModel : public PairHMM::Model {
 public:
  IndelModel(int gop, int gcp);
  bool configure(const std::map<std::string, double>& settings) override;
  void setupRead(const ReadClip& clip, PairHMM::Engine& engine, bool debug) const override;
  void finishRead(const ReadClip&, double*, int, int) const override {}

 private:
  void fillGapTable();

  std::vector<uint8_t> gap_table_;  // by length of the homopolymer
  uint8_t gop_, gcp_;
};

// Gap qualities are the read's own, capped where a short repeat makes slips of the polymerase likely.
class HaploModel : public PairHMM::Model {
 public:
  explicit HaploModel(int pcrModel);
  bool configure(const std::map<std::string, double>& settings) override;
  void setupRead(const ReadClip& clip, PairHMM::Engine& engine, bool debug) const override;
  void finishRead(const ReadClip& clip, double* row, int nAlleles, int refIndex) const override;
  uint8_t mapQualCap() const { return map_qual_cap_; }

 private:
  void fillPcrTable();

  int32_t pcr_model_;
  double pcr_error_rate_;           // "pcrErrorRate"; no cap at 0 or below
  std::vector<uint8_t> pcr_table_;  // by number of repeats, up to 20; empty without a cap
  uint8_t constant_gcp_ = 10;       // "constantGCP"
  uint8_t map_qual_cap_ = 0;        // "mapQualCap" of base qualities; 0 takes the mapping quality of the read
  uint8_t base_qual_thresh_ = 18;   // "baseQualThresh": base qualities below it count as 6
  double log10_mismap_rate_ = -4.5;        // "log10MismapRate"
  double max_error_rate_per_base_ = 0.02;  // "maxErrorRatePerBase"
  double max_errors_for_read_ = 2.0;       // "maxErrorsForRead"
  double log10_qual_per_base_ = -4.0;      // "log10QualPerBase"
  bool filter_poor_modeled_read_ = true;   // "filterPoorModeledRead"
};

// One HaploModel for the reads of the normal sample and one for all others. A setting with "normal:" or "tumor:" in front
// goes to one of them, any other to both.
class TumorNormalModel : public PairHMM::Model {
 public:
  TumorNormalModel(int pcrModel, int normalSample);
  bool configure(const std::map<std::string, double>& settings) override;
  void setupRead(const ReadClip& clip, PairHMM::Engine& engine, bool debug) const override;
  void finishRead(const ReadClip& clip, double* row, int nAlleles, int refIndex) const override;
  // "mapQualCap" as set for the sample: the highest base quality, or 0 for the mapping quality of the read.
  uint8_t mapQualCap(int32_t sample) const { return modelOf(sample).mapQualCap(); }

 private:
  const HaploModel& modelOf(int32_t sample) const { return sample == normal_sample_ ? normal_ : tumor_; }

  HaploModel normal_, tumor_;
  int32_t normal_sample_;
};
