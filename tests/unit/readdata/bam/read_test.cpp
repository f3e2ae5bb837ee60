// Reads over records: fields, letters, base tags, the way back, and places on the reference.
#include "readdata/bam/read.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <optional>
#include <random>

#include "random_cigar.h"

namespace {

std::unique_ptr<BAMRead> attached(bam_record record) {
  auto read = std::make_unique<BAMRead>();
  EXPECT_EQ(check(record), nullptr);
  read->attach(record);
  return read;
}

std::string letters(Read& read) {
  return std::string(read.getBases(), size_t(read.length));
}

TEST(BaseTags, ReadsWithoutThemPresentN) {
  const struct {
    const char* name;
    ReadBuilder read;
    std::string insertion, deletion;
  } cases[] = {
      {"both", readBuilder("r").cigar("4M").tag("BI", "abcd").tag("BD", "efgh"), "abcd", "efgh"},
      {"none", readBuilder("r").cigar("4M").tag("RG", "a"), "NNNN", "NNNN"},
      {"one", readBuilder("r").cigar("4M").tag("BD", "efgh"), "NNNN", "efgh"},
      {"too short", readBuilder("r").cigar("4M").tag("BI", "abc"), "NNNN", "NNNN"},
      {"number", readBuilder("r").cigar("4M").tag("BI", 7), "NNNN", "NNNN"},
      {"longer than the constant", readBuilder("r").cigar("6000M"), std::string(6000, 'N'),
       std::string(6000, 'N')},
  };
  for (const auto& c : cases) {
    auto read = attached(c.read);
    const size_t length = size_t(read->length);
    const std::string bases = letters(*read);
    for (bool prepared : {false, true}) {
      if (prepared) read->prepareBaseTags();
      EXPECT_EQ(std::string(read->getBITag(), read->getBITag() + length), c.insertion) << c.name;
      EXPECT_EQ(std::string(read->getBDTag(), read->getBDTag() + length), c.deletion) << c.name;
    }
    // Now both are the read's own, and can be written in place.
    std::fill_n(read->getBITag(), length, 'x');
    std::fill_n(read->getBDTag(), length, 'y');
    EXPECT_EQ(letters(*read), bases) << c.name;
    bam_record out;
    read->toRecord(out);
    EXPECT_EQ(check(out), nullptr) << c.name;
    EXPECT_EQ(aux_text(aux_find(out, "BI")), std::string(length, 'x')) << c.name;
    EXPECT_EQ(aux_text(aux_find(out, "BD")), std::string(length, 'y')) << c.name;
    aux_delete(out, aux_find(out, "BI"));
    aux_delete(out, aux_find(out, "BD"));
    EXPECT_TRUE(!aux_find(out, "BI") && !aux_find(out, "BD")) << c.name;
  }
  auto read = attached(readBuilder("r").cigar("4M"));
  EXPECT_TRUE(std::all_of(read->getBITag(), read->getBITag() + 4096, [](int c) { return c == 78; }));
}

TEST(ToRecord, RealignedReadIsWrittenWithItsOwnPlace) {
  std::mt19937 random(2);
  bam_record out = readBuilder("other").cigar("9M").tag("ZZ", "gone");
  for (int round = 0; round < 200; ++round) {
    const Cigar cigar = randomCigar(random, 6, 20, "MMID=XN");
    auto original = attached(readBuilder("r" + std::to_string(round))
                                 .at(3, 5000)
                                 .cigar(cigar)
                                 .qual(round)
                                 .mate(3, 5100, 180)
                                 .tag("NM", 1));
    const uint32_t length = uint32_t(original->length);
    const Cigar changed = {length << 4 | CIGAR_M, 3 << 4 | CIGAR_D};
    RealignedRead realigned(*original, 4990, length ? changed : Cigar());
    EXPECT_EQ(realigned.end, length ? 4990 + length + 3 : 4991);
    realigned.toRecord(out);
    ASSERT_EQ(out.l_aux, 0);
    ASSERT_EQ(check(out), nullptr);
    bam_record expected = readBuilder(original->name)
                              .at(3, 4990)
                              .cigar(length ? changed : Cigar())
                              .qual(round)
                              .mate(3, 5100, 180);
    ASSERT_EQ(compare_records(out, expected), "");
    EXPECT_EQ(original->start, 5000u);
  }
}

// The read spelled out: where each step of its CIGAR is on the reference and in the read.
struct Column {
  std::optional<int64_t> place;  // none for inserted bases
  int64_t offset;                // of its base, or of the next one
  bool has_base;
};

std::vector<Column> spellOut(const Read& read, bool place_clips) {
  std::string ops;
  for (uint32_t i = 0; i < read.n_cigar; ++i)
    ops.append(cigarLength(read.cigarWord(i)), kCigarOps[cigarOp(read.cigarWord(i))]);
  std::erase_if(ops, [](char c) { return c == 'H' || c == 'P'; });
  const size_t head = std::min(ops.find_first_not_of('S'), ops.size());
  const size_t tail = ops.find_last_not_of('S') + 1;
  std::vector<Column> columns;
  int64_t place = place_clips ? int64_t(read.start) - int64_t(head) : read.start, offset = 0;
  for (size_t i = 0; i < ops.size(); ++i) {
    const bool clip = ops[i] == 'S', base = !strchr("DN", ops[i]);
    const bool placed = clip ? place_clips && (i < head || i >= tail) : ops[i] != 'I';
    columns.push_back({placed ? std::optional(place) : std::nullopt, offset, base});
    place += placed;
    offset += base;
  }
  return columns;
}

TEST(GetAlignment, EqualsTheReadSpelledOut) {
  std::mt19937 random(4);
  int touching = 0;
  for (int round = 0; round < 3000; ++round) {
    auto read = attached(readBuilder("r").at(2, 20).cigar(randomCigar(random, 8, 5, "MMMM=XIIDNP")));
    if (read->length == 0) continue;
    const std::vector<Column> columns = spellOut(*read, false);
    for (int pair = 0; pair < 20; ++pair) {
      const int from = int(random() % 60), to = from + int(random() % 20) - 1;
      std::optional<int64_t> first, last;
      for (const Column& c : columns)
        if (c.place && *c.place >= from && *c.place < to) {
          if (!first) first = c.offset;
          last = c.offset + c.has_base;
        }
      int start = -7, end = -7;
      ASSERT_EQ(read->getAlignment({2, from}, {2, to}, start, end), first.has_value()) << read->cigarString();
      if (first) {
        ASSERT_EQ(start, *first) << read->cigarString() << " " << from;
        ASSERT_EQ(end, *last) << read->cigarString() << " " << to;
        touching++;
      }
    }
  }
  EXPECT_GT(touching, 10000);
}

TEST(EffectiveRegion, HandWorkedReads) {
  const std::vector<uint8_t> worn = {2, 30, 2, 30, 30, 30, 30, 30, 30, 2};
  auto read = [](const char* cigar) { return readBuilder("r").at(0, 100).cigar(cigar); };
  const struct {
    const char* name;
    ReadBuilder read;
    bool keep_adaptor;
    std::optional<Read::Region> region;
  } cases[] = {
      {"all", read("10M"), false, Read::Region{100, 110, 0, 10}},
      {"clips widen the span", read("4S4M2S"), false, Read::Region{96, 106, 0, 10}},
      {"worn ends of clips", read("5H4S4M2S").quals(worn), false, Read::Region{97, 105, 1, 9}},
      {"a gap within", read("5M7D5M").quals(worn), false, Read::Region{101, 116, 1, 9}},
      {"forward past the insert", read("10M").mate(0, 100, 6), false, Read::Region{100, 106, 0, 6}},
      {"kept when told", read("6M4S").mate(0, 100, 6), true, Read::Region{100, 110, 0, 10}},
      {"reverse past the insert", read("10M").reverse().mate(0, 104, -6), false,
       Read::Region{104, 110, 4, 10}},
      {"reverse with adaptor in the clip", read("4S6M").reverse().mate(0, 100, -6), false,
       Read::Region{100, 106, 4, 10}},
      {"mate on another contig", read("10M").mate(1, 100, 6), false, Read::Region{100, 110, 0, 10}},
      {"mate on the same strand", read("10M").reverse().mate(0, 104, -6).flag(FLAG_MATE_REVERSE), false,
       Read::Region{100, 110, 0, 10}},
      {"mate unmapped", read("10M").mate(0, 100, 6).flag(FLAG_MATE_UNMAPPED), false,
       Read::Region{100, 110, 0, 10}},
      {"insertion alone", read("3S4I3S"), false, std::nullopt},
      {"clip before the contig", readBuilder("r").at(0, 3).cigar("5S5M"), false, Read::Region{0, 8, 0, 10}},
  };
  for (const auto& c : cases) {
    auto r = attached(c.read);
    Read::Region region{};
    ASSERT_EQ(r->effectiveRegion(10, c.keep_adaptor, region), c.region.has_value()) << c.name;
    if (!c.region) continue;
    EXPECT_EQ(region.start, c.region->start) << c.name;
    EXPECT_EQ(region.end, c.region->end) << c.name;
    EXPECT_EQ(region.first_offset, c.region->first_offset) << c.name;
    EXPECT_EQ(region.end_offset, c.region->end_offset) << c.name;
  }
}

TEST(EffectiveRegion, EqualsTheReadSpelledOut) {
  std::mt19937 random(6);
  int left = 0, cut = 0;
  for (int round = 0; round < 30000; ++round) {
    const Cigar cigar = randomCigar(random, 7, 5, "MMM=XIIDNP");
    const bool reverse = random() & 1;
    ReadBuilder builder = readBuilder("r").at(0, 60).cigar(cigar);
    if (reverse) builder.reverse();
    const int32_t mate = 40 + int(random() % 60), tlen = int(random() % 80) - 20;
    if (random() % 4) builder.mate(0, mate, reverse ? -tlen : tlen);
    auto read = attached(builder);
    for (int i = 0; i < read->length; ++i) read->quals[i] = random() % 3 ? 30 : 5;

    const std::vector<Column> columns = spellOut(*read, true);
    int64_t low = INT64_MIN, high = INT64_MAX;
    if (read->flag & FLAG_PAIRED && tlen != 0) {
      if (reverse && int64_t(read->end) > mate) low = mate;
      if (!reverse && tlen > 0 && 60 <= mate + tlen) high = 60 + tlen;
    }
    int first_good = 0, end_good = read->length;
    while (first_good < end_good && read->quals[first_good] < 10) first_good++;
    while (first_good < end_good && read->quals[end_good - 1] < 10) end_good--;
    std::vector<Column> kept;
    for (size_t i = 0; i < columns.size(); ++i) {
      const Column& c = columns[i];
      if (!c.has_base || c.offset < first_good || c.offset >= end_good) continue;
      // An inserted base goes with the placed columns on both of its sides.
      std::optional<int64_t> before = c.place, after = c.place;
      for (size_t j = i; j-- > 0 && !before;) before = columns[j].place;
      for (size_t j = i + 1; j < columns.size() && !after; ++j) after = columns[j].place;
      if (!before) before = after;
      if (!after) after = before;
      if (before && *before >= low && after && *after < high) kept.push_back(c);
      cut += before && (*before < low || (after && *after >= high));
    }
    std::vector<int64_t> places;
    for (const Column& c : kept)
      if (c.place) places.push_back(*c.place);
    Read::Region region{};
    const bool something = !places.empty() && read->end > read->start;
    ASSERT_EQ(read->effectiveRegion(10, false, region), something) << read->cigarString();
    if (!something) continue;
    left++;
    ASSERT_EQ(region.start, places.front()) << read->cigarString();
    ASSERT_EQ(region.end, places.back() + 1) << read->cigarString();
    ASSERT_EQ(region.first_offset, kept.front().offset) << read->cigarString() << " " << mate << " " << tlen;
    ASSERT_EQ(region.end_offset, kept.back().offset + 1) << read->cigarString() << " " << mate << " " << tlen;
  }
  EXPECT_GT(left, 15000);
  EXPECT_GT(cut, 10000);
}

}  // namespace
