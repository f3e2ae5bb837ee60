// Shards written apart and joined are the file that one stream would have made, with the index of a scan;
// what fails leaves nothing that looks whole.
#include <csignal>
#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <sys/resource.h>
#include <unistd.h>

#include "bam_files.h"
#include "readdata/bam/bam_writer.h"
#include "readdata/bam/parallel_bam_writer.h"
#include "temp_folder.h"
#include "thrown.h"

namespace {

using testing::HasSubstr;
using Result = ParallelReadWriterBase::Result;
using Options = ReadWriterBase::Options;

bool exists(const std::string& path) {
  return access(path.c_str(), F_OK) == 0;
}

std::shared_ptr<const bam_header> sampleHeader() {
  auto header = std::make_shared<bam_header>();
  for (const RawContig& contig : sampleContigs()) {
    header->names.push_back(contig.name);
    header->lengths.push_back(static_cast<uint32_t>(contig.length));
  }
  header->text = headerText(sampleContigs());
  return header;
}

std::vector<bam_record> recordsOf(const std::vector<RawRead>& reads) {
  std::vector<bam_record> records;
  for (const RawRead& read : reads) {
    std::string bytes = read.bytes().substr(4);
    bam_record record;
    memcpy(record.fixedBlock(), bytes.data(), bam_record::kFixedSize);
    record.data_len = static_cast<int32_t>(bytes.size() - bam_record::kFixedSize);
    record.growData(record.data_len);
    memcpy(record.data, bytes.data() + bam_record::kFixedSize, record.data_len);
    records.push_back(std::move(record));
  }
  return records;
}

// Where shards end: `count` random cuts, some of them at one place, so that there are empty shards.
std::vector<size_t> randomCuts(size_t records, size_t count, uint32_t seed) {
  std::mt19937 random(seed);
  std::vector<size_t> cuts = {0, 0, records, records};
  while (cuts.size() < count) cuts.push_back(random() % 4 != 0 ? random() % (records + 1) : cuts.back());
  std::sort(cuts.begin(), cuts.end());
  return cuts;
}

void writeShard(ReadWriterBase& writer, int sequence, const bam_record* begin, const bam_record* end,
                thread_coop* pool, Result& result) {
  writer.open(sequence, sampleHeader(), false, true);
  if (pool) writer.setParallel(pool);
  for (const bam_record* record = begin; record != end; ++record) writer.write(*record);
  writer.close();
  result.file = writer.current();
  result.part = writer.takeData();
}

// One shard that is ready for the merge.
std::unique_ptr<Result> shardOf(const std::string& output, int sequence, const std::vector<RawRead>& reads) {
  auto records = recordsOf(reads);
  BamWriter writer(output, {});
  auto result = std::make_unique<Result>();
  writeShard(writer, sequence, records.data(), records.data() + records.size(), nullptr, *result);
  return result;
}

std::string savedIndex(const TempFolder& folder, const BamIndex& index) {
  std::string path = folder.path("expected.bai");
  if (!index.save(path)) throw std::runtime_error("save");
  return fileBytes(path);
}

bool hasEndMarker(const std::string& path) {
  return fileBytes(path).ends_with(endMarker());
}

struct JoinCase {
  const char* name;
  size_t placed, unplaced, shards;
  const char* level;  // null: not given
  bool parallel;      // the last shard with reads is compressed on a pool
  size_t large_aux;   // bytes of aux data of every 500th read
};

class Joined : public testing::TestWithParam<JoinCase> {
 protected:
  std::vector<RawRead> reads() const {
    auto reads = sampleReads(GetParam().placed, GetParam().unplaced, 7);
    for (size_t i = 0; GetParam().large_aux > 0 && i < reads.size(); i += 500)
      reads[i].aux += "XLZ" + sampleText(GetParam().large_aux, static_cast<uint32_t>(i)) + '\0';
    return reads;
  }

