// interval.h - places on the reference.
// Coords   zero-based half open in memory; text is one-based inclusive.
// Owns     nothing: `contig` points into the list that interned the name, and must outlive the value.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

struct Interval {
  const char* contig = nullptr;
  uint32_t start = 0;
  uint32_t end = 0;
};

// A whole contig: start 0, end its length.
using Contig = Interval;

// The contig name under which reads without coordinates are traversed.
inline constexpr char kNoCoor[] = "NO_COOR";

// Regions per contig name.
using IntervalMap = std::map<std::string, std::vector<Interval>>;

// "contig:start-end", one-based inclusive, cut to 255 characters.
std::string toText(const Interval& interval);

// Parses contig | contig:start | contig:start- | contig:start-end | contig:start+count. `text` is cut at the
// colon in place and becomes the contig name that `interval` points to. False, `text` untouched, when it does
// not parse.
bool parse_interval(char* text, Interval& interval);

// Adds a comma-separated list of interval strings to `map`; the map's keys own the names that the intervals
// point to. Prints "Failed to parse interval string %s\n" and returns false at the first bad item.
bool parse_shard_list(const char* text, IntervalMap& map);

// Sorts and merges the list of each contig: empty ones are dropped, overlapping and adjacent ones become one.
void normalize(IntervalMap& map);
