// dedup.cpp - Dedup's options, its libraries, and what is told when the run is over. The reads pass through
// dedup_engine.cpp; which of them are copies is found in mark_duplicates.cpp.
#include "algo/preprocess/dedup.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <exception>
#include <numeric>
#include <stdexcept>

#include "algo/preprocess/dedup_engine.h"
#include "base/plain_file.h"
#include "base/text.h"
#include "readdata/vcf/vcf_contigs.h"

namespace {

constexpr int kDefaultReadahead = 600;
constexpr char kOpenFailure[] = "Failed to open file %s for write, %s\n";

}  // namespace

// ---- options and start ----

Dedup::Dedup(DriverContext* context, int count, const char* const args[])
    : ReadWriter(context, count, args, Derived()) {
  OptionParser parser;
  rules_.optical_dup_pix_dist = 100;
  rules_.params.readbehind = 0;
  addOptions(parser);
  std::vector<const char*> positional;
  if (!takeArguments(parser, usage(), count, args, positional)) return;
  settleOptions();
  if (positional.empty() || !*positional[0]) throw std::invalid_argument(name + ": missing output file");
  if (positional.size() > 1 && !merge_) throw std::invalid_argument(name + ": extra argument after output");
  if (context->mode == DriverContext::kNonTraversal) {
    if (merge_) takePartialFiles(positional);
    return;
  }
  if (merge_) throw std::invalid_argument("Dedup: --merge must not have input reference or bam files");
  if (!context->reads) throw std::invalid_argument(name + ": missing bam input");
  if (score_files_.empty()) throw std::invalid_argument("Dedup: missing score_info file");
  output_ = positional[0];
  mode_mask |= kSharded | kNonTraversal;
  input_files_ = score_files_;
  listLibraries();
  openScoreFiles();
}

void Dedup::addOptions(OptionParser& parser) {
  parser.addList("score_info", 0, "Input score info file, output from algo LocusCollector, required",
                 score_files_);
  parser.addText("metrics", 0, "Output dedup metrics file", metrics_path_);
  parser.addFlag("rmdup", 0, "Remove duplicates", rmdup_);
  parser.addInt("optical_dup_pix_dist", 0, "Optical duplicate distance (default: 100)",
                rules_.optical_dup_pix_dist);
  parser.addFlag("optical_dup_histogram", 0, nullptr, optical_dup_histogram_);
  parser.addText("fun", 0, nullptr, function_name_);
  parser.addFlag("fixmate", 0, nullptr, fixmate_);
  parser.addFlag("fixisize", 0, nullptr, fixisize_);
  parser.addInt("clip", 0, nullptr, rules_.params.clip);
  parser.addInt("pair_start_dist_thr", 0, nullptr, rules_.params.pair_start_dist_thr);
  parser.addInt("readahead", 0, nullptr, rules_.params.readahead);
  parser.addInt("readbehind", 0, nullptr, rules_.params.readbehind);
  parser.addFlag("merge", 0, nullptr, merge_);
  addWriterOptions(parser);
}

void Dedup::settleOptions() {
  if (function_name_ == "fixmate")
    function_ = kFixMate;
  else if (function_name_ != "dedup")
    throw std::invalid_argument("Dedup: unknown function " + function_name_);
  rules_.fixmate = fixmate_ || function_ == kFixMate;
  if (metrics_path_.empty() || rules_.optical_dup_pix_dist < 1) rules_.optical_dup_pix_dist = -1;
  DedupParams& params = rules_.params;
  if (params.readahead < 1) params.readahead = kDefaultReadahead;
  if (params.readbehind < 1)
    params.readbehind = static_cast<int32_t>(std::min<int64_t>(2 * int64_t{params.readahead}, INT32_MAX));
  // A read is judged `readahead` bases late, and must still be there.
  params.readbehind = std::max(params.readbehind, params.readahead);
}

// The output of a merge is the metrics file, of which the positional arguments are the first.
void Dedup::takePartialFiles(const std::vector<const char*>& positional) {
  requireMergeRun(positional.size() - 1);
  metrics_path_ = positional[0];
  output_.clear();
  input_files_.assign(positional.begin() + 1, positional.end());
  mode_mask = kNonTraversal;
  mergeFiles(positional.size() - 1, positional.data() + 1);
}

void Dedup::mergeFiles(size_t count, const char* const names[]) {
  for (size_t i = 0; i < count; ++i) metrics_.addPart(names[i]);
}

// A library is numbered where it first appears among the read groups. The name may be empty.
void Dedup::listLibraries() {
  for (const ReadGroup& group : context->reads->input().readGroups()) {
    const auto found = std::find(metrics_.names.begin(), metrics_.names.end(), group.library);
    rules_.library_of_read_group.push_back(static_cast<int32_t>(found - metrics_.names.begin()));
    if (found == metrics_.names.end()) metrics_.names.push_back(group.library);
  }
  rules_.library_count = metrics_.names.size();
  metrics_.libraries.resize(metrics_.names.size());
}

