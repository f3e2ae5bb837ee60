// haplotyper.h - Haplotyper calls variants from haplotypes that it assembles where the reads differ from the reference,
// as VCF or, with reference blocks, as GVCF.
// More in docs/algorithms/haplotyper.md.
#pragma once

#include <string>

#include "algo/vcall/assembly_call_algo.h"

class Haplotyper final : public AssemblyCallAlgo {
 public:
  class Engine;

  struct Param : AssemblyCallAlgo::Param {
    uint32_t ploidy = 2;
    int maxAltAlleles = 0;  // 0 stands for what init() derives from the ploidy
    int phasing = -1;       // -1: by mode and ploidy, settled by the constructor
  };

  Haplotyper(DriverContext* context, int count, const char* const args[]);

  void init() override;
  Algo::Engine* newEngine(DriverContext* context, int index) override;

 protected:
  AssemblyCallAlgo::Param& assemblyParam() override { return param_; }
  int ploidy() const override { return static_cast<int>(param_.ploidy); }
  void addHeaderLines(VCFHeader& header) override;

 private:
  void addOptions(OptionParser& parser);
  void settleConfidence();
  void settlePhasing();
  void checkGenotypes() const;
  void warnOfPloidy() const;
  std::string usage() const;

  Param param_;
};
