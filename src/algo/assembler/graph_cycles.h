// graph_cycles.h - whether a walk along the edges of a graph can come back to a vertex.
// Cost     linear in the graph; no recursion.
#pragma once

#include "algo/assembler/seq_graph.h"

// A cycle that can be reached from a source or from refSource.
bool hasCycle(const GRAPH::SeqKmerGraph& graph);
