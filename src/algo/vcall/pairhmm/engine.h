// engine.h - one way to compute the score of a read given a haplotype: a precision, an order of the loops and an
// instruction set.
// Units    scores are log10 probabilities, qualities phred without offset.
// Owns     its buffers, which grow and never shrink.
// Threads  an engine belongs to one thread.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "algo/vcall/pairhmm/pair_hmm.h"

class PairHMM::Engine {
 public:
  virtual ~Engine() = default;

  // Room for reads of up to `maxRead` bases (or `gapLimit`, when that is more) and haplotypes of up to `maxHap`.
  virtual void resize(int maxRead, int maxHap, int gapLimit) = 0;
  // Base `pos` of a read of `length` bases; position 0 comes first and starts a new read. Qualities are 0..255.
  virtual void setPosition(int length, int pos, int baseQual, int insQual, int delQual, int gcp) = 0;
  // The probability of the read that the last setPosition() calls described. What `hap` shares at its ends with the
  // haplotype of the previous call for the same read is not computed again: that one must still be in memory.
  // -infinity when the probability is below what the precision can hold. REQUIRES: both lengths above 0, and within
  // those of resize(). `debug` writes the terms of the sum to standard error.
  virtual double score(int readLen, const uint8_t* read, int hapLen, const uint8_t* hap, bool debug) = 0;
};

// The engine of a name like "fhravx", null when there is none. Throws std::runtime_error when the processor lacks the
// instruction set.
std::unique_ptr<PairHMM::Engine> makeEngine(std::string_view name);

// The engines of the calling thread, made at the first call and kept for its life: the one that the environment
// variable `phmm` names, or else the fastest in float; and its twin in double, null when the first one is that already.
struct ThreadEngines {
  std::string name;  // of `first`
  std::unique_ptr<PairHMM::Engine> first, precise;
};
const ThreadEngines& threadEngines();
