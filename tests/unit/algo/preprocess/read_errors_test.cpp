#include "algo/preprocess/read_errors.h"

#include <gmock/gmock.h>

#include "read_builder.h"

using testing::ElementsAre;

namespace {

//                              0         10        20        30        40        50
const std::string kReference = "ACGTTGCATCAGGACTCATCGAGTACCGATGACTGAAAAAAAACTGCATGGACCATG";

struct Judged {
  bool counted = false;
  std::string skipped;  // '1' for a base that takes no part
  std::vector<double> errors[kRecalEvents];
  std::string text;  // on standard error
};

Judged judge(const ReadBuilder& builder, const std::vector<int>& masked_places = {}, bool clip = false) {
  std::vector<uint8_t> masked(kReference.size());
  for (int place : masked_places) masked[size_t(place)] = 1;
  bam_record record = builder.build();
  BAMRead read;
  read.attach(record);
  ReadErrors errors;
  Judged out;
  testing::internal::CaptureStderr();
  out.counted = errors.compute(read, clip ? templateBounds(read) : std::pair(read.start, read.end),
                               {kReference.data(), masked.data(), 0, uint32_t(kReference.size())});
  out.text = testing::internal::GetCapturedStderr();
  if (!out.counted) return out;
  for (int i = 0; i < read.length; i++) out.skipped += errors.skipped()[i] ? '1' : '0';
  for (RecalEvent event : {kMismatch, kInsertion, kDeletion})
    for (int i = 0; i < read.length; i++)
      out.errors[event].push_back(errors.any() ? errors.errors(event)[i] : 0);
  return out;
}

// Places and sizes of what is not 0.
std::vector<std::pair<int, double>> found(const std::vector<double>& errors) {
  std::vector<std::pair<int, double>> list;
  for (size_t i = 0; i < errors.size(); i++)
    if (errors[i] != 0) list.emplace_back(int(i), errors[i]);
  return list;
}

using Errors = std::vector<std::pair<int, double>>;

// An indel belongs to the base before it in the order of sequencing.
TEST(ReadErrors, PlacesIndels) {
  const std::string deleted = kReference.substr(0, 12) + kReference.substr(15, 15);
  ReadBuilder read = readBuilder("r").at(0, 0).cigar("12M3D15M").seq(deleted).qual(20);
  EXPECT_EQ(found(judge(read).errors[kDeletion]), (Errors{{11, 1.0}}));
  EXPECT_EQ(found(judge(read.reverse()).errors[kDeletion]), (Errors{{12, 1.0}}));
  // A known deletion counts on neither strand.
  Judged got = judge(read, {11, 12, 13, 14});
  EXPECT_EQ(found(got.errors[kDeletion]), Errors());
  EXPECT_EQ(got.skipped.substr(10, 4), "0110");

  const std::string inserted = kReference.substr(0, 12) + "TTT" + kReference.substr(12, 15);
  read = readBuilder("r").at(0, 0).cigar("12M3I15M").seq(inserted).qual(20);
  got = judge(read);
  EXPECT_EQ(found(got.errors[kInsertion]), (Errors{{11, 1.0}}));
  EXPECT_EQ(got.skipped.find('1'), std::string::npos);
  EXPECT_EQ(found(judge(read.reverse()).errors[kInsertion]), (Errors{{15, 1.0}}));
  got = judge(read, {11});
  EXPECT_EQ(found(got.errors[kInsertion]), Errors());
  EXPECT_EQ(got.skipped.substr(10, 7), "0111110");
  // There is no base before the first one.
  read = readBuilder("r").at(0, 12).cigar("3I15M").seq(inserted.substr(12)).qual(20);
  EXPECT_EQ(found(judge(read).errors[kInsertion]), Errors());
}

TEST(ReadErrors, SharesEventsOfAnUncertainRun) {
  // The read lacks one A of eight; a reverse read carries the deletion at the base right of it.
  const std::string bases = kReference.substr(20, 15) + kReference.substr(36, 20);
  ReadBuilder read = readBuilder("r").at(0, 20).cigar("15M1D20M").seq(bases).qual(30).reverse();
  const Errors shared = found(judge(read).errors[kDeletion]);
  ASSERT_GE(shared.size(), 7u);
  double sum = 0;
  for (const auto& [base, error] : shared) {
    EXPECT_DOUBLE_EQ(error, 1.0 / double(shared.size()));
    EXPECT_TRUE(base >= 15 && base < 23) << base;
    sum += error;
  }
  EXPECT_DOUBLE_EQ(sum, 1);
  // A base of low quality is as sure as it claims, and a read without qualities claims nothing.
  EXPECT_EQ(found(judge(read.qual(0)).errors[kDeletion]).size(), 1u);
  EXPECT_EQ(found(judge(read.qual(0xff)).errors[kDeletion]), (Errors{{15, 1.0}}));
}

TEST(ReadErrors, ClipsToTheTemplate) {
  auto bounds = [](const ReadBuilder& builder) {
    bam_record record = builder.build();
    BAMRead read;
    read.attach(record);
    return templateBounds(read);
  };
  using Bounds = std::pair<uint32_t, uint32_t>;
  auto read = [] { return readBuilder("r").at(0, 100).cigar("50M"); };
  EXPECT_EQ(bounds(read().mate(0, 95, 30)), Bounds(100, 131));
  EXPECT_EQ(bounds(read().mate(0, 95, 30).reverse()), Bounds(100, 150));
  EXPECT_EQ(bounds(read().mate(0, 120, -30).reverse()), Bounds(120, 150));
  EXPECT_EQ(bounds(read().mate(0, 149, -30).reverse()),
            Bounds(100, 150));                                  // the mate's start is the last base
  EXPECT_EQ(bounds(read().mate(0, 60, 30)), Bounds(100, 150));  // ends before this read begins
  EXPECT_EQ(bounds(read().mate(0, 95, 0)), Bounds(100, 150));
  EXPECT_EQ(bounds(read().mate(0, 95, 30).mateUnmapped()), Bounds(100, 150));
  EXPECT_EQ(bounds(read().mate(0, 95, 30).reverse().flag(FLAG_MATE_REVERSE)), Bounds(100, 150));
}

TEST(ReadErrors, LeavesOutReadsThatCannotBeCounted) {
  Judged got = judge(readBuilder("r").at(0, 5).cigar("1M"));
  EXPECT_FALSE(got.counted);
  EXPECT_EQ(got.text, "Warning: query length is 1. Skip this read\n");
  got = judge(readBuilder("r").at(0, 5).cigar(Cigar{10 << 4 | CIGAR_M, 2 << 4 | 12}).seq("ACGTACGTAC"));
  EXPECT_FALSE(got.counted);
  EXPECT_EQ(got.text, "Error: unrecognized CIGAR operator0 12\n");
  EXPECT_FALSE(judge(readBuilder("r").at(0, 5).seq("ACGT")).counted);
  EXPECT_FALSE(judge(readBuilder("r").at(0, 5).cigar("4M").seq("")).counted);
  // Beyond the end of the reference there is nothing to compare with.
  EXPECT_EQ(judge(readBuilder("r").at(0, 50).cigar("10M").seq("ACCATGACGT")).skipped.substr(7), "111");
}

}  // namespace
