#include "readdata/vcf/variant_context.h"

#include <algorithm>
#include <cassert>
#include <charconv>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <iterator>
#include <string_view>

#include "base/text.h"
#include "readdata/vcf/gq_block.h"

namespace {

const std::vector<std::string> kNoValues;

const std::vector<std::string>& valuesOf(const std::map<std::string, std::vector<std::string>>& attributes,
                                         const std::string& key) {
  const auto found = attributes.find(key);
  return found == attributes.end() ? kNoValues : found->second;
}

void setNumber(std::string& text, int32_t number) {
  char digits[16];
  text.assign(digits, std::to_chars(digits, std::end(digits), number).ptr);
}

void setNumber(std::vector<std::string>& values, int32_t number) {
  values.resize(1);
  setNumber(values[0], number);
}

// ---- text ----

constexpr struct BaseTable {
  char base[256];

  constexpr BaseTable() : base() {
    for (char& c : base) c = 'N';
    for (char upper : {'A', 'C', 'G', 'T'}) base[static_cast<uint8_t>(upper)] = base[upper + 32] = upper;
  }
} kBases;

void appendReference(std::string& text, const char* bases, int32_t count) {
  const size_t old = text.size();
  text.append(bases, static_cast<size_t>(std::max(count, 0)));
  for (size_t i = old; i < text.size(); ++i) text[i] = kBases.base[static_cast<uint8_t>(text[i])];
}

void appendOrDot(std::string& text, const std::string& value) {
  if (value.empty())
    text += '.';
  else
    text += value;
}

// As "%4.2f" does.
void appendQuality(std::string& text, double quality) {
  char buffer[400];  // the largest double has 309 digits before the point
  if (std::isnan(quality)) {
    text += '.';
  } else if (std::isinf(quality)) {
    text.append(buffer, static_cast<size_t>(snprintf(buffer, sizeof buffer, "%4.2f", quality)));
  } else {
    const auto end = std::to_chars(buffer, std::end(buffer), quality, std::chars_format::fixed, 2).ptr;
    text.append(buffer, end);
  }
}

void appendValues(std::string& text, const std::vector<std::string>& values) {
  for (size_t i = 0; i < values.size(); ++i) {
    if (i > 0) text += ',';
    text += values[i];
  }
}

void appendAllele(std::string& text, const Allele& allele, const char* ref, int32_t ref_length) {
  const char* symbol =
      allele.isSymbolic() ? symbolicAlleleText(static_cast<uint8_t>(*allele.bases)) : nullptr;
  if (symbol)
    text += symbol;
  else if (allele.length > 0)
    text.append(allele.bases, static_cast<size_t>(allele.length));
  if (allele.refSuffix > 0 && allele.refSuffix < ref_length)
    appendReference(text, ref + ref_length - allele.refSuffix, allele.refSuffix);
}

void appendInfo(std::string& text, const VariantAttr& info) {
  if (info.empty()) text += '.';
  bool first = true;
  for (const auto& [key, values] : info) {
    if (!first) text += ';';
    first = false;
    text += key;
    if (values.empty()) continue;
    text += '=';
    appendValues(text, values);
  }
}

using Keys = std::vector<std::string_view>;

// The keys of all samples, "GT" first and the others ascending; "GT" alone when there are none.
void collectKeys(const std::map<std::string, GenotypeAttr>& genotypes, Keys& keys) {
  keys.clear();
  for (const auto& [sample, attributes] : genotypes) {
    // Mostly all samples have the same keys, in the order of the map until the end.
    size_t same = 0;
    for (const auto& [key, values] : attributes)
      if (same < keys.size() && keys[same] == key) ++same;
    if (same == attributes.size()) continue;
    const size_t old = keys.size();
    for (const auto& [key, values] : attributes) keys.push_back(key);
    std::inplace_merge(keys.begin(), keys.begin() + static_cast<ptrdiff_t>(old), keys.end());
    keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
  }
  const auto gt = std::find(keys.begin(), keys.end(), "GT");
  if (gt != keys.end())
    std::rotate(keys.begin(), gt, gt + 1);
  else if (keys.empty())
    keys.push_back("GT");
}

void appendSample(std::string& text, const GenotypeAttr& attributes, const Keys& keys) {
  auto attribute = attributes.begin();  // goes along with the keys behind GT
  for (size_t i = 0; i < keys.size(); ++i) {
    if (i > 0) text += ':';
    auto found = attribute;
    if (keys[i] == "GT") {
      found = attributes.find("GT");
    } else {
      while (attribute != attributes.end() && attribute->first < keys[i]) ++attribute;
      found = attribute != attributes.end() && attribute->first == keys[i] ? attribute : attributes.end();
    }
    if (found != attributes.end())
      appendValues(text, found->second);
    else
      text += i == 0 ? "./." : ".";
  }
}

}  // namespace

VariantContext::VariantContext(GQBlock& block, const std::string& sample, const std::string& contig) {
  assign(block, sample, contig);
}

