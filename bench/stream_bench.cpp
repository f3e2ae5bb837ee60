// Kernels of the byte streams: one block's worth of deflate and inflate, with zlib beside them, and whole
// handles. The data looks like alignment records: ordered numbers, packed bases and noisy runs of qualities.
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <cstring>
#include <random>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>
#include <zlib.h>

#include "base/thread_coop.h"
#include "readdata/stream/bgzf_handle.h"
#include "readdata/stream/block_codec.h"

namespace {

std::vector<uint8_t> recordBytes(size_t size) {
  std::mt19937 generator(7);
  auto random = [&generator] { return static_cast<uint32_t>(generator()); };
  std::vector<uint8_t> data;
  data.reserve(size + 512);
  for (uint32_t position = 1000; data.size() < size; position += random() % 12) {
    uint32_t fixed[9] = {300, 0, position, 0x12493c21, 0x00630001, 150, 0, position + random() % 400, 350};
    auto* bytes = reinterpret_cast<uint8_t*>(fixed);
    data.insert(data.end(), bytes, bytes + sizeof fixed);
    std::string name =
        "run42:1:" + std::to_string(1101 + random() % 16) + ":" + std::to_string(random() % 30000);
    data.insert(data.end(), name.begin(), name.end());
    for (int i = 0; i < 75; ++i)
      data.push_back(static_cast<uint8_t>(1 << random() % 4 << 4 | 1 << random() % 4));
    int quality = 37;
    for (int i = 0; i < 150; ++i) {
      if (random() % 6 == 0)
        quality = std::min<int>(41, std::max<int>(2, quality + static_cast<int>(random() % 9) - 4));
      data.push_back(static_cast<uint8_t>(quality));
    }
  }
  data.resize(size);
  return data;
}

const std::vector<uint8_t>& sample() {
  static const std::vector<uint8_t> data = recordBytes(64 * size_t{BGZFHandle::kMaxBlock});
  return data;
}

const uint8_t* blockOf(size_t step) {
  return sample().data() + step % 64 * BGZFHandle::kMaxBlock;
}

void countBytes(benchmark::State& state, size_t per_step, double compressed) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * per_step));
  if (compressed > 0)
    state.counters["ratio"] = static_cast<double>(per_step) * state.iterations() / compressed;
}

void deflateBlock(benchmark::State& state) {
  BlockCompressor compressor(static_cast<int>(state.range(0)), state.range(1) != 0);
  std::vector<uint8_t> out(bgzf::kMaxSize);
  double total = 0;
  size_t step = 0;
  for (auto _ : state) total += compressor.compress(blockOf(step++), BGZFHandle::kMaxBlock, out.data());
  countBytes(state, BGZFHandle::kMaxBlock, total);
}
BENCHMARK(deflateBlock)->ArgNames({"level", "fast"})->Args({1, 1})->Args({1, 0})->Args({6, 0})->Args({9, 0});

void zlibDeflateBlock(benchmark::State& state) {
  z_stream stream = {};
  deflateInit2(&stream, static_cast<int>(state.range(0)), Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY);
  std::vector<uint8_t> out(bgzf::kMaxSize);
  double total = 0;
  size_t step = 0;
  for (auto _ : state) {
    stream.next_in = const_cast<uint8_t*>(blockOf(step++));
    stream.avail_in = BGZFHandle::kMaxBlock;
    stream.next_out = out.data();
    stream.avail_out = static_cast<uint32_t>(out.size());
    if (deflate(&stream, Z_FINISH) != Z_STREAM_END) state.SkipWithError("deflate failed");
    total += stream.total_out;
    deflateReset(&stream);
  }
  deflateEnd(&stream);
  countBytes(state, BGZFHandle::kMaxBlock, total);
}
BENCHMARK(zlibDeflateBlock)->ArgName("level")->Arg(1)->Arg(6);

std::vector<std::vector<uint8_t>> compressedBlocks() {
  BlockCompressor compressor(6, false);
  std::vector<std::vector<uint8_t>> blocks;
  for (size_t i = 0; i < 64; ++i) {
    std::vector<uint8_t> block(bgzf::kMaxSize);
    block.resize(static_cast<size_t>(compressor.compress(blockOf(i), BGZFHandle::kMaxBlock, block.data())));
    blocks.push_back(block);
  }
  return blocks;
}

