#include "algo/vcall/recal/variant_datum.h"

#include <gtest/gtest.h>

namespace {

TEST(VariantClass, TellsTypesAndTransitions) {
  struct {
    const char *ref, *alt;
    uint32_t type, count;
    bool snp, transition;
  } const cases[] = {
      {"A", "G", 1, 1, true, true},     {"T", "C", 1, 1, true, true},       {"A", "C", 1, 1, true, false},
      {"C", "G", 1, 1, true, false},    {"A", "G,T", 1, 2, false, false},   {"A", "AT", 2, 1, false, false},
      {"AT", "GC", 4, 1, false, false}, {"AT", "A,GC", 6, 2, false, false}, {"A", "C,AT", 3, 2, false, false},
      {"A", "*", 1, 1, true, false},    {"A", ".", 0, 0, false, false},     {"A", "", 0, 0, false, false},
      {"A", "G,.", 1, 1, true, true},   {"A", ",C", 1, 1, true, false},
  };
  for (const auto& c : cases) {
    const VariantClass kind(c.ref, c.alt);
    EXPECT_EQ(kind.type, c.type) << c.ref << c.alt;
    EXPECT_EQ(kind.count, c.count) << c.ref << c.alt;
    EXPECT_EQ(kind.isBiallelicSNP, c.snp) << c.ref << c.alt;
    EXPECT_EQ(kind.isTransition, c.transition) << c.ref << c.alt;
    const bool indel = c.type & 2;
    EXPECT_EQ(kind.belongsTo(kSNPModel), c.type != 0 && !indel);
    EXPECT_EQ(kind.belongsTo(kIndelModel), indel);
    EXPECT_EQ(kind.belongsTo(kBothModel), c.type != 0);
  }
}

TEST(PassesFilters, IgnoresTheNamedOnesOnly) {
  for (const char* filter : {"", ".", "PASS", "pass", "q10", "q10;PASS"})
    EXPECT_TRUE(passesFilters(filter, {"q10"}));
  for (const char* filter : {"q", "q100", "q10;s50", "Q10"})
    EXPECT_FALSE(passesFilters(filter, {"q10"})) << filter;
}

}  // namespace
