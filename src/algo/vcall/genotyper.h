// genotyper.h - Genotyper calls SNPs from the bases at each position, and indels from the reads around the positions
// where enough of them have one. It assembles nothing.
// More in docs/algorithms/genotyper.md.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "algo/vcall/snp_lookup_table.h"
#include "algo/vcall/variant_call_algo.h"

class Genotyper final : public VariantCallAlgo {
 public:
  class Engine;

  enum VariantType : uint32_t { kSNP = 1, kIndel = 2 };

  struct Param {
    uint32_t var_type = kSNP;     // bits of VariantType
    uint32_t min_base_qual = 17;  // phred; also of the mapping quality, which caps it
    uint32_t ploidy = 2;
    uint32_t read_flags = 0;  // reads with one of these bits are left out, beside those that always are

    bool callsSNPs() const { return var_type & kSNP; }
    bool callsIndels() const { return var_type & kIndel; }
    bool usesPairs() const { return callsSNPs() && ploidy == 2; }
  };

  Genotyper(DriverContext* context, int count, const char* const args[]);

  void init() override;
  Algo::Engine* newEngine(DriverContext* context, int index) override;

 protected:
  int ploidy() const override { return static_cast<int>(param_.ploidy); }

 private:
  void addOptions(OptionParser& parser);
  std::string usage() const;

  Param param_;
  std::unique_ptr<const SNPLookupTable> lookup_;  // null when no SNPs are called
};
