#include "algo/vcall/pairhmm/models.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <numbers>
#include <variant>

#include "algo/vcall/pairhmm/engine.h"

namespace {

constexpr int kMinQual = 6;  // of a base and of a gap: below, a quality says nothing
constexpr int kMaxUnit = 8;  // bases of a repeat unit

using Settings = std::map<std::string, double>;

// Takes the values of named settings into fields; ok() tells whether all of them could be taken.
class SettingReader {
 public:
  explicit SettingReader(const Settings& settings) : settings_(settings) {}

  void read(const char* name, uint8_t& field) { readInteger(name, 0, 255, field); }
  void read(const char* name, bool& field) {
    int32_t value = field;
    readInteger(name, INT32_MIN, INT32_MAX, value);
    field = value != 0;
  }
  void read(const char* name, double& field) {
    if (const double* value = find(name)) {
      if (std::isfinite(*value))
        field = *value;
      else
        refuse(name, *value, "is out of range");
    }
  }
  bool ok() const { return ok_; }

 private:
  const double* find(const char* name) const {
    auto found = settings_.find(name);
    return found == settings_.end() ? nullptr : &found->second;
  }
  template <typename Integer>
  void readInteger(const char* name, double min, double max, Integer& field) {
    const double* value = find(name);
    if (!value) return;
    if (*value != std::trunc(*value))
      refuse(name, *value, "is not an integer");
    else if (*value < min || *value > max)
      refuse(name, *value, "is out of range");
    else
      field = static_cast<Integer>(*value);
  }
  void refuse(const char* name, double value, const char* why) {
    fprintf(stderr, "PairHMM param %s value %g %s\n", name, value, why);
    ok_ = false;
  }

  const Settings& settings_;
  bool ok_ = true;
};

}  // namespace

IndelModel::IndelModel(int gop, int gcp) : gop_(static_cast<uint8_t>(gop)), gcp_(static_cast<uint8_t>(gcp)) {
  fillGapTable();
}

void IndelModel::fillGapTable() {
  gap_table_.assign(20, gop_);
  for (int i = 4; i < 20; ++i) gap_table_[size_t(i)] = static_cast<uint8_t>(std::max(gop_ - (i - 3), 30));
}

bool IndelModel::configure(const Settings& settings) {
  SettingReader reader(settings);
  reader.read("indelGOP", gop_);
  reader.read("indelGCP", gcp_);
  fillGapTable();
  return reader.ok();
}

void IndelModel::setupRead(const ReadClip& clip, PairHMM::Engine& engine, bool) const {
  const int n = clip.length();
  const char* bases = clip.read->getBases() + clip.readStart;
  const uint8_t* quals = clip.read->getQuals() + clip.readStart;
  for (int i = 0; i < n;) {
    int run_end = i + 1;
    while (run_end < n && bases[run_end] == bases[i]) ++run_end;
    const int gap = gap_table_[std::min<size_t>(size_t(run_end - i), gap_table_.size() - 1)];
    for (; i < run_end; ++i) engine.setPosition(n, i, quals[i] & 0x7f, gap, gap, gcp_);
  }
}

HaploModel::HaploModel(int pcrModel) : pcr_model_(pcrModel) {
  switch (pcr_model_) {
    case PairHMM::kNone:
      pcr_error_rate_ = 0;
      break;
    case PairHMM::kHostile:
      pcr_error_rate_ = 1;
      break;
    case PairHMM::kAggressive:
      pcr_error_rate_ = 2;
      break;
    default:
      pcr_error_rate_ = 3;
  }
  fillPcrTable();
}

void HaploModel::fillPcrTable() {
  pcr_table_.clear();
  if (!(pcr_error_rate_ > 0)) return;
  for (int i = 0; i <= 20; ++i) {
    const double qual = std::round(1.0 + (40.0 - std::exp(i / (std::numbers::pi * pcr_error_rate_))));
    pcr_table_.push_back(static_cast<uint8_t>(std::max(qual, 10.0)));
  }
}

