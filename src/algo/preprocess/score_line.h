// score_line.h - the lines of a score file. Each tells of one read what the duplicate decision at its mate's place needs
// to know, in the shape of a VCF record that stands where the mate does:
//
//   mate's contig, mate's position (one-based), * * * * *, five_prime;end;score;flags;ordinal;name
//
// Threads  pure functions.
#pragma once

#include <cstdint>
#include <string>

#include "algo/preprocess/mate_info.h"

// The name as score lines have it: a semicolon or white space but a blank, which would end the field, is a blank, and so
// is the sign of a leading "END=", which says in a VCF how far a record reaches. Gives `name` itself when there is
// nothing to change, else `scratch` holds it.
const char* scoreLineName(const char* name, std::string& scratch);

// Appends a line with its newline. `mate_start` is zero-based.
void appendScoreLine(std::string& text, const char* mate_contig, int32_t mate_start,
                     const MateSummary& summary, const char* name);

struct ScoreInfo {
  MateSummary summary;
  const char* name = nullptr;  // within the text that was parsed
};

// Reads the INFO column. Throws std::runtime_error for another number of fields, one that is no number, or
// a name longer than a read can have.
ScoreInfo parseScoreInfo(const char* info);
