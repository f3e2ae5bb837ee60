// target_list.h - which pieces of the genome a run walks, from its contigs, --interval and --shard.
// Coords   zero-based half open. An open end is the largest uint32_t, cut at the contig's end.
// Threads  pure functions.
// Owns     nothing: entries point to the names of the contigs, targets to the entries.
#pragma once

#include <cstdint>
#include <vector>

#include "algo/shard.h"

// One entry per contig, the whole of it.
std::vector<TargetEntry> wholeContigs(const std::vector<Contig>& contigs);

// The regions that begin at or behind the end of their contig.
std::vector<Interval> regionsOutside(const std::vector<Contig>& contigs, const IntervalMap& regions);

// The regions that lie on the contigs, in contig order, cut at the contig's ends; those wholly outside are
// dropped. A contig's regions are sorted and apart from each other. They leave `regions`: what remains there
// is on no contig.
std::vector<TargetEntry> clipToContigs(const std::vector<Contig>& contigs, IntervalMap& regions);

// Every entry as one target.
std::vector<Target> wholeTargets(const std::vector<TargetEntry>& entries);

// The parts of the entries that lie in `shards`, whose lists are sorted and merged. NO_COOR is taken when it
// is named.
std::vector<Target> intersectTargets(const std::vector<TargetEntry>& entries, const IntervalMap& shards);

uint64_t totalBases(const std::vector<Target>& targets);
