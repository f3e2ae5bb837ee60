#include "readdata/vcf/vcf_writer.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <numeric>
#include <random>
#include <stdexcept>

#include "readdata/stream/open_stream.h"
#include "readdata/vcf/vcf_cache.h"
#include "temp_folder.h"
#include "thrown.h"

namespace {

using testing::ElementsAre;
namespace fs = std::filesystem;

std::string readAll(const std::string& path) {
  std::unique_ptr<IOHandle> file = openStream(path, "r");
  std::string text;
  char piece[4096];
  for (int64_t got; file && (got = file->read(piece, sizeof piece)) > 0;) text.append(piece, got);
  return text;
}

std::string record(const std::string& contig, int start, size_t padding = 0) {
  return contig + "\t" + std::to_string(start + 1) + "\t.\tA\tC\t.\t.\tX=" + std::string(padding, 'x') + "\n";
}

const std::string kHeader = "##fileformat=VCFv4.2\n#CHROM\tPOS\tID\tREF\tALT\tQUAL\tFILTER\tINFO\n";

// Every test runs on a plain file and on a compressed one.
class VCFWriterTest : public testing::TestWithParam<const char*> {
 protected:
  std::string file(const std::string& name) const { return folder_.path(name + GetParam()); }
  bool compressed() const { return std::string(GetParam()) == ".vcf.gz"; }
  std::string indexOf(const std::string& path) const { return path + (compressed() ? ".tbi" : ".idx"); }

  // A record at each of `starts`, as a shard's engine writes them.
  std::unique_ptr<VCFWriter::Result> shard(VCFWriter& clone, const std::string& path,
                                           const std::string& contig, const std::vector<int>& starts,
                                           size_t padding = 0) {
    auto result = std::make_unique<VCFWriter::Result>();
    clone.open(path);
    clone.startContig(contig);
    for (int start : starts) clone.writeLine(record(contig, start, padding), start, start + 1);
    clone.endContig(*result);
    clone.close();
    return result;
  }
  void append(VCFWriter& writer, const std::string& contig, const std::vector<int>& starts,
              size_t padding = 0) {
    const auto result = shard(*writer.clone(), file("temp"), contig, starts, padding);
    writer.merge(result.get(), file("temp"));
  }
  // A whole file of one shard per contig.
  std::string write(const std::string& name,
                    const std::vector<std::pair<std::string, std::vector<int>>>& shards,
                    VCFWriter::IndexOptions options = {}) {
    VCFWriter writer("W", options);
    VCFHeader header;
    writer.open(file(name));
    writer.writeHeader(header);
    for (const auto& [contig, starts] : shards) append(writer, contig, starts);
    writer.close();
    return file(name);
  }
  // Contigs of the saved index, one without records with a '-' behind it.
  std::vector<std::string> indexed(const std::string& path) const {
    std::unique_ptr<GenomeIndex> index = newGenomeIndex(path, {});
    EXPECT_TRUE(index->load(path));
    std::vector<std::string> names;
    for (const auto& contig : index->contigs) {
      const GenomeIndex::ContigIndex* ci = index->find(contig.name);
      names.push_back(contig.name + (ci && ci->count > 0 ? "" : "-"));
    }
    return names;
  }

