#include <cstdlib>
#include <stdexcept>
#include <string>

#include "algo/vcall/pairhmm/engine.h"
#include "algo/vcall/pairhmm/engine_hr.h"
#include "algo/vcall/pairhmm/engine_rh.h"
#include "algo/vcall/pairhmm/engine_simd.h"
#include "algo/vcall/pairhmm/read_batch.h"

namespace {

// What the processor has and the system lets programs use: it must save the wider registers.
struct Processor {
  bool sse41 = __builtin_cpu_supports("sse4.1"), avx = __builtin_cpu_supports("avx");
};

template <typename E>
std::unique_ptr<PairHMM::Engine> make() {
  return std::make_unique<E>();
}

enum Needs { kNothing, kSse41, kAvx };

constexpr struct {
  std::string_view name;
  Needs needs;
  std::unique_ptr<PairHMM::Engine> (*make)();
} kEngines[] = {
    {"drh", kNothing, make<EngineRH<double>>},     {"frh", kNothing, make<EngineRH<float>>},
    {"dhr", kNothing, make<EngineHR<double>>},     {"fhr", kNothing, make<EngineHR<float>>},
    {"drhsse", kSse41, make<EngineRHSSE<double>>}, {"frhsse", kSse41, make<EngineRHSSE<float>>},
    {"dhrsse", kSse41, make<EngineHRSSE<double>>}, {"fhrsse", kSse41, make<EngineHRSSE<float>>},
    {"drhavx", kAvx, make<EngineRHAVX<double>>},   {"frhavx", kAvx, make<EngineRHAVX<float>>},
    {"dhravx", kAvx, make<EngineHRAVX<double>>},   {"fhravx", kAvx, make<EngineHRAVX<float>>},
};

ThreadEngines makeThreadEngines() {
  const Processor processor;
  const char* forced = std::getenv("phmm");
  ThreadEngines engines;
  engines.name = forced ? forced : processor.avx ? "fhravx" : processor.sse41 ? "frhsse" : "frh";
  engines.first = makeEngine(engines.name);
  if (!engines.first) throw std::runtime_error("Unknown pair HMM engine " + engines.name);
  if (engines.name[0] != 'd') engines.precise = makeEngine("d" + engines.name.substr(1));
  return engines;
}

}  // namespace

std::unique_ptr<PairHMM::Engine> makeEngine(std::string_view name) {
  const Processor processor;
  for (const auto& engine : kEngines) {
    if (engine.name != name) continue;
    if (engine.needs == kSse41 && !processor.sse41)
      throw std::runtime_error("SSE4.1 instructions are not supported");
    if (engine.needs == kAvx && !processor.avx)
      throw std::runtime_error("AVX instructions are not supported");
    return engine.make();
  }
  return nullptr;
}

void PairHMM::checkEngine() {
  makeThreadEngines();
}

const ThreadEngines& threadEngines() {
  thread_local const ThreadEngines engines = makeThreadEngines();
  return engines;
}

ReadBatch* threadBatch() {
  thread_local const std::unique_ptr<ReadBatch> batch = []() -> std::unique_ptr<ReadBatch> {
    if (threadEngines().name != "fhravx") return nullptr;
    const bool wide = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq");
    return std::make_unique<ReadBatch>(wide ? kBatchAvx512 : kBatchAvx);
  }();
  return batch.get();
}
