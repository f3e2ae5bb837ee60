// A GVCF put together from shards: the same file however the genome was cut, in one run or in partial files.
#include "readdata/vcf/gvcf_writer.h"

#include <array>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <sstream>
#include <stdexcept>

#include "readdata/stream/open_stream.h"
#include "readdata/vcf/vcf_cache.h"
#include "temp_folder.h"
#include "thrown.h"

namespace {

using Random = std::mt19937;

struct Variant {
  uint32_t pos, reach;
  std::string line;
};

// What a caller would find on a contig, position by position.
struct Contig {
  std::string name;
  uint32_t length;
  std::string ref;
  std::vector<int32_t> DP, GQ;
  std::vector<std::vector<int32_t>> PL;
  std::vector<bool> blank;  // in no block: nothing known, or inside a variant
  std::map<uint32_t, Variant> variants;
};

Contig madeContig(const std::string& name, uint32_t length, uint32_t scale, bool empty, Random& random) {
  Contig made{name, length, "", {}, {}, {}, std::vector<bool>(length, empty), {}};
  int32_t quality = 5;
  for (uint32_t i = 0; i < length; ++i) {
    if (random() % (8 * scale) == 0) quality = static_cast<int32_t>(random() % 40);
    made.ref += "ACGT"[random() % 4];
    made.DP.push_back(static_cast<int32_t>(random() % 4));
    made.GQ.push_back(quality);
    made.PL.push_back({0, quality, quality + static_cast<int32_t>(random() % 100)});
  }
  for (uint32_t i = 0; !empty && random() % 4 == 0 && i < 3; ++i)
    for (uint32_t p = random() % length, to = p + 5 * scale; p < std::min(to, length); ++p)
      made.blank[p] = true;
  uint32_t reach = 0;
  for (uint32_t p = 0; p < length && !empty; ++p) {
    if (random() % (p < reach ? 6 : 10 * scale) != 0) continue;
    Variant variant{p, p + 1, ""};
    if (random() % 2) variant.reach = std::min(length, p + 2 + static_cast<uint32_t>(random() % 30));
    const bool told = p >= reach && variant.reach > p + 1 && random() % 3 == 0;
    variant.line = name + "\t" + std::to_string(p + 1) + "\tv\t" +
                   made.ref.substr(p, told ? 1 : variant.reach - p) + "\tT\t9.00\t.\t" +
                   (told ? "XEND=3;END=" + std::to_string(variant.reach) : "AC=1") + "\tGT\t0/1\n";
    for (uint32_t i = p; i < variant.reach; ++i) made.blank[i] = true;
    reach = std::max(reach, variant.reach);
    made.variants[p] = variant;
  }
  return made;
}

struct Item {
  const Variant* variant = nullptr;  // else a block
  GQBlock block;
};

std::vector<Item> itemsOf(const Contig& contig, uint32_t from, uint32_t to) {
  std::vector<Item> items;
  for (uint32_t p = from; p < to; ++p) {
    if (const auto found = contig.variants.find(p); found != contig.variants.end())
      items.push_back({&found->second, {}});
    if (contig.blank[p]) continue;
    const int32_t low = contig.GQ[p] / 10 * 10;
    if (items.empty() || items.back().variant || items.back().block.end != p || items.back().block.low != low)
      items.push_back({nullptr, {low, low + 10, p, p, contig.PL[p], {}, {}, {}}});
    GQBlock& block = items.back().block;
    block.end = p + 1;
    for (size_t i = 0; i < 3; ++i) block.minPL[i] = std::min(block.minPL[i], contig.PL[p][i]);
    block.GQ.push_back(contig.GQ[p]);
    block.DP.push_back(contig.DP[p]);
    block.ref.push_back(contig.ref[p]);
  }
  return items;
}

struct Shard {
  const Contig* contig;
  uint32_t start, end;  // the end may lie behind the start of the next shard
};

// Leaves in `clone` what a caller would write, and in the result what it would hand over.
void callShard(const Shard& shard, GVCFWriter& clone, GVCFWriter::Result& result, Random& random) {
  clone.startContig(shard.contig->name);
  std::vector<Item> items = itemsOf(*shard.contig, shard.start, shard.end);
  size_t first = 0, last = items.size();
  result.head.reset(shard.start);
  result.tail.reset(std::array{0u, shard.start, shard.end}[random() % 3]);
  if (items.size() > 1 && !items[0].variant) result.head = items[first++].block;
  if (!items.empty() && !items.back().variant) result.tail = items[--last].block;
  for (uint32_t reach = 0; first < last; ++first) {
    if (const Variant* variant = items[first].variant) {
      clone.writeLine(variant->line, static_cast<int32_t>(variant->pos),
                      static_cast<int32_t>(variant->reach));
      reach = std::max(reach, variant->reach);
      if (first + 1 == items.size()) result.tail.reset(reach);
      if (first + 1 == items.size() && reach > shard.end) result.tail.end = variant->pos;
    } else {
      clone.writeBlock(items[first].block, 0);
    }
  }
  clone.endContig(result);
}

struct Writing {
  Writing(const std::string& folder, const std::string& ending) : folder(folder), ending(ending) {}

