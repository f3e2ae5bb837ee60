#include "algo/preprocess/covariates.h"

#include <gmock/gmock.h>

#include "read_builder.h"

using testing::ElementsAre;

namespace {

constexpr int32_t kNone = Covariates::kNoCycle;
constexpr int kIllumina = 0, kIonTorrent = 6;

struct Computed {
  std::vector<uint16_t> contexts[2];
  std::vector<int32_t> cycles[2];
};

Computed compute(const ReadBuilder& builder, int platform = kIllumina, const RecalArguments& arguments = {}) {
  bam_record record = builder.build();
  BAMRead read;
  read.attach(record);
  Covariates covariates(arguments);
  covariates.compute(read, platform);
  Computed out;
  for (RecalEvent event : {kMismatch, kInsertion}) {
    const auto length = size_t(read.length);
    out.contexts[event].assign(covariates.contexts(event).begin(),
                               covariates.contexts(event).begin() + length);
    out.cycles[event].assign(covariates.cycles(event).begin(), covariates.cycles(event).begin() + length);
  }
  return out;
}

ReadBuilder read(const std::string& bases) {
  return readBuilder("r").at(0, 10).cigar(std::to_string(bases.size()) + "M").seq(bases);
}

// "AC" is 0 << 2 | 1.
constexpr int code(const char* bases) {
  int value = 0;
  for (; *bases; bases++) value = value << 2 | std::string_view("ACGT").find(*bases);
  return value;
}

}  // namespace

TEST(Contexts, EndAtTheirBaseInSequencingOrder) {
  Computed forward = compute(read("ACGTTN"));
  EXPECT_THAT(forward.contexts[0], ElementsAre(16, code("AC"), code("CG"), code("GT"), code("TT"), 16));
  EXPECT_THAT(forward.contexts[1], ElementsAre(64, 64, code("ACG"), code("CGT"), code("GTT"), 64));
  // As sequenced: AACGT.
  Computed reverse = compute(read("ACGTTN").reverse());
  EXPECT_THAT(reverse.contexts[0], ElementsAre(code("GT"), code("CG"), code("AC"), code("AA"), 16, 16));
  EXPECT_THAT(compute(read("ANCG")).contexts[0], ElementsAre(16, 16, 16, code("CG")));
}

TEST(Contexts, LeaveOutTailsOfLowQuality) {
  auto contexts = [](std::vector<uint8_t> quals) { return compute(read("ACGTAC").quals(quals)).contexts[0]; };
  EXPECT_THAT(contexts({2, 3, 2, 30, 2, 1}), ElementsAre(16, 16, code("CG"), code("GT"), 16, 16));
  EXPECT_THAT(contexts({2, 2, 0, 2, 1, 2}), ElementsAre(16, 16, 16, 16, 16, 16));
}

TEST(Cycles, CountFromTheFivePrimeEnd) {
  EXPECT_THAT(compute(read("ACG")).cycles[0], ElementsAre(1, 2, 3));
  EXPECT_THAT(compute(read("ACG").reverse()).cycles[0], ElementsAre(3, 2, 1));
  EXPECT_THAT(compute(read("ACG").mate(0, 90).flag(FLAG_SECOND)).cycles[0], ElementsAre(-1, -2, -3));
  EXPECT_THAT(compute(read("ACG").mate(0, 90).flag(FLAG_SECOND).reverse()).cycles[0],
              ElementsAre(-3, -2, -1));
  EXPECT_THAT(compute(read("ACG").flag(FLAG_SECOND)).cycles[0], ElementsAre(1, 2, 3));  // not paired
}

TEST(Cycles, OfIndelsLeaveOutFourBasesAtEachEnd) {
  EXPECT_THAT(compute(read("ACGTACGTAC")).cycles[1],
              ElementsAre(kNone, kNone, kNone, kNone, 5, 6, kNone, kNone, kNone, kNone));
  EXPECT_THAT(compute(read("ACG")).cycles[1], ElementsAre(kNone, kNone, kNone));
}

TEST(Cycles, OfFlowPlatformsTakeRunsInFlowOrder) {
  // T, AA, C | A, G | TT | T after N: N ends round 3 and takes number 4.
  EXPECT_THAT(compute(read("TAACAGTTNT"), kIonTorrent).cycles[0], ElementsAre(1, 1, 1, 1, 2, 2, 3, 3, 4, 4));
  EXPECT_THAT(compute(read("GCAT").reverse().mate(0, 90).flag(FLAG_SECOND), kIonTorrent).cycles[0],
              ElementsAre(-1, -1, -1, -1));
  RecalArguments arguments;
  arguments.maximum_cycle_value = 2;
  EXPECT_THAT(compute(read("TGTGTG"), kIonTorrent, arguments).cycles[0],
              ElementsAre(1, 1, 2, 2, kNone, kNone));
}

TEST(Cycles, RefuseReadsBeyondTheLimit) {
  EXPECT_EQ(compute(read(std::string(500, 'A'))).cycles[0].back(), 500);
  try {
    compute(read(std::string(501, 'A')));
    FAIL();
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "Error: cycle 501 exceeding the maximum allowed: 500");
  }
}

TEST(Platforms, AreKnownInAnyCase) {
  EXPECT_EQ(platformIndex("Illumina"), 0);
  EXPECT_EQ(platformIndex("454"), 5);
  EXPECT_EQ(platformIndex("ONT"), -1);
  EXPECT_FALSE(isFlowPlatform(3));
  EXPECT_TRUE(isFlowPlatform(5));
  EXPECT_THROW(isFlowPlatform(4), std::runtime_error);
  EXPECT_THROW(isFlowPlatform(10), std::runtime_error);
}