void VariantContext::assign(GQBlock& block, const std::string& sample, const std::string& contig) {
  static const std::string kEnd = "END", kMinDepth = "MIN_DP", kDepth = "DP", kPL = "PL", kGT = "GT",
                           kGQ = "GQ";
  assert(!block.ref.empty() && !block.DP.empty());
  chrom = contig;
  start = block.start;
  end = block.end;
  ref = block.ref.data();
  refLength = 1;
  alleles.assign(1, parseAllele("<NON_REF>", 9));
  setNumber(info[kEnd], static_cast<int32_t>(end));

  GenotypeAttr& attributes = genotypes[sample];
  std::sort(block.DP.begin(), block.DP.end());
  setNumber(attributes[kMinDepth], block.DP[0]);
  setNumber(attributes[kDepth], block.DP[block.DP.size() / 2]);

  int64_t smallest = std::numeric_limits<int32_t>::max(), second = smallest;
  std::vector<std::string>& likelihoods = attributes[kPL];
  likelihoods.resize(block.minPL.size());
  for (size_t i = 0; i < likelihoods.size(); ++i) {
    const int32_t likelihood = block.minPL[i];
    setNumber(likelihoods[i], likelihood);
    second = std::min(second, std::max<int64_t>(smallest, likelihood));
    smallest = std::min<int64_t>(smallest, likelihood);
  }
  std::vector<std::string>& genotype = attributes[kGT];
  genotype.resize(1);
  genotype[0] = likelihoods.empty() ? "" : "0";
  for (size_t i = 2; i < likelihoods.size(); ++i) genotype[0] += "/0";
  if (likelihoods.empty()) attributes.erase(kPL);
  setNumber(attributes[kGQ], static_cast<int32_t>(std::min<int64_t>(second - smallest, 99)));
}

void VariantContext::clear() {
  alleles.clear();
  chrom.clear();
  start = end = 0;
  id.clear();
  filter.clear();
  qual = std::numeric_limits<double>::quiet_NaN();
  info.clear();
  genotypes.clear();
}

void VariantContext::addFilter(const std::string& name) {
  if (filter.empty() || filter == ".")
    filter = name;
  else
    filter += ";" + name;
}

void VariantContext::addInfo(const std::string& key, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  info[key].push_back(formatList(format, arguments));
  va_end(arguments);
}

void VariantContext::setFlag(const std::string& key, bool on) {
  if (on)
    info[key].clear();
  else
    info.erase(key);
}

void VariantContext::addGenotype(const std::string& sample, const std::string& key, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  genotypes[sample][key].push_back(formatList(format, arguments));
  va_end(arguments);
}

void VariantContext::addGenotype(const std::string& sample, const std::string& key, int value) {
  genotypes[sample][key].push_back(std::to_string(value));
}

const std::vector<std::string>& VariantContext::getInfo(const std::string& key) const {
  return valuesOf(info, key);
}

const std::vector<std::string>& VariantContext::getGenotype(const std::string& sample,
                                                            const std::string& key) const {
  const auto found = genotypes.find(sample);
  return found == genotypes.end() ? kNoValues : valuesOf(found->second, key);
}

void VariantContext::eraseInfo(const std::string& key) {
  info.erase(key);
}

void VariantContext::eraseGenotype(const std::string& sample, const std::string& key) {
  const auto found = genotypes.find(sample);
  if (found != genotypes.end()) found->second.erase(key);
}

void VariantContext::print(std::string& text, const std::vector<std::string>& sampleNames) const {
  appendOrDot(text, chrom);
  char number[16];
  text += '\t';
  text.append(number, std::to_chars(number, std::end(number), static_cast<int32_t>(start + 1)).ptr);
  text += '\t';
  appendOrDot(text, id);
  text += '\t';
  appendReference(text, ref, refLength);
  text += '\t';
  if (alleles.empty()) text += '.';
  for (size_t i = 0; i < alleles.size(); ++i) {
    if (i > 0) text += ',';
    appendAllele(text, alleles[i], ref, refLength);
  }
  text += '\t';
  appendQuality(text, qual);
  text += '\t';
  appendOrDot(text, filter);
  text += '\t';
  appendInfo(text, info);
  if (!sampleNames.empty()) {
    thread_local Keys keys;
    collectKeys(genotypes, keys);
    for (size_t i = 0; i < keys.size(); ++i) {
      text += i == 0 ? '\t' : ':';
      text += keys[i];
    }
    for (const std::string& name : sampleNames) {
      text += '\t';
      const auto found = genotypes.find(name);
      if (found == genotypes.end() || found->second.empty())
        text += "./.";
      else
        appendSample(text, found->second, keys);
    }
  }
  text += '\n';
}

void VariantContext::print(IOHandle& stream, const std::vector<std::string>& sampleNames) const {
  thread_local std::string text;
  text.clear();
  print(text, sampleNames);
  stream.write(text.data(), text.size());
}
