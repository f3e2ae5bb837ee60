#include "readdata/bam/read_cache.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <random>

#include "bam_files.h"
#include "temp_folder.h"
#include "thrown.h"

namespace {

constexpr uint32_t kEverywhere = UINT32_MAX;

// A read as the test knows it, under the numbers of sampleContigs().
struct Known {
  RawRead raw;
  uint8_t mapq = 60;
  size_t file = 0;

  uint32_t maskKey() const {
    bool elsewhere =
        (raw.flag & FLAG_PAIRED) && !(raw.flag & FLAG_MATE_UNMAPPED) && raw.next_ref_id != raw.ref_id;
    return uint32_t(raw.flag) | (elsewhere ? 1u << 16 : 0) | (mapq == 255 ? 4u << 16 : 0) |
           (mapq == 0 ? 8u << 16 : 0);
  }
};

// Reads dealt at random to several BAM files with contig lists and read groups of their own: the first file
// has all contigs, the second no empty ones, the third only two.
class Sample {
 public:
  Sample(size_t files, size_t reads, size_t unplaced, uint32_t seed) {
    std::mt19937 random(seed);
    for (const RawRead& raw : sampleReads(reads, unplaced, seed)) {
      Known read{raw, uint8_t("\0\x1e\xff"[random() % 3]), 0};
      if (raw.ref_id >= 0) makePair(read.raw, random);
      do read.file = random() % files;
      while (fileNumber(read.file, raw.ref_id) < 0 && raw.ref_id >= 0);
      known_.push_back(read);
    }
    // Ties come out by file, unplaced reads file by file.
    std::stable_sort(known_.begin(), known_.end(), [](const Known& a, const Known& b) {
      auto key = [](const Known& k) {
        return std::tuple(uint32_t(k.raw.ref_id), k.raw.ref_id < 0 ? 0 : k.raw.pos, k.file);
      };
      return key(a) < key(b);
    });
    for (size_t file = 0; file < files; file++) write(file);
  }

  const std::vector<Known>& known() const { return known_; }
  const std::vector<BAMHandle*>& handles() const { return pointers_; }

 private:
  static const std::vector<int32_t>& contigsOf(size_t file) {
    static const std::vector<int32_t> lists[] = {{0, 1, 2, 3, 4, 5, 6}, {0, 2, 4, 5}, {2, 4}};
    return lists[file];
  }
  static int32_t fileNumber(size_t file, int32_t contig) {
    const std::vector<int32_t>& list = contigsOf(file);
    auto found = std::find(list.begin(), list.end(), contig);
    return found == list.end() ? -1 : int32_t(found - list.begin());
  }
  // Mates on contigs that every file has, or none.
  static void makePair(RawRead& raw, std::mt19937& random) {
    raw.flag |= uint16_t(random() % 8 << 8);
    if (random() % 3 == 0) return;
    raw.flag |= FLAG_PAIRED | (random() % 4 == 0 ? FLAG_MATE_UNMAPPED : 0);
    int32_t mates[] = {-1, 2, 4, raw.ref_id};
    raw.next_ref_id = mates[random() % 4];
    raw.next_pos = raw.next_ref_id < 0 ? -1 : 17;
  }
  void write(size_t file) {
    std::vector<RawContig> contigs;
    for (int32_t number : contigsOf(file)) contigs.push_back(sampleContigs()[number]);
    std::string bytes = headerBytes(
        contigs, "@HD\tVN:1.6\tSO:coordinate\n@RG\tID:g\tSM:s\tPU:" + std::to_string(file) + "\n");
    for (const Known& read : known_) {
      if (read.file != file) continue;
      RawRead raw = read.raw;
      if (raw.ref_id >= 0) raw.ref_id = fileNumber(file, raw.ref_id);
      if (raw.next_ref_id >= 0) raw.next_ref_id = fileNumber(file, raw.next_ref_id);
      std::string record = raw.bytes();
      record[4 + 9] = char(read.mapq);
      bytes += record;
    }
    std::string path = folder_.write("in" + std::to_string(file) + ".bam", inBlocks(bytes, 5000));
    BamIndex::load(path, 2, int64_t(contigs.size()));
    handles_.push_back(open_read_source(path, nullptr, true));
    pointers_.push_back(handles_.back().get());
  }

