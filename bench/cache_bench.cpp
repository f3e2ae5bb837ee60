// Kernels of the read window: a forward pass over one contig, from a BAM file in temporary storage, in steps
// as a traversal makes them; and fetches alone from a window that is loaded.
#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

#include "readdata/bam/bam_impl.h"
#include "readdata/bam/read_cache.h"

namespace {

constexpr uint32_t kContigLength = 2000000;
constexpr int32_t kReadLength = 150;
constexpr int kDepth = 30;

// A file of sorted reads, removed at the end. Of `count` such files each has its share of the depth.
class SampleFile {
 public:
  SampleFile(uint32_t seed, int count) {
    char name[] = "/tmp/cache_bench_XXXXXX";
    int descriptor = mkstemp(name);
    if (descriptor < 0) throw std::runtime_error("No temporary file");
    close(descriptor);
    path_ = name;
    BAMImpl out(path_);
    out.open("w1");
    auto header = std::make_shared<bam_header>();
    header->names = {"c"};
    header->lengths = {kContigLength};
    header->text = "@HD\tVN:1.6\tSO:coordinate\n@RG\tID:g\tSM:s\n";
    out.header = header;
    out.writeHeader();
    std::mt19937 random(seed);
    const double step = double(kReadLength) * count / kDepth;
    bam_record record;
    double at = 0;
    for (int number = 0; at < kContigLength - kReadLength;
         at += step * 2 * (random() % 1000) / 999, number++) {
      fill(record, int32_t(at), number);
      out.writeRecord(record);
    }
    out.close();
    BamIndex::load(path_, 2);
    handle_ = open_read_source(path_, nullptr, true);
  }
  ~SampleFile() {
    std::remove(path_.c_str());
    std::remove((path_ + ".bai").c_str());
  }
  BAMHandle* handle() { return handle_.get(); }

 private:
  static void fill(bam_record& record, int32_t at, int number) {
    const std::string name = "run42:1:" + std::to_string(number);
    const uint32_t cigar = kReadLength << 4;
    const char aux[] = "NMC\2RGZg";
    record.ref_id = record.next_ref_id = 0;
    record.pos = at;
    record.next_pos = at + 200;
    record.tlen = 350;
    record.mapq = 60;
    record.flag = FLAG_PAIRED | FLAG_PROPER_PAIR;
    record.bin = bin_of(uint32_t(at), uint32_t(at + kReadLength));
    record.l_read_name = uint8_t(name.size() + 1);
    record.n_cigar = 1;
    record.l_seq = kReadLength;
    record.l_aux = sizeof aux;
    record.data_len = int32_t(name.size() + 1 + sizeof cigar + kReadLength / 2 + kReadLength + sizeof aux);
    record.growData(size_t(record.data_len));
    memcpy(record.data, name.c_str(), name.size() + 1);
    memcpy(record.cigarBytes(), &cigar, sizeof cigar);
    memset(record.packedBases(), 0x12, kReadLength / 2);
    memset(record.quals(), 37, kReadLength);
    memcpy(record.aux(), aux, sizeof aux);
  }

  std::string path_;
  std::unique_ptr<BAMHandle> handle_;
};

const std::vector<BAMHandle*>& sample(size_t count) {
  static std::vector<std::unique_ptr<SampleFile>> files[4];
  static std::vector<BAMHandle*> handles[4];
  while (handles[count].size() < count) {
    files[count].push_back(std::make_unique<SampleFile>(uint32_t(handles[count].size()), int(count)));
    handles[count].push_back(files[count].back()->handle());
  }
  return handles[count];
}

// Arguments: input files, bases per step.
void forwardPass(benchmark::State& state) {
  const auto step = uint32_t(state.range(1));
  std::vector<Read*> reads;
  uint64_t loaded = 0, fetched = 0;
  ReadCache cache(sample(size_t(state.range(0))), true);
  cache.setContig("c");
  for (auto _ : state) {
    for (uint32_t from = 0; from < kContigLength; from += step) {
      reads.clear();
      cache.load(from, std::min(from + step, kContigLength));
      fetched += cache.fetch(from, from + step, FLAG_DUPLICATE, reads);
      benchmark::DoNotOptimize(reads.data());
    }
  }
  loaded = cache.readCount();
  if (fetched < loaded) state.SkipWithError("reads are missing");
  state.SetItemsProcessed(int64_t(loaded));
}
BENCHMARK(forwardPass)->Args({1, 1000})->Args({1, 10000})->Args({3, 10000})->Unit(benchmark::kMillisecond);

// Without a cache: what inflating and decoding alone cost.
void cursorAlone(benchmark::State& state) {
  uint64_t loaded = 0;
  auto cursor = sample(1)[0]->newFetchState();
  for (auto _ : state) {
    cursor->close();
    for (bool more = cursor->seek(0, 0, kContigLength); more; more = cursor->readNext()) loaded++;
  }
  state.SetItemsProcessed(int64_t(loaded));
}
BENCHMARK(cursorAlone)->Unit(benchmark::kMillisecond);

// Argument: bases per fetch, from a window of 16384.
void fetchAlone(benchmark::State& state) {
  const auto step = uint32_t(state.range(0));
  ReadCache cache(sample(1), true);
  cache.setContig("c");
  cache.load(100000, 116384);
  std::vector<Read*> reads;
  uint64_t fetched = 0;
  for (auto _ : state) {
    reads.clear();
    fetched += cache.fetch(108000, 108000 + step, FLAG_DUPLICATE, reads);
  }
  state.SetItemsProcessed(int64_t(fetched));
}
BENCHMARK(fetchAlone)->Arg(100)->Arg(8000);

}  // namespace
