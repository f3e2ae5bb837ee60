#include "algo/vcall/assembly_task.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <stdexcept>
#include <unordered_map>
#include <utility>

#include "algo/assembler/read_threading_assembler.h"
#include "algo/vcall/crossovers.h"
#include "algo/vcall/fold_back.h"
#include "algo/vcall/fragment_name.h"
#include "algo/vcall/given_haplotypes.h"
#include "algo/vcall/read_sampling.h"
#include "algo/vcall/read_window.h"
#include "algo/vcall/region_trimmer.h"
#include "base/bases.h"
#include "base/timer.h"

namespace {

template <typename T>
int compareBytes(const T* a, const T* b, size_t count) {
  return count == 0 ? 0 : memcmp(a, b, count * sizeof(T));
}

// Reads that are equal here are the same in all that matters.
bool before(const ReadClip& a, const ReadClip& b) {
  if (a.refStart != b.refStart) return a.refStart < b.refStart;
  const Read &x = *a.read, &y = *b.read;
  if (x.start != y.start) return x.start < y.start;
  if (const int order = compareReads(x, y)) return order < 0;
  if (x.length != y.length) return x.length < y.length;
  if (x.n_cigar != y.n_cigar) return x.n_cigar < y.n_cigar;
  if (const int order = compareBytes(x.cigar, y.cigar, x.n_cigar * 4)) return order < 0;
  if (const int order = compareBytes(x.bases, y.bases, size_t(x.length))) return order < 0;
  if (const int order = compareBytes(x.quals, y.quals, size_t(x.length))) return order < 0;
  return a.sample < b.sample;
}

std::unique_ptr<Haplotype> makeReference(const AssemblyTask& task) {
  auto reference = std::make_unique<Haplotype>();
  reference->bases = task.reference.bases;
  reference->isRef = true;
  reference->locus = {task.contig, task.reference.start, task.reference.end()};
  reference->cigar = {uint32_t(reference->bases.size()) << 4 | CIGAR_M};
  return reference;
}

// Where the reference is not known no read differs from it: the haplotypes take its letters there. Those that add or
// take such letters go.
void acceptUnknownReference(std::vector<std::unique_ptr<Haplotype>>& haplotypes,
                            const ReferenceWindow& reference) {
  if (allBases(reference.bases)) return;
  for (auto& haplotype : haplotypes) {
    size_t in_ref = size_t(haplotype->alignmentStart), in_read = 0;
    for (const uint32_t word : haplotype->cigar) {
      const size_t length = cigarLength(word);
      const bool of_ref = consumesReference(word), of_read = consumesRead(word);
      for (size_t i = 0; of_ref && of_read && i < length; ++i)
        if (!isBase(reference.bases[in_ref + i])) haplotype->bases[in_read + i] = reference.bases[in_ref + i];
      in_ref += of_ref ? length : 0;
      in_read += of_read ? length : 0;
    }
    haplotype->isRef = haplotype->bases == reference.bases;
    haplotype->eventMap.build(haplotype->bases, haplotype->cigar, reference.bases, reference.start,
                              uint32_t(haplotype->alignmentStart));
  }
  std::erase_if(haplotypes, [](const auto& haplotype) {
    return !haplotype->isRef &&
           std::any_of(haplotype->eventMap.begin(), haplotype->eventMap.end(), [](const auto& entry) {
             const HaplotypeEvent& event = entry.second;
             return !allBases(event.ref) || !allBases(event.alt);
           });
  });
}

std::vector<size_t> readsPerSample(const std::vector<ReadClip>& reads, size_t samples) {
  std::vector<size_t> counts(samples);
  for (const ReadClip& clip : reads) ++counts[size_t(clip.sample)];
  return counts;
}

// Keeps the work of evaluation within bounds; see RegionAssembler.
void boundCells(AssemblyTask& task, size_t samples) {
  double bases = 0;
  for (const ReadClip& clip : task.reads) bases += clip.length();
  const auto share = [&] {  // that is affordable; insertions that are given may be long
    double cells = 0;
    for (const auto& haplotype : task.haplotypes) cells += bases * double(haplotype->bases.size());
    return RegionAssembler::kMaxCells / cells;
  };
  const double affordable = share();
  if (!(affordable < 1)) return;
  RegionTrimmer::sortUnique(task.haplotypes, std::max(size_t(affordable * double(task.haplotypes.size())),
                                                      RegionAssembler::kFewHaplotypes));
  const double of_reads = share();
  if (!(of_reads < 1)) return;
  std::vector<size_t> limits = readsPerSample(task.reads, samples);
  for (size_t& limit : limits) limit = size_t(std::ceil(double(limit) * of_reads));
  sampleReads(task.reads, limits, task.contig, task.activeInterval.start);
}

}  // namespace

