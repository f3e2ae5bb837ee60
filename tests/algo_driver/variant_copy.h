// variant_copy.h - VariantCopy copies the records of a VCF file to a new one, shard by shard, as an algorithm that
// makes variants writes them.
//
//   -v in.vcf[.gz] out.vcf[.gz]          the records that start in the run's shards; a partial file with --shard
//   --merge out.vcf[.gz] partial ...     the partial files of earlier runs in genome order
#pragma once

#include "algo/algo.h"
#include "readdata/vcf/vcf_cache.h"
#include "readdata/vcf/vcf_writer.h"

class VariantCopy final : public Algo {
 public:
  class Engine;
  class Result;

  VariantCopy(DriverContext* context, int count, const char* const args[]);

  std::vector<OutputFile> outputs() const override;
  std::vector<std::string> inputs() const override;
  void init() override;
  Algo::Engine* newEngine(DriverContext* context, int index) override;
  void merge(const Shard& shard, Algo::Result* result) override;
  void finish() override;

 private:
  std::string input_, output_;
  std::vector<std::string> partials_;  // of --merge
  bool merge_ = false;
  std::unique_ptr<VCFCache> cache_;  // engines have copies
  std::unique_ptr<VCFWriter> writer_;
};
