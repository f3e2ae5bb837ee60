// The text form of calibration tables: five tables, each with a line of its shape, one of its name, one of column
// titles, its rows, and an empty line.
#include <algorithm>
#include <bit>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string_view>
#include <type_traits>
#include <unordered_map>

#include "algo/preprocess/empirical_quality.h"
#include "algo/preprocess/quantization.h"
#include "algo/preprocess/recal_table.h"
#include "base/plain_file.h"
#include "base/text.h"

namespace {

constexpr char kPrefix[] = "#:TORVESIN_QCAL_TABLE:";
constexpr char kFirstLine[] = "#:TORVESIN_QCAL_TABLE.V1:5";

struct TableShape {
  const char* name;
  const char* description;
  const char* columns;
  size_t column_count;
};
enum TableNumber { kArguments, kQuantized, kTable0, kTable1, kTable2, kTables };
constexpr TableShape kShapes[kTables] = {
    {"Arguments", "Recalibration argument collection values used in this run", "Argument\tValue", 2},
    {"Quantized", "Quality quantization map", "QualityScore\tCount\tQuantizedScore", 3},
    {"RecalTable0", "", "ReadGroup\tEventType\tEmpiricalQuality\tEstimatedQReported\tObservations\tErrors",
     6},
    {"RecalTable1", "", "ReadGroup\tQualityScore\tEventType\tEmpiricalQuality\tObservations\tErrors", 6},
    {"RecalTable2", "",
     "ReadGroup\tQualityScore\tCovariateValue\tCovariateName\tEventType\tEmpiricalQuality\tObservations\tErro"
     "rs",
     8},
};
constexpr char kContext[] = "Context", kCycle[] = "Cycle";
// What a cell may state: far more than any run has, and within 64 bits as a fixed-point number.
constexpr double kMaxErrors = double(uint64_t(1) << 38);
constexpr RecalEvent kEvents[] = {kMismatch, kInsertion, kDeletion};

// --- writing

class TextWriter {
 public:
  TextWriter(const RecalTable& table, FILE* out) : table_(table), out_(out) {}

  void write() {
    fprintf(out_, "%s\n", kFirstLine);
    const auto arguments = table_.arguments.rows();
    begin(kArguments, format("%zu;", arguments.size()));
    for (const auto& [name, value] : arguments) fprintf(out_, "%s\t%s\n", name.c_str(), value.c_str());
    end();
    writeQuantized();
    begin(kTable0);
    for (const RecalGroup& group : table_.groups) writeGroup(group);
    end();
    begin(kTable1);
    for (const RecalGroup& group : table_.groups) writeQualities(group);
    end();
    begin(kTable2);
    for (const char* covariate : {kContext, kCycle})
      for (const RecalGroup& group : table_.groups) writeCovariate(group, covariate == kContext);
    end();
  }
  int64_t maxErrors() const { return max_errors_; }

 private:
  void begin(TableNumber number, const std::string& rows = "") {
    const TableShape& shape = kShapes[number];
    fprintf(out_, "%s%zu:%s\n%s%s:%s\n%s\n", kPrefix, shape.column_count, rows.c_str(), kPrefix, shape.name,
            shape.description, shape.columns);
  }
  void end() { fputc('\n', out_); }

  void writeCounts(const RecalCounts& counts) {
    fprintf(out_, "%llu\t%.2f\n", static_cast<unsigned long long>(counts.observations), counts.errorCount());
    max_errors_ = std::max(max_errors_, counts.errors);
  }

  void writeQuantized() {
    const QualityCounts counts = calibratedCounts(table_);
    const std::vector<uint8_t> map = quantize(counts, table_.arguments.quantizing_levels);
    begin(kQuantized, format("%zu;", map.size()));
    for (size_t q = 0; q < map.size(); q++)
      fprintf(out_, "%zu\t%llu\t%d\n", q, static_cast<unsigned long long>(counts[q]), map[q]);
    end();
  }

