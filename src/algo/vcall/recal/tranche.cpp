#include "algo/vcall/recal/tranche.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <strings.h>

#include "algo/vcall/recal/text_file.h"
#include "base/text.h"

namespace {

constexpr int kVersion = 5;

using DataByLod = std::vector<const VariantDatum*>;

// What a tranche is chosen by: a value for each datum in order of lod, and the value that a target asks for.
class SelectionMetric {
 public:
  SelectionMetric(std::string metric, const DataByLod& data) : name(std::move(metric)), data_(data) {}
  virtual ~SelectionMetric() = default;
  virtual double getThreshold(double target) const = 0;
  virtual void calculateRunningMetric() = 0;
  virtual double getTarget() const = 0;

  std::string name;
  std::vector<double> runningValues;

 protected:
  const DataByLod& data_;
};

// The share of truth sites that is lost when the cut is made at a datum.
class TruthSensitivityMetric final : public SelectionMetric {
 public:
  explicit TruthSensitivityMetric(const DataByLod& data) : SelectionMetric("TruthSensitivity", data) {
    total =
        uint32_t(std::count_if(data.begin(), data.end(), [](const VariantDatum* d) { return d->isTruth; }));
  }
  double getThreshold(double target) const override { return 1.0 - target / 100.0; }
  double getTarget() const override { return 1.0; }
  void calculateRunningMetric() override {
    runningValues.resize(data_.size());
    uint32_t truth = 0;
    for (size_t i = data_.size(); i-- > 0;) {
      truth += data_[i]->isTruth;
      runningValues[i] = 1.0 - truth / double(total);
    }
  }

  uint32_t total;
};

// As the file holds it: hundredths of a percent.
double asWritten(double target) {
  return strtod(format("%.2f", target).c_str(), nullptr);
}

struct TiTv {
  uint32_t transitions = 0, transversions = 0;
  void add(const VariantDatum& datum) { ++(datum.isTransition ? transitions : transversions); }
  double ratio() const { return transversions == 0 ? 0 : double(transitions) / transversions; }
};

void fill(Tranche& tranche, const DataByLod& data) {
  TiTv known, novel;
  for (const VariantDatum* datum : data) {
    const bool called = datum->lod >= tranche.minVQSLod;
    tranche.accessibleTruthSites += datum->isTruth;
    if (!called) continue;
    tranche.callsAtTruthSites += datum->isTruth;
    if (datum->isKnown) {
      ++tranche.numKnown;
      if (datum->isBiallelicSNP) known.add(*datum);
    } else {
      ++tranche.numNovel;
      novel.add(*datum);  // of any kind
    }
  }
  tranche.knownTiTv = known.ratio();
  tranche.novelTiTv = novel.ratio();
}

}  // namespace

void checkTarget(double target, const std::string& place) {
  if (!(target >= 0 && target <= 100))
    throw std::invalid_argument(format("Target false discovery rate(FDS) is unreasonable %f", target) +
                                place);
}

std::vector<Tranche> createTranches(const VariantData& data, const std::vector<double>& targets,
                                    uint32_t model) {
  DataByLod sorted;
  sorted.reserve(data.size());
  for (const VariantDatum* datum : data)
    if (!datum->isAggregate) sorted.push_back(datum);
  std::stable_sort(sorted.begin(), sorted.end(),
                   [](const VariantDatum* a, const VariantDatum* b) { return a->lod < b->lod; });
  TruthSensitivityMetric metric(sorted);
  metric.calculateRunningMetric();
  std::vector<Tranche> tranches;
  for (double target : targets) {
    checkTarget(target);
    const auto isSame = [target](const Tranche& other) {
      return asWritten(other.targetTruthSensitivity) == asWritten(target);
    };
    if (std::any_of(tranches.begin(), tranches.end(), isSame)) continue;
    const double threshold = metric.getThreshold(target);
    const auto at = std::find_if(metric.runningValues.begin(), metric.runningValues.end(),
                                 [threshold](double value) { return value >= threshold; });
    if (at == metric.runningValues.end()) continue;
    Tranche tranche;
    tranche.targetTruthSensitivity = target;
    tranche.minVQSLod = sorted[size_t(at - metric.runningValues.begin())]->lod;
    tranche.model = model;
    fill(tranche, sorted);
    tranches.push_back(std::move(tranche));
  }
  return tranches;
}

// ---- the file ----

void writeTranches(const std::string& name, const std::string& path, std::vector<Tranche> tranches) {
  std::stable_sort(tranches.begin(), tranches.end(), [](const Tranche& a, const Tranche& b) {
    return a.targetTruthSensitivity < b.targetTruthSensitivity;
  });
  TextFile file = openTextFile(name, path, "w");
  std::string text = format(
      "# Variant quality score tranches file\n# Version number %d\n"
      "targetTruthSensitivity,numKnown,numNovel,knownTiTv,novelTiTv,minVQSLod,filterName,model,"
      "accessibleTruthSites,callsAtTruthSites,truthSensitivity\n",
      kVersion);
  double previous = 0;
  for (const Tranche& tranche : tranches) {
    const char* const model = kModelNames[tranche.model];
    const double sensitivity = tranche.accessibleTruthSites == 0
                                   ? 0.0
                                   : double(tranche.callsAtTruthSites) / tranche.accessibleTruthSites;
    text += format("%.2f,%d,%d,%.4f,%.4f,%.4f,VQSRTranche%s%.2fto%.2f,%s,%d,%d,%.4f\n",
                   tranche.targetTruthSensitivity, int(tranche.numKnown), int(tranche.numNovel),
                   tranche.knownTiTv, tranche.novelTiTv, tranche.minVQSLod, model, previous,
                   tranche.targetTruthSensitivity, model, int(tranche.accessibleTruthSites),
                   int(tranche.callsAtTruthSites), sensitivity);
    previous = tranche.targetTruthSensitivity;
  }
  fputs(text.c_str(), file.get());
  closeTextFile(name, path, std::move(file));
}

