// pair_hmm.h - the probability of reads given candidate sequences.
// Units    log10 likelihoods; qualities are phred.
// Owns     PairHMM owns its model. Engines belong to the thread that first used them and live as long as it.
// Threads  constant once configured: calcLikelihood() may run on several threads, on different rows.
// Source   Durbin et al., Biological Sequence Analysis (1998), chapter 4: the pair HMM with affine gaps.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "algo/vcall/pairhmm/read_clip.h"
#include "readdata/vcf/allele.h"

class PairHMM {
 public:
  class Engine;  // one kernel: its tables and its score; see engine.h
  class Model;

  enum PcrModel : int { kNone = 0, kHostile = 1, kAggressive = 2, kConservative = 3 };

  // As many rows that follow one another are evaluated at once where the processor can, in the time of the longest read.
  static constexpr unsigned kRowsAtOnce = 16;
  // A debugIndex that traces nothing.
  static constexpr int kNoTrace = INT32_MAX;

  // Throws std::runtime_error when the variable `phmm` names an engine that is unknown or that the processor cannot run:
  // for the time before threads start, whose first call would throw the same.
  static void checkEngine();

  explicit PairHMM(std::unique_ptr<Model> model);  // of models.h
  ~PairHMM();

  // Settings of the model in the form name=value,...; an unknown name is passed over. False, told on standard error, for
  // a value that is out of range. Throws std::invalid_argument ": invalid phmm_param format " and the text; the caller
  // puts its name in front.
  bool configure(const std::string& params);

  // Fills rows [first, last) of `out`, of reads.size() rows of alleles.size() values. A row that begins with NaN is left
  // alone; a read that fits no allele gets NaN in front. The evaluated bases are those of the clip. The cell
  // `debugIndex` of `out` is traced on standard error, every cell when it is negative.
  void calcLikelihood(const std::vector<ReadClip>& reads, const std::vector<Allele>& alleles, double* out,
                      unsigned first, unsigned last, int debugIndex = kNoTrace) const;

 private:
  std::unique_ptr<Model> model_;
};
