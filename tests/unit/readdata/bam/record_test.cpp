// Lengths, positions, bases and aux data of records.
#include <algorithm>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>

#include "read_builder.h"
#include "readdata/bam/bam_record.h"

namespace {

using testing::HasSubstr;

ReadBuilder sampleRead() {
  return readBuilder("name")
      .at(1, 1000)
      .cigar("3S10M2D4M1I5M")
      .mate(1, 1200, 250)
      .tag("RG", "a")
      .tag("NM", 3);
}

// A copy whose data is allocated to the byte, so that a sanitizer sees every step beyond it.
bam_record tight(const bam_record& from) {
  bam_record to;
  copy_record(to, from);
  to.data = static_cast<uint8_t*>(realloc(to.data, size_t(from.data_len)));
  to.data_capacity = from.data_len;
  return to;
}

TEST(BamRecordCheck, RefusesWhatDoesNotFit) {
  const struct {
    const char* fault;
    std::function<void(bam_record&)> change;
    const char* expected;
  } cases[] = {
      {"no name", [](bam_record& r) { r.l_read_name = 0; }, "name length 0"},
      {"name cut", [](bam_record& r) { r.l_read_name = 3; }, "without terminating zero"},
      {"name of 255", [](bam_record& r) { r.l_read_name = 255; }, "longer than the record"},
      {"sequence -1", [](bam_record& r) { r.l_seq = -1; }, "negative"},
      {"sequence -2^31", [](bam_record& r) { r.l_seq = INT32_MIN; }, "negative"},
      {"sequence 2^31-1", [](bam_record& r) { r.l_seq = INT32_MAX; }, "sequence is longer"},
      // One and a half times this wraps to a small number in 32 bits.
      {"sequence that wraps", [](bam_record& r) { r.l_seq = 0x2AAAAAAB; }, "sequence is longer"},
      {"CIGAR of 65535 words", [](bam_record& r) { r.n_cigar = 65535; }, "name and CIGAR are longer"},
      {"data cut", [](bam_record& r) { r.data_len = 40; }, "sequence is longer"},
      {"data empty", [](bam_record& r) { r.data_len = 0; }, "name and CIGAR are longer"},
      {"operator 10", [](bam_record& r) { r.cigarBytes()[0] |= 10; }, "unknown CIGAR operator"},
      {"operator 15", [](bam_record& r) { r.cigarBytes()[4] |= 15; }, "unknown CIGAR operator"},
      {"one base more in CIGAR", [](bam_record& r) { r.cigarBytes()[0] += 16; }, "differ in length"},
      {"one word less", [](bam_record& r) { r.n_cigar--, r.l_seq -= 4; }, "differ in length"},
      {"position -2", [](bam_record& r) { r.pos = -2; }, "position out of range"},
      {"one base at 2^31-1", [](bam_record& r) { r = readBuilder("r").at(0, INT32_MAX); }, "alignment end"},
      {"end 2^31", [](bam_record& r) { r.pos = INT32_MAX - 20; }, "alignment end out of range"},
  };
  for (const auto& c : cases) {
    bam_record r = sampleRead();
    c.change(r);
    const char* message = check(r);
    ASSERT_NE(message, nullptr) << c.fault;
    EXPECT_THAT(message, HasSubstr(c.expected)) << c.fault;
  }
}

TEST(BamRecordCheck, BoundsEveryCutOfARecord) {
  const bam_record whole = sampleRead();
  const int32_t without_aux = whole.data_len - whole.l_aux;
  for (int32_t length = 0; length <= whole.data_len; ++length) {
    bam_record r;
    copy_record(r, whole);
    r.data_len = length;
    EXPECT_EQ(check(r) == nullptr, length >= without_aux) << length;
  }
}

TEST(BamRecord, EndFollowsTheCigar) {
  const struct {
    const char* cigar;
    int64_t end;
  } cases[] = {{"", 100},        {"10M", 110},  {"5S10M3H", 110},  {"4=2X3D5N1I2P6M", 120},    {"7S", 100},
               {"10M3B5M", 112}, {"5B3M", 100}, {"3M200B3M", 100}, {"268435455N1M", 268435556}};
  for (const auto& c : cases)
    EXPECT_EQ(alignment_end(readBuilder("r").at(0, 100).cigar(c.cigar).seq("").build()), c.end) << c.cigar;

  Cigar longest(60000, 268435455u << 4 | CIGAR_N);  // far beyond 32 bits
  bam_record r = readBuilder("r").at(0, 100).cigar(longest);
  EXPECT_EQ(alignment_end(r), 100 + 60000 * int64_t(268435455));
  EXPECT_NE(check(r), nullptr);
}

TEST(BamRecord, BinIsTheSmallestThatHoldsTheInterval) {
  auto smallest = [](uint64_t start, uint64_t end) {
    for (int level = 5; level >= 0; --level) {
      const uint64_t size = uint64_t(1) << (29 - 3 * level);
      const uint64_t first = ((uint64_t(1) << 3 * level) - 1) / 7;
      for (uint64_t bin = 0; bin < uint64_t(1) << 3 * level; ++bin)
        if (bin * size <= start && end <= (bin + 1) * size) return first + bin;
    }
    return uint64_t(0);
  };
  std::mt19937 random(7);
  for (int i = 0; i < 300; ++i) {
    const uint32_t border = (random() % 32768) << 14;
    const uint32_t start = border < 20 ? border : border - random() % 20;
    const uint32_t end = std::min(start + 1 + uint32_t(random() >> (4 + random() % 28)), 1u << 29);
    EXPECT_EQ(bin_of(start, end), smallest(start, end)) << start << "-" << end;
  }
  EXPECT_EQ(bin_of(16383, 16384), 4681);
  EXPECT_EQ(bin_of(16383, 16385), 585);
  EXPECT_EQ(bin_of(16384, 16384), 4682);  // an empty interval is taken for one base
  EXPECT_EQ(bin_of(uint32_t(-1), 0), 4680);
}

TEST(AuxData, FollowsAModelThroughAppendAndDelete) {
  struct Entry {
    std::string tag, value;
    char type;
  };
  std::mt19937 random(3);
  auto randomEntry = [&random](int number) {
    std::string bytes(8, '\0');
    for (char& c : bytes) c = char(random());
    const uint32_t count = random() % 5;
    const std::string count_bytes(reinterpret_cast<const char*>(&count), 4);
    const Entry kinds[] = {
        {"", bytes.substr(0, 1), 'A'},
        {"", bytes.substr(0, 1), 'c'},
        {"", bytes.substr(0, 2), 'S'},
        {"", bytes.substr(0, 4), 'I'},
        {"", bytes.substr(0, 4), 'f'},
        {"", bytes, 'd'},
        {"", std::string(random() % 9, 'x') + '\0', 'Z'},
        {"", std::string("1AE3\0", 5), 'H'},
        {"", "S" + count_bytes + std::string(2 * count, '\7'), 'B'},
        {"", "f" + count_bytes + std::string(4 * count, '\7'), 'B'},
    };
    Entry entry = kinds[random() % std::size(kinds)];
    entry.tag = {char('A' + number / 10), char('0' + number % 10)};
    return entry;
  };

  bam_record r = readBuilder("r").at(0, 1).cigar("7M");
  const std::string head(r.data, r.auxEnd());
  std::vector<Entry> model;
  for (int step = 0; step < 400; ++step) {
    const int number = int(random() % 30);
    auto at = std::find_if(model.begin(), model.end(),
                           [e = randomEntry(number)](const Entry& m) { return m.tag == e.tag; });
    if (at != model.end()) {
      aux_delete(r, aux_find(r, at->tag.c_str()));
      model.erase(at);
    } else {
      model.push_back(randomEntry(number));
      const Entry& e = model.back();
      aux_append(r, e.tag.c_str(), e.type, e.value.size(), e.value.data());
      EXPECT_GE(r.data_capacity, r.data_len + r.l_seq);
    }
    std::string expected;
    for (const Entry& e : model) expected += e.tag + e.type + e.value;
    ASSERT_EQ(std::string(r.data, r.auxEnd()), head + expected);
    ASSERT_EQ(r.l_aux, int32_t(expected.size()));
    ASSERT_EQ(check(r), nullptr);
    for (const Entry& e : model) {
      const uint8_t* found = aux_find(r, e.tag.c_str());
      ASSERT_TRUE(found && *found == uint8_t(e.type)) << e.tag;
      ASSERT_EQ(aux_size(found, r.auxEnd()), int64_t(e.value.size())) << e.tag;
    }
    ASSERT_EQ(aux_find(r, "zz"), nullptr);
  }
}

TEST(AuxData, StopsWhereItCannotGoOn) {
  const std::string two_to_32("c\xff\xff\xff\xff", 5);
  const struct {
    const char* name;
    ReadBuilder read;
  } cases[] = {
      {"unknown type", readBuilder("r").tag("XX", '?', "abc").tag("RG", "a")},
      {"type zero", readBuilder("r").tag("XX", '\0', "").tag("RG", "a")},
      {"text without end", readBuilder("r").tag("RG", 'Z', "abc")},
      {"number cut", readBuilder("r").tag("RG", 'i', "abc")},
      {"array cut", readBuilder("r").tag("RG", 'B', std::string("S\3\0\0\0ABCDE", 10))},
      {"array of 2^32-1", readBuilder("r").tag("RG", 'B', two_to_32)},
      {"array of texts", readBuilder("r").tag("RG", 'B', std::string("Z\1\0\0\0A", 6))},
      {"array without count", readBuilder("r").tag("RG", 'B', "S\1")},
      {"type missing", readBuilder("r").tag("NM", 3).auxBytes("RG")},
      {"value missing", readBuilder("r").tag("NM", 3).auxBytes("RGA")},
  };
  for (const auto& c : cases) {
    bam_record r = tight(c.read);
    ASSERT_EQ(check(r), nullptr) << c.name;
    EXPECT_EQ(aux_find(r, "RG"), nullptr) << c.name;
    const int32_t before = r.data_len;
    strip_pg(r);
    aux_delete(r, aux_find(r, "RG"));
    EXPECT_EQ(r.data_len, before) << c.name;
  }
}

TEST(CompareRecords, TellsTheFieldAndBothValues) {
  const auto base = [] { return readBuilder("r").at(0, 100).cigar("8M").tag("NM", 3).tag("RG", "a"); };
  const struct {
    ReadBuilder other;
    const char* expected;
  } cases[] = {
      {readBuilder("r").at(0, 100).cigar("8M").tag("RG", "a").tag("NM", 'C', "\3"), ""},
      {base().at(0, 101), "position differs: 100 and 101"},
      {base().seq("ACGTACGA"), "sequence differs: ACGTACGT and ACGTACGA"},
      {base().quals({30, 30, 30, 30, 30, 30, 30, 2}), "qualities differs: ???????? and ???????#"},
      {base().tag("ZZ", "new"), "tag ZZ is in the second only: Z:new"},
      {readBuilder("r").at(0, 100).cigar("8M").tag("NM", "3").tag("RG", "a"), "tag NM differs: i:3 and Z:3"},
      {base().tag("XX", '?', ""), "corrupt aux data for tag XX in the second bam file, read name r"},
  };
  for (const auto& c : cases)
    EXPECT_THAT(compare_records(base(), c.other), testing::StrEq(c.expected)) << c.expected;
}

}  // namespace
