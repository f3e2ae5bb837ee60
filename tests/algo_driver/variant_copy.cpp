#include "variant_copy.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <unistd.h>

class VariantCopy::Result final : public Algo::Result, public VCFWriter::Result {
 public:
  std::string path;  // of the shard's file
};

class VariantCopy::Engine final : public Algo::Engine {
 public:
  Engine(DriverContext* context, VariantCopy* algo)
      : Algo::Engine(context, algo), cache_(*algo->cache_), writer_(algo->writer_->clone()) {}

  void startShard() override;
  void advance(uint32_t from, uint32_t to) override;
  void processNoCoor() override {}
  Algo::Result* finishShard() override;

 private:
  VCFCache cache_;
  std::unique_ptr<VCFWriter> writer_;
  std::string line_;  // scratch
};

namespace {

// The line as it stood in its file, but for a CR at its end.
void joinColumns(const VCFLine& record, std::string& line) {
  int last = VCFLine::kSample;
  while (!record.hasColumn(VCFLine::Column(last))) --last;
  const char* const text = record.column(VCFLine::Column(last));
  line.assign(record.line, text + strlen(text) - record.line);
  std::replace(line.begin(), line.end(), '\0', '\t');
  line += '\n';
}

}  // namespace

// ---- options, start and end ----

VariantCopy::VariantCopy(DriverContext* context, int count, const char* const args[])
    : Algo(context, count, args) {
  OptionParser parser;
  parser.addText("vcf", 'v', "Input VCF file", input_);
  parser.addFlag("merge", 0, "Merge partial files", merge_);
  std::vector<const char*> positional;
  if (parser.parse(count, args, positional) != OptionParser::kOk)
    throw std::invalid_argument(name + ": unknown option");
  if (positional.empty()) throw std::invalid_argument(name + ": missing output file");
  output_ = positional[0];
  partials_.assign(positional.begin() + 1, positional.end());
  if (merge_)
    requireMergeRun(partials_.size());
  else if (!partials_.empty())
    throw std::invalid_argument(name + ": extra argument after output");
  else if (input_.empty())
    throw std::invalid_argument(name + ": missing input vcf file");
  mode_mask |= merge_ ? kNonTraversal : kSharded;
}

std::vector<OutputFile> VariantCopy::outputs() const {
  return {{output_, true}, {output_ + ".idx", false}, {output_ + ".tbi", false}};
}

std::vector<std::string> VariantCopy::inputs() const {
  return merge_ ? partials_ : std::vector<std::string>{input_};
}

void VariantCopy::init() {
  Algo::init();
  VCFWriter::IndexOptions options;
  options.partial = context->mode == DriverContext::kShardedTraversal;
  writer_ = std::make_unique<VCFWriter>(name, options);
  writer_->open(output_);
  for (const std::string& partial : partials_) writer_->merge(partial);
  if (merge_) return;
  cache_ = std::make_unique<VCFCache>(input_);
  VCFHeader header;
  cache_->getHeader(header);
  writer_->writeHeader(header);
}

void VariantCopy::finish() {
  if (writer_) writer_->close();
}

// ---- engine ----

void VariantCopy::Engine::startShard() {
  Algo::Engine::startShard();
  cache_.setContig(context->shard.contig);
  writer_->open(shardName(static_cast<VariantCopy*>(algo)->output_));
  writer_->startContig(context->shard.contig);
}

void VariantCopy::Engine::advance(uint32_t from, uint32_t to) {
  cache_.fetch(static_cast<int32_t>(from), static_cast<int32_t>(to));
  const auto low = static_cast<int32_t>(from), high = static_cast<int32_t>(to);
  for (const VCFLine& record : cache_.records()) {
    if (record.pos < low) continue;
    if (record.pos >= high) break;
    joinColumns(record, line_);
    writer_->writeLine(line_, record.pos, record.end);
  }
  span_start = to;
}

Algo::Result* VariantCopy::Engine::finishShard() {
  auto result = std::make_unique<Result>();
  result->path = writer_->path();
  writer_->endContig(*result);
  writer_->close();
  return result.release();
}

Algo::Engine* VariantCopy::newEngine(DriverContext* context, int) {
  return new Engine(context, this);
}

// ---- merge ----

void VariantCopy::merge(const Shard&, Algo::Result* result) {
  const std::unique_ptr<Result> owned(static_cast<Result*>(result));
  writer_->merge(owned.get(), owned->path);
  if (unlink(owned->path.c_str()) != 0) throw std::runtime_error("cannot remove " + owned->path);
}

static const TemplateAlgoBuilder<VariantCopy> builder("VariantCopy");
