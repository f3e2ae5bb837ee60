#include "algo/vcall/debug_positions.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include "base/text.h"

DebugPositions::DebugPositions(std::string_view text) {
  for (const std::string& piece : split(text, ',')) {
    // Names of contigs may hold colons and number signs.
    const size_t colon = piece.rfind(':');
    const size_t sign = piece.find('#', colon == piece.npos ? piece.size() : colon);
    int64_t place, level = kDebugRegions;
    if (colon == piece.npos || colon == 0 ||
        !parseInteger(std::string_view(piece).substr(colon + 1, sign - colon - 1), 1, UINT32_MAX, place))
      throw std::invalid_argument("dbgloc: not a position (contig:position[#level]): \"" + piece + "\"");
    if (sign != piece.npos &&
        !parseInteger(std::string_view(piece).substr(sign + 1), kDebugRegions, kDebugThreading, level))
      throw std::invalid_argument("dbgloc: not a level from 0 to 3: \"" + piece + "\"");
    positions_[piece.substr(0, colon)].push_back({uint32_t(place - 1), int(level)});
  }
}

DebugPositions DebugPositions::ofEnvironment() {
  const char* const text = getenv("dbgloc");
  return text && *text ? DebugPositions(text) : DebugPositions();
}

int DebugPositions::levelIn(const char* contig, uint32_t start, uint32_t end) const {
  if (empty()) return kNoDebug;
  const auto found = positions_.find(std::string_view(contig));
  int level = kNoDebug;
  if (found != positions_.end())
    for (const Position& position : found->second)
      if (start <= position.place && position.place < end) level = std::max(level, position.level);
  return level;
}

void DebugPositions::check(const FastaFile& reference) const {
  for (const auto& [contig, positions] : positions_) {
    const FastaIndexEntry* const entry = reference.entry(contig);
    for (const Position& position : positions)
      if (!entry || position.place >= entry->length)
        throw std::invalid_argument(
            format("dbgloc: the reference has no position %s:%u", contig.c_str(), position.place + 1));
  }
}

std::mutex& debugMutex() {
  static std::mutex mutex;
  return mutex;
}

void debugPrint(const char* form, ...) {
  va_list arguments;
  va_start(arguments, form);
  const std::string text = formatList(form, arguments);
  va_end(arguments);
  const std::lock_guard<std::mutex> lock(debugMutex());
  fputs(text.c_str(), stderr);
}
