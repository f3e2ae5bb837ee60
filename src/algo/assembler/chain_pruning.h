// chain_pruning.h - removal of the chains of a k-mer graph that too few reads support.
// Cost     linear in the graph; no recursion.
#pragma once

#include "algo/assembler/seq_graph.h"

// A chain leads from a vertex where paths begin, meet, part or end, through vertices of one edge in and one edge out, to
// the next such vertex. It stays when it has an edge of the reference, or one of weight `pruneFactor`; behind a source
// other than the reference's the first of several edges does not count. Vertices left without edges go, except of the
// reference.
void pruneLowWeightChains(GRAPH::SeqKmerGraph& graph, int pruneFactor);