  TempFolder folder_;
};

INSTANTIATE_TEST_SUITE_P(, VCFWriterTest, testing::Values(".vcf", ".vcf.gz"),
                         [](const auto& info) { return info.index ? "bgzf" : "plain"; });

TEST_P(VCFWriterTest, JoinsPartialFiles) {
  VCFWriter::IndexOptions options;
  options.partial = true;
  const std::string empty = write("p0", {{"a", {}}}, options);
  const std::string first = write("p1", {{"a", {5}}, {"b", {7}}}, options);
  const std::string second = write("p2", {{"b", {8}}, {"c", {}}, {"d", {1}}}, options);
  VCFWriter writer("W");
  writer.open(file("out"));
  for (const std::string& partial : {empty, first, second, empty}) writer.merge(partial);
  writer.close();
  EXPECT_EQ(readAll(file("out")),
            kHeader + record("a", 5) + record("b", 7) + record("b", 8) + record("d", 1));
  const std::vector<std::string> names = indexed(file("out"));
  EXPECT_THAT(names, testing::IsSupersetOf({"a", "b", "d"}));

  VCFWriter nothing("W");
  nothing.open(file("nothing"));
  nothing.merge(empty);
  nothing.close();
  EXPECT_EQ(readAll(file("nothing")), kHeader);

  VCFWriter disordered("W");
  disordered.open(file("disordered"));
  disordered.merge(first);
  EXPECT_EQ(thrownBy<std::runtime_error>([&] { disordered.merge(first); }),
            "W: contig a of file " + first + " is not in genome order");
  VCFWriter backward("W");
  backward.open(file("backward"));
  backward.merge(second);
  EXPECT_EQ(thrownBy<std::runtime_error>([&] {
              backward.merge(write("p3", {{"d", {1, 2}}}, options));
            }),
            "W: contig d of file " + file("p3") + " is not in genome order");
  if (compressed()) return;
  options.wideBins = true;
  const std::string wide = write("wide", {{"b", {9}}}, options);
  EXPECT_EQ(thrownBy<std::runtime_error>([&] { disordered.merge(wide); }),
            "W: binWidth == ci.binWidth in file " + wide);
}

TEST_P(VCFWriterTest, RefusesPartialFilesThatAreNoGood) {
  VCFWriter::IndexOptions options;
  options.partial = true;
  const std::string good = write("good", {{"a", {5, 6, 7}}}, options);
  VCFWriter writer("W");
  writer.open(file("out"));
  fs::copy(good, file("bare"));
  EXPECT_EQ(thrownBy<std::runtime_error>([&] { writer.merge(file("bare")); }),
            "W: failed to load index for file " + file("bare"));
  if (compressed()) {  // a .idx knows the size of its file
    fs::copy(indexOf(good), indexOf(file("gone")));
    EXPECT_EQ(thrownBy<std::runtime_error>([&] { writer.merge(file("gone")); }),
              "W: failed to open file " + file("gone") + ", No such file or directory");
    fs::copy(good, file("short"));
    fs::copy(indexOf(good), indexOf(file("short")));
    fs::resize_file(file("short"), fs::file_size(good) - 60);
    EXPECT_EQ(thrownBy<std::runtime_error>([&] {
                VCFWriter other("W");
                other.open(file("out2"));
                other.merge(file("short"));
              }),
              "W: failed to read from file " + file("short") + ", truncated file");
  }
  VCFWriter other("W");
  other.open(folder_.path(compressed() ? "other.vcf" : "other.vcf.gz"));
  EXPECT_EQ(thrownBy<std::runtime_error>([&] { other.merge(good); }).substr(0, 36 + good.size()),
            "W: Incompatible temp file format of " + good);
}

TEST_P(VCFWriterTest, TellsWhatFailed) {
  VCFWriter lost("W");
  EXPECT_EQ(thrownBy<std::runtime_error>([&] { lost.open(file("none/out")); }),
            "W: failed to open output file " + file("none/out"));

  VCFWriter writer("W");
  writer.open(file("out"));
  auto clone = writer.clone();
  EXPECT_EQ(thrownBy<std::runtime_error>([&] { clone->open(file("none/out")); }),
            "W: failed to open output file " + file("none/out"));
  const auto result = shard(*clone, file("temp"), "a", {1, 2, 3});
  writer.merge(result.get(), file("temp"));  // what one clone failed at does not stop the output
  std::unique_ptr<IOHandle> alien =
      openStream(folder_.write(compressed() ? "alien.vcf" : "alien.vcf.gz", ""), "r");
  EXPECT_EQ(thrownBy<std::runtime_error>([&] { writer.merge(result.get(), alien.get()); }),
            "W: Incompatible temp file format");

  VCFWriter next("W");
  next.open(file("next"));
  fs::resize_file(file("temp"), fs::file_size(file("temp")) - 30);
  EXPECT_EQ(thrownBy<std::runtime_error>([&] { next.merge(result.get(), file("temp")); }),
            std::string("W: failed to read from temp file, ") +
                (compressed() ? "truncated file" : "No data available"));
  EXPECT_EQ(thrownBy<std::runtime_error>([&] { next.merge(result.get(), file("gone")); }),
            "W: failed to open temp file " + file("gone") + ", No such file or directory");
  // The failed run has left no index of the file's old content.
  EXPECT_FALSE(fs::exists(indexOf(file("next"))));

  VCFWriter unindexed("W");
  fs::create_directory(indexOf(file("unindexed")));
  unindexed.open(file("unindexed"));
  EXPECT_EQ(thrownBy<std::runtime_error>([&] { unindexed.close(); }),
            "W: failed to save index for file " + file("unindexed"));
}

TEST_P(VCFWriterTest, TellsOfAFullDisk) {
  const std::string full = file("full"), why = ", No space left on device";
  fs::create_symlink("/dev/full", full);
  const size_t many = 200000;  // bytes that no buffer holds; what cannot be compressed below one
  std::string noise(many, 'x');
  for (std::mt19937 random(1); char& c : noise) c = static_cast<char>('0' + random() % 70);

  VCFWriter headed("W");
  headed.open(full);
  VCFHeader header;
  for (size_t i = 0; i + 2000 < many; i += 2000) header.addRawLine("x=" + noise.substr(i, 2000));
  EXPECT_EQ(thrownBy<std::runtime_error>([&] { headed.writeHeader(header); }),
            "W: failed to write vcf header to file " + full + why);

  VCFWriter writer("W");
  writer.open(full);
  auto clone = writer.clone();
  clone->open(full);
  clone->startContig("a");
  EXPECT_EQ(thrownBy<std::runtime_error>([&] {
              for (int i = 0; i < 10; ++i) clone->writeLine("a\t1\t" + noise + "\n", 0, 1);
            }),
            "W: failed to write to file " + full + why);

  clone = writer.clone();
  clone->open(file("temp"));
  VCFWriter::Result result;
  clone->startContig("a");
  for (int i = 0; i < 10; ++i) clone->writeLine("a\t1\t" + noise + "\n", 0, 1);
  clone->endContig(result);
  clone->close();
  EXPECT_EQ(thrownBy<std::runtime_error>([&] { writer.merge(&result, file("temp")); }),
            "W: failed to read write to file " + full + why);

  VCFWriter small("W");
  small.open(full);
  VCFHeader few;
  small.writeHeader(few);
  EXPECT_EQ(thrownBy<std::runtime_error>([&] { small.close(); }),
            "W: failed to close output file " + full + why);
  EXPECT_FALSE(fs::exists(indexOf(full)));
}

// What is beside the output decides, and only then its name.
TEST_P(VCFWriterTest, KeepsTheKindOfIndex) {
  const std::string path = file("out"), beside = path + (compressed() ? ".idx" : ".tbi");
  folder_.write(beside.substr(beside.rfind('/') + 1), "of an earlier run");
  std::vector<int> starts(20'000);
  std::iota(starts.begin(), starts.end(), 5);
  write("out", {{"a", starts}, {"b", {7}}});
  EXPECT_THAT(indexed(path), ElementsAre("a", "b"));
  VCFCache cache(path);
  cache.setContig("a");
  cache.fetch(20'000, 20'001);
  EXPECT_TRUE(std::any_of(cache.records().begin(), cache.records().end(),
                          [](const VCFLine& line) { return line.pos == 20'000; }));
  EXPECT_TRUE(fs::exists(beside));
  EXPECT_FALSE(fs::exists(indexOf(path)));
}

}  // namespace
