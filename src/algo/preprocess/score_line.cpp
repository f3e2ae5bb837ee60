#include "algo/preprocess/score_line.h"

#include <charconv>
#include <cstring>
#include <stdexcept>

#include "base/text.h"

namespace {

constexpr int kFields = 6;
constexpr size_t kLongestName = 254;  // that a BAM record holds
constexpr char kFieldEnds[] = ";\t\n\v\f\r";
constexpr char kEnd[] = "END=";

void appendNumber(std::string& text, int64_t value, char separator) {
  char digits[24];
  char* const end = std::to_chars(digits, digits + sizeof digits, value).ptr;
  text.append(digits, end) += separator;
}

[[noreturn]] void refuse() {
  throw std::runtime_error("Dedup: score info fie is in incorrect format or corrupted");
}

// Reads a number and moves behind the semicolon that follows it.
int32_t takeNumber(const char*& text) {
  const char* const stop = strchr(text, ';');
  int32_t value;
  if (!stop || !parseNumber({text, stop}, value)) refuse();
  text = stop + 1;
  return value;
}

}  // namespace

const char* scoreLineName(const char* name, std::string& scratch) {
  const bool has_end = strncmp(name, kEnd, strlen(kEnd)) == 0;
  if (!has_end && !strpbrk(name, kFieldEnds)) return name;
  scratch = name;
  if (has_end) scratch[strlen(kEnd) - 1] = ' ';
  for (char& c : scratch)
    if (strchr(kFieldEnds, c)) c = ' ';
  return scratch.c_str();
}

void appendScoreLine(std::string& text, const char* mate_contig, int32_t mate_start,
                     const MateSummary& summary, const char* name) {
  text.append(mate_contig) += '\t';
  appendNumber(text, int64_t{mate_start} + 1, '\t');
  text += "*\t*\t*\t*\t*\t";
  for (const int32_t field : {summary.five_prime, summary.end, summary.score, summary.flags, summary.ordinal})
    appendNumber(text, field, ';');
  std::string scratch;
  text.append(scoreLineName(name, scratch)) += '\n';
}

ScoreInfo parseScoreInfo(const char* info) {
  int fields = 1;
  for (const char* c = info; *c; ++c) fields += *c == ';';
  if (fields == kFields - 1)
    throw std::runtime_error("Dedup: score_info format changed. Please rerun algo LocusCollector.");
  if (fields != kFields) refuse();

  ScoreInfo parsed;
  for (int32_t* field : {&parsed.summary.five_prime, &parsed.summary.end, &parsed.summary.score,
                         &parsed.summary.flags, &parsed.summary.ordinal})
    *field = takeNumber(info);
  if (strlen(info) > kLongestName) refuse();
  parsed.name = info;
  return parsed;
}
