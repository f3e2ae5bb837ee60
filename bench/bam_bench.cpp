// Kernels of BAM input: records out of blocks, decoding of letters, lookups in an index, ranges side by side.
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "readdata/bam/bam_impl.h"
#include "readdata/bam/read.h"

namespace {

constexpr int kReads = 200000;
constexpr uint32_t kContigLength = 5000000;

// A sorted file of reads of 150 bases at 6x, made once and removed at the end.
class Sample {
 public:
  Sample() {
    std::string form = (std::filesystem::temp_directory_path() / "bam_bench_XXXXXX").string();
    if (mkdtemp(form.data()) == nullptr) throw std::runtime_error("no temporary folder");
    folder_ = form;
    path = folder_ + "/a.bam";
    auto header = std::make_shared<bam_header>();
    header->names = {"chr1"};
    header->lengths = {kContigLength};
    BAMImpl bam(path);
    bam.open("w1");
    bam.header = header;
    bam.writeHeader();
    std::mt19937 random(1);
    for (int i = 0; i < kReads; ++i) write(bam, i, random);
    bam.close();
    BamIndex::load(path, 2);
  }
  ~Sample() {
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
  }

  std::string path;

 private:
  void write(BAMImpl& bam, int number, std::mt19937& random) {
    constexpr int kBases = 150;
    record_.ref_id = record_.next_ref_id = 0;
    record_.pos = static_cast<int32_t>(int64_t(number) * (kContigLength - 1000) / kReads);
    record_.next_pos = record_.pos + 200;
    record_.tlen = 350;
    record_.mapq = 60;
    record_.flag = 99;
    record_.n_cigar = 1;
    record_.l_seq = kBases;
    record_.bin = bin_of(record_.pos, record_.pos + kBases);
    std::string data =
        "run42:1:1101:" + std::to_string(10000 + random() % 20000) + std::to_string(number) + '\0';
    record_.l_read_name = static_cast<uint8_t>(data.size());
    const uint32_t word = kBases << 4;
    data.append(reinterpret_cast<const char*>(&word), sizeof word);
    for (int i = 0; i < kBases / 2; ++i) data += static_cast<char>(0x11 << random() % 4);
    for (int i = 0; i < kBases; ++i) data += static_cast<char>(30 + random() % 8);
    data.append("RGZgroup\0MDZ150\0NMC\0ASC\x96", 25);
    record_.growData(data.size());
    data.copy(reinterpret_cast<char*>(record_.data), data.size());
    record_.data_len = static_cast<int32_t>(data.size());
    bam.writeRecord(record_);
  }
  std::string folder_;
  bam_record record_;
};

const std::string& samplePath() {
  static const Sample sample;
  return sample.path;
}

// Inflation of the blocks alone, the part of reading that is not ours.
void inflateOnly(benchmark::State& state) {
  std::vector<char> buffer(1 << 16);
  samplePath();
  for (auto _ : state) {
    BGZFHandle file;
    if (!file.openFile(samplePath().c_str(), "r")) abort();
    while (file.read(buffer.data(), buffer.size()) > 0) {
    }
  }
  state.SetItemsProcessed(state.iterations() * kReads);
}
BENCHMARK(inflateOnly)->Unit(benchmark::kMillisecond);

void readRecords(benchmark::State& state) {
  for (auto _ : state) {
    auto bam = open_read_source(samplePath(), nullptr, false);
    bam_record record;
    int count = 0;
    while (bam->readRecord(record) > 0) ++count;
    if (count != kReads) abort();
  }
  state.SetItemsProcessed(state.iterations() * kReads);
}
BENCHMARK(readRecords)->Unit(benchmark::kMillisecond);

// Records of one loaded block, over and over: no inflation in it.
void decodeRecords(benchmark::State& state) {
  auto bam = open_read_source(samplePath(), nullptr, false);
  auto& impl = static_cast<BAMImpl&>(*bam);
  const uint64_t first = bam->tell();
  bam_record record;
  int64_t count = 0;
  for (auto _ : state) {
    impl.bgzf().seek(static_cast<int64_t>(first), SEEK_SET);
    for (int i = 0; i < 100; ++i) benchmark::DoNotOptimize(bam->readRecord(record));
    count += 100;
  }
  state.SetItemsProcessed(count);
}
BENCHMARK(decodeRecords);

void getBases(benchmark::State& state) {
  auto bam = open_read_source(samplePath(), nullptr, false);
  bam_record record;
  if (bam->readRecord(record) <= 0) abort();
  BAMRead read;
  read.attach(record);
  for (auto _ : state) {
    read.bases = nullptr;
    benchmark::DoNotOptimize(read.getBases());
  }
  state.SetBytesProcessed(state.iterations() * read.length);
}
BENCHMARK(getBases);

void queryIndex(benchmark::State& state) {
  auto index = BamIndex::load(samplePath(), 0);
  std::mt19937 random(2);
  std::vector<Chunk> chunks;
  const auto width = static_cast<uint32_t>(state.range(0));
  for (auto _ : state) {
    uint32_t start = random() % (kContigLength - width);
    index->query(0, start, start + width, chunks);
    benchmark::DoNotOptimize(chunks.data());
  }
}
BENCHMARK(queryIndex)->Arg(1000)->Arg(1000000);

// All reads in ranges side by side, as the shards of one thread ask for them.
void adjacentRanges(benchmark::State& state) {
  auto bam = open_read_source(samplePath(), nullptr, true);
  const auto width = static_cast<uint32_t>(state.range(0));
  for (auto _ : state) {
    auto cursor = bam->newFetchState();
    int count = 0;
    for (uint32_t start = 0; start < kContigLength; start += width)
      for (bool more = cursor->seek(0, start, start + width); more; more = cursor->readNext()) ++count;
    if (count != kReads) abort();
  }
  state.SetItemsProcessed(state.iterations() * kReads);
}
BENCHMARK(adjacentRanges)->Arg(1000)->Arg(16384)->Arg(1000000)->Unit(benchmark::kMillisecond);

}  // namespace
