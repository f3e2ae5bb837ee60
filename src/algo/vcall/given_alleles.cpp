#include "algo/vcall/given_alleles.h"

#include <algorithm>
#include <string_view>
#include <unordered_set>

#include "base/text.h"

namespace {

// Upper case; false when a byte is not one of the `letters`.
bool toUpper(std::string_view text, std::string_view letters, std::string& upper) {
  upper.assign(text);
  for (char& c : upper) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    if (letters.find(c) == letters.npos) return false;
  }
  return !upper.empty();
}

void cutCommonSuffix(GivenAlleles::Record& record) {
  const auto canLose = [&](const std::string& alt) {
    return alt.size() > 1 && alt.back() == record.ref.back();
  };
  while (record.ref.size() > 1 && std::all_of(record.alts.begin(), record.alts.end(), canLose)) {
    record.ref.pop_back();
    for (std::string& alt : record.alts) alt.pop_back();
  }
}

bool isSNP(const GivenAlleles::Record& record) {
  return record.ref.size() == 1 &&
         std::all_of(record.alts.begin(), record.alts.end(), [](const auto& alt) { return alt.size() == 1; });
}

}  // namespace

void GivenAlleles::clear() {
  snps.clear();
  others.clear();
}

void GivenAlleles::load(VCFCache& cache, uint32_t start, uint32_t end) {
  clear();
  cache.fetch(static_cast<int32_t>(start), static_cast<int32_t>(end));
  cache.requireColumn(VCFLine::kInfo);
  for (const VCFLine& line : cache.records()) {
    if (line.pos < static_cast<int32_t>(start) || line.pos >= static_cast<int32_t>(end)) continue;
    const std::string_view filter = line.column(VCFLine::kFilter);
    if (filter != "." && filter != "PASS") continue;
    Record record;
    // The reference may have letters for several bases, which are written as N.
    if (!toUpper(line.column(VCFLine::kRef), "ABCDGHKMNRSTUVWY", record.ref)) continue;
    std::unordered_set<std::string> taken;
    for (const std::string& word : split(line.column(VCFLine::kAlt), ',')) {
      std::string alt;
      if (toUpper(word, "ACGTN", alt) && alt != record.ref && taken.insert(alt).second)
        record.alts.push_back(std::move(alt));
    }
    if (record.alts.empty()) continue;
    cutCommonSuffix(record);
    auto& records = isSNP(record) ? snps : others;
    auto& here = records[static_cast<uint32_t>(line.pos)];
    if (here.empty() || here.back() != record) here.push_back(std::move(record));
  }
}