  TempFolder folder_;
  std::vector<Known> known_;
  std::vector<std::unique_ptr<BAMHandle>> handles_;
  std::vector<BAMHandle*> pointers_;
};

std::vector<std::string> names(const std::vector<Read*>& reads) {
  std::vector<std::string> list;
  for (const Read* read : reads) list.emplace_back(read->name);
  return list;
}

std::vector<std::string> naiveFetch(const Sample& sample, int32_t contig, uint32_t start, uint32_t end,
                                    uint32_t mask) {
  std::vector<std::string> list;
  for (const Known& read : sample.known())
    if (read.raw.overlaps(contig, start, end) && !(read.maskKey() & mask)) list.push_back(read.raw.name);
  return list;
}

std::vector<std::string> fetchNames(ReadCache& cache, uint32_t start, uint32_t end, uint32_t mask = 0) {
  std::vector<Read*> reads;
  size_t count = cache.fetch(start, end, mask, reads);
  EXPECT_EQ(count, reads.size());
  return names(reads);
}

class ReadCacheOfFiles : public testing::TestWithParam<size_t> {};
INSTANTIATE_TEST_SUITE_P(Files, ReadCacheOfFiles, testing::Values(1, 2, 3));

// Any order of contigs, steps, jumps forward and backward: what is fetched of the loaded range is what a scan
// of all reads finds, and what was fetched before stays where it was until it ends below the range.
TEST_P(ReadCacheOfFiles, FetchesWhatAScanFinds) {
  constexpr uint32_t kMasks[] = {0,       0,       FLAG_UNMAPPED,           FLAG_DUPLICATE | FLAG_QC_FAIL,
                                 1 << 16, 4 << 16, 8 << 16 | FLAG_SECONDARY};
  size_t found = 0;
  for (uint32_t seed = 0; seed < 12; seed++) {
    Sample sample(GetParam(), 3000, 20, seed);
    ReadCache cache(sample.handles(), true, seed % 2 ? ReadCache::kBatchBytes : 4000);
    std::mt19937 random(seed);
    int32_t contig = 0;
    uint32_t from = 0, to = 0;
    std::map<Read*, std::pair<std::string, uint32_t>> alive;  // name and end
    for (int step = 0; step < 400; step++) {
      const uint32_t old_from = from;
      if (step % 40 == 0 || random() % 60 == 0) {
        contig = int32_t(random() % sampleContigs().size());
        ASSERT_NE(cache.setContig(sampleContigs()[contig].name.c_str()), nullptr);
        alive.clear();
        from = to = 0;
      }
      const auto length = uint32_t(sampleContigs()[contig].length);
      const uint32_t widths[] = {1, 10, 700, 16384, 20000, length / 7 + 1};
      switch (random() % 6) {
        case 0:
          from = random() % length;  // a jump, forward or backward
          break;
        case 1: {  // just before a read, to hit the borders of reads
          const Known& read = sample.known()[random() % sample.known().size()];
          if (read.raw.ref_id == contig) from = uint32_t(random() % 2 ? read.raw.pos : read.raw.end());
          break;
        }
        case 2:
          from = std::min(from + widths[random() % 6], to);  // overlapping
          break;
        default:
          from = to;
      }
      to = uint32_t(std::min<uint64_t>(uint64_t(from) + widths[random() % 6], length));
      if (from >= to) from = 0, to = std::min(length, widths[random() % 6]);
      if (from < old_from) alive.clear();
      cache.load(from, to);
      for (int i = 0; i < 3; i++) {
        uint32_t start = from, end = to;
        if (i > 0) {
          start = from + random() % (to - from);
          end = start + 1 + random() % (to - start);
        }
        const uint32_t mask = kMasks[random() % std::size(kMasks)];
        for (auto at = alive.begin(); at != alive.end();)
          at = at->second.second <= from ? alive.erase(at) : std::next(at);
        std::vector<Read*> reads;
        cache.fetch(start, end, mask, reads);
        std::vector<std::string> expected = naiveFetch(sample, contig, start, end, mask);
        ASSERT_EQ(names(reads), expected)
            << "seed " << seed << " step " << step << " [" << start << ", " << end << ") mask " << mask;
        found += reads.size();
        for (Read* read : reads) alive[read] = {read->name, std::max(read->end, read->start + 1)};
        for (const auto& [read, known] : alive) ASSERT_EQ(read->name, known.first);
      }
      // Nothing is held twice.
      std::vector<Read*> held;
      cache.fetchAll(0, held);
      std::vector<std::string> unique = names(held);
      std::sort(unique.begin(), unique.end());
      ASSERT_EQ(std::adjacent_find(unique.begin(), unique.end()), unique.end());
      EXPECT_EQ(cache.fetch(0, from, 0, held), 0u);
    }
  }
  EXPECT_GT(found, 10000u);
}

// A forward pass in steps loads each read once, whatever the step, and frees it behind itself. What is read ahead is
// bounded in bytes.
TEST_P(ReadCacheOfFiles, LoadsEachReadOnceInAForwardPass) {
  Sample sample(GetParam(), 5000, 0, 77);
  size_t most_of_wide_batches = 0;
  for (const auto& [step, bytes] : {std::pair(500u, ReadCache::kBatchBytes),
                                    {500u, size_t(1)},
                                    {16384u, size_t(1)},
                                    {16384u, size_t(9000)},
                                    {70001u, size_t(9000)},
                                    {4000000u, ReadCache::kBatchBytes}}) {
    ReadCache cache(sample.handles(), true, bytes);
    const auto length = uint32_t(sampleContigs()[0].length);
    size_t most = 0;
    for (uint32_t from = 0; from < length; from += step) {
      cache.setContig("big");
      cache.load(from, std::min(from + step, length));
      fetchNames(cache, from, from + step);
      most = std::max(most, cache.readsHeld());
    }
    size_t expected = naiveFetch(sample, 0, 0, length, 0).size();
    EXPECT_EQ(cache.readCount(), expected) << step;
    if (step == 500u && bytes > 1) {
      most_of_wide_batches = most;
      EXPECT_LT(most, expected / 2);
    } else if (step == 500u) {
      EXPECT_LT(most, most_of_wide_batches);
    }
  }
}

TEST_P(ReadCacheOfFiles, ReadsTakeJoinedNumbersAndGroups) {
  Sample sample(GetParam(), 2000, 30, 5);
  ReadCache cache(sample.handles(), true);
  const std::vector<ReadGroup>& groups = cache.input().readGroups();
  ASSERT_EQ(groups.size(), GetParam());
  // The reference has one contig more, and the order of the first file.
  std::vector<Contig> reference = {{"extra", 0, 5}};
  for (const RawContig& contig : sampleContigs())
    reference.push_back({contig.name.c_str(), 0, uint32_t(contig.length)});
  ASSERT_EQ(cache.input().check_contigs(reference), 0);

  size_t checked = 0;
  auto check = [&](const Read& read) {
    const Known& known = *std::find_if(sample.known().begin(), sample.known().end(),
                                       [&](const Known& k) { return k.raw.name == read.name; });
    checked++;
    EXPECT_EQ(read.ref_id, known.raw.ref_id);
    EXPECT_EQ(read.mate_ref_id, known.raw.next_ref_id);
    EXPECT_EQ(read.mate_start, known.raw.next_pos);
    EXPECT_EQ(read.flag, known.raw.flag);
    EXPECT_EQ(read.mapq, known.mapq);
    ASSERT_EQ(size_t(read.read_group), known.file);
    const bam_record& record = static_cast<const BAMRead&>(read).record();
    EXPECT_EQ(record.ref_id, known.raw.ref_id);
    EXPECT_EQ(record.next_ref_id, known.raw.next_ref_id);
    EXPECT_EQ(aux_text(aux_find(record, "RG")), groups[known.file].id);
    EXPECT_EQ(groups[known.file].attributes.at("PU"), std::to_string(known.file));
  };
  for (const RawContig& contig : sampleContigs()) {
    ASSERT_NE(cache.setContig(contig.name.c_str()), nullptr);
    cache.load(0, uint32_t(contig.length));
    std::vector<Read*> reads;
    cache.fetch(0, kEverywhere, 0, reads);
    for (const Read* read : reads) check(*read);
  }
  EXPECT_EQ(cache.setContig(kNoCoor), nullptr);
  while (cache.loadNoCoor(7)) {
    std::vector<Read*> reads;
    cache.fetchAll(0, reads);
    for (const Read* read : reads) check(*read);
  }
  EXPECT_EQ(checked, sample.known().size());
  EXPECT_EQ(cache.readTotal(), sample.known().size() - 30);  // the index counts those with coordinates
}

// One file "in.bam" of contig "c" with these reads.
class OneFile {
 public:
  explicit OneFile(const std::vector<RawRead>& reads) {
    const std::vector<RawContig> contigs = {{"c", 100000}, {"d", 100000}};
    std::string path = folder_.write("in.bam", inBlocks(rawBam(contigs, reads)));
    BamIndex::load(path, 2, 2);
    handle_ = open_read_source(path, nullptr, true);
  }
  std::vector<BAMHandle*> handles() const { return {handle_.get()}; }

