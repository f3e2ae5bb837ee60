// Alignment of a read or haplotype to a reference: rate of cells, traceback included, by kernel of the
// matrix.
#include <benchmark/benchmark.h>
#include <random>
#include <string>

#include "algo/assembler/cigar_utils.h"
#include "algo/assembler/smith_waterman.h"

namespace {
using namespace SMITHWATERMAN;

// A reference, and a read out of the middle of it with a few differences.
struct Pair {
  Pair(size_t read_length, size_t reference_length) {
    std::mt19937 random(3);
    while (reference.size() < reference_length) reference += "ACGT"[random() % 4];
    read = reference.substr((reference_length - read_length) / 2, read_length);
    for (size_t i = 40; i < read.size(); i += 100) read[i] = "CATG"[random() % 4];
    read.erase(read.size() / 2, 5).insert(read.size() / 3, "TTATA");
  }
  std::string reference, read;
};

// With linear gap scores the vector kernel does not apply.
template <class Aligner, bool kScalar>
void align(benchmark::State& state) {
  const Pair pair(static_cast<size_t>(state.range(0)), static_cast<size_t>(state.range(1)));
  const Scores linear = {200, -150, -260, -260};
  const Scores& scores = kScalar ? linear : haplotypeAlignScores;
  for (auto _ : state) {
    Aligner aligner;  // as callers have it, on the stack of one call
    aligner.align(pair.reference.data(), pair.reference.size(), pair.read.data(), pair.read.size(), scores,
                  OVERHANG_CLIP);
    benchmark::DoNotOptimize(aligner.result().score);
  }
  state.counters["cells/s"] = benchmark::Counter(
      static_cast<double>(state.iterations()) * static_cast<double>(pair.read.size() * pair.reference.size()),
      benchmark::Counter::kIsRate);
}

void computeCigar(benchmark::State& state) {
  const Pair pair(static_cast<size_t>(state.range(0)), static_cast<size_t>(state.range(0)));
  CigarElements cigar;
  for (auto _ : state)
    benchmark::DoNotOptimize(CigarUtils::computeCigar(pair.reference.data(), pair.reference.size(),
                                                      pair.read.data(), pair.read.size(), cigar));
}

void sizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->Args({150, 300})->Args({400, 400})->Args({1000, 1000});
}
BENCHMARK(align<SWPairwiseAlignment, false>)->Name("pairwise")->Apply(sizes);
BENCHMARK(align<SWPairwiseAlignmentWithAlterPath, false>)->Name("with_alter_path")->Apply(sizes);
BENCHMARK(align<SWPairwiseAlignment, true>)->Name("pairwise_scalar")->Apply(sizes);
BENCHMARK(computeCigar)->Arg(400);

}  // namespace
