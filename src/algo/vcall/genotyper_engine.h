// genotyper_engine.h - what Genotyper does on each thread: a region at a time, its reads and reference, the pileup of
// bases, the candidates of indels, and then the records, position by position.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "algo/vcall/genotyper.h"
#include "algo/vcall/given_alleles.h"
#include "algo/vcall/indel_caller.h"
#include "algo/vcall/indel_candidates.h"
#include "algo/vcall/reference_window.h"
#include "algo/vcall/snp_caller.h"
#include "algo/vcall/snp_pileup.h"

class Genotyper::Engine final : public VariantCallAlgo::Engine, private Genotyper::Param {
 public:
  // `lookup` outlives the engine; null when no SNPs are called.
  Engine(DriverContext* context, Genotyper* algo, const Param& param, const SNPLookupTable* lookup);

  void startShard() override;
  void advance(uint32_t from, uint32_t to) override;

 private:
  const std::vector<int32_t>& sampleOfGroup() const {
    return static_cast<const Genotyper*>(algo)->sample_of_group_;
  }

  // The reads over a position that moves on, or that begin up to `reach` bases behind it.
  class ReadsOver {
   public:
    explicit ReadsOver(uint32_t reach) : reach_(reach) {}
    void restart();
    const std::vector<Read*>& at(uint32_t position, const std::vector<Read*>& reads);

   private:
    uint32_t reach_;
    size_t next_ = 0;
    std::vector<Read*> over_;
  };

  void calc(uint32_t start, uint32_t end);
  bool fetchReference(uint32_t start, uint32_t& end);
  void fetchReads(uint32_t start, uint32_t end);
  void findIndels(uint32_t start, uint32_t end);
  void pileUp(uint32_t start, uint32_t end);
  void call(uint32_t start, uint32_t end);
  bool calcSNP(uint32_t position);
  BaseList givenAlternates(uint32_t position, uint8_t ref) const;
  void calcIndel(uint32_t position, const GivenAlleles::Record& record, bool position_has_record);
  void emitReference(double qual);

  uint32_t region_limit_;  // bases: bounds the memory of the pileup
  uint32_t done_ = 0;      // positions before it are called

  MovingReference window_;  // holds the region and what it needs beside it
  std::vector<Read*> reads_;
  std::vector<std::vector<Read*>> sample_reads_;
  std::unique_ptr<SNPPileup> pileup_;  // null when no SNPs are called
  std::unique_ptr<SNPCaller> snps_;
  GivenAlleles given_;
  IndelCandidates candidates_;
  IndelCaller indels_;
  IndelCandidates::Map found_;
  ReadsOver over_snp_{0}, over_indel_{1};
  Site site_;
};
