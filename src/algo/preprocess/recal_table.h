// recal_table.h - how often reported base qualities were right: counters by read group, kind of event, reported
// quality, and sequence context or sequencing cycle.
// Units    qualities are phred, 0 to 93. `errors` has 24 fractional bits, so that sums do not depend on their order.
// Threads  one thread at a time; constant tables may be read by all.
// Memory   a row (quality of a group and event) is allocated when it is first counted.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "algo/preprocess/recal_arguments.h"

enum RecalEvent : int { kMismatch, kInsertion, kDeletion, kRecalEvents };
inline constexpr char kEventCodes[] = "MID";
inline constexpr int kRecalQualities = 94;

struct RecalCounts {
  static constexpr int kFractionBits = 24;
  static constexpr uint64_t kMostObservations = uint64_t(1) << 48;  // that a file may state

  uint64_t observations = 0;
  int64_t errors = 0;

  void add(int64_t fixed_errors) {
    ++observations;
    errors += fixed_errors;
  }
  double errorCount() const { return double(errors) / (1 << kFractionBits); }
  RecalCounts& operator+=(const RecalCounts& other) {
    observations += other.observations;
    errors = int64_t(uint64_t(errors) + uint64_t(other.errors));  // of a broken file may wrap
    return *this;
  }
  bool operator==(const RecalCounts&) const = default;
};

struct RecalRow {
  RecalCounts total;
  std::vector<RecalCounts> contexts;  // 4^k, and one more for the invalid context
  std::vector<RecalCounts> cycles;    // cycle + maximum_cycle_value; the last one is the invalid cycle
};

// All of one kind of event in a read group.
struct RecalSum {
  RecalCounts counts;
  double reported =
      -1;  // the quality of the error rate that the reported qualities promise, -1 without any base
};

class RecalGroup {
 public:
  explicit RecalGroup(std::string id) : name(std::move(id)) {}

  RecalRow& row(RecalEvent event, int quality, const RecalArguments& arguments);  // made when it is not there
  const RecalRow* find(RecalEvent event, int quality) const { return rows_[event][quality].get(); }
  // Of the rows; of a group that was read from text, what the file states.
  RecalSum sum(RecalEvent event) const;
  RecalCounts total(RecalEvent event) const { return sum(event).counts; }
  void state(RecalEvent event, const RecalSum& stated) { stated_[event] = stated; }

  std::string name;  // read group ID

 private:
  std::array<std::array<std::unique_ptr<RecalRow>, kRecalQualities>, kRecalEvents> rows_;
  std::array<std::optional<RecalSum>, kRecalEvents> stated_;
};

inline constexpr char kContextBases[] = "ACGT";
// The bases of a context, the first one sequenced in front.
std::string contextText(size_t context, int size);

// The rows that a file asks for, each far larger than its line or cell: together they take 1 GiB at most.
class RowsOfFile {
 public:
  // The group's row, made when it is not there; null when there is no room for it.
  RecalRow* row(RecalGroup& group, RecalEvent event, int quality, const RecalArguments& arguments);

 private:
  size_t bytes_left_ = size_t(1) << 30;
};

class RecalTable {
 public:
  RecalArguments arguments;
  std::vector<RecalGroup> groups;
  std::vector<uint8_t> quantized;  // by quality, of a table that was read from text

  static int contextSize(RecalEvent event, const RecalArguments& arguments) {
    return event == kMismatch ? arguments.mismatches_context_size : arguments.indels_context_size;
  }

  // Adds cell by cell. The same groups in the same order, the same arguments.
  RecalTable& operator+=(const RecalTable& other);

  // Text form, with empirical qualities and the quantization map computed. An empty path writes nothing. Throws
  // std::invalid_argument "Error: failed to open table file NAME" and std::runtime_error when the disk is full.
  void writeText(const std::string& path) const;
  // Into an empty table. A fault is told on standard error, then thrown as std::invalid_argument
  // "Error: QualCal failed to load table file NAME".
  void readText(const std::string& path);
  // Binary form of a partial run. Throws std::runtime_error.
  void writePart(const std::string& path) const;
  void addPart(const std::string& path);  // takes arguments and groups of the first one
};