 private:
  TempFolder folder_;
  std::unique_ptr<BAMHandle> handle_;
};

RawRead simpleRead(const std::string& aux) {
  RawRead read;
  read.pos = 100;
  read.cigar = {50 << 4};
  read.l_seq = 50;
  read.aux = aux;
  return read;
}

TEST(ReadCache, RefusesReadsWithoutKnownGroup) {
  struct Case {
    std::string aux;
    const char* message;
  } cases[] = {
      {"", "Read (r) has no readgroup from "},
      {std::string("RGi\1\0\0\0", 7), "Read (r) has no readgroup from "},
      {std::string("RGZ\0", 4), "Read (r) has no readgroup from "},
      {"RGZg", "Read (r) has corrupt aux data from "},  // the text does not end
      {std::string("RGZg\0XXq1", 9), "Read (r) has corrupt aux data from "},
      {std::string("XXBi\xff\xff\xff\x7fRGZg\0", 13), "Read (r) has corrupt aux data from "},
      {std::string("RGZg\0XX", 7), "Read (r) has corrupt aux data from "},
      {std::string("RGZh\0", 5), "Read (r) has a readgroup (h) not present in the BAM header from "},
  };
  for (const Case& c : cases) {
    OneFile file({simpleRead(c.aux)});
    ReadCache cache(file.handles());
    cache.setContig("c");
    EXPECT_EQ(thrownBy<std::runtime_error>([&] { cache.load(0, 1000); }),
              c.message + file.handles()[0]->path);
  }
}

// Flags come out as they went in, but for a mate's state of a read that has no mate.
TEST(ReadCache, KeepsWhatFlagsSayOfMates) {
  struct Case {
    uint16_t flag;
    int32_t mate_contig;
    uint16_t expected;
  } cases[] = {
      {0, -1, 0},
      {FLAG_PAIRED | FLAG_MATE_UNMAPPED, -1, FLAG_PAIRED | FLAG_MATE_UNMAPPED},
      {FLAG_PAIRED | FLAG_MATE_UNMAPPED, 0, FLAG_PAIRED | FLAG_MATE_UNMAPPED},
      {FLAG_PAIRED | FLAG_MATE_UNMAPPED, 1, FLAG_PAIRED | FLAG_MATE_UNMAPPED},
      {FLAG_PAIRED, -1, FLAG_PAIRED},
      {FLAG_MATE_UNMAPPED, -1, 0},
      {FLAG_MATE_UNMAPPED | FLAG_UNMAPPED, -1, FLAG_MATE_UNMAPPED | FLAG_UNMAPPED},
  };
  std::vector<RawRead> reads;
  for (const Case& c : cases) {
    reads.push_back(simpleRead(std::string("RGZg\0", 5)));
    reads.back().flag = c.flag;
    reads.back().next_ref_id = c.mate_contig;
  }
  OneFile file(reads);
  ReadCache cache(file.handles());
  cache.setContig("c");
  cache.load(0, 1000);
  std::vector<Read*> got;
  ASSERT_EQ(cache.fetch(0, 1000, 0, got), std::size(cases));
  for (size_t i = 0; i < got.size(); i++) {
    EXPECT_EQ(got[i]->flag, cases[i].expected) << i;
    EXPECT_EQ(static_cast<BAMRead*>(got[i])->record().flag, cases[i].expected) << i;
    EXPECT_EQ(got[i]->mate_ref_id, cases[i].mate_contig) << i;
  }
}

// Lets every other read stand as a realigned one and counts what is alive of those.
class Realign final : public ReadTransform {
 public:
  explicit Realign(int& alive) : alive_(alive) {}
  bool needsBaseTags(int32_t group) const override { return group == 1; }
  Read* transform(Read* read) override {
    const bam_record& record = static_cast<BAMRead*>(read)->record();
    EXPECT_EQ(aux_find(record, "BI") && aux_find(record, "BD"), read->read_group == 1);
    if (count_++ % 2) return read;
    return new Counted(*read, alive_);
  }

