#include "algo/vcall/fold_back.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <utility>

#include "read_builder.h"

namespace {

using Reach = std::pair<int, int>;

std::string reverseComplement(std::string bases) {
  std::reverse(bases.begin(), bases.end());
  for (char& base : bases) base = "TGCA"[std::string("ACGT").find(base)];
  return bases;
}

Reach foldBacks(const std::string& bases, const std::string& cigar, const std::string& reference) {
  BAMRead read;
  bam_record record = readBuilder("r").at(0, 100).cigar(cigar).seq(bases).build();
  read.attach(record);
  read.getBases();
  const FoldBacks found = findFoldBacks(read, {reference, 80});
  return {found.front, found.back};
}

TEST(FindFoldBacks, ReachesIntoTheAlignment) {
  // After the hinge TTAC comes ATGCCG again, from the other strand, as CGGCAT; the reference goes on with CGTCAT.
  const std::string near = "GATTCAGGTTCCAATGCCG", reference = near + "TTACCGTCATAAACGCTTGAGC";
  const std::string copy = reverseComplement(near);
  const std::string read = reference.substr(0, 23) + copy;
  EXPECT_EQ(foldBacks(read, "29M13S", reference), Reach(FoldBacks::kNone, 6));
  EXPECT_EQ(foldBacks(reverseComplement(read), "13S29M", reverseComplement(reference)),
            Reach(6, FoldBacks::kNone));
  EXPECT_EQ(foldBacks(read, "2H5S20M1I3M13S7H", reference), Reach(FoldBacks::kNone, 3))
      << "in the last M alone";
  EXPECT_EQ(foldBacks(read.substr(0, 39), "29M10S", reference), Reach(FoldBacks::kNone, 6));
  EXPECT_EQ(foldBacks(read.substr(0, 38), "29M9S", reference), Reach(FoldBacks::kNone, FoldBacks::kNone));
  std::string wrong = read;
  wrong[32] = 'N';
  EXPECT_EQ(foldBacks(wrong, "29M13S", reference), Reach(FoldBacks::kNone, 6));
  wrong[36] = 'N';
  EXPECT_EQ(foldBacks(wrong, "29M13S", reference), Reach(FoldBacks::kNone, FoldBacks::kNone));
}

TEST(FindFoldBacks, TrustsRepeats) {
  const std::string reference = "GATTCAGGTTATATATATATATATGGCTTGAGCCA";
  EXPECT_EQ(foldBacks(reference.substr(0, 24) + "ATATATATATAT", "24M12S", reference),
            Reach(FoldBacks::kNone, FoldBacks::kNone));
  EXPECT_EQ(foldBacks("ACGTTGCAAC", "10S", reference), Reach(FoldBacks::kNone, FoldBacks::kNone));
}

}  // namespace
