// genotyper.cpp - options and start of Genotyper.
#include "algo/vcall/genotyper.h"

#include <stdexcept>
#include <strings.h>

#include "algo/vcall/genotyper_engine.h"
#include "algo/vcall/pairhmm/pair_hmm.h"
#include "base/text.h"
#include "base/timer.h"

namespace {

bool parseNumber(const char* text, uint32_t low, uint32_t high, uint32_t& value) {
  int64_t number;
  if (!parseInteger(text, low, high, number)) return false;
  value = uint32_t(number);
  return true;
}

bool parseVariantType(const char* text, uint32_t& type) {
  constexpr const char* kNames[] = {"SNP", "INDEL", "BOTH"};
  for (uint32_t i = 0; i < 3; ++i)
    if (strcasecmp(text, kNames[i]) == 0) {
      type = i + 1;
      return true;
    }
  return parseNumber(text, 1, 3, type);
}

}  // namespace

Genotyper::Genotyper(DriverContext* context, int count, const char* const args[])
    : VariantCallAlgo(context, count, args) {
  OptionParser parser;
  addOptions(parser);
  if (!readArguments(parser, usage(), count, args, false)) return;
  if (!merge_ && param_.callsIndels()) PairHMM::checkEngine();
}

void Genotyper::addOptions(OptionParser& parser) {
  addAnnotationOption(parser);
  parser.add({"var_type", required_argument, 0, "Variant type to call: snp, indel or both (default: snp)"},
             [this](const char* value) {
               if (!parseVariantType(value, param_.var_type))
                 throw std::invalid_argument(name + ": invalid variant type");
               return true;
             });
  addEmitOptions(parser, "Emit mode: variant, confident or all (default: variant)");
  parser.add({"min_base_qual", required_argument, 0, "Minimum base quality to consider (default: 17)"},
             [this](const char* value) {
               if (!parseNumber(value, 0, 255, param_.min_base_qual))
                 throw std::invalid_argument(name + ": invalid min_base_qual " + value);
               return true;
             });
  parser.add({"ploidy", required_argument, 0, "Sample ploidy (default: 2)"}, [this](const char* value) {
    if (!parseNumber(value, 1, SNPLookupTable::kMaxPloidy, param_.ploidy))
      throw std::invalid_argument(name + ": invalid ploidy " + value);
    return true;
  });
  addGivenOption(parser);
  addFileOptions(parser);
}

std::string Genotyper::usage() const {
  return format(
      "Usage for %s:\n"
      "  driver -i input.bam -r reference.fasta [driver_options] \\\n"
      "         --algo %s [algo_options] output.vcf[.gz]\n\n",
      name.c_str(), name.c_str());
}

void Genotyper::init() {
  VariantCallAlgo::init();
  if (merge_ || !param_.callsSNPs()) return;
  static Timer* const lookup_timer = timer("init_lookup");
  TimerScope scope(lookup_timer);
  lookup_ = std::make_unique<SNPLookupTable>(param_.ploidy, param_.min_base_qual, param_.usesPairs());
}

Algo::Engine* Genotyper::newEngine(DriverContext* context, int) {
  return new Engine(context, this, param_, lookup_.get());
}

static const TemplateAlgoBuilder<Genotyper> builder("Genotyper");
