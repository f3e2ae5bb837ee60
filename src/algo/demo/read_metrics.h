// read_metrics.h - what a read metric is, and metrics kept apart by the categories of reads.
// Threads  an object belongs to one engine, then to the merge; settings behind it are shared read-only.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "readdata/bam/read.h"

// Upper-case reference bases of [start, end) of one contig, zero-based.
struct ReferenceWindow {
  const char* bases = nullptr;
  uint32_t start = 0, end = 0;

  bool covers(uint32_t from, uint32_t to) const { return start <= from && to <= end; }
};

// Where metrics get the bases under an alignment, block by block: from a window at hand, or from what a
// derived class finds outside of it. This one finds nothing more.
// Threads  one.
class ReferenceSource {
 public:
  explicit ReferenceSource(const ReferenceWindow& window = {}) : window_(window) {}
  virtual ~ReferenceSource() = default;

  // A window over [start, end) of the contig, often a wider one. Less than asked where there are no bases:
  // users take the part that both have in common. Valid until the next call.
  ReferenceWindow under(uint32_t start, uint32_t end) {
    return window_.covers(start, end) ? window_ : outside(start, end);
  }

 protected:
  virtual ReferenceWindow outside(uint32_t, uint32_t) { return window_; }

  ReferenceWindow window_;
};

// Counts over reads. Reads may come in any order and through any number of objects that are merged
// afterwards: the tables are the same.
class ReadMetrics {
 public:
  virtual ~ReadMetrics() = default;

  // Adds one read, with the reference of its contig. Where that has no bases the read is not compared.
  virtual void update(Read& read, ReferenceSource& reference) = 0;
  virtual void merge(const ReadMetrics& other) = 0;  // `other` is of the same class
  virtual void reset() = 0;
  virtual void compute() = 0;      // derives what is printed, once, after the last merge
  virtual bool empty() const = 0;  // no read was counted
  virtual uint64_t memorySize() const = 0;

  // One text per table that the metric prints: the title row without newline, and all rows with theirs.
  virtual void titles(std::vector<std::string>& list) const = 0;
  virtual void lines(std::vector<std::string>& list) const = 0;
};

// Keeps the settings that its metrics refer to, and outlives them.
class ReadMetricsFactory {
 public:
  virtual ~ReadMetricsFactory() = default;
  virtual std::unique_ptr<ReadMetrics> create() const = 0;
};

// One inner metric per category of reads, as a first column of the tables: FIRST_OF_PAIR, SECOND_OF_PAIR,
// PAIR (both together) and UNPAIRED. A category without reads has no row.
template <class Inner>
class MultiCategroyReadMetric final : public ReadMetrics {
 public:
  // Makes each inner metric with `args`, which must outlive the object.
  template <class... Args>
  explicit MultiCategroyReadMetric(const Args&... args)
      : inner_{Inner(args...), Inner(args...), Inner(args...), Inner(args...)} {}

  void update(Read& read, ReferenceSource& reference) override {
    Category category = kUnpaired;
    if (read.flag & FLAG_PAIRED) category = read.flag & FLAG_FIRST ? kFirst : kSecond;
    inner_[category].update(read, reference);
  }
  void merge(const ReadMetrics& other) override {
    const auto& same = static_cast<const MultiCategroyReadMetric&>(other);
    for (int i = 0; i < kCount; i++) inner_[i].merge(same.inner_[i]);
  }
  void reset() override {
    for (Inner& metric : inner_) metric.reset();
  }
  // Pairs are counted once, as first or second reads; their sum is made here.
  void compute() override {
    inner_[kPair].reset();
    inner_[kPair].merge(inner_[kFirst]);
    inner_[kPair].merge(inner_[kSecond]);
    for (Inner& metric : inner_) metric.compute();
  }
  bool empty() const override {
    for (const Inner& metric : inner_)
      if (!metric.empty()) return false;
    return true;
  }
  uint64_t memorySize() const override {
    uint64_t sum = 0;
    for (const Inner& metric : inner_) sum += metric.memorySize();
    return sum;
  }

  void titles(std::vector<std::string>& list) const override {
    std::vector<std::string> inTitles;
    inner_[0].titles(inTitles);
    if (list.empty()) list.resize(inTitles.size());
    const size_t nType = list.size();
    if (inTitles.size() != nType) throw std::runtime_error("inTitles.size() != nType");
    for (size_t i = 0; i < nType; i++) list[i] += "CATEGORY\t" + inTitles[i];
  }
  void lines(std::vector<std::string>& list) const override {
    static constexpr const char* kNames[kCount] = {"FIRST_OF_PAIR", "SECOND_OF_PAIR", "PAIR", "UNPAIRED"};
    std::vector<std::string> inTitles;
    inner_[0].titles(inTitles);
    const size_t nType = inTitles.size();
    if (list.empty()) list.resize(nType);
    if (list.size() != nType) throw std::runtime_error("lines.size() != nType");
    for (int i = 0; i < kCount; i++) {
      if (inner_[i].empty()) continue;
      std::vector<std::string> inTextOutput;
      inner_[i].lines(inTextOutput);
      if (inTextOutput.size() != nType) throw std::runtime_error("inTextOutput[i].size() != nType");
      for (size_t t = 0; t < nType; t++) list[t] += std::string(kNames[i]) + "\t" + inTextOutput[t];
    }
  }

 private:
  enum Category { kFirst, kSecond, kPair, kUnpaired, kCount };
  Inner inner_[kCount];
};
