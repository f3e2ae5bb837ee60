// haplotyper.h - Haplotyper calls variants from haplotypes that it assembles where the reads differ from the reference,
// as VCF or, with reference blocks, as GVCF.
// More in docs/algorithms/haplotyper.md.
#pragma once

#include <memory>
#include <string>

#include "algo/vcall/assembly_task.h"
#include "algo/vcall/debug_positions.h"
#include "algo/vcall/pairhmm/pair_hmm.h"
#include "algo/vcall/variant_call_algo.h"

class Haplotyper final : public VariantCallAlgo {
 public:
  class Engine;

  struct Param : AssemblyParam {
    uint32_t ploidy = 2;
    int maxAltAlleles = 0;  // 0 stands for what init() derives from the ploidy
    int pcrModel = PairHMM::kConservative;
    int phasing = -1;  // -1: by mode and ploidy, settled by the constructor
    int phmmChunkSize = 12800;
    std::string phmmParam;
  };

  Haplotyper(DriverContext* context, int count, const char* const args[]);

  void init() override;
  Algo::Engine* newEngine(DriverContext* context, int index) override;

 protected:
  int ploidy() const override { return static_cast<int>(param_.ploidy); }
  void addHeaderLines(VCFHeader& header) override;

 private:
  void addOptions(OptionParser& parser);
  void addAssemblyOptions(OptionParser& parser);
  void addFeatureOptions(OptionParser& parser);
  // Bind an option whose value must lie in [low, high].
  template <typename Integer>
  void addRanged(OptionParser& parser, const char* option, const char* help, int64_t low, int64_t high,
                 Integer& field);
  void addCheckedInteger(OptionParser& parser, const char* option, int64_t low, int64_t high);
  void addCheckedRatio(OptionParser& parser, const char* option);
  void parseKmerSizes(const char* text);
  void settlePhasing();
  void checkGenotypes() const;
  void setUpLikelihoods();
  std::string usage() const;

  Param param_;
  DebugPositions debug_;
  std::unique_ptr<PairHMM> hmm_;                // constant during the run
  std::unique_ptr<RegionAssembler> assembler_;  // constant during the run
};