  // Writes `reads` in random shards, finished in any order by two writers, to `output`.
  void join(const std::string& output, const std::vector<RawRead>& reads) const {
    Options options;
    if (GetParam().level) options["bam_compression"] = GetParam().level;
    auto records = recordsOf(reads);
    auto cuts = randomCuts(records.size(), GetParam().shards, 11);
    if (GetParam().parallel)
      cuts.insert(std::upper_bound(cuts.begin(), cuts.end(), GetParam().placed), GetParam().placed);
    thread_coop pool;
    for (int i = 0; i < 2; ++i) pool.addWorker([] {});

    auto writer = createReadWriter(output, nullptr, options, "bam");
    writer->init(sampleHeader());
    std::unique_ptr<ReadWriterBase> shard_writers[2];
    for (auto& shard_writer : shard_writers)
      shard_writer = createShardWriter(output, nullptr, options, "bam");
    std::vector<Result> results(cuts.size() - 1);
    std::vector<size_t> order(results.size());
    for (size_t i = 0; i < order.size(); ++i) order[i] = i;
    std::shuffle(order.begin(), order.end(), std::mt19937(3));
    for (size_t i : order) {
      bool helped = GetParam().parallel && cuts[i] >= GetParam().placed;
      writeShard(*shard_writers[i % 2], static_cast<int>(i), records.data() + cuts[i],
                 records.data() + cuts[i + 1], helped ? &pool : nullptr, results[i]);
    }
    for (Result& result : results) {
      writer->merge(&result);
      EXPECT_FALSE(exists(result.file));
    }
    writer->merge(nullptr);
    EXPECT_FALSE(hasEndMarker(output));
    EXPECT_FALSE(exists(output + ".bai"));
    writer->close();
  }
};

TEST_P(Joined, IsTheStreamInOneFileWithTheIndexOfAScan) {
  TempFolder folder;
  std::string output = folder.path("out.bam");
  auto reads = this->reads();
  join(output, reads);

  std::string file = fileBytes(output);
  auto blocks = blocksOf(file);
  EXPECT_TRUE(joined(blocks) == rawBam(sampleContigs(), reads));
  ASSERT_TRUE(file.ends_with(endMarker()));
  for (size_t i = 0; i + 1 < blocks.size(); ++i) EXPECT_FALSE(blocks[i].data.empty()) << "block " << i;
  EXPECT_TRUE(fileBytes(output + ".bai") == savedIndex(folder, *BamIndex::build(output)));
  for (const auto& entry : std::filesystem::directory_iterator(folder.path("")))
    EXPECT_THAT((std::vector<std::string>{"out.bam", "out.bam.bai", "expected.bai"}),
                testing::Contains(entry.path().filename().string()));
}

INSTANTIATE_TEST_SUITE_P(Cases, Joined,
                         testing::Values(JoinCase{"NoReads", 0, 0, 6, nullptr, false, 0},
                                         JoinCase{"OneShard", 4000, 70, 4, nullptr, false, 0},
                                         JoinCase{"ManyShards", 6000, 70, 300, nullptr, false, 0},
                                         JoinCase{"OnlyUnplaced", 0, 5000, 9, nullptr, false, 0},
                                         JoinCase{"Stored", 3000, 20, 40, "0", false, 0},
                                         JoinCase{"FastPath", 9000, 3000, 60, "1", true, 0},
                                         JoinCase{"LevelOutOfRange", 1000, 20, 9, "99", false, 0},
                                         JoinCase{"ParallelUnplaced", 3000, 30000, 12, nullptr, true, 0},
                                         JoinCase{"ParallelAll", 0, 30000, 3, "5", true, 0},
                                         JoinCase{"RecordsBeyondABlock", 4000, 3000, 30, nullptr, true,
                                                  150000}),
                         [](const auto& info) { return info.param.name; });

// Deep coverage of few bins must not take memory per read.
TEST(BamIndexData, KeepsRunsNotReads) {
  BamIndexData data;
  constexpr int kReads = 200000;
  for (int i = 0; i < kReads; ++i) data.add(0, i * 5, i * 5 + 100, true, int64_t(i) << 16);
  for (int i = 0; i < kReads; ++i) data.add(-1, -1, -1, false, int64_t(kReads + i) << 16);
  data.complete();
  EXPECT_LT(data.memorySize(), 200u * (kReads * 5 / 16384) * sizeof(IndexItem));
  BamIndex index;
  BamIndexHelper helper(index, 1, "x", 0);
  data.addTo(helper, 0);
  helper.finish(int64_t(2 * kReads) << 16);
  EXPECT_EQ(index.contigs[0].mapped, uint64_t(kReads));
  EXPECT_EQ(index.n_no_coor, uint64_t(kReads));
}

TEST(BamWriter, WholeFileHasHeaderAndIndex) {
  for (bool parallel : {false, true}) {
    TempFolder folder;
    std::string output = folder.path("whole.bam"), index = folder.path("elsewhere.bai");
    auto reads = sampleReads(5000, 30, 9);
    auto records = recordsOf(reads);
    thread_coop pool;
    BamWriter writer(output, {{"output_index_file", index}});
    writer.open(-1, sampleHeader(), true, true);
    if (parallel) writer.setParallel(&pool);
    for (const bam_record& record : records) writer.write(record);
    writer.close();
    EXPECT_EQ(writer.current(), output);
    EXPECT_TRUE(joined(blocksOf(fileBytes(output))) == rawBam(sampleContigs(), reads));
    EXPECT_FALSE(exists(output + ".bai"));

    auto scanned = BamIndex::build(output);
    std::filesystem::copy_file(index, output + ".bai");
    auto loaded = BamIndex::load(output, 0, static_cast<int64_t>(sampleContigs().size()));
    EXPECT_EQ(loaded->readCount(), 5000u);
    EXPECT_EQ(loaded->n_no_coor, 30u);
    for (size_t contig = 0; contig < scanned->contigs.size(); ++contig) {
      EXPECT_EQ(loaded->contigs[contig].linear, scanned->contigs[contig].linear);
      ASSERT_EQ(loaded->contigs[contig].bins.size(), scanned->contigs[contig].bins.size());
      for (const auto& [bin, chunks] : scanned->contigs[contig].bins) {
        const auto& own = loaded->contigs[contig].bins.at(bin);
        ASSERT_EQ(own.size(), chunks.size());
        for (size_t i = 0; i < chunks.size(); ++i) {
          EXPECT_EQ(own[i].begin, chunks[i].begin);
          EXPECT_GE(own[i].end, chunks[i].end);  // the last one may name the end of the file
        }
      }
    }
  }
}

RawRead readAt(int32_t ref_id, int32_t pos) {
  RawRead read;
  read.ref_id = ref_id;
  read.pos = pos;
  read.l_seq = 10;
  if (ref_id >= 0)
    read.cigar = {10 << 4};
  else
    read.flag = 4;
  return read;
}

TEST(ParallelBamWriter, ReadsOutOfOrderAreRefused) {
  struct Case {
    std::vector<RawRead> first, second;
    const char* text;
  };
  const RawRead a = readAt(0, 100), b = readAt(0, 101), c = readAt(2, 5), none = readAt(-1, -1);
  const Case cases[] = {
      {{a, a, b, a}, {}, "Reads are not sorted: 101 > 100 on refID 0\n"},
      {{a, a, b}, {a}, "Reads are not sorted: 101 > 100 on refID 0\n"},
      {{a, c}, {b}, "Reads are not sorted: refID 2 > refID 0\n"},
      {{a, c, b}, {}, "Reads are not sorted: refID 2 > refID 0\n"},
      {{a, none, b}, {}, "is not sorted: reads without coordinates  precedes reads with coordinates."},
      {{none, none}, {a}, "is not sorted: reads without coordinates  precedes reads with coordinates."},
      {{a, b, b}, {b, c, none}, ""},
  };
  for (const Case& test : cases) {
    TempFolder folder;
    std::string output = folder.path("out.bam");
    ParallelBamWriter writer(output, {});
    writer.init(sampleHeader());
    auto first = shardOf(output, 0, test.first), second = shardOf(output, 1, test.second);
    std::string thrown = thrownBy([&] {
      writer.merge(first.get());
      writer.merge(second.get());
      writer.close();
    });
    if (*test.text)
      EXPECT_THAT(thrown, HasSubstr(test.text));
    else
      EXPECT_EQ(thrown, "");
    EXPECT_EQ(hasEndMarker(output), !*test.text);
    EXPECT_EQ(exists(output + ".bai"), !*test.text);
  }
}

TEST(ParallelBamWriter, DamagedShardFilesAreRefused) {
  struct Case {
    const char* name;
    std::function<void(const std::string& file)> damage;
    std::string text;  // followed by the name of the file, then by `reason`
    std::string reason;
  };
  auto cutTo = [](int64_t left) {
    return [left](const std::string& file) {
      auto size = static_cast<int64_t>(std::filesystem::file_size(file));
      std::filesystem::resize_file(file, left < 0 ? size + left : left);
    };
  };
  const Case cases[] = {
      {"missing", [](const std::string& file) { unlink(file.c_str()); }, "cannot open file ",
       ", No such file or directory"},
      {"empty", cutTo(0), "corrupt file ", ""},
      {"below the marker", cutTo(27), "corrupt file ", ""},
      {"cut", cutTo(-1), "corrupt file ", ""},
      {"without marker", cutTo(-28), "corrupt file ", ""},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    TempFolder folder;
    std::string output = folder.path("out.bam");
    {
      ParallelBamWriter writer(output, {});
      writer.init(sampleHeader());
      auto result = shardOf(output, 3, {readAt(0, 5)});
      EXPECT_EQ(result->file, output + "_3");
      test.damage(result->file);
      EXPECT_EQ(thrownBy([&] { writer.merge(result.get()); }), test.text + result->file + test.reason);
    }
    EXPECT_FALSE(hasEndMarker(output));
    EXPECT_FALSE(exists(output + ".bai"));
  }
}

// Files end at `bytes` until the object goes.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(uint64_t bytes) {
    handler_ = signal(SIGXFSZ, SIG_IGN);
    getrlimit(RLIMIT_FSIZE, &before_);
    rlimit limit = before_;
    limit.rlim_cur = bytes;
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &before_);
    signal(SIGXFSZ, handler_);
  }

 private:
  rlimit before_;
  void (*handler_)(int);
};