 private:
  class Counted final : public Read {
   public:
    Counted(Read& original, int& alive) : alive_(alive) {
      name = original.name;
      start = original.start;
      end = original.end;
      flag = original.flag;
      mapq = 99;
      alive_++;
    }
    ~Counted() override { alive_--; }

   private:
    int& alive_;
  };
  int& alive_;
  size_t count_ = 0;
};

TEST(ReadCache, OwnsWhatTheTransformMakes) {
  Sample sample(2, 2000, 40, 21);
  int alive = 0;
  {
    ReadCache cache(sample.handles(), true);
    cache.setTransform(std::make_unique<Realign>(alive));
    cache.setContig("big");
    size_t expected = naiveFetch(sample, 0, 0, kEverywhere, 0).size();
    for (uint32_t from = 0; from < 3000000; from += 100000) {
      cache.load(from, from + 100000);
      std::vector<Read*> reads;
      cache.fetch(from, from + 100000, 0, reads);
      EXPECT_EQ(names(reads), naiveFetch(sample, 0, from, from + 100000, 0));
      size_t changed = 0;
      std::vector<Read*> held;
      cache.fetchAll(0, held);
      for (const Read* read : held) changed += read->mapq == 99;
      EXPECT_EQ(size_t(alive), changed);
    }
    EXPECT_EQ(cache.readCount(), expected);
    cache.setContig(kNoCoor);
    EXPECT_EQ(alive, 0);
    EXPECT_EQ(cache.loadNoCoor(20), 20u);
    EXPECT_EQ(alive, 10);
  }
  EXPECT_EQ(alive, 0);
}

}  // namespace
