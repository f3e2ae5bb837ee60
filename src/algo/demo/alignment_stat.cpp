// alignment_stat.cpp - AlignmentStat: reads and a reference in, one table of alignment metrics per category
// of reads out. The counting is in alignment_summary_metric.h; more in docs/algorithms/alignment_stat.md.
#include <algorithm>
#include <cctype>
#include <stdexcept>

#include "algo/demo/alignment_summary_metric.h"
#include "algo/demo/read_metrics_algo.h"
#include "base/text.h"

namespace {

class AlignmentStat final : public ReadMetricsAlgo {
 public:
  AlignmentStat(DriverContext* context, int count, const char* const args[]);
};

AlignmentStat::AlignmentStat(DriverContext* context, int count, const char* const args[])
    : ReadMetricsAlgo(context, count, args) {
  AlignmentSummarySettings settings;
  settings.adapters = AlignmentSummarySettings::defaultAdapters();

  OptionParser parser;
  parser.add({"adapter_seq", required_argument, 0,
              "Comma separated list of adapters (default: 6 illumina adapters)"},
             [&settings](const char* value) {
               settings.adapters = split(value, ',');
               std::erase(settings.adapters, "");
               for (std::string& adapter : settings.adapters)
                 for (char& base : adapter) base = char(toupper(static_cast<unsigned char>(base)));
               return true;
             });
  if (context->mode == DriverContext::kHelp) {
    giveHelp(format("Usage for %s:\n"
                    "  driver -i input.bam -r reference.fasta [driver_options] \\\n"
                    "         --algo %s [algo_options] aln_metrics.txt\n\n",
                    name.c_str(), name.c_str()),
             parser);
    return;
  }
  std::vector<const char*> positional;
  if (parser.parse(count, args, positional) != OptionParser::kOk)
    throw std::invalid_argument("HsMetricAlgo: invalid option " + parser.faultyArgument());
  takeOutput(positional);
  factory_ = std::make_unique<MultiCategroyAlignmentSummaryMetricBuilder>(std::move(settings));
}

const TemplateAlgoBuilder<AlignmentStat> builder("AlignmentStat");

}  // namespace