bool HaploModel::configure(const Settings& settings) {
  SettingReader reader(settings);
  reader.read("pcrErrorRate", pcr_error_rate_);
  reader.read("constantGCP", constant_gcp_);
  reader.read("mapQualCap", map_qual_cap_);
  reader.read("baseQualThresh", base_qual_thresh_);
  reader.read("log10MismapRate", log10_mismap_rate_);
  reader.read("maxErrorRatePerBase", max_error_rate_per_base_);
  reader.read("maxErrorsForRead", max_errors_for_read_);
  reader.read("log10QualPerBase", log10_qual_per_base_);
  reader.read("filterPoorModeledRead", filter_poor_modeled_read_);
  fillPcrTable();
  return reader.ok();
}

namespace {

// How often the repeat unit that begins behind base `i` occurs beyond its first copy there: to the right, and to the left
// up to and with base `i`. The unit is the shortest one of up to 8 bases that repeats to the right, else one base.
int repeatsAround(const char* bases, int n, int i) {
  const int right = i + 1;
  auto isCopy = [&](int at, int length) {  // letter by letter: mostly the first one differs
    int same = 0;
    while (same < length && bases[at + same] == bases[right + same]) ++same;
    return same == length;
  };
  int u = 1, repeats = 0;
  for (int length = 1; length <= std::min(n - right, kMaxUnit) && repeats == 0; ++length) {
    for (int at = right + length; at + length <= n && isCopy(at, length); at += length) ++repeats;
    if (repeats) u = length;
  }
  for (int at = right - u; at >= 0 && isCopy(at, u); at -= u) ++repeats;
  return repeats;
}

}  // namespace

void HaploModel::setupRead(const ReadClip& clip, PairHMM::Engine& engine, bool) const {
  const int n = clip.length();
  Read& read = *clip.read;
  const char* bases = read.getBases() + clip.readStart;
  const uint8_t *ins_text = read.getBITag() + clip.readStart, *del_text = read.getBDTag() + clip.readStart;
  const int cap = map_qual_cap_ ? map_qual_cap_ : read.mapq;
  auto gapQual = [](uint8_t letter) { return (letter - 33) & 0x7f; };
  for (int i = 0; i < n; ++i) {
    int base = std::min<int>(qualityAt(read, clip.readStart + i), cap);
    if (base < base_qual_thresh_) base = kMinQual;
    int ins = gapQual(ins_text[i]), del = gapQual(del_text[i]);
    if (!pcr_table_.empty() && i < n - 1) {
      const int slip = pcr_table_[size_t(std::min(repeatsAround(bases, n, i), 20))];
      ins = std::min(ins, slip);
      del = std::min(del, slip);
    }
    engine.setPosition(n, i, base, std::max(ins, kMinQual), std::max(del, kMinQual), constant_gcp_);
  }
}

void HaploModel::finishRead(const ReadClip& clip, double* row, int nAlleles, int refIndex) const {
  const double errors = std::min(std::ceil(clip.length() * max_error_rate_per_base_), max_errors_for_read_);
  const double limit = errors * log10_qual_per_base_;
  double best = -std::numeric_limits<double>::infinity();
  for (int i = 0; i < nAlleles; ++i)
    if (i != refIndex) best = std::max(best, row[i]);
  for (int i = 0; i < nAlleles; ++i) row[i] = std::max(row[i], best + log10_mismap_rate_);
  if (refIndex >= 0) best = std::max(best, row[refIndex]);
  if (filter_poor_modeled_read_ && limit > best) row[0] = std::numeric_limits<double>::quiet_NaN();
}

TumorNormalModel::TumorNormalModel(int pcrModel, int normalSample)
    : normal_(pcrModel), tumor_(pcrModel), normal_sample_(normalSample) {}

bool TumorNormalModel::configure(const Settings& settings) {
  auto settingsOf = [&](const std::string& own) {
    Settings result;
    for (const auto& [name, value] : settings) {
      if (name.starts_with(own))
        result[name.substr(own.size())] = value;
      else if (!name.starts_with("normal:") && !name.starts_with("tumor:"))
        result.emplace(name, value);
    }
    return result;
  };
  const bool normal_ok = normal_.configure(settingsOf("normal:"));
  return tumor_.configure(settingsOf("tumor:")) && normal_ok;
}

void TumorNormalModel::setupRead(const ReadClip& clip, PairHMM::Engine& engine, bool debug) const {
  modelOf(clip.sample).setupRead(clip, engine, debug);
}

void TumorNormalModel::finishRead(const ReadClip& clip, double* row, int nAlleles, int refIndex) const {
  modelOf(clip.sample).finishRead(clip, row, nAlleles, refIndex);
}
