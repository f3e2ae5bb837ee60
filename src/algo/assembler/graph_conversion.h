// graph_conversion.h - from k-mers to sequences.
#pragma once

#include "algo/assembler/seq_graph.h"

// Each k-mer becomes its last base; a source, and refSource, all of it. Edges keep multiplicity and isRef. Ids follow the
// order of the vertices.
GRAPH::SeqGraph toSeqGraph(const GRAPH::SeqKmerGraph& graph);