RegionAssembler::RegionAssembler(AssemblyParam param, std::vector<int32_t> sampleOfGroup)
    : param_(std::move(param)), sample_of_group_(std::move(sampleOfGroup)) {
  for (const int32_t sample : sample_of_group_) samples_ = std::max(samples_, size_t(sample + 1));
}

void RegionAssembler::assemble(AssemblyTask& task) const {
  static Timer* clip_timer = timer("clip_region");
  static Timer* trim_timer = timer("trim_region");
  task.state = AssemblyTask::kAssembled;
  task.trimmedInterval = task.paddedInterval;
  task.skipFlag = true;
  task.reads.clear();
  task.haplotypes.clear();
  if (task.inactive || task.reference.bases.empty()) return;
  std::unique_lock<std::mutex> telling(debugMutex(), std::defer_lock);  // of one region at a time
  if (task.debugLevel >= kDebugRegions) telling.lock();
  {
    TimerScope scope(clip_timer);
    clipReads(task.fetched, task.paddedInterval, task.reference, task.reads);
    const size_t limit = readLimit(task, param_.resampleDepth);
    sampleReads(task.reads, std::vector<size_t>(samples_, limit), task.contig, task.activeInterval.start);
  }
  task.haplotypes = findHaplotypes(task);

  TimerScope scope(trim_timer);
  acceptUnknownReference(task.haplotypes, task.reference);
  RegionTrimmer::sortUnique(task.haplotypes, kMaxHaplotypes);
  if (task.debugLevel >= kDebugRegions)
    fprintf(stderr, "haplotype after assembleReads:%lu\n", task.haplotypes.size());
  task.skipFlag = !RegionTrimmer::variantInterval(task.haplotypes, task.activeInterval, task.paddedInterval,
                                                  param_.hasGiven, param_.snpPadding, task.trimmedInterval);
  if (task.skipFlag) {
    task.haplotypes.resize(1);
    return;
  }
  RegionTrimmer::cutAll(task.haplotypes, task.reference, task.trimmedInterval);
  std::vector<Read*> kept;
  kept.reserve(task.reads.size());
  for (const ReadClip& clip : task.reads) kept.push_back(clip.read);
  clipReads(kept, task.trimmedInterval, task.reference, task.reads);
  if (param_.addsCrossovers && !param_.hasGiven) {
    addCrossovers(task.haplotypes, task.reads, task.reference, task.trimmedInterval, int(param_.minBaseQual),
                  kMaxHaplotypes);
    RegionTrimmer::sortUnique(task.haplotypes, kMaxHaplotypes);
  }
  boundCells(task, samples_);
}

size_t RegionAssembler::readLimit(const AssemblyTask& task, int depth) const {
  if (depth <= 0) return SIZE_MAX;
  const double length = task.paddedInterval.end - task.paddedInterval.start;
  return size_t(std::ceil(depth * length / std::max(param_.resampleReadLen, 1)));
}

