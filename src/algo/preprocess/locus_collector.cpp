#include "algo/preprocess/locus_collector.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <unistd.h>

#include "algo/preprocess/locus_collector_engine.h"
#include "base/text.h"

LocusCollector::LocusCollector(DriverContext* context, int count, const char* const args[])
    : Algo(context, count, args) {
  OptionParser parser;
  parser.addText("fun", 0, "Function (default: score_info)", function_);
  parser.addInt("readahead", 0, nullptr, readahead_);
  parser.addInt("readbehind", 0, nullptr, readbehind_);
  parser.addInt("pair_start_dist_thr", 0, nullptr, pair_start_dist_thr_);
  parser.addInt("score_info_reduce", 0, nullptr, score_info_reduce_);
  parser.addFlag("fixmate", 0, nullptr, fixmate_);
  parser.addInt("block_size", 0, nullptr, block_size_);
  const std::string usage = format(
      "Usage for %s:\n"
      "  driver -i input.bam [driver_options] \\\n"
      "         --algo %s --fun score_info [algo_options] score.txt[.gz]\n\n",
      name.c_str(), name.c_str());
  std::vector<const char*> positional;
  if (!takeArguments(parser, usage, count, args, positional)) return;
  if (function_ != "score_info" && function_ != "fixmate")
    throw std::invalid_argument(name + ": unknown function " + function_);
  if (positional.size() > 1) throw std::invalid_argument(name + ": extra argument after output");
  if (positional.empty() || !*positional[0]) throw std::invalid_argument(name + ": missing output file");
  if (!context->reads) throw std::invalid_argument(name + ": missing bam input");
  if (context->intervals) throw std::invalid_argument(name + ": interval not supported.");

  output_ = positional[0];
  fixmate_ = fixmate_ || function_ == "fixmate";
  if (readahead_ < 1) readahead_ = 600;
  if (readbehind_ < 1) readbehind_ = static_cast<int>(std::min<int64_t>(2 * int64_t{readahead_}, INT_MAX));
  // A read is decided on `readahead` bases late, and must still be there.
  readbehind_ = std::max(readbehind_, readahead_);
  if (block_size_ < 1) block_size_ = 1000000;
  mode_mask |= kSharded;
}

std::vector<OutputFile> LocusCollector::outputs() const {
  if (output_.empty()) return {};
  return {{output_, true}, {output_ + ".idx", false}, {output_ + ".tbi", false}};
}

void LocusCollector::init() {
  Algo::init();
  const std::vector<Contig>& contigs = context->reads->input().contigs();
  for (const Contig& contig : contigs)
    if (contig.contig[0] == '#' || strpbrk(contig.contig, "\t\n"))
      throw std::invalid_argument(name + ": contig name " + contig.contig + " cannot stand in a score file");

  stream_.reset(fopen(output_.c_str(), "we"));
  if (!stream_) throw std::runtime_error(name + ": cannot open file " + output_ + ": " + strerror(errno));
  // An index must not outlive the content it was made for.
  for (const char* ending : {".idx", ".tbi"}) unlink((output_ + ending).c_str());
  merger_ = std::make_unique<VcfMerger>(output_, contigs, size_t(block_size_), context->pool);
}

Algo::Engine* LocusCollector::newEngine(DriverContext* context, int) {
  LocusCollectorParams params;
  params.readahead = static_cast<uint32_t>(readahead_);
  params.readbehind = static_cast<uint32_t>(readbehind_);
  params.pair_start_dist_thr = pair_start_dist_thr_;
  params.reduce = score_info_reduce_ != 0;
  params.fixmate = fixmate_;
  return new Engine(context, this, params, output_);
}

void LocusCollector::merge(const Shard&, Algo::Result* result) {
  const std::unique_ptr<Result> owned(static_cast<Result*>(result));
  if (!owned) return;
  const FileOwner file(fopen(owned->path.c_str(), "re"));
  if (!file) throw std::runtime_error(name + ": cannot open file " + owned->path + ": " + strerror(errno));
  merger_->append(file.get(), owned->path);
  if (unlink(owned->path.c_str()) != 0)
    throw std::runtime_error(name + ": cannot remove file " + owned->path + ": " + strerror(errno));
}

void LocusCollector::finish() {
  if (!merger_) return;
  stream_.reset();
  try {
    merger_->merge();
  } catch (const std::exception& failure) {
    exitAtEnd(failure.what());
  }
  merger_.reset();
}

static const TemplateAlgoBuilder<LocusCollector> builder("LocusCollector");
