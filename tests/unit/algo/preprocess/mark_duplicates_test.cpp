#include "algo/preprocess/mark_duplicates.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <map>
#include <memory>

#include "read_builder.h"

namespace {

struct MatesByName : MateInfoBase {
  const MateSummary* find(const Read& read) const override {
    const auto found = mates.find(read.name);
    return found == mates.end() ? nullptr : &found->second;
  }
  std::map<std::string, MateSummary> mates;
};

// A window of reads of one library on contig 1, all of it one step.
class MarkDuplicates : public testing::Test {
 protected:
  MarkDuplicates() {
    rules.library_of_read_group = {0};
    rules.library_count = 1;
  }
  void add(const ReadBuilder& builder) {
    records.push_back(std::make_unique<bam_record>(builder.build()));
    auto read = std::make_unique<BAMRead>();
    read->attach(*records.back());
    read->read_group = 0;
    window.push_back(std::move(read));
  }
  // Two reads that point at each other, forward at `start` and reverse at start + 100.
  void addPair(const std::string& name, int start, int qual, const std::string& cigar = "50M") {
    add(readBuilder(name).at(1, start).cigar(cigar).qual(qual).mate(1, start + 100));
    add(readBuilder(name)
            .at(1, start + 100)
            .cigar("50M")
            .qual(qual)
            .mate(1, start)
            .reverse()
            .flag(FLAG_SECOND));
  }
  // One letter per duplicate in the order of the window, by name.
  std::string marked() {
    std::stable_sort(window.begin(), window.end(),
                     [](const auto& a, const auto& b) { return a->start < b->start; });
    std::vector<Read*> reads;
    for (const auto& read : window) reads.push_back(read.get());
    DuplicateMarker marker(rules);
    marker.markDup(reads, {0, 100000, 0}, mates);
    std::string names;
    for (const auto& seen : marker.reads())
      if (seen.duplicate) names += seen.read->name;
    optical = marker.counts()[0][kOpticalDup];
    return names;
  }

