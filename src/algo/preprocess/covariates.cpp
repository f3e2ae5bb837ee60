#include "algo/preprocess/covariates.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <stdexcept>

#include "base/text.h"

namespace {

constexpr uint8_t kNoBase = 4;
// Indels this close to an end of the read are placed too badly to have a cycle.
constexpr int kIndelMargin = 4;

struct Platform {
  const char* name;
  int index;
};
constexpr Platform kPlatforms[] = {
    {"ILLUMINA", 0},          {"SLX", 0},      {"SOLEXA", 0}, {"SOLID", 1}, {"PACBIO", 2},
    {"COMPLETE_GENOMICS", 3}, {"COMPLETE", 3}, {"LS454", 5},  {"454", 5},   {"IONTORRENT", 6},
    {"CAPILLARY", 8},         {"HELICOS", 9},
};

constexpr std::array<uint8_t, 256> makeCodes() {
  std::array<uint8_t, 256> codes{};
  codes.fill(kNoBase);
  codes['A'] = codes['a'] = codes['*'] = 0;
  codes['C'] = codes['c'] = 1;
  codes['G'] = codes['g'] = 2;
  codes['T'] = codes['t'] = 3;
  return codes;
}
constexpr std::array<uint8_t, 256> kCodes = makeCodes();

// Contexts of `k` bases along `codes`, backward in complement for a read of the reverse strand.
template <bool kReverse>
void fillContexts(const uint8_t* codes, int length, int k, uint16_t* out) {
  const uint32_t none = 1u << 2 * k, mask = none - 1, wanted = (1u << k) - 1;
  uint32_t context = 0;
  uint32_t missing =
      wanted;  // a bit per base of the context, set for one without code or in front of the read
  for (int i = 0; i < length; i++) {
    const int at = kReverse ? length - 1 - i : i;
    const uint32_t code = codes[at];
    context = context << 2 | (kReverse ? ~code & 3 : code & 3);
    missing = missing << 1 | code >> 2;
    out[at] = uint16_t(missing & wanted ? none : context & mask);
  }
}

}  // namespace

int platformIndex(const std::string& platform) {
  std::string upper = platform;
  for (char& c : upper) c = char(toupper(static_cast<unsigned char>(c)));
  for (const Platform& known : kPlatforms)
    if (upper == known.name) return known.index;
  return -1;
}

bool isFlowPlatform(int index) {
  for (const Platform& known : kPlatforms)
    if (index == known.index) return index > 4;
  throw std::runtime_error(format("Error: the specified platform index %d is not supported", index));
}

uint8_t baseCode(char base) {
  return kCodes[uint8_t(base)];
}

Covariates::Covariates(const RecalArguments& arguments) : arguments_(arguments) {}

void Covariates::compute(Read& read, int platform, bool indels) {
  const bool flow = isFlowPlatform(platform);
  const auto length = size_t(read.length);
  if (!flow && read.length > arguments_.maximum_cycle_value)
    throw std::runtime_error(format("Error: cycle %d exceeding the maximum allowed: %d", read.length,
                                    arguments_.maximum_cycle_value));
  if (codes_.size() < length) {
    codes_.resize(length);
    for (int kind : {0, 1}) contexts_[kind].resize(length), cycles_[kind].resize(length);
  }
  const char* bases = read.getBases();
  uint8_t* codes = codes_.data();
  for (size_t i = 0; i < length; i++) codes[i] = kCodes[uint8_t(bases[i])];

  constexpr uint16_t kSecond = FLAG_PAIRED | FLAG_SECOND;
  const int32_t sign = (read.flag & kSecond) == kSecond ? -1 : 1;
  if (flow)
    computeFlow(read, sign, indels);
  else
    computeDiscrete(read, sign, indels);
  computeContexts(read, indels);
}

void Covariates::computeContexts(const Read& read, bool indels) {
  const int length = read.length;
  int left = 0, right = length;
  while (left < length && int(read.quals[left]) <= arguments_.low_quality_tail)
    codes_[size_t(left++)] = kNoBase;
  while (right > left && int(read.quals[right - 1]) <= arguments_.low_quality_tail)
    codes_[size_t(--right)] = kNoBase;

  auto fill = read.isReverse() ? fillContexts<true> : fillContexts<false>;
  fill(codes_.data(), length, arguments_.mismatches_context_size, contexts_[0].data());
  if (indels) fill(codes_.data(), length, arguments_.indels_context_size, contexts_[1].data());
}

void Covariates::computeDiscrete(const Read& read, int32_t sign, bool indels) {
  const int32_t length = read.length;
  int32_t* cycles = cycles_[0].data();
  if (read.isReverse())
    for (int32_t i = 0; i < length; i++) cycles[i] = sign * (length - i);
  else
    for (int32_t i = 0; i < length; i++) cycles[i] = sign * (i + 1);
  if (!indels) return;
  int32_t* of_indels = cycles_[1].data();
  const int32_t margin = std::min(kIndelMargin, length);
  std::copy_n(cycles, length, of_indels);
  std::fill_n(of_indels, margin, kNoCycle);
  std::fill_n(of_indels + length - margin, margin, kNoCycle);
}

// One cycle is a round of flows of T, A, C and G, each of which takes up a whole run of its base. A letter that is
// no base ends a round and takes the next one's number.
void Covariates::computeFlow(Read& read, int32_t sign, bool indels) {
  constexpr uint8_t kFlowOrder[] = {3, 0, 1, 2};
  const int length = read.length;
  int32_t cycle = sign;
  int i = 0;
  auto place = [&] { return size_t(read.isReverse() ? length - 1 - i : i); };
  auto take = [&] {
    cycles_[0][place()] = std::abs(cycle) <= arguments_.maximum_cycle_value ? cycle : kNoCycle;
    i++;
  };
  while (i < length) {
    for (uint8_t base : kFlowOrder)
      while (i < length && codes_[place()] == base) take();
    cycle += sign;
    if (i < length && codes_[place()] == kNoBase) take();
  }
  if (indels) std::copy_n(cycles_[0].begin(), length, cycles_[1].begin());
}
