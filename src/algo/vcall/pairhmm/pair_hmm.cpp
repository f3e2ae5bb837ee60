#include "algo/vcall/pairhmm/pair_hmm.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <numeric>
#include <stdexcept>
#include <string_view>

#include "algo/vcall/pairhmm/engine.h"
#include "algo/vcall/pairhmm/flush_denormals.h"
#include "algo/vcall/pairhmm/models.h"
#include "base/text.h"

namespace {

// Below this score a float has run out of range.
constexpr double kFloatFloor = -64.12;

std::string_view basesOf(const Allele& allele) {
  return {allele.bases, static_cast<size_t>(allele.length)};
}

}  // namespace

PairHMM::PairHMM(std::unique_ptr<Model> model) : model_(std::move(model)) {}
PairHMM::~PairHMM() = default;

bool PairHMM::configure(const std::string& params) {
  std::map<std::string, double> settings;
  if (params.empty()) return true;
  for (const std::string& piece : split(params, ',')) {
    const size_t equals = piece.find('=');
    const char* value = equals == std::string::npos ? "" : piece.c_str() + equals + 1;
    char* end = nullptr;
    const double number = std::strtod(value, &end);
    if (end == value || *end) throw std::invalid_argument(": invalid phmm_param format " + params);
    settings[piece.substr(0, equals)] = number;
  }
  return model_->configure(settings);
}

void PairHMM::calcLikelihood(const std::vector<ReadClip>& reads, const std::vector<Allele>& alleles,
                             double* out, unsigned first, unsigned last, int debugIndex) const {
  const size_t n = alleles.size();
  int max_read = 0, max_hap = 0, ref_index = -1;
  for (unsigned r = first; r < last; ++r) max_read = std::max(max_read, reads[r].length());
  std::vector<unsigned> order;  // of the alleles that are not dropped, by bases: neighbours share long ends
  for (unsigned a = 0; a < n; ++a) {
    if (alleles[a].isRef && ref_index < 0) ref_index = static_cast<int>(a);
    if (alleles[a].length <= 0) continue;
    max_hap = std::max<int>(max_hap, alleles[a].length);
    order.push_back(a);
  }
  std::sort(order.begin(), order.end(), [&](unsigned a, unsigned b) {
    const int way = basesOf(alleles[a]).compare(basesOf(alleles[b]));
    return way != 0 ? way < 0 : a < b;
  });
  if (order.empty() || max_read <= 0) return;

  const ThreadEngines& engines = threadEngines();
  Engine &engine = *engines.first, *precise = engines.precise.get();
  const int gap_limit = static_cast<int>(model_->maxReadLength(static_cast<unsigned>(max_read)));
  engine.resize(max_read, max_hap, gap_limit);
  bool precise_resized = false;
  FlushDenormals flush;

  for (unsigned r = first; r < last; ++r) {
    double* row = out + r * n;
    const ReadClip& clip = reads[r];
    if (std::isnan(row[0])) continue;
    const int length = clip.length();
    if (length <= 0) continue;
    const auto* bases = reinterpret_cast<const uint8_t*>(clip.read->getBases()) + clip.readStart;
    bool precise_set = false;
    auto debugged = [&](size_t a) { return debugIndex < 0 || r * n + a == static_cast<size_t>(debugIndex); };
    model_->setupRead(clip, engine, debugIndex < 0);
    for (unsigned a : order) {
      const Allele& allele = alleles[a];
      const auto* hap = reinterpret_cast<const uint8_t*>(allele.bases);
      const bool debug = debugged(a);
      if (debug) fprintf(stderr, "%s\t%.*s\n", allele.isRef ? "REF" : "HAP", allele.length, allele.bases);
      double score = engine.score(length, bases, allele.length, hap, debug);
      if (precise && !(score >= kFloatFloor && std::isfinite(score))) {
        if (!precise_resized) precise->resize(max_read, max_hap, gap_limit);
        if (!precise_set) model_->setupRead(clip, *precise, debug);
        precise_resized = precise_set = true;
        score = precise->score(length, bases, allele.length, hap, debug);
      }
      row[a] = score;
    }
    model_->finishRead(clip, row, static_cast<int>(n), ref_index);
  }
}