void RegionAssembler::clipReads(const std::vector<Read*>& reads, ActiveRegion interval,
                                const ReferenceWindow& reference, std::vector<ReadClip>& clips) const {
  // Where mates overlap they are one fragment, whose errors they share: the reverse read gives way.
  std::unordered_map<FragmentName, const Read*, FragmentName::Hash> forward;
  for (const Read* read : reads)
    if (param_.clipOverlaps && !read->isReverse() && !(read->flag & FLAG_SUPPLEMENTARY) &&
        (read->flag & FLAG_PAIRED) && read->mapq >= param_.minMapQual)
      forward[FragmentName(*read)] = read;
  clips.clear();
  for (Read* read : reads) {
    if (read->mapq < param_.minMapQual) continue;
    if (!param_.usesSupplementary && (read->flag & FLAG_SUPPLEMENTARY)) continue;
    const auto group = size_t(read->read_group);
    if (group >= sample_of_group_.size() || sample_of_group_[group] < 0) continue;
    const FoldBacks untrue = param_.trimSoftClip != 0 ? FoldBacks{0, 0} : findFoldBacks(*read, reference);
    uint32_t start = interval.start, end = interval.end;
    if (untrue.front != FoldBacks::kNone) start = std::max(start, read->start + uint32_t(untrue.front));
    if (untrue.back != FoldBacks::kNone) end = std::min(end, read->end - uint32_t(untrue.back));
    const auto mate =
        read->isReverse() && (read->flag & FLAG_PAIRED) ? forward.find(FragmentName(*read)) : forward.end();
    if (mate != forward.end() && ((mate->second->flag ^ read->flag) & FLAG_FIRST) &&
        read->start < mate->second->end && read->end > mate->second->start)
      start = std::max(start, mate->second->end);
    Read::Region trusted;
    if (param_.clipLowEnds) {
      if (!read->effectiveRegion(int(param_.minBaseQual), true, trusted)) continue;
      start = std::max(start, trusted.start);
      end = std::min(end, trusted.end);
    }
    ReadClip clip;
    if (!clipRead(*read, adapterFreeWindow(*read), start, end, clip) || clip.length() < kMinReadBases)
      continue;
    clip.sample = sample_of_group_[group];
    clips.push_back(clip);
  }
  std::stable_sort(clips.begin(), clips.end(), before);
}

RegionAssembler::Haplotypes RegionAssembler::findHaplotypes(const AssemblyTask& task) const {
  static Timer* assemble_timer = timer("assemble_region");
  TimerScope scope(assemble_timer);
  const std::unique_ptr<Haplotype> reference = makeReference(task);
  if (task.debugLevel >= kDebugRegions)
    fprintf(stderr, "%s:%d-%d, %lu reads, doFeatureAssemble=%c doHCAssemble=%c\n", task.contig,
            int(task.paddedInterval.start + 1), int(task.paddedInterval.end), task.reads.size(), 'F', 'T');
  Haplotypes found;
  try {
    found = threadReads(task, *reference);  // in all modes: there is no feature assembler
  } catch (const std::runtime_error& error) {
    if (task.debugLevel >= kDebugRegions) fprintf(stderr, "%s\n", error.what());
    found.push_back(std::make_unique<Haplotype>(*reference));
  }
  if (param_.hasGiven)
    found =
        givenHaplotypes(task.given, task.activeInterval, task.reference, *reference, found, kMaxHaplotypes);
  return found;
}

RegionAssembler::Haplotypes RegionAssembler::threadReads(const AssemblyTask& task,
                                                         const Haplotype& reference) const {
  std::vector<ReadClip> clips = task.reads;
  const size_t limit = readLimit(task, kAssemblyDepth);
  sampleReads(clips, std::vector<size_t>(samples_, limit), task.contig, task.activeInterval.start);
  std::vector<AssemblyRead> reads;
  reads.reserve(clips.size());
  for (const ReadClip& clip : clips)
    reads.push_back(
        {clip.read->bases + clip.readStart, clip.read->quals + clip.readStart, clip.length(), clip.sample});
  ReadThreadingAssembler assembler;
  assembler.pruneFactor = param_.pruneFactor;
  assembler.kmerSizes = param_.kmerSizes;
  assembler.minBaseQual = int(param_.minBaseQual);
  assembler.maxHaplotypes = int(kMaxHaplotypes);
  assembler.debugGraphs = task.debugLevel >= kDebugAssembly;
  if (task.debugLevel >= kDebugGraphs) assembler.debugFlags |= ReadThreadingAssembler::kWriteDot;
  if (task.debugLevel >= kDebugThreading)
    assembler.debugFlags |= ReadThreadingAssembler::kKeepThreadingGraphs;
  const std::unique_ptr<AssemblyResultSet> set = assembler.assemble(reads, reference);
  if (task.debugLevel >= kDebugRegions)
    fprintf(stderr, "after hc assembler, got %d haplotypes on %s:%d-%d\n", int(set->haplotypes().size()),
            task.contig, int(task.paddedInterval.start + 1), int(task.paddedInterval.end));
  if (task.debugLevel >= kDebugAssembly) fputs(set->dump().c_str(), stderr);
  if (task.debugLevel >= kDebugGraphs) set->writeGraphs(toText(reference.locus) + "-assemblyGraphs.dot");
  return set->takeHaplotypes();
}
