// gvcftyper.h - GVCFtyper genotypes the samples of many GVCF files together: one VCF with a column per sample.
// More in docs/algorithms/gvcftyper.md.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "algo/vcall/joint/gvcf_inputs.h"
#include "algo/vcall/variant_call_algo.h"

class GVCFtyper final : public VariantCallAlgo {
 public:
  class Engine;

  GVCFtyper(DriverContext* context, int count, const char* const args[]);

  std::vector<std::string> inputs() const override;
  Algo::Engine* newEngine(DriverContext* context, int index) override;

  const GVCFInputs& gvcfs() const { return gvcfs_; }
  size_t maxAltAlleles() const { return max_alt_alleles_; }

 protected:
  int ploidy() const override;  // the largest
  bool needsReads() const override { return false; }
  void takeFurtherArguments(const std::vector<std::string>& arguments) override;
  void takeSamples() override;
  void startHeader(VCFHeader& header) override;

 private:
  void addOptions(OptionParser& parser);
  std::string usage() const;
  void dropRepeatedInputs();
  void chooseAnnotations();

  size_t max_alt_alleles_ = 100;
  bool uniquify_samples_ = false;
  std::vector<std::string> input_paths_;
  GVCFInputs gvcfs_;
};