namespace {

constexpr char kTitles[] = "targetTruthSensitivity";

// Whether the text may be the id of a filter.
bool isFilterName(const char* text) {
  for (; *text; ++text)
    if (!isgraph(static_cast<unsigned char>(*text)) || strchr(";<>\"", *text)) return false;
  return true;
}

// The tranche of a line, but for its model. False when the line has other items.
bool parseTranche(const char* line, Tranche& tranche, std::string& model) {
  char filter_text[256], model_text[64];
  double sensitivity;
  int length = 0;
  const int items =
      sscanf(line, "%lf,%u,%u,%lf,%lf,%lf,%255[^,],%63[^,],%u,%u,%lf %n", &tranche.targetTruthSensitivity,
             &tranche.numKnown, &tranche.numNovel, &tranche.knownTiTv, &tranche.novelTiTv, &tranche.minVQSLod,
             filter_text, model_text, &tranche.accessibleTruthSites, &tranche.callsAtTruthSites, &sensitivity,
             &length);
  if (items != 11 || line[length] || !std::isfinite(tranche.minVQSLod) || !isFilterName(filter_text))
    return false;
  tranche.name = filter_text;
  model = model_text;
  return true;
}

// Of tranches in descending order of target: whether no cut of a model lies below that of a higher target.
bool haveRisingCuts(const std::vector<Tranche>& tranches) {
  const Tranche* last[std::size(kModelNames)] = {};  // by model
  for (const Tranche& tranche : tranches) {
    const Tranche*& before = last[tranche.model];
    if (before && before->targetTruthSensitivity > tranche.targetTruthSensitivity &&
        before->minVQSLod > tranche.minVQSLod)
      return false;
    before = &tranche;
  }
  return true;
}

}  // namespace

std::vector<Tranche> readTranches(const std::string& path) {
  const TextFile file = openTextFile("", path, "r");
  const auto refuse = [&] { throw std::runtime_error("Unsupported tranche file " + path); };
  std::vector<Tranche> tranches;
  bool has_titles = false;
  char line[4096];
  while (fgets(line, sizeof line, file.get())) {
    int version;
    if (sscanf(line, "# Version number %9d", &version) == 1 && version > kVersion) refuse();
    const bool is_titles = strncmp(line, kTitles, sizeof kTitles - 1) == 0;
    if (is_titles && !strchr(line, '\n')) refuse();  // cut short
    has_titles = has_titles || is_titles;
    if (*line == '#' || is_titles) continue;
    Tranche tranche;
    std::string model;
    if (!parseTranche(line, tranche, model)) refuse();
    const auto known = std::find(std::begin(kModelNames), std::end(kModelNames), model);
    if (known == std::end(kModelNames))
      throw std::runtime_error(
          format("Unsupported model=%s in tranche file %s", model.c_str(), path.c_str()));
    checkTarget(tranche.targetTruthSensitivity, " in tranche file " + path);
    tranche.model = uint32_t(known - std::begin(kModelNames));
    tranches.push_back(std::move(tranche));
  }
  if (ferror(file.get()))
    throw std::runtime_error("Failed to read from file " + path + ", " + strerror(errno));
  if (tranches.empty() && !has_titles) refuse();
  std::stable_sort(tranches.begin(), tranches.end(), [](const Tranche& a, const Tranche& b) {
    return a.targetTruthSensitivity > b.targetTruthSensitivity;
  });
  if (!haveRisingCuts(tranches)) refuse();
  return tranches;
}

// ---- filters ----

void RecalFilter::choose(std::vector<Tranche> all, double sensitivity) {
  const double least = asWritten(sensitivity);
  std::erase_if(all, [&](const Tranche& tranche) {
    return tranche.model != model || !(tranche.targetTruthSensitivity >= least);
  });
  tranches = std::move(all);
}

std::string RecalFilter::filterFor(double lod) const {
  if (tranches.empty()) return lod < cutoff ? kLowVQSLod : kPass;
  if (lod >= tranches.back().minVQSLod) return kPass;
  for (size_t i = tranches.size(); i-- > 0;)
    if (lod >= tranches[i].minVQSLod) return tranches[i].name;
  return tranches.front().name + "+";
}

void addFilter(std::vector<std::string>& filters, const std::string& added) {
  const auto saysNothing = [](const std::string& filter) {
    return filter.empty() || filter == "." || strcasecmp(filter.c_str(), kPass) == 0;
  };
  if (!filters.empty() && saysNothing(filters[0])) filters.erase(filters.begin());
  const bool is_there = std::find(filters.begin(), filters.end(), added) != filters.end();
  if (filters.empty() || (added != kPass && !is_there)) filters.push_back(added);
}