  MarkRules rules;
  MatesByName mates;
  std::vector<std::unique_ptr<bam_record>> records;
  std::vector<std::unique_ptr<BAMRead>> window;
  int64_t optical = 0;
};

TEST_F(MarkDuplicates, OfEqualPairsTheBestThenTheEarliestIsKept) {
  addPair("a", 1000, 30);
  addPair("b", 1000, 31);
  addPair("c", 1000, 14);  // such qualities do not count
  EXPECT_EQ(marked(), "acac");
  addPair("d", 1000, 31);  // behind b in order
  EXPECT_EQ(marked(), "acdacd");
  // The same 5-prime end with an alignment that starts later: worse on equal scores, not part of it without clips.
  window.clear();
  add(readBuilder("e").at(1, 1010).cigar("10S50M").qual(30).mate(1, 1100));
  add(readBuilder("e").at(1, 1100).cigar("50M").qual(30).mate(1, 1010).reverse().flag(FLAG_SECOND));
  addPair("f", 1000, 30, "60M");
  EXPECT_EQ(marked(), "ee");
  rules.params.clip = 0;
  EXPECT_EQ(marked(), "");
}

TEST_F(MarkDuplicates, FragmentsLoseToEndsOfPairsAndToBetterFragments) {
  for (int start : {1000, 3000}) {
    add(readBuilder("x").at(1, start).cigar("50M").qual(40));
    add(readBuilder("y").at(1, start).cigar("50M").qual(40));
    add(readBuilder("z").at(1, start).cigar("50M").qual(20).mateUnmapped());
  }
  addPair("p", 3000, 2);
  add(readBuilder("r").at(1, 3000).cigar("50M").qual(40).reverse());  // another strand
  EXPECT_EQ(marked(), "yzxyz");
  // A read whose near mate is gone is never marked, and beats fragments.
  add(readBuilder("m").at(1, 1000).cigar("50M").qual(2).mate(1, 1200));
  EXPECT_EQ(marked(), "xyzxyz");
}

// Both ends of a far pair are judged alone; each must come to the verdict of the other.
TEST_F(MarkDuplicates, FarPairsAreJudgedByWhatIsToldOfTheMate) {
  for (const int contig : {0, 2}) {  // the mate's is before and behind
    window.clear();
    mates.mates.clear();
    int ordinal = 0;
    for (const char* name : {"a", "b", "c", "d"}) {
      add(readBuilder(name).at(1, 1000).cigar("50M").qual(30).mate(contig, 500));
      mates.mates[name] = {550, 500, FLAG_PAIRED | FLAG_REVERSE, 100, ++ordinal};
    }
    mates.mates["b"].score = 101;
    mates.mates["c"].five_prime = 499;
    mates.mates.erase("d");  // nothing known: neither a copy nor a rival
    add(readBuilder("s").at(1, 1000).cigar("50M").qual(40));
    EXPECT_EQ(marked(), "as");
    mates.mates["a"].score = 101;  // a is the earlier one at both ends
    EXPECT_EQ(marked(), "bs");
  }
}

TEST(MarkStep, OwnsWhatReachesIntoItAndAReadThatCoversNoBase) {
  const auto owns = [](int start, const char* cigar) {
    bam_record record = readBuilder("r").at(1, start).cigar(cigar).build();
    BAMRead read;
    read.attach(record);
    return MarkStep{1000, 2000, 500}.owns(read);
  };
  EXPECT_TRUE(owns(1000, "50I") && owns(1999, "50M") && owns(951, "50M"));
  EXPECT_FALSE(owns(950, "50M") || owns(499, "900M") || owns(2000, "50M"));
}

TEST_F(MarkDuplicates, LibrariesAreApart) {
  rules.library_of_read_group = {0, 1};
  rules.library_count = 2;
  addPair("a", 1000, 30);
  addPair("b", 1000, 20);
  window[2]->read_group = window[3]->read_group = 1;
  EXPECT_EQ(marked(), "");
}

TEST_F(MarkDuplicates, OpticalDuplicatesAreCountedOncePerGroup) {
  rules.optical_dup_pix_dist = 100;
  addPair("A:B:1101:2000:3000", 1000, 30);
  addPair("A:B:1101:2100:2900", 1000, 31);
  EXPECT_NE(marked(), "");
  EXPECT_EQ(optical, 1);
}

TEST(OpticalDuplicates, AreJoinedInStepsOfTheDistance) {
  const auto count = [](std::initializer_list<const char*> names) {
    OpticalDuplicates optical(100);
    for (const char* name : names) optical.add(0, name);
    return optical.count();
  };
  EXPECT_EQ(count({"A:B:1:0:0", "A:B:1:100:100"}), 1);
  EXPECT_EQ(count({"A:B:1:0:0", "A:B:1:101:0"}), 0);
  EXPECT_EQ(count({"A:B:1:0:0", "A:B:1:0:101"}), 0);
  EXPECT_EQ(count({"A:B:1:0:0", "A:B:2:0:0"}), 0);
  EXPECT_EQ(count({"A:B:1:5:5", "A:B:1:5:5", "A:B:1:90:5", "A:B:1:5:5", "A:B:2:5:5"}), 3);
  EXPECT_EQ(count({"A:1:2:3", "A:1:2:3"}), 0);  // a colon too few
  EXPECT_EQ(count({"A:B:1:x:0", "A:B:-1:0:0", "A:B:40000:0:0", "A:B:40000:0:0", ""}), 0);
  EXPECT_EQ(count({"A:B:C:1:0:0", "A:B:C:1:2147483647:5", "A:B:C:1:2147483600:5/1"}), 1);
  // A chain, of which two clusters become one by the last that is looked at; and one apart.
  EXPECT_EQ(
      count({"A:B:1:0:0", "A:B:1:10:200", "A:B:1:20:400", "A:B:1:60:100", "A:B:1:61:300", "A:B:1:62:600"}),
      4);
}

}  // namespace