  std::unique_ptr<GVCFWriter> create(const std::string& name, bool partial) {
    GenomeIndex::Options options;
    options.partial = partial;
    auto writer = std::make_unique<GVCFWriter>("Caller", options);
    writer->open(folder + "/" + name + ending);
    return writer;
  }

  // Calls the shards, up to three of them into one temporary file.
  std::string write(const std::string& name, const std::vector<Shard>& shards, Random& random, bool partial) {
    auto writer = create(name, partial);
    VCFHeader header;
    header.samples = {"s"};
    writer->writeHeader(header);
    for (size_t i = 0; i < shards.size();) {
      const std::string temp = folder + "/temp";
      std::vector<GVCFWriter::Result> results(std::min<size_t>(1 + random() % 3, shards.size() - i));
      auto clone = writer->clone();
      clone->open(temp);
      for (auto& result : results) callShard(shards[i++], dynamic_cast<GVCFWriter&>(*clone), result, random);
      clone->close();
      for (auto& result : results) writer->merge(&result, temp);
    }
    writer->close();
    return folder + "/" + name + ending;
  }

  // The shards in two to four runs, whose files are then joined, in one step or in two.
  std::string writePartial(const std::vector<Shard>& shards, Random& random) {
    std::vector<std::string> parts;
    const size_t count = 2 + random() % 3;
    for (size_t i = 0, from = 0; i < count; ++i) {
      const size_t to = i + 1 == count ? shards.size() : from + random() % (shards.size() - from + 1);
      if (to == from) continue;
      parts.push_back(
          write("part" + std::to_string(i),
                {shards.begin() + static_cast<ptrdiff_t>(from), shards.begin() + static_cast<ptrdiff_t>(to)},
                random, true));
      from = to;
    }
    if (parts.size() > 2 && random() % 2) {
      auto writer = create("joined", true);
      for (size_t i = 0; i < 2; ++i) writer->merge(parts[i]);
      writer->close();
      parts.erase(parts.begin());
      parts[0] = writer->path();
    }
    auto writer = create("merged", false);
    for (const std::string& part : parts) writer->merge(part);
    writer->close();
    return writer->path();
  }

