// Bands and the blocks they make: the same file however a contig was cut into shards.
#include "algo/vcall/gvcf_bands.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>
#include <sstream>

#include "temp_folder.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(ParseGQBands, Lists) {
  std::vector<int32_t> usual(59);
  for (int32_t i = 0; i < 59; ++i) usual[static_cast<size_t>(i)] = i + 1;
  for (int32_t bound : {60, 70, 80, 90, 99}) usual.push_back(bound);
  EXPECT_EQ(parseGQBands("1-60,60-99/10,99"), usual);
  EXPECT_THAT(parseGQBands("5"), ElementsAre(5));
  EXPECT_THAT(parseGQBands("10-20/4,20"), ElementsAre(10, 14, 18, 20));
  EXPECT_THAT(parseGQBands("3-5/1000"), ElementsAre(3));
  EXPECT_EQ(parseGQBands("1-1000").size(), 999u);
  for (const char* bad : {"",
                          ",",
                          "5,",
                          "0",
                          "0-5",
                          "5,5",
                          "5-9,8",
                          "9,5",
                          "5-5",
                          "5-4",
                          "5-",
                          "-5",
                          "5-9/",
                          "5-9/0",
                          "5/2",
                          "5-9/2/2",
                          "5 ",
                          " 5",
                          "5- 9",
                          "+5",
                          "5x",
                          "1001",
                          "1-2000000000",
                          "99999999999999999999",
                          "1-9/99999999999999999999"})
    EXPECT_THAT(parseGQBands(bad), IsEmpty()) << bad;
  EXPECT_THAT(parseGQBands(std::string("5\0", 2)), IsEmpty());
}

// ---- a contig, position by position ----

struct Variant {
  uint32_t pos, reach;
};

struct World {
  uint32_t length = 0;
  std::string ref;
  std::vector<double> gl;  // three per position
  std::vector<int32_t> depth;
  std::vector<bool> unknown;
  std::vector<Variant> variants;

  std::string line(const Variant& v) const {
    return "c\t" + std::to_string(v.pos + 1) + "\t.\t" + ref.substr(v.pos, v.reach - v.pos) +
           "\tT\t.\t.\t.\tGT\t0/1\n";
  }
  uint32_t reachBefore(uint32_t position) const {  // of variants that begin before it
    uint32_t reach = 0;
    for (const Variant& v : variants)
      if (v.pos < position) reach = std::max(reach, v.reach);
    return reach;
  }
};

World makeWorld(std::mt19937& random) {
  World world;
  world.length = 1 + random() % 400;
  const uint32_t calm = 1 + random() % 30, sparse = 5 + random() % 60;
  int32_t second = 0;
  for (uint32_t p = 0; p < world.length; ++p) {
    if (random() % calm == 0) second = static_cast<int32_t>(random() % 130);
    const double best = -0.1 * (random() % 50);
    std::vector<double> gl = {best, best - 0.1 * second - 0.01 * (random() % 10),
                              best - 0.1 * second - random() % 9};
    if (random() % 40 == 0) gl[2] = -INFINITY;
    if (random() % 10 == 0) std::swap(gl[0], gl[1]);
    world.gl.insert(world.gl.end(), gl.begin(), gl.end());
    world.ref += "ACGT"[random() % 4];
    world.depth.push_back(static_cast<int32_t>(random() % 5));
    world.unknown.push_back(random() % 97 < 2);
    if (random() % sparse == 0)
      world.variants.push_back(
          {p, std::min(world.length, p + 1 + (random() % 2 ? static_cast<uint32_t>(random() % 30) : 0))});
  }
  return world;
}

// Calls [start, end) as a caller does that knows what reaches into it from before.
void callShard(const World& world, uint32_t start, uint32_t end, GVCFWriter& writer, BandCollector& bands,
               GVCFWriter::Result& result, std::mt19937& random) {
  writer.startContig("c");
  bands.startShard(writer, start, end);
  const uint32_t from = world.reachBefore(start);
  const auto known = [&](uint32_t p) { return p >= from && !world.unknown[p]; };
  auto variant =
      std::find_if(world.variants.begin(), world.variants.end(), [&](auto& v) { return v.pos >= start; });
  for (uint32_t p = start; p < end;) {
    for (; variant != world.variants.end() && variant->pos == p; ++variant) {
      bands.beforeRecord(variant->pos, variant->reach);
      writer.writeLine(world.line(*variant), static_cast<int32_t>(variant->pos),
                       static_cast<int32_t>(variant->reach));
    }
    uint32_t to = p + 1;
    if (known(p)) {
      while (to < end && known(to) && random() % 10 != 0 &&
             (variant == world.variants.end() || to < variant->pos))
        ++to;
      const uint32_t again = p > start && known(p - 1) ? p - 1 : p;  // written already
      bands.addRefConfidence(again, to, &world.ref[again], &world.gl[3 * again], &world.depth[again], 2);
    }
    p = to;
  }
  bands.finishShard(result);
  writer.endContig(result);
}

