// gvcf_inputs.cpp - opening the files, and one header of all.
#include "algo/vcall/joint/gvcf_inputs.h"

#include <algorithm>
#include <cstdio>
#include <future>
#include <numeric>
#include <stdexcept>
#include <string_view>

#include "algo/vcall/joint/sample_columns.h"
#include "base/crash.h"
#include "base/descriptor_limit.h"
#include "base/log.h"
#include "base/text.h"
#include "base/timer.h"

namespace {

constexpr size_t kTellFrom = 100;  // more inputs than this, and progress is told
constexpr size_t kTellEvery = 100;

void logSizes(const std::vector<std::string>& paths) {
  std::string text = "input file size:";
  for (const std::string& path : paths) text += format(" %ld", static_cast<long>(file_size(path.c_str())));
  log_text("%s\n", text.c_str());
}

// Copies of a cache share its descriptor, so that threads cost no more than the file that each of them writes and, while
// the inputs are opened, the index that each of them loads.
void reserveDescriptors(const GVCFInputs::Run& run, size_t inputs) {
  constexpr unsigned long kReserve = 8;  // the output and its index, dbSNP, what a library opens for a moment
  const unsigned long needed =
      openDescriptors() + inputs + 2 * static_cast<unsigned long>(run.threads) + kReserve;
  const unsigned long allowed = raiseDescriptorLimit();
  if (needed > allowed)
    throw std::invalid_argument(
        format("%s: %zu input vcf files and %d threads need %lu open files, %lu are allowed",
               run.name.c_str(), inputs, run.threads, needed, allowed));
}

// The numbers, or points in their place, that stand between the slashes of a genotype, up to anything else.
uint32_t countChromosomes(std::string_view genotype) {
  uint32_t count = 0;
  for (size_t at = 0;; ++at) {
    const size_t number = at;
    while (at < genotype.size() && genotype[at] >= '0' && genotype[at] <= '9') ++at;
    if (at == number && at < genotype.size() && genotype[at] == '.') ++at;
    if (at == number) return count;
    ++count;
    if (at == genotype.size() || genotype[at] != '/') return count;
  }
}

uint32_t ploidyOf(std::string_view genotype) {
  const uint32_t count = countChromosomes(genotype);
  return count > 0 ? count : GVCFInputs::kUsualPloidy;
}

}  // namespace

void GVCFInputs::open(const Run& run, std::vector<std::string> given, const std::vector<Contig>& contigs) {
  paths = std::move(given);
  logSizes(paths);
  reserveDescriptors(run, paths.size());
  openCaches(run);
  mergeVCFHeaders(run, contigs);
}

// ---- opening ----

// The first of the inputs that cannot be opened is heard, whichever fails first.
void GVCFInputs::openCaches(const Run& run) {
  const bool tells = paths.size() > kTellFrom;
  if (tells) fputs("Preparing input files\n", stderr);
  caches.resize(paths.size());
  const auto openOne = [this](size_t i) { caches[i] = std::make_unique<VCFCache>(paths[i]); };
  std::vector<std::future<void>> opened;
  if (run.pool)
    for (size_t i = 0; i < paths.size(); ++i)
      opened.push_back(run.pool->submit([&openOne, i] { openOne(i); }));
  for (size_t i = 0; i < paths.size(); ++i) {
    if (tells && i % kTellEvery == 0) fprintf(stderr, "Loading input file %zu\n", i);
    if (!run.pool) {
      openOne(i);
      continue;
    }
    run.pool->waitFor(opened[i]);
    try {
      opened[i].get();
    } catch (const std::exception& failure) {
      exit_worker(failure.what());  // other tasks are still at work on this object
    }
  }
}

// ---- the header ----

void GVCFInputs::mergeVCFHeaders(const Run& run, const std::vector<Contig>& contigs) {
  for (const Contig& contig : contigs) header.defs["contig"].push_back({contig.contig, {}});
  sampleMaps.resize(paths.size());
  const ContigMap contig_map = contigMapOf(contigs);
  for (size_t i = 0; i < paths.size(); ++i) addInput(run, i, contigs, contig_map);
  if (header.samples.empty()) throw std::invalid_argument(run.name + ": no sample in the input vcf files");
  dropUnused();
  removeGVCFLines();
}

// Files without a sample of their own have no say in what is called.
void GVCFInputs::dropUnused() {
  size_t kept = 0;
  for (size_t i = 0; i < paths.size(); ++i) {
    const std::vector<int>& map = sampleMaps[i];
    if (std::all_of(map.begin(), map.end(), [](int column) { return column < 0; })) continue;
    if (kept != i) {
      paths[kept] = std::move(paths[i]);
      caches[kept] = std::move(caches[i]);
      sampleMaps[kept] = std::move(sampleMaps[i]);
    }
    ++kept;
  }
  paths.resize(kept);
  caches.resize(kept);
  sampleMaps.resize(kept);
}

void GVCFInputs::addInput(const Run& run, size_t input, const std::vector<Contig>& contigs,
                          const ContigMap& contig_map) {
  const std::string& path = paths[input];
  const auto refuse = [&run](const std::string& text) { throw std::invalid_argument(run.name + text); };
  VCFHeader own;
  std::vector<char> buffer;
  const VCFLine* const first = caches[input]->peekRecord(own, buffer);
  if (!checkContigs(own, path, contigs, contig_map, true))
    refuse(": contigs in vcf " + path + " are not compatible with the reference");
  if (!own.hasBlockLines()) refuse(": Input file " + path + " is not a gvcf file");

  std::vector<int>& map = sampleMaps[input];
  if (!header.merge(own, map, run.uniquifySamples)) refuse(": Incompatible input file " + path);
  ploidies.resize(header.samples.size(), kUsualPloidy);
  SampleColumns columns;
  if (first) columns.restart(*first);
  for (size_t sample = 0; sample < map.size(); ++sample) {
    const bool known = first && columns.next();
    if (map[sample] < 0)
      fprintf(stderr, "Warning: %s: sample %s of input file %s is there already, not used again\n",
              run.name.c_str(), own.samples[sample].c_str(), path.c_str());
    else if (known)
      ploidies[static_cast<size_t>(map[sample])] = ploidyOf(columns.written("GT"));
  }
  if (largestPloidy() > kMaxPloidy)
    refuse(format(": Input file %s has samples of ploidy %u, above %u", path.c_str(), largestPloidy(),
                  kMaxPloidy));
  // A copy has no buffers before it reads, which none but those of engines do from here on.
  caches[input] = std::make_unique<VCFCache>(*caches[input]);
}

uint32_t GVCFInputs::largestPloidy() const {
  return std::accumulate(ploidies.begin(), ploidies.end(), kUsualPloidy,
                         [](uint32_t a, uint32_t b) { return std::max(a, b); });
}

// What holds for records of one sample, and not for joint ones.
void GVCFInputs::removeGVCFLines() {
  header.removeBlockLines();
  header.removeLines("reference");  // the output gets one of its own
  header.removeDef("ALT", "NON_REF");
  header.removeDef("FILTER", "LowQual");
  for (const char* id : {"END", "DB"}) header.removeInfoDef(id);
  header.removeFormatDef("MIN_DP");
}
