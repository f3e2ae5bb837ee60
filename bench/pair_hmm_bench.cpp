// The pair HMM by engine: cells of read x haplotype a second, as a caller counts them. "fresh" has haplotypes with
// nothing in common; "shared" has a reference and seven alleles that differ from it by one base or a short gap, so that
// most cells of the later ones are known already.
#include <algorithm>
#include <benchmark/benchmark.h>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "algo/vcall/pairhmm/engine.h"
#include "algo/vcall/pairhmm/flush_denormals.h"

namespace {

constexpr int kReads = 32, kReadLength = 150, kHapLength = 400, kAlleles = 8;

struct Work {
  std::vector<std::string> haps, reads;
  int max_hap = 0;

  explicit Work(bool shared) {
    std::mt19937 random(5);
    auto bases = [&](size_t n) {
      std::string text(n, 0);
      for (char& c : text) c = "ACGT"[random() % 4];
      return text;
    };
    haps.push_back(bases(kHapLength));
    for (size_t a = 1; a < kAlleles; ++a) {
      if (!shared) {
        haps.push_back(bases(kHapLength));
        continue;
      }
      std::string hap = haps[0];
      const size_t at = kHapLength / 2 - 40 + a * 10;
      if (a % 3 == 0)
        hap.insert(at, bases(a));
      else if (a % 3 == 1)
        hap.erase(at, a);
      else
        hap[at] = hap[at] == 'A' ? 'C' : 'A';
      haps.push_back(hap);
    }
    std::sort(haps.begin(), haps.end());
    for (const auto& hap : haps) max_hap = std::max(max_hap, static_cast<int>(hap.size()));
    for (int r = 0; r < kReads; ++r) {
      std::string read =
          haps[random() % haps.size()].substr(random() % (kHapLength - kReadLength - 20), kReadLength);
      read[random() % kReadLength] = 'A';
      reads.push_back(read);
    }
  }
};

const uint8_t* bytes(const std::string& text) {
  return reinterpret_cast<const uint8_t*>(text.data());
}

void scoreAll(benchmark::State& state, const char* name, bool shared) {
  std::unique_ptr<PairHMM::Engine> engine;
  try {
    engine = makeEngine(name);
  } catch (const std::runtime_error& error) {
    return state.SkipWithError(error.what());
  }
  const Work work(shared);
  engine->resize(kReadLength, work.max_hap, kReadLength);
  const FlushDenormals flush;
  int64_t cells = 0;
  for (auto _ : state)
    for (const auto& read : work.reads) {
      for (int i = 0; i < kReadLength; ++i) engine->setPosition(kReadLength, i, 30, 45, 45, 10);
      for (const auto& hap : work.haps) {
        const int length = static_cast<int>(hap.size());
        benchmark::DoNotOptimize(engine->score(kReadLength, bytes(read), length, bytes(hap), false));
        cells += int64_t(length) * kReadLength;
      }
    }
  state.counters["cells"] = benchmark::Counter(static_cast<double>(cells), benchmark::Counter::kIsRate);
}

const bool registered = [] {
  for (const char* order : {"rh", "hr"})
    for (const char* precision : {"f", "d"})
      for (const char* instructions : {"", "sse", "avx"})
        for (bool shared : {false, true}) {
          auto* name = new std::string(std::string(precision) + order + instructions);
          benchmark::RegisterBenchmark((*name + (shared ? "/shared" : "/fresh")).c_str(), scoreAll,
                                       name->c_str(), shared);
        }
  return true;
}();

}  // namespace