void inflateBlock(benchmark::State& state) {
  auto blocks = compressedBlocks();
  BlockInflater inflater;
  std::vector<uint8_t> out(bgzf::kMaxSize);
  uint32_t size = 0;
  size_t step = 0;
  for (auto _ : state) {
    const auto& block = blocks[step++ % blocks.size()];
    if (inflater.inflate(block.data(), block.size(), state.range(0) != 0, out.data(), &size) !=
        BlockInflater::kGood)
      state.SkipWithError("inflate failed");
  }
  countBytes(state, BGZFHandle::kMaxBlock, 0);
}
BENCHMARK(inflateBlock)->ArgName("verify")->Arg(0)->Arg(1);

void zlibInflateBlock(benchmark::State& state) {
  auto blocks = compressedBlocks();
  z_stream stream = {};
  inflateInit2(&stream, -15);
  std::vector<uint8_t> out(bgzf::kMaxSize);
  size_t step = 0;
  for (auto _ : state) {
    auto& block = blocks[step++ % blocks.size()];
    stream.next_in = block.data() + bgzf::kHeaderSize;
    stream.avail_in = static_cast<uint32_t>(block.size() - bgzf::kHeaderSize - bgzf::kFooterSize);
    stream.next_out = out.data();
    stream.avail_out = static_cast<uint32_t>(out.size());
    if (inflate(&stream, Z_FINISH) != Z_STREAM_END) state.SkipWithError("inflate failed");
    inflateReset(&stream);
  }
  inflateEnd(&stream);
  countBytes(state, BGZFHandle::kMaxBlock, 0);
}
BENCHMARK(zlibInflateBlock);

// A file of the sample data, removed at the end of the process.
struct SampleFile {
  SampleFile() {
    const char* folder = getenv("TMPDIR");
    path = std::string(folder != nullptr ? folder : "/tmp") + "/stream_bench." + std::to_string(getpid()) +
           ".gz";
    BGZFHandle handle;
    bool good = handle.openFile(path.c_str(), "w");
    for (int i = 0; good && i < 8; ++i) good = handle.write(sample().data(), sample().size()) >= 0;
    if (!good || handle.close() != 0) throw std::runtime_error(path + ": " + handle.error_text());
  }
  ~SampleFile() { unlink(path.c_str()); }
  std::string path;
  size_t size = sample().size() * 8;
};

// A whole file in pieces of the given size, preceded by four bytes, as records are read.
void readHandle(benchmark::State& state) {
  static const SampleFile file;
  std::vector<uint8_t> buffer(static_cast<size_t>(state.range(0)) + 4);
  for (auto _ : state) {
    BGZFHandle handle;
    if (!handle.openFile(file.path.c_str(), "r")) state.SkipWithError("cannot open");
    while (handle.read(buffer.data(), 4) > 0 && handle.read(buffer.data(), buffer.size() - 4) > 0)
      benchmark::DoNotOptimize(buffer.data());
    if (handle.error_code() != 0) state.SkipWithError("read failed");
  }
  countBytes(state, file.size, 0);
}
BENCHMARK(readHandle)->ArgName("piece")->Arg(300)->Arg(65536)->Unit(benchmark::kMillisecond);

// To nowhere, so that the disk has no say; with workers, their number is that of the blocks made at a time.
void writeHandle(benchmark::State& state) {
  std::string mode = "w" + std::to_string(state.range(0));
  for (auto _ : state) {
    thread_coop pool;
    for (int i = 0; i < state.range(1); ++i) pool.addWorker([] {});
    BGZFHandle handle;
    if (!handle.openFile("/dev/null", mode.c_str())) state.SkipWithError("cannot open");
    if (state.range(1) > 0) handle.set_parallel(&pool);
    for (size_t at = 0; at + 300 <= sample().size(); at += 300) handle.write(sample().data() + at, 300);
    if (handle.close() != 0) state.SkipWithError("write failed");
    pool.join();
  }
  countBytes(state, sample().size(), 0);
}
BENCHMARK(writeHandle)
    ->ArgNames({"level", "workers"})
    ->ArgsProduct({{1, 6}, {0, 2}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
