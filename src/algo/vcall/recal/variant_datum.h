// variant_datum.h - what recalibration knows of one variant.
// Coords   zero-based.
// Threads  plain values.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// What the model reads.
struct Datum {
  virtual ~Datum() = default;
  virtual bool isMissing(size_t annotation) const = 0;

  double* annotations = nullptr;  // not owned, as many as the run has; in training order once normalised
};

struct VariantDatum final : Datum {
  bool isMissing(size_t annotation) const override { return missing >> annotation & 1; }

  double lod = 0;    // log10 odds of the models, VQSLOD
  double prior = 0;  // the largest of the resources' at the site
  double qual = 0;
  uint64_t missing = 0;  // a bit per annotation
  uint32_t consensusCount = 0;
  int32_t pos = 0, length = 0;  // POS, and the bases of REF
  int32_t contig = -1;          // index in the reference, -1 unknown
  int8_t culprit = -1;          // index of the annotation that speaks most against it, -1 for none
  bool isKnown : 1 = false, isTruth : 1 = false;
  bool atTrainingSite : 1 = false, atAntiTrainingSite : 1 = false;
  bool isTransition : 1 = false, isBiallelicSNP : 1 = false;
  bool isOutlier : 1 = false, isAggregate : 1 = false;

  int64_t end() const { return int64_t{pos} + length; }  // behind the last base of REF
};

static_assert(sizeof(VariantDatum) == 72);  // there are millions

inline constexpr size_t kMaxAnnotations = 64;

// The data of a run, in genome order; not owned.
using VariantData = std::vector<VariantDatum*>;

// The data of a stretch of the genome, and their annotations in one piece. Cost: 72 bytes per datum, and 8 per
// annotation.
struct VariantBlock {
  std::vector<VariantDatum> data;
  std::vector<double> annotations;  // datum by datum

  // When both are complete: frees what is spare, and gives each datum its annotations.
  void settle();
};

// The kinds of variants, by index of the model table: "NON_VARIANT", "SNP", "INDEL", "BOTH", "MNP".
inline constexpr const char* kModelNames[] = {"NON_VARIANT", "SNP", "INDEL", "BOTH", "MNP"};
enum VariantModel : uint32_t {
  kNonVariant = 0,
  kSNPModel = 1,
  kIndelModel = 2,
  kBothModel = 3,
  kMNPModel = 4
};

// What REF and ALT of a record are.
struct VariantClass {
  uint32_t type = 0;   // bits: 1 a SNP, 2 an indel, 4 several bases changed; 0 without alternates
  uint32_t count = 0;  // alternates
  bool isBiallelicSNP = false, isTransition = false;

  VariantClass(std::string_view ref, std::string_view alt);
  // Whether a run for `model` (1, 2 or 3) takes the record.
  bool belongsTo(uint32_t model) const { return type != 0 && (model & (type & 2 ? 2u : 1u)) != 0; }
};

// "SNP", "INDEL", "BOTH" in any case, or 1, 2, 3. False for another text.
bool parseVariantModel(const char* text, uint32_t& model);

// Whether FILTER keeps the record in: empty, ".", "PASS" in any case, and names of `ignored` only.
bool passesFilters(std::string_view filter, const std::vector<std::string>& ignored);