  std::string folder, ending;
};

std::string textOf(const std::string& path) {
  auto stream = openStream(path, "r");
  std::string text;
  char piece[4096];
  for (int64_t got; (got = stream->read(piece, sizeof piece)) > 0;)
    text.append(piece, static_cast<size_t>(got));
  EXPECT_EQ(stream->error_code(), 0);
  return text;
}

std::vector<Shard> cut(const std::vector<Contig>& contigs, uint32_t longest, uint32_t overlap,
                       Random& random) {
  std::vector<Shard> shards;
  for (const Contig& contig : contigs) {
    for (uint32_t start = 0, to, end = 0; start < contig.length; start = to) {
      to = std::min(contig.length, start + 1 + static_cast<uint32_t>(random() % longest));
      end = std::min(contig.length, std::max(end, to + static_cast<uint32_t>(random() % (overlap + 1))));
      shards.push_back({&contig, start, end});
    }
  }
  return shards;
}

std::vector<std::pair<int32_t, int32_t>> recordsOf(VCFCache& cache, const Contig& contig, int32_t start,
                                                   int32_t end) {
  cache.setContig("");  // forgets what it has read
  cache.setContig(contig.name);
  cache.fetch(start, end);
  std::vector<std::pair<int32_t, int32_t>> found;
  for (const VCFLine& record : cache.records())
    if (record.pos < end && record.end > start) found.emplace_back(record.pos, record.end);
  return found;
}

// What the index leads to, against a look at all records.
void expectIndexAnswers(const std::string& path, const std::vector<Contig>& contigs, Random& random) {
  VCFCache cache(path);
  std::istringstream text(textOf(path));
  size_t lines = 0;
  for (std::string line; std::getline(text, line);) lines += line[0] != '#';
  for (const Contig& contig : contigs) {
    const auto length = static_cast<int32_t>(contig.length);
    const auto all = recordsOf(cache, contig, 0, length);
    lines -= all.size();
    for (int i = 0; i < 5; ++i) {
      const auto start = static_cast<int32_t>(random() % contig.length);
      const auto end = start + 1 + static_cast<int32_t>(random() % (i % 2 ? 5 : contig.length));
      auto expected = all;
      std::erase_if(expected, [&](const auto& at) { return at.first >= end || at.second <= start; });
      ASSERT_EQ(recordsOf(cache, contig, start, end), expected) << contig.name << ":" << start << "-" << end;
    }
  }
  ASSERT_EQ(lines, 0u);
}

class AnyShards : public testing::TestWithParam<const char*> {};

TEST_P(AnyShards, GiveTheSameFile) {
  TempFolder folder;
  Writing run(folder.path(""), GetParam());
  for (uint32_t seed = 0; seed < 40; ++seed) {
    SCOPED_TRACE(seed);
    Random random(seed);
    const uint32_t scale = seed % 10 == 0 ? 100 : 1 + seed % 4;
    std::vector<Contig> contigs;
    for (size_t i = 0, count = 1 + random() % 4; i < count; ++i)
      contigs.push_back(madeContig("c" + std::to_string(i),
                                   1 + static_cast<uint32_t>(random() % (150 * scale)), scale,
                                   random() % 5 == 0, random));
    std::vector<Shard> whole;
    for (const Contig& contig : contigs) whole.push_back({&contig, 0, contig.length});
    const std::string expected = textOf(run.write("one", whole, random, false));
    for (const uint32_t overlap : {0u, 60u}) {
      SCOPED_TRACE(overlap);
      const auto shards = cut(contigs, 1 + static_cast<uint32_t>(random() % (60 * scale)), overlap, random);
      const std::string many = run.write("many", shards, random, false);
      ASSERT_EQ(textOf(many), expected);
      expectIndexAnswers(many, contigs, random);
      const std::string merged = run.writePartial(shards, random);
      ASSERT_EQ(textOf(merged), expected);
      expectIndexAnswers(merged, contigs, random);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Formats, AnyShards, testing::Values(".vcf", ".vcf.gz"));

// ---- shards that see the same stretch differently ----

GQBlock block(uint32_t start, uint32_t end, int32_t low) {
  const size_t count = end - start;
  return {low,
          low + 10,
          start,
          end,
          {0, low, 99},
          std::vector<int32_t>(count, low),
          std::vector<int32_t>(count, low),
          std::vector<char>(count, 'A')};
}

TEST(GVCFWriter, TellsOfAFullDisk) {
  GVCFWriter writer("Caller");
  writer.open("/dev/full");
  writer.startContig("c");
  const auto write = [&](int mode) {
    for (uint32_t i = 0; i < 2000; ++i) {
      GQBlock made = block(2 * i, 2 * i + 1, 10);
      writer.writeBlock(made, mode);
    }
  };
  const std::string expected = "Caller: failed to write to file /dev/full, No space left on device";
  for (const int mode : {0, 1})
    EXPECT_THAT([&] { write(mode); }, testing::ThrowsMessage<std::runtime_error>(expected));
}

// ---- partial files that are not what they should be ----

TEST(GVCFWriter, RefusesBrokenPartialFiles) {
  TempFolder folder;
  Writing run(folder.path(""), ".vcf");
  Random random(5);
  const std::vector<Contig> contigs = {madeContig("c0", 300, 1, false, random),
                                       madeContig("c1", 300, 1, false, random)};
  const std::string part = run.write("part", cut(contigs, 100, 0, random), random, true);
  const std::string good = textOf(part), tag = "#FGQB\t";
  const auto failure = [&](const std::string& content) {
    std::ofstream(part) << content;  // of the same size: the index must not refuse it
    return thrownBy<std::runtime_error>([&] {
      auto writer = run.create("merged", false);
      writer->merge(part);
      writer->close();
    });
  };
  EXPECT_EQ(failure(good), "");
  const std::string invalid = "Caller: invalid FGQB line format in file " + part;
  const size_t first = good.find(tag), second = good.find(tag, first + 1), last = good.rfind(tag);
  ASSERT_TRUE(first < second && second < last);
  for (const size_t at : {first, second, last}) {
    std::string broken = good;
    broken[at + tag.size()] = 'x';
    EXPECT_EQ(failure(broken), invalid);
    broken = good;
    broken[good.find("c", at)] = 'd';  // another contig's line
    EXPECT_EQ(failure(broken), at == last ? "" : "Caller: r.ci->count == 0 in file " + part);
  }
  std::string moved = good;  // the first line seems to go on into the records
  moved[good.find('\n', first)] = ',';
  EXPECT_EQ(failure(moved), invalid);
  // Any damage ends in an error or a file, not in a crash.
  for (int i = 0; i < 300; ++i) {
    std::string broken = good;
    for (uint32_t n = 1 + random() % 3; n > 0; --n)
      broken[first + random() % (good.size() - first)] = "\n\t0919-cx+,#"[random() % 11];
    failure(broken);
  }
  EXPECT_THROW(run.create("merged", false)->merge(folder.path("none.vcf")), std::runtime_error);
}

}  // namespace
