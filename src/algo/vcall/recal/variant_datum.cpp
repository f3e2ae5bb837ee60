#include "algo/vcall/recal/variant_datum.h"

#include <algorithm>
#include <cstdlib>
#include <strings.h>

#include "base/text.h"

namespace {

bool sameWord(std::string_view a, std::string_view b) {
  return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

// Calls take(piece) for each piece of `text` between separators.
template <typename Take>
void forPieces(std::string_view text, char separator, const Take& take) {
  for (size_t from = 0; from <= text.size();) {
    const size_t end = std::min(text.find(separator, from), text.size());
    take(text.substr(from, end - from));
    from = end + 1;
  }
}

// A to G and C to T, by the distance of their codes.
bool isTransitionPair(char a, char b) {
  constexpr int kAToG = 'G' - 'A', kCToT = 'T' - 'C';
  const int distance = std::abs(a - b);
  return distance == kAToG || distance == kCToT;
}

}  // namespace

void VariantBlock::settle() {
  data.shrink_to_fit();
  annotations.shrink_to_fit();
  const size_t each = data.empty() ? 0 : annotations.size() / data.size();
  for (size_t i = 0; i < data.size(); ++i) data[i].annotations = annotations.data() + i * each;
}

VariantClass::VariantClass(std::string_view ref, std::string_view alt) {
  forPieces(alt, ',', [&](std::string_view word) {
    if (word.empty() || word == ".") return;
    ++count;
    type |= word.size() != ref.size() ? 2 : ref.size() == 1 ? 1 : 4;
  });
  isBiallelicSNP = type == 1 && count == 1;
  isTransition = isBiallelicSNP && isTransitionPair(ref[0], alt[0]);
}

bool parseVariantModel(const char* text, uint32_t& model) {
  for (uint32_t i : {kSNPModel, kIndelModel, kBothModel}) {
    if (!sameWord(text, kModelNames[i]) && text != std::to_string(i)) continue;
    model = i;
    return true;
  }
  return false;
}

bool passesFilters(std::string_view filter, const std::vector<std::string>& ignored) {
  bool passes = true;
  forPieces(filter, ';', [&](std::string_view word) {
    passes = passes && (word.empty() || word == "." || sameWord(word, "PASS") ||
                        std::find(ignored.begin(), ignored.end(), word) != ignored.end());
  });
  return passes;
}
