// read_writer.cpp - ReadWriter: all reads of the run in, one coordinate-sorted BAM with its index out.
// Each shard writes the reads that start in it to a file of its own; the merge joins these in genome order.
// More in docs/algorithms/read_writer.md.
#include "algo/read_writer.h"

#include <exception>
#include <stdexcept>
#include <strings.h>
#include <unistd.h>

#include "base/text.h"
#include "base/timer.h"
#include "base/version.h"
#include "readdata/bam/bam_writer.h"

// ---- options and start ----

ReadWriter::ReadWriter(DriverContext* context, int count, const char* const args[])
    : ReadWriter(context, count, args, Derived()) {
  OptionParser parser;
  addWriterOptions(parser);
  if (context->mode == DriverContext::kHelp)
    giveHelp(usage(), parser);
  else
    parseArguments(parser, count, args);
}

ReadWriter::ReadWriter(DriverContext* context, int count, const char* const args[], Derived)
    : Algo(context, count, args) {}

void ReadWriter::addWriterOptions(OptionParser& parser) {
  parser.add(
      {"bam_compression", required_argument, 0, "BAM compression: 0-9, 0-faster, 9-better (default: 6)"},
      [this](const char* value) {
        writer_options_["bam_compression"] = value;
        return true;
      });
  parser.addText("output_format", 0, "Output file format: BAM or CRAM (default: BAM)", output_format_);
  parser.add({"cram_options", required_argument, 0, "CRAM output options"}, [this](const char* value) {
    for (const auto& [key, text] : parseKeyValues(value)) writer_options_[key] = text;
    return true;
  });
}

void ReadWriter::parseArguments(OptionParser& parser, int count, const char* const args[]) {
  std::vector<const char*> positional;
  if (parser.parse(count, args, positional) != OptionParser::kOk)
    throw std::invalid_argument(name + ": unknown option");
  if (positional.size() > 1) throw std::invalid_argument(name + ": extra argument after output");
  if (positional.empty() || !*positional[0]) throw std::invalid_argument(name + ": missing output file");
  if (!context->reads) throw std::invalid_argument(name + ": missing bam input");
  output_ = positional[0];
  mode_mask |= kSharded;
}

std::string ReadWriter::usage() const {
  return format(
      "Usage for %s:\n"
      "  driver -i input.bam [driver_options] \\\n"
      "         --algo %s [algo_options] output.bam\n\n",
      name.c_str(), name.c_str());
}

namespace {

// "bam" or "cram", as the option says, else as the output's name does; empty when the option says neither.
std::string formatOf(const std::string& option, const std::string& output) {
  for (const char* known : {"bam", "cram"})
    if (strcasecmp(option.c_str(), known) == 0) return known;
  if (!option.empty()) return "";
  return output.ends_with(".cram") ? "cram" : "bam";
}

}  // namespace

std::vector<OutputFile> ReadWriter::outputs() const {
  if (output_.empty() || output_ == "-") return {};
  const std::string index = indexPath(output_, writer_options_);
  return {{output_, true}, {index, false}, {index + ".tmp", false}};  // the last one while it is written
}

void ReadWriter::init() {
  Algo::init();
  if (output_.empty()) return;
  if (output_ == "-") throw std::invalid_argument(name + ": Don't support using \"-\" as output file name");
  if (!context->reads) throw std::invalid_argument(name + ": missing bam input");
  format_ = formatOf(output_format_, output_);
  if (format_.empty()) throw std::invalid_argument(name + ": Invalid output_format " + output_format_);
  if (format_ != "bam") throw std::invalid_argument(name + ": CRAM output is not supported: " + output_);

  header_ = context->reads->input().mergedHeader(
      {{"ID", "torvesin-" + name}, {"VN", version_text()}, {"CL", command_line_}});
  auto writer = createReadWriter(output_, context->reference, writer_options_, format_);
  writer->init(header_);
  writer_ = std::move(writer);
}

// ---- engine ----

uint64_t ReadWriter::Result::memorySize() const {
  return sizeof *this + file.capacity() + (part ? part->memorySize() : 0);
}

ReadWriter::Engine::Engine(DriverContext* context, ReadWriter* algo) : Algo::Engine(context, algo) {
  if (!algo->output_.empty())
    writer_ = createShardWriter(algo->output_, context->reference, algo->writer_options_, algo->format_);
}

void ReadWriter::Engine::startShard() {
  Algo::Engine::startShard();
  if (!writer_) return;
  writer_->open(context->shard.sequence, static_cast<ReadWriter*>(algo)->header_, false, true);
  // Threads that have run out of shards help with the last ones, and with the long one of reads without
  // coordinates.
  if (context->pool) writer_->setParallel(context->pool);
}

void ReadWriter::Engine::advance(uint32_t from, uint32_t to) {
  static Timer* const fetch_timer = timer("fetch");
  static Timer* const write_timer = timer("write");
  reads_.clear();
  {
    TimerScope scope(fetch_timer);
    context->reads->fetch(from, to, 0, reads_);
  }
  {
    TimerScope scope(write_timer);
    const uint32_t bound = context->shard.firstOwnStart(from);
    for (Read* read : reads_) {
      if (read->start < bound) continue;
      writeRead(read->asRecord(record_));
    }
  }
  span_start = to;
}

void ReadWriter::Engine::processNoCoor() {
  static Timer* const fetch_timer = timer("fetch");
  static Timer* const write_timer = timer("write");
  reads_.clear();
  {
    TimerScope scope(fetch_timer);
    context->reads->fetchAll(0, reads_);
  }
  TimerScope scope(write_timer);
  for (Read* read : reads_) writeRead(read->asRecord(record_));
}

void ReadWriter::Engine::writeRead(const bam_record& record) {
  if (writer_) writer_->write(record);
}

void ReadWriter::Engine::closeShard(ReadWriter::Result& result) {
  if (!writer_) return;
  writer_->close();
  result.file = writer_->current();
  result.part = writer_->takeData();
}

Algo::Result* ReadWriter::Engine::finishShard() {
  auto result = std::make_unique<ReadWriter::Result>();
  closeShard(*result);
  return result.release();
}

Algo::Engine* ReadWriter::newEngine(DriverContext* context, int) {
  return new Engine(context, this);
}

// ---- merge and end ----

void ReadWriter::merge(const Shard&, Algo::Result* result) {
  std::unique_ptr<Algo::Result> owned(result);
  if (writer_) writer_->merge(static_cast<ReadWriter::Result*>(result));
}

// The output is finished here, after the last merge. While an exception is on its way the run has failed, and
// the output stays without its end.
ReadWriter::~ReadWriter() {
  if (!writer_ || std::uncaught_exceptions() > 0) return;
  try {
    writer_->close();
  } catch (const std::exception& failure) {
    exitAtEnd(failure.what());
  }
}

static const TemplateAlgoBuilder<ReadWriter> builder("ReadWriter");