  void writeGroup(const RecalGroup& group) {
    for (RecalEvent event : kEvents) {
      const RecalSum sum = group.sum(event);
      if (sum.counts.observations == 0) continue;
      fprintf(out_, "%s\t%c\t%.4f\t%.4f\t", group.name.c_str(), kEventCodes[event],
              observedQuality(sum.counts), sum.reported);
      writeCounts(sum.counts);
    }
  }

  void writeQualities(const RecalGroup& group) {
    for (int quality = 0; quality < kRecalQualities; quality++) {
      for (RecalEvent event : kEvents) {
        const RecalRow* row = group.find(event, quality);
        if (!row || row->total.observations == 0) continue;
        fprintf(out_, "%s\t%d\t%c\t%.4f\t", group.name.c_str(), quality, kEventCodes[event],
                observedQuality(row->total));
        writeCounts(row->total);
      }
    }
  }

  void writeCovariate(const RecalGroup& group, bool context) {
    for (int quality = 0; quality < kRecalQualities; quality++) {
      for (RecalEvent event : kEvents) {
        const RecalRow* row = group.find(event, quality);
        if (!row || row->total.observations == 0) continue;
        const std::vector<RecalCounts>& cells = context ? row->contexts : row->cycles;
        for (size_t i = 0; i + 1 < cells.size(); i++) {  // the last one is of invalid values
          if (cells[i].observations == 0) continue;
          const std::string value = context
                                        ? contextText(i, RecalTable::contextSize(event, table_.arguments))
                                        : std::to_string(int64_t(i) - table_.arguments.maximum_cycle_value);
          fprintf(out_, "%s\t%d\t%s\t%s\t%c\t%.4f\t", group.name.c_str(), quality, value.c_str(),
                  context ? kContext : kCycle, kEventCodes[event], observedQuality(cells[i]));
          writeCounts(cells[i]);
        }
      }
    }
  }

  const RecalTable& table_;
  FILE* out_;
  int64_t max_errors_ = 0;
};

// --- reading

struct Fault : std::runtime_error {
  using std::runtime_error::runtime_error;
};

class TextReader {
 public:
  TextReader(RecalTable& table, const std::string& path) : table_(table), path_(path) {
    file_.reset(open_plain_file(path.c_str()));
    if (!file_) throw Fault("Error: failed to read table file " + path + ": " + strerror(errno));
  }
  ~TextReader() { free(line_); }
  TextReader(const TextReader&) = delete;
  TextReader& operator=(const TextReader&) = delete;

  void read() {
    if (!nextLine() || text_ != kFirstLine) throw Fault("Error: wrong format for quality table");
    for (int number = 0; number < kTables; number++) readTable(TableNumber(number));
    while (nextLine())
      if (!text_.empty()) throw Fault("Error: wrong format for quality table: more than 5 tables");
  }

 private:
  // False at the end of the file. A line that does not end there was cut.
  bool nextLine() {
    const ssize_t length = getline(&line_, &room_, file_.get());
    if (length < 0) {
      if (ferror(file_.get()))
        throw Fault("Error: failed to read table file " + path_ + ": " + strerror(errno));
      return false;
    }
    text_ = std::string_view(line_, size_t(length));
    if (text_.back() != '\n') throw Fault("Error: table file terminates prematurely: " + path_);
    text_.remove_suffix(1);
    return true;
  }

  [[noreturn]] void failLine(const std::string& message) const {
    throw Fault(message + " in this line: " + std::string(text_));
  }

  void splitLine(size_t count) {
    tokens_.clear();
    for (size_t begin = 0; begin <= text_.size();) {
      const size_t end = std::min(text_.find('\t', begin), text_.size());
      tokens_.push_back(text_.substr(begin, end - begin));
      begin = end + 1;
    }
    if (tokens_.size() != count) failLine("Error: there should be " + std::to_string(count) + " tokens");
  }

