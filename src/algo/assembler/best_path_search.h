// best_path_search.h - the likeliest paths of a sequence graph as haplotypes.
#pragma once

#include <memory>
#include <string_view>

#include "algo/assembler/assembly_result.h"

class BestPathSearch {
 public:
  // Adds to `set` the best paths from refSource to refSink of result->graph, at most `limit` and the reference's. Each
  // gets its cigar against the reference, indels leftmost, and its events.
  static void findBestHaplotypes(const std::shared_ptr<AssemblyResult>& result, const Haplotype& refHaplotype,
                                 int limit, bool debug, AssemblyResultSet& set);
};