void Dedup::openScoreFiles() {
  const std::vector<Contig>& contigs = context->reads->input().contigs();
  const ContigMap contig_map = contigMapOf(contigs);
  for (const std::string& path : score_files_) {
    const std::string failure = "Dedup: Cannot open score info file " + path + ": ";
    if (!FileOwner(open_plain_file(path.c_str()))) throw std::invalid_argument(failure + strerror(errno));
    VCFHeader header;
    try {
      score_caches_.push_back(std::make_unique<VCFCache>(path));
      score_caches_.back()->getHeader(header);
    } catch (const std::exception& fault) {
      throw std::invalid_argument(failure + fault.what());
    }
    if (!checkContigs(header, path, contigs, contig_map, true))
      throw std::invalid_argument("Dedup: score info file " + path + " is of reads with other contigs");
  }
}

std::string Dedup::usage() const {
  return format(
      "Usage for %s:\n"
      "  driver -i input.bam [driver_options] \\\n"
      "         --algo %s --score_info score.txt[.gz] [algo_options] output.bam\n\n",
      name.c_str(), name.c_str());
}

std::vector<OutputFile> Dedup::outputs() const {
  std::vector<OutputFile> files = ReadWriter::outputs();
  if (!metrics_path_.empty()) files.push_back({metrics_path_});
  return files;
}

// The metrics file is emptied, so that a path that cannot be written is told before the traversal.
void Dedup::init() {
  ReadWriter::init();
  if (metrics_path_.empty()) return;
  FILE* const file = fopen(metrics_path_.c_str(), "we");
  if (!file) throw std::runtime_error(format(kOpenFailure, metrics_path_.c_str(), strerror(errno)));
  fclose(file);
}

Algo::Engine* Dedup::newEngine(DriverContext* context, int) {
  Engine::Settings settings{rules_, function_, rmdup_, fixisize_};
  return new Engine(context, this, settings, score_caches_);
}

// ---- merge and end ----

uint64_t Dedup::Result::memorySize() const {
  uint64_t size = ReadWriter::Result::memorySize() + libraries.size() * sizeof(LibraryMetrics);
  for (const LibraryMetrics& library : libraries) size += library.optical.bins.size() * sizeof(uint32_t);
  return size;
}

void Dedup::merge(const Shard& shard, Algo::Result* result) {
  if (const auto* own = static_cast<const Result*>(result))
    for (size_t i = 0; i < own->libraries.size(); ++i) metrics_.libraries[i].add(own->libraries[i]);
  ReadWriter::merge(shard, result);
}

void Dedup::printSummary() const {
  for (size_t i = 0; i < metrics_.libraries.size(); ++i) {
    const LibraryMetrics& library = metrics_.libraries[i];
    fprintf(stderr, "library %s:\n", metrics_.names[i].c_str());
    for (const auto& [counter, value] : library.counts) fprintf(stderr, "%s %ld\n", counter.c_str(), value);
    if (rules_.optical_dup_pix_dist < 1 || merge_) continue;
    const LocusStat::Histogram& optical = library.optical;
    fprintf(stderr, "optical dup clusters %lld, maxdup %ld, total optical dup pairs %ld\n",
            std::accumulate(optical.bins.begin(), optical.bins.end(), 0LL), long(optical.bins.size()),
            library.count(kOpticalDup));
    if (!optical_dup_histogram_) continue;
    fputs("optical duplicates histogram:\n", stderr);
    for (size_t bin = 0; bin < optical.bins.size(); ++bin)
      fprintf(stderr, "%f %d\n", double(bin) * optical.binsize + optical.min, int(optical.bins[bin]));
  }
}

void Dedup::writeMetrics() const {
  const std::string text =
      context->mode == DriverContext::kShardedTraversal ? metrics_.part() : metrics_.table();
  FileOwner file(fopen(metrics_path_.c_str(), "we"));
  if (!file) throw std::runtime_error(format(kOpenFailure, metrics_path_.c_str(), strerror(errno)));
  fwrite(text.data(), 1, text.size(), file.get());
  if (!close_written(std::move(file)))
    throw std::runtime_error(
        format("Failed to write to file %s, %s", metrics_path_.c_str(), strerror(errno)));
}

// Before the base's destructor ends the output.
Dedup::~Dedup() {
  if (!finished_ || std::uncaught_exceptions() > 0) return;
  try {
    printSummary();
    if (!metrics_path_.empty()) writeMetrics();
  } catch (const std::exception& failure) {
    exitAtEnd(failure.what());
  }
}

static const TemplateAlgoBuilder<Dedup> builder("Dedup");