  // The part of a head line behind its prefix, up to the next colon.
  std::string_view headField(TableNumber number) {
    const std::string place = "Error: there should be " + std::to_string(number + 1) + "-th table " +
                              kShapes[number].name + " with " + std::to_string(kShapes[number].column_count) +
                              " columns";
    if (!nextLine()) throw Fault(place + " in table file " + path_);
    const size_t prefix = strlen(kPrefix);
    const size_t colon = text_.find(':', prefix);
    if (text_.substr(0, prefix) != kPrefix || colon == std::string_view::npos) failLine(place);
    return text_.substr(prefix, colon - prefix);
  }

  void readTable(TableNumber number) {
    const TableShape& shape = kShapes[number];
    const std::string columns(headField(number));
    const std::string head(text_), name(headField(number));
    bool known = false;
    for (const TableShape& other : kShapes) known |= name == other.name;
    if (!known) throw Fault("Error: unsupported table " + name);
    if (name != shape.name || columns != std::to_string(shape.column_count))
      throw Fault("Error: there should be " + std::to_string(number + 1) + "-th table " + shape.name +
                  " with " + std::to_string(shape.column_count) + " columns in these lines: " + head + " " +
                  std::string(text_));
    if (!nextLine()) throw Fault("Error: table file terminates prematurely: " + path_);
    splitLine(shape.column_count);
    if (text_ != shape.columns) failLine("Error: wrong format for quality table: unknown titles");

    if (number == kQuantized) {
      table_.quantized.resize(kRecalQualities);
      for (size_t q = 0; q < table_.quantized.size(); q++) table_.quantized[q] = uint8_t(q);
    }
    for (;;) {
      if (!nextLine()) throw Fault("Error: table file terminates prematurely: " + path_);
      if (text_.empty()) return;
      splitLine(shape.column_count);
      readRow(number);
    }
  }

  void readRow(TableNumber number) {
    switch (number) {
      case kArguments:
        if (!table_.arguments.set(std::string(tokens_[0]), std::string(tokens_[1])))
          failLine("Error: invalid argument");
        return;
      case kQuantized:
        return readLevel();
      case kTable0: {
        const RecalEvent event = eventAt(1);
        const RecalCounts counts = countsAt(4);
        numberAt<double>(2);
        group().state(event, {counts, numberAt<double>(3)});
        return;
      }
      case kTable1: {
        const RecalEvent event = eventAt(2);
        const RecalCounts counts = countsAt(4);
        numberAt<double>(3);
        if (const int quality = qualityAt(1); quality >= 0) rowOf(event, quality).total = counts;
        return;
      }
      default:
        return readCell();
    }
  }

  void readLevel() {
    const auto quality = numberAt<uint64_t>(0);
    numberAt<uint64_t>(1);
    const auto level = numberAt<uint64_t>(2);
    for (uint64_t n : {quality, level})
      if (n >= kRecalQualities)
        failLine("Error: the quantization level " + std::to_string(n) + " exceeds the maximum " +
                 std::to_string(kRecalQualities));
    table_.quantized[quality] = uint8_t(level);
  }

  void readCell() {
    const RecalEvent event = eventAt(4);
    const RecalCounts counts = countsAt(6);
    numberAt<double>(5);
    const int quality = qualityAt(1);
    if (quality < 0) return;
    if (tokens_[3] == kContext) {
      const size_t context = contextAt(2, event);
      rowOf(event, quality).contexts[context] = counts;
    } else if (tokens_[3] == kCycle) {
      const auto cycle = numberAt<int64_t>(2);
      const int limit = table_.arguments.maximum_cycle_value;
      if (cycle < -limit || cycle > limit) {
        fprintf(stderr, "Warning: skip this large cycle %lld\n", static_cast<long long>(cycle));
        return;
      }
      rowOf(event, quality).cycles[size_t(cycle + limit)] = counts;
    } else {
      failLine("Error: unknown covariate " + std::string(tokens_[3]));
    }
  }