// The same, straight from the definition: where each position's band is told by counting the bounds up to its quality.
std::string recount(const World& world, const std::vector<int32_t>& bounds) {
  std::string text;
  std::vector<int32_t> depths, least;
  uint32_t first = 0, reach = 0;
  int64_t band = -1;
  const auto close = [&](uint32_t end) {
    if (band < 0) return;
    std::sort(depths.begin(), depths.end());
    std::vector<int32_t> sorted = least;
    std::sort(sorted.begin(), sorted.end());
    std::ostringstream line;
    line << "c\t" << first + 1 << "\t.\t" << world.ref[first] << "\t<NON_REF>\t.\t.\tEND=" << end
         << "\tGT:DP:GQ:MIN_DP:PL\t0/0:" << depths[depths.size() / 2] << ":"
         << std::min(99, sorted[1] - sorted[0]) << ":" << depths[0] << ":" << least[0] << "," << least[1]
         << "," << least[2] << "\n";
    text += line.str();
    band = -1;
  };
  auto variant = world.variants.begin();
  for (uint32_t p = 0; p < world.length; ++p) {
    for (; variant != world.variants.end() && variant->pos == p; ++variant) {
      close(p);
      text += world.line(*variant);
      reach = std::max(reach, variant->reach);
    }
    if (world.unknown[p] || p < reach) {
      close(p);
      continue;
    }
    std::vector<double> gl(&world.gl[3 * p], &world.gl[3 * p] + 3), sorted = gl;
    std::sort(sorted.rbegin(), sorted.rend());
    const int32_t quality = std::min(99, static_cast<int32_t>((sorted[1] - sorted[0]) * -10));
    const auto own =
        std::count_if(bounds.begin(), bounds.end(), [&](int32_t bound) { return bound <= quality; });
    if (own != band) {
      close(p);
      band = own;
      first = p;
      depths.clear();
      least.assign(3, INT32_MAX);
    }
    depths.push_back(world.depth[p]);
    for (size_t k = 0; k < 3; ++k)
      if (std::isfinite(gl[k]))
        least[k] = std::min(least[k], static_cast<int32_t>(std::lround((gl[k] - sorted[0]) * -10)));
  }
  close(world.length);
  return text;
}

TEST(BandCollector, AnyShardsGiveTheBlocksOfTheWhole) {
  TempFolder folder;
  size_t blocks = 0;
  for (uint32_t seed = 0; seed < 60; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const World world = makeWorld(random);
    const std::vector<int32_t> bounds = parseGQBands(seed % 3 ? "1-60,60-99/10,99" : "20,50");
    const std::string expected = recount(world, bounds);
    blocks += static_cast<size_t>(std::count(expected.begin(), expected.end(), '<'));
    for (const uint32_t longest : {world.length, 1u + static_cast<uint32_t>(random() % 60)}) {
      GVCFWriter writer("Caller");
      writer.open(folder.path("out.vcf"));
      const auto clone = writer.clone();
      BandCollector bands(bounds);
      for (uint32_t start = 0, end; start < world.length; start = end) {
        end = std::min(
            world.length,
            start + (longest == world.length ? longest : 1 + static_cast<uint32_t>(random() % longest)));
        GVCFWriter::Result result;
        clone->open(folder.path("temp"));
        callShard(world, start, end, dynamic_cast<GVCFWriter&>(*clone), bands, result, random);
        clone->close();
        writer.VCFWriter::merge(&result, folder.path("temp"));
      }
      writer.close();
      std::ostringstream text;
      text << std::ifstream(folder.path("out.vcf")).rdbuf();
      ASSERT_EQ(text.str(), expected) << longest;
    }
  }
  EXPECT_GT(blocks, 600u);
}

TEST(BandCollector, ARecordInsideABlockIsRefused) {
  TempFolder folder;
  GVCFWriter writer("Caller");
  writer.open(folder.path("out.vcf"));
  writer.startContig("c");
  BandCollector bands({5});
  bands.startShard(writer, 10, 20);
  const double gl[] = {0, -1, -2, 0, -1, -2};
  const int32_t depth[] = {1, 1};
  bands.addRefConfidence(12, 14, "AC", gl, depth, 2);
  EXPECT_THROW(bands.beforeRecord(13, 14), std::logic_error);
  bands.beforeRecord(14, 15);
}

}  // namespace
