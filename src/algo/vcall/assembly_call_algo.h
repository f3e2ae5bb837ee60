// assembly_call_algo.h - what callers by assembly share: the options of assembly and of read likelihoods, and the pipeline
// of regions (assembly_call_engine.h). A caller says where to look, and what the reads under the haplotypes mean.
// Threads  constant from init() on.
// Errors   std::invalid_argument with the algorithm's name in front, for options.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>

#include "algo/vcall/assembly_task.h"
#include "algo/vcall/debug_positions.h"
#include "algo/vcall/pairhmm/pair_hmm.h"
#include "algo/vcall/variant_call_algo.h"
#include "base/text.h"

class AssemblyCallAlgo : public VariantCallAlgo {
 public:
  class Engine;

  struct Param : AssemblyParam {
    int pcrModel = PairHMM::kConservative;
    int phmmChunkSize = 12800;
    std::string phmmParam;
  };

  void init() override;

 protected:
  AssemblyCallAlgo(DriverContext* context, int count, const char* const args[]);
  ~AssemblyCallAlgo() override;

  virtual Param& assemblyParam() = 0;  // the caller's own; options are written to it
  void addPcrOption(OptionParser& parser);
  void addAssemblyOptions(OptionParser& parser);  // of likelihoods, too
  // Binds an option whose value must lie in [low, high].
  template <typename Integer>
  void addRanged(OptionParser& parser, const char* option, const char* help, int64_t low, int64_t high,
                 Integer& field);
  // When the options are parsed: checks what they say together, and sets up the likelihoods.
  void settleAssembly(std::unique_ptr<PairHMM::Model> model);
  static void addPhasingLines(VCFHeader& header);

  DebugPositions debug_;
  std::unique_ptr<PairHMM> hmm_;                // constant during the run
  std::unique_ptr<RegionAssembler> assembler_;  // constant during the run

 private:
  void addFeatureOptions(OptionParser& parser);
  void addCheckedInteger(OptionParser& parser, const char* option, int64_t low, int64_t high);
  void addCheckedRatio(OptionParser& parser, const char* option);
  void parseKmerSizes(const char* text);
};

template <typename Integer>
void AssemblyCallAlgo::addRanged(OptionParser& parser, const char* option, const char* help, int64_t low,
                                 int64_t high, Integer& field) {
  parser.add({option, required_argument, 0, help}, [this, option, low, high, &field](const char* value) {
    int64_t number;
    if (!parseInteger(value, low, high, number))
      throw std::invalid_argument(name + ": invalid " + option + " " + value);
    field = static_cast<Integer>(number);
    return true;
  });
}
