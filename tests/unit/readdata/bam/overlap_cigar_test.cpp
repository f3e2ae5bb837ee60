// The removal of `B` operators, against a model that holds one column per reference position.
#include <gtest/gtest.h>
#include <map>
#include <random>

#include "random_cigar.h"
#include "readdata/bam/bam_record.h"

namespace {

struct Item {
  char op;
  char letter = 0;
  int qual = 0;

  bool isBase() const { return op != 'D' && op != 'N' && op != 'H' && op != 'P'; }
  void merge(const Item& other, bool has_quals) {
    if (letter == other.letter) {
      qual = std::max(qual, other.qual);
    } else if (has_quals) {
      const int difference = std::abs(qual - other.qual);
      if (other.qual > qual) letter = other.letter;
      qual = difference;
    }
  }
};

// The merged read, position by position: what lies before a position (insertions, clips) and the position
// itself.
struct Model {
  std::map<int64_t, Item> columns;  // 0 to columns.size() - 1
  std::map<int64_t, std::vector<Item>> before;
  int64_t place = 0;
  size_t taken = 0;  // items of before[place] that lie behind us
  bool has_quals = true, unmapped = false;

  bool atEnd() { return place == int64_t(columns.size()); }

  void add(const Item& item) {
    if (strchr("M=XDN", item.op)) {
      if (atEnd())
        columns[place] = item;
      else if (item.isBase() && columns[place].isBase())
        columns[place].merge(item, has_quals);
      else if (item.isBase())
        columns[place] = item;
      ++place;
      taken = 0;
      return;
    }
    std::vector<Item>& items = before[place];
    if (item.op == 'S' && !atEnd()) return;
    if (item.op == 'P' && !(atEnd() && taken == items.size())) return;
    if (item.isBase()) {
      while (taken < items.size() && !items[taken].isBase()) ++taken;
      if (taken < items.size()) return items[taken++].merge(item, has_quals);
    }
    items.insert(items.begin() + long(taken++), item);
  }

  void stepBack(int64_t length) {
    if (length == 0) return;
    place -= length;
    taken = 0;
    unmapped = unmapped || place < 0;
  }
};

struct Merged {
  std::string cigar, letters;
  std::vector<int> quals;
  bool unmapped = false;
};

Merged naiveMerge(const Cigar& words, const std::string& letters, const std::vector<uint8_t>& quals) {
  Model model;
  model.has_quals = quals.empty() || quals[0] != 0xff;
  size_t base = 0;
  std::string tail;
  for (size_t i = 0; i < words.size() && !model.unmapped; ++i) {
    const char op = kCigarOps[cigarOp(words[i])];
    if (op == 'B') {
      model.stepBack(cigarLength(words[i]));
      model.unmapped = model.unmapped || i == 0;
      continue;
    }
    for (uint32_t n = 0; n < cigarLength(words[i]) && !model.unmapped; ++n) {
      Item item{op};
      if (item.isBase()) {
        if (!letters.empty()) item.letter = letters[base], item.qual = quals[base];
        ++base;
      }
      if (op == 'H' && i > 0)
        tail += 'H';
      else
        model.add(item);
    }
  }
  Merged merged;
  merged.unmapped = model.unmapped;
  std::string ops;
  auto emit = [&](const Item& item) {
    ops += item.op;
    if (item.isBase() && !letters.empty()) merged.letters += item.letter, merged.quals.push_back(item.qual);
  };
  for (int64_t place = 0; place <= int64_t(model.columns.size()); ++place) {
    for (const Item& item : model.before[place]) emit(item);
    if (place < int64_t(model.columns.size())) emit(model.columns[place]);
  }
  ops += tail;
  for (size_t i = 0, j; i < ops.size(); i = j) {
    for (j = i; j < ops.size() && ops[j] == ops[i];) ++j;
    merged.cigar += std::to_string(j - i) + ops[i];
  }
  return merged;
}

std::string lettersOf(const bam_record& r) {
  std::string letters(size_t(r.l_seq), '\0');
  decodeBases(r.packedBases(), letters.size(), letters.data());
  return letters;
}

TEST(NormaliseCigar, EqualsAModelOfColumns) {
  std::mt19937 random(11);
  int merged_reads = 0, unmapped_reads = 0;
  for (int round = 0; round < 20000; ++round) {
    Cigar words = randomCigar(random, 12, 7, "MMMM=XIDNPBB");
    if (random() % 4 == 0) words[random() % words.size()] &= 15;  // a length of zero
    size_t length = 0;
    for (uint32_t word : words)
      if (consumesRead(word)) length += cigarLength(word);
    if (random() % 10 == 0) length = 0;  // a read without sequence
    std::string letters(length, 'A');
    std::vector<uint8_t> quals(length);
    for (char& c : letters) c = "ACG"[random() % 3];
    for (uint8_t& q : quals) q = uint8_t(random() % 6);
    if (random() % 10 == 0) std::fill(quals.begin(), quals.end(), 0xff);

    bam_record r = readBuilder("read").at(0, 500).cigar(words).seq(letters).quals(quals).tag("RG", "a");
    const std::string before = cigarString(r.cigarBytes(), r.n_cigar), aux(r.aux(), r.auxEnd());
    ASSERT_EQ(check(r), nullptr);
    const bool has_overlap = before.find('B') != std::string::npos;
    const int64_t end = alignment_end(r);
    const Merged expected = naiveMerge(words, letters, quals);
    ASSERT_EQ(normalise_cigar(r), expected.unmapped ? -1 : 0) << before;
    ASSERT_EQ(check(r), nullptr) << before;
    const std::string after = cigarString(r.cigarBytes(), r.n_cigar);
    ASSERT_EQ(std::string(r.aux(), r.auxEnd()), aux);
    ASSERT_STREQ(r.name(), "read");
    if (!has_overlap || expected.unmapped) {
      ASSERT_EQ(after, before);
      ASSERT_EQ(lettersOf(r), letters);
      ASSERT_EQ((r.flag & FLAG_UNMAPPED) != 0, expected.unmapped);
      unmapped_reads += expected.unmapped;
      continue;
    }
    merged_reads++;
    ASSERT_EQ(after, expected.cigar) << before;
    ASSERT_EQ(lettersOf(r), expected.letters) << before;
    ASSERT_EQ(std::vector<int>(r.quals(), r.quals() + r.l_seq), expected.quals) << before;
    ASSERT_GE(alignment_end(r), end) << before;
    ASSERT_EQ(r.bin, bin_of(500, uint32_t(alignment_end(r))));
  }
  EXPECT_GT(merged_reads, 2000);
  EXPECT_GT(unmapped_reads, 2000);
}

TEST(NormaliseCigar, GivesUpOnOperatorsWithoutNumber) {
  Cigar words;
  for (int i = 0; i < 20000; ++i)
    for (uint32_t op : {CIGAR_M, CIGAR_I, CIGAR_B}) words.push_back(1 << 4 | op);
  bam_record r = readBuilder("r").at(0, 5).cigar(words);
  ASSERT_EQ(check(r), nullptr);
  EXPECT_EQ(normalise_cigar(r), -1);
  EXPECT_TRUE(r.flag & FLAG_UNMAPPED);
}

}  // namespace
