#include "algo/algo.h"

#include <cstdio>
#include <stdexcept>
#include <unistd.h>

#include "base/text.h"

Algo::Algo(DriverContext* context, int count, const char* const args[])
    : context(context), name(count > 0 ? args[0] : ""), command_line_(context->command_line + " --algo") {
  for (int i = 0; i < count; ++i) command_line_.append(" ").append(args[i]);
}

void Algo::init() {
  static constexpr const char* kModeNames[] = {"traversal", "sharded traversal", "non-traversal"};
  const int mode = context->mode;
  if (mode >= 0 && mode < 32 && (mode_mask >> mode & 1)) return;
  char text[256];  // longer texts are cut
  if (mode >= 0 && mode < 3)
    snprintf(text, sizeof text, "Algo %s does not support %s mode", name.c_str(), kModeNames[mode]);
  else
    snprintf(text, sizeof text, "Algo %s unknown mode %d", name.c_str(), mode);
  throw std::runtime_error(text);
}

void Algo::deleteEngine(Engine* engine) {
  delete engine;
}

void Algo::giveHelp(const std::string& usage, const OptionParser& parser) {
  fputs(usage.c_str(), stderr);
  parser.print(stderr, format("Options for %s:", name.c_str()).c_str());
  mode_mask |= kHelpGiven;
}

bool Algo::takeArguments(OptionParser& parser, const std::string& usage, int count, const char* const args[],
                         std::vector<const char*>& positional) {
  if (context->mode == DriverContext::kHelp) {
    giveHelp(usage, parser);
    return false;
  }
  if (parser.parse(count, args, positional) != OptionParser::kOk)
    throw std::invalid_argument(name + ": unknown option");
  return true;
}

void Algo::requireMergeRun(size_t partial_count) const {
  if (context->reads || context->reference)
    throw std::invalid_argument(name + ": --merge must not have input reference or bam files");
  if (partial_count == 0) throw std::invalid_argument(name + ": no partial files for merge");
}

void Algo::Engine::startShard() {
  span_start = context->shard.start;
  span_end = context->shard.end;
}

void Algo::openShardFile(const std::function<void()>& open) const {
  if (context->outputs) return context->outputs->opening(open);
  open();
}

void Algo::exitAtEnd(const char* text) const {
  if (context->outputs) context->outputs->discard();
  fprintf(stderr, "%s\n", text);
  fflush(stderr);
  _exit(1);
}

std::string Algo::Engine::shardName(const std::string& text) const {
  return text + format("_%d", context->shard.sequence);
}

// Built at first use, so that the static builders of any source file find it, and never taken down.
std::map<std::string, AlgoBuilder*>& AlgoBuilder::registry() {
  static auto& builders = *new std::map<std::string, AlgoBuilder*>;
  return builders;
}