// What a limit of `limit` bytes on the output's files makes of a run, "" when it ends well.
std::string runWithin(const std::string& output, uint64_t limit) {
  auto reads = sampleReads(40000, 0, 6);
  std::vector<std::unique_ptr<Result>> results;
  for (int i = 0; i < 40; ++i)
    results.push_back(shardOf(output, i, {reads.begin() + i * 1000, reads.begin() + (i + 1) * 1000}));
  ParallelBamWriter writer(output, {});
  writer.init(sampleHeader());
  FileSizeLimit within(limit);
  return thrownBy([&] {
    for (auto& result : results) writer.merge(result.get());
    writer.close();
  });
}

TEST(ParallelBamWriter, AFullDiskLeavesNothingThatLooksWhole) {
  TempFolder folder;
  std::string output = folder.path("out.bam");
  ASSERT_EQ(runWithin(output, RLIM_INFINITY), "");
  const uint64_t whole = std::filesystem::file_size(output);
  ASSERT_GT(whole, 500000u);
  const std::string failed = "Failed to write to file " + output + ", File too large";
  for (uint64_t limit : {whole / 20, whole / 2, whole - 29, whole - 28, whole - 1}) {
    EXPECT_EQ(runWithin(output, limit), failed) << limit;
    EXPECT_FALSE(hasEndMarker(output)) << limit;
    EXPECT_LE(std::filesystem::file_size(output), whole - 28);
    EXPECT_FALSE(exists(output + ".bai")) << limit;
  }
  EXPECT_EQ(runWithin(output, whole), "");
  EXPECT_TRUE(hasEndMarker(output));
}

// The output fits, its index does not.
TEST(ParallelBamWriter, WithoutItsIndexTheOutputGetsNoEnd) {
  TempFolder folder;
  std::string output = folder.path("out.bam");
  ParallelBamWriter writer(output, {});
  writer.init(sampleHeader());
  auto result = shardOf(output, 0, {readAt(4, 199999000)});
  writer.merge(result.get());
  {
    FileSizeLimit within(10000);
    EXPECT_EQ(thrownBy([&] { writer.close(); }),
              "Failed to write to file " + output + ".bai, File too large");
  }
  EXPECT_FALSE(hasEndMarker(output));
  EXPECT_FALSE(exists(output + ".bai"));
}

}  // namespace
