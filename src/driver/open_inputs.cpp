#include "driver/open_inputs.h"

#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <unistd.h>

#include "base/text.h"
#include "base/timer.h"
#include "driver/descriptor_limit.h"

void loadIntervals(RunInputs& run) {
  const DriverOptions& options = run.options;
  if (!options.interval) return;
  const char* value = options.interval->c_str();
  run.intervals = std::make_unique<IntervalList>();
  const bool is_file = access(value, R_OK) == 0;
  if (is_file) run.interval_file = value;
  const bool loaded = is_file ? run.intervals->load(value) : run.intervals->add_strings(value);
  if (!loaded) throw ExitRun{1};
  run.intervals->pad(options.interval_padding);
  run.intervals->merge();
}

namespace {

void openReads(RunInputs& run, size_t algo_count, std::string& summary) {
  const DriverOptions& options = run.options;
  reserveDescriptors(options.inputs.size(), algo_count, options.thread_count);
  summary += "input file size:";
  for (const std::string& path : options.inputs) summary += format(" %ld", long(file_size(path.c_str())));
  summary += "\n";

  std::vector<BAMHandle*> handles;
  for (const std::string& path : options.inputs) {
    run.handles.push_back(open_read_source(path, run.reference.get(), true));
    handles.push_back(run.handles.back().get());
    if (!handles.back()->setOptions(options.cram_read_options)) throw ExitRun{1};
  }
  run.reads = std::make_unique<ReadCache>(handles);
}

// Tables of read filters come before those of -q.
void loadTransforms(RunInputs& run) {
  std::vector<QualCalParams> tables;
  for (const std::string& filter : run.options.read_filters) {
    const size_t comma = filter.find(',');
    const std::string name = filter.substr(0, comma);
    if (name != "QualCalFilter") {
      fprintf(stderr, "Unknown read filter name %s\n", name.c_str());
      throw ExitRun{1};
    }
    QualCalParams params;
    if (!params.parse(comma == filter.npos ? "" : filter.substr(comma + 1))) {
      fprintf(stderr, "Failed to parse qcal string \"%s\"\n", filter.c_str());
      throw ExitRun{1};
    }
    tables.push_back(params);
  }
  for (const std::string& path : run.options.qual_cals) {
    QualCalParams params;
    params.table = path;
    tables.push_back(params);
  }
  if (tables.empty()) return;
  for (const QualCalParams& table : tables) run.quality_tables.push_back(table.table);
  run.quality_groups =
      QualTransform::load(tables, run.reads ? run.reads->input().readGroups() : std::vector<ReadGroup>());
  if (run.reads) run.reads->setTransform(std::make_unique<QualTransform>(run.quality_groups));
}

}  // namespace

void openInputs(RunInputs& run, size_t algo_count, std::string& summary) {
  if (run.options.reference) run.reference = std::make_unique<FastaFile>(*run.options.reference);
  if (!run.options.inputs.empty()) openReads(run, algo_count, summary);
  loadTransforms(run);
}

void buildContigs(RunInputs& run) {
  if (run.reference) run.contigs = run.reference->contigs();
  if (run.reference && run.reads) {
    if (run.reads->input().check_contigs(run.contigs) < 0) throw ExitRun{1};
    if (run.intervals && !run.intervals->check_contigs(run.contigs, false)) throw ExitRun{1};
  }
  if (run.reads) {
    run.contigs = run.reads->input().contigs();
    if (run.intervals && !run.intervals->check_contigs(run.contigs, true)) throw ExitRun{1};
  }
  for (size_t i = 0; i < run.contigs.size(); ++i) {
    if (strcmp(run.contigs[i].contig, kNoCoor) == 0)
      throw std::invalid_argument(format("The contig name %s stands for reads without coordinates", kNoCoor));
    run.contig_map[run.contigs[i].contig] = int32_t(i);
  }
}

void appendNoCoor(RunInputs& run) {
  run.contig_map[kNoCoor] = int32_t(run.contigs.size());
  run.contigs.push_back({kNoCoor, 0, 0});
}
