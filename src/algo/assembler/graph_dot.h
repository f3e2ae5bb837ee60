// graph_dot.h - graphs as text for the dot program, for debugging.
// Errors   debug output that cannot be written is told on standard error, and changes nothing else.
#pragma once

#include <string>

#include "algo/assembler/seq_graph.h"

namespace GRAPH {

// A line per edge with its multiplicity, one more for an edge of the reference, a line per vertex with its bases. An
// edge that begins or ends a dangling path is dotted. `prefix` goes in front of the ids of vertices, so that lines of
// several graphs may stand in one file.
std::string dotLines(const SeqKmerGraph& graph, const std::string& prefix = "");
std::string dotLines(const SeqGraph& graph, const std::string& prefix = "");

// Writes a file with these lines, in the working folder; a '/' of `name` becomes '_'.
void writeDotFile(std::string name, const std::string& lines);

}  // namespace GRAPH
