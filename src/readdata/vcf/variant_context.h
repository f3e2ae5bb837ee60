// variant_context.h - a variant record on its way to a file.
// Coords   zero-based half open; POS is printed one-based.
// Owns     its strings and containers, not the bases of REF and of the alleles.
// Threads  one object per thread.
// Source   the VCF 4.2 format document.
#pragma once

#include <cstdint>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "readdata/stream/io_handle.h"
#include "readdata/vcf/allele.h"

struct GQBlock;

using VariantAttr = std::map<std::string, std::vector<std::string>>;   // a key without values is a flag
using GenotypeAttr = std::map<std::string, std::vector<std::string>>;  // of one sample, by FORMAT key

struct VariantContext {
  const char* ref = nullptr;
  int32_t refLength = 0;
  std::vector<Allele> alleles;  // of ALT
  std::string chrom;
  uint32_t start = 0, end = 0;
  std::string id;                                          // empty: "."
  std::string filter;                                      // joined by ';'; empty: "."
  double qual = std::numeric_limits<double>::quiet_NaN();  // phred; NaN: "."
  VariantAttr info;
  std::map<std::string, GenotypeAttr> genotypes;  // by sample name

  VariantContext() = default;
  // The record of a reference block, which gets END, MIN_DP, DP, PL, GT and GQ. Sorts the block's DP; `ref` points into
  // the block, which must outlive the record.
  VariantContext(GQBlock& block, const std::string& sample, const std::string& contig);
  // The same, of a record that is new or was made of another block with that sample, whose storage is used again.
  void assign(GQBlock& block, const std::string& sample, const std::string& contig);

  void clear();  // for the next site; storage of the alleles is kept

  void addFilter(const std::string& name);
  [[gnu::format(printf, 3, 4)]] void addInfo(const std::string& key, const char* format,
                                             ...);  // appends a value
  void setFlag(const std::string& key, bool on);
  [[gnu::format(printf, 4, 5)]] void addGenotype(const std::string& sample, const std::string& key,
                                                 const char* format, ...);
  void addGenotype(const std::string& sample, const std::string& key, int value);
  // The values; one shared empty list when there are none.
  const std::vector<std::string>& getInfo(const std::string& key) const;
  const std::vector<std::string>& getGenotype(const std::string& sample, const std::string& key) const;
  void eraseInfo(const std::string& key);
  void eraseGenotype(const std::string& sample, const std::string& key);

  // Writes the record's line with one column per name. A failure shows in the stream's error_code().
  void print(IOHandle& stream, const std::vector<std::string>& sampleNames) const;
  // The same line appended to `text`.
  void print(std::string& text, const std::vector<std::string>& sampleNames) const;
};