  // The group of the first token, made when it is new.
  RecalGroup& group() {
    auto [found, added] = groups_.try_emplace(std::string(tokens_[0]), table_.groups.size());
    if (added) table_.groups.emplace_back(found->first);
    return table_.groups[found->second];
  }

  RecalRow& rowOf(RecalEvent event, int quality) {
    RecalRow* const row = rows_.row(group(), event, quality, table_.arguments);
    if (!row) failLine("Error: too many rows");
    return *row;
  }

  template <class Number>
  Number numberAt(size_t i) const {
    const std::string_view token = tokens_[i];
    Number value{};
    bool good = parseNumber(token, value);
    if constexpr (std::is_same_v<Number, double>) good = good && std::isfinite(value);
    if (!good) failLine("Error: invalid number " + std::string(token));
    return value;
  }

  RecalEvent eventAt(size_t i) const {
    for (RecalEvent event : kEvents)
      if (tokens_[i].size() == 1 && tokens_[i][0] == kEventCodes[event]) return event;
    failLine("Error: invalid operation " + std::string(tokens_[i]));
  }

  // -1 for a quality above the maximum, whose line is to be skipped.
  int qualityAt(size_t i) const {
    const auto quality = numberAt<uint64_t>(i);
    if (quality < kRecalQualities) return int(quality);
    fprintf(stderr, "Warning: skip this large score %llu\n", static_cast<unsigned long long>(quality));
    return -1;
  }

  size_t contextAt(size_t i, RecalEvent event) const {
    const std::string_view text = tokens_[i];
    if (text.size() != size_t(RecalTable::contextSize(event, table_.arguments)))
      failLine("Error: length of context " + std::string(text) + " does not meet the requirement");
    size_t context = 0;
    for (char base : text) {
      const char* found = base ? strchr(kContextBases, base) : nullptr;
      if (!found) failLine("Error: invalid context " + std::string(text));
      context = context << 2 | size_t(found - kContextBases);
    }
    return context;
  }

  RecalCounts countsAt(size_t i) const {
    const auto observations = numberAt<uint64_t>(i);
    const auto errors = numberAt<double>(i + 1);
    if (observations > RecalCounts::kMostObservations)
      failLine("Error: invalid number " + std::string(tokens_[i]));
    if (errors < 0 || errors > kMaxErrors) failLine("Error: invalid number " + std::string(tokens_[i + 1]));
    return {observations, std::lrint(errors * (1 << RecalCounts::kFractionBits))};
  }

  RecalTable& table_;
  const std::string& path_;
  FileOwner file_;
  char* line_ = nullptr;
  size_t room_ = 0;
  std::string_view text_;  // the line without its end
  std::vector<std::string_view> tokens_;
  std::unordered_map<std::string, size_t> groups_;
  RowsOfFile rows_;
};

}  // namespace

void RecalTable::writeText(const std::string& path) const {
  if (path.empty()) return;
  FileOwner file(fopen(path.c_str(), "we"));
  if (!file) throw std::invalid_argument("Error: failed to open table file " + path);
  TextWriter writer(*this, file.get());
  writer.write();
  if (!close_written(std::move(file)))
    throw std::runtime_error("Error: failed to write table file " + path + ": " + strerror(errno));
  if (getenv("QualCal_print_max_error")) {
    const auto whole = uint64_t(writer.maxErrors()) >> RecalCounts::kFractionBits;
    fprintf(stderr, "maxError = %ld, %d bits\n", long(whole), int(std::bit_width(whole)));
  }
}

void RecalTable::readText(const std::string& path) {
  try {
    TextReader(*this, path).read();
  } catch (const Fault& fault) {
    fprintf(stderr, "%s\n", fault.what());
    throw std::invalid_argument("Error: QualCal failed to load table file " + path);
  }
}
