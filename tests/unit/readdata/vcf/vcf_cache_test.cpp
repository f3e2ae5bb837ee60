#include "readdata/vcf/vcf_cache.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "readdata/vcf/tabix.h"
#include "readdata/vcf/vcf_contigs.h"
#include "temp_folder.h"
#include "thrown.h"
#include "vcf_files.h"
#include "zlib_blocks.h"

namespace {

using testing::HasSubstr;

std::vector<std::string> overlapping(const VCFCache& cache, int32_t start, int32_t end) {
  std::vector<std::string> ids;
  for (const VCFLine& record : cache.records())
    if (record.pos < end && record.end > start) ids.push_back(record.column(VCFLine::kId));
  return ids;
}

// Records of one position in two blocks, of which only the second stays.
TEST(VCFCache, DropsRecordsWithTheirBlock) {
  TempFolder folder;
  std::vector<MadeRecord> records;
  for (int i = 0; i < 1000; i++)
    records.push_back(madeRecord("c", 100, i < 999 ? 1 : 500, std::to_string(i), std::string(200, 'I')));
  writeVcf(folder.path("a.vcf"), records);
  VCFCache cache(folder.path("a.vcf"));
  cache.setContig("c");
  cache.fetch(0, 200);
  cache.fetch(300, 400);
  EXPECT_LT(cache.records().size(), 100u);
  EXPECT_EQ(overlapping(cache, 300, 400), std::vector<std::string>{"999"});
}

TEST(VCFCache, NamesTheFileThatItCannotOpen) {
  TempFolder folder;
  const auto open = [&](const std::string& name) {
    return thrownBy<std::runtime_error>([&] { VCFCache cache(folder.path(name)); });
  };
  EXPECT_EQ(open("none.vcf"), "Failed to open vcf file " + folder.path("none.vcf"));
  const std::tuple<const char*, std::string, std::string> cases[] = {
      {"empty.vcf", "", "Empty vcf file %"},
      {"text.vcf", "##fileformat=BCF", "Unrecognized format for vcf file %"},
      {"old.vcf", "##fileformat=VCFv3.3\n", "Unsupported format v3.3 for vcf file %"},
      {"bare.vcf", kVcfStart, "Failed to load index for %"},
  };
  for (const auto& [name, content, expected] : cases) {
    const std::string path = folder.write(name, content);
    std::string text = expected;
    EXPECT_EQ(open(name), text.replace(text.find('%'), 1, path));
  }
  EXPECT_THAT(open(folder.write("plain.vcf.gz", kVcfStart).substr(folder.path("").size())),
              HasSubstr("Failed to read vcf file " + folder.path("plain.vcf.gz") + ": "));
}

TEST(VCFCache, NamesTheFileThatItCannotRead) {
  TempFolder folder;
  const MadeRecord good = madeRecord("c", 100, 1, "1");
  const auto line = [](const std::string& text) { return MadeRecord{"c", 200, 201, text}; };
  const std::pair<std::vector<MadeRecord>, const char*> cases[] = {
      {{good, line("c\t201\n")}, "Corrupted vcf file %"},
      {{good, line("\n")}, "Corrupted vcf file %"},
      {{good, line(std::string("c\t201\t.\t\0\t.\t.\t.\t.\n", 18))}, "Corrupted vcf file %"},
      {{good, line("d\t201\t.\tA\tC\t.\t.\t.\n")}, "Corrupted index for %"},
      {{good, line("c\t51\t.\tA\tC\t.\t.\t.\n")}, "Unsorted vcf file %"},
      {{good, line("c\t51\t.\tA\tC\t.\t.\tEND=900\n")}, "Unsorted vcf file %"},
      {{good, line("c\t201\t.\tA\tC\t.\t.\t.")}, "Truncated vcf file %"},
      {{good, line("c\t201\t" + std::string(70'000, 'i') + "\tA\tC\t.\t.\t.\n")},
       "Cannot handle vcf columns beginning beyond 65535 bytes in file %"},
      {{good, line("c\t201\t.\tA\tC\t.\t.\t" + std::string(17'000'000, 'I') + "\n")},
       "Cannot handle vcf lines longer than 16777192 in file %"},
  };
  for (const auto& [records, expected] : cases) {
    const std::string path = folder.path("a.vcf");
    writeVcf(path, records);
    VCFCache cache(path);
    cache.setContig("c");
    std::string text = expected;
    text.replace(text.find('%'), 1, path);
    testing::internal::CaptureStderr();
    EXPECT_EQ(thrownBy<std::runtime_error>([&] { cache.fetch(0, 1000); }), text);
    // A line at fault is shown, if it could be read.
    std::string shown = records[1].line;
    shown.pop_back();
    std::replace_if(
        shown.begin(), shown.end(), [](char c) { return c == '\t' || c == '\0'; }, ' ');
    shown = "In vcf file " + path + " the line: " + shown + "\n";
    const bool unread = text.starts_with("Truncated") || text.starts_with("Cannot");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), unread ? "" : shown);
    EXPECT_TRUE(cache.records().empty());
    EXPECT_EQ(thrownBy<std::runtime_error>([&] { cache.fetch(50, 1000); }), text) << "a second time";
  }
}

TEST(VCFCache, RefusesCutBlockedFiles) {
  TempFolder folder;
  const auto records = madeRecords({"c"}, 20'000, 10, 60, 3);
  const std::string path = folder.path("a.vcf.gz");
  writeVcf(path, records);
  const std::string whole = fileBytes(path);
  const auto blocks = blocksOf(whole);
  ASSERT_GT(blocks.size(), 5u);
  for (const size_t size : {blocks[3].address, blocks[3].address + 1000}) {
    folder.write("a.vcf.gz", whole.substr(0, size));
    EXPECT_EQ(thrownBy<std::runtime_error>([&] { VCFCache cache(path); }), "Truncated vcf file " + path);
  }
  folder.write("a.vcf.gz", whole.substr(0, whole.size() - 100));  // inside the last block
  VCFCache cache(path);
  cache.setContig("c");
  EXPECT_THAT(thrownBy<std::runtime_error>([&] { cache.fetch(0, 1'000'000); }),
              HasSubstr("Error reading vcf file " + path + ", "));
}

// An index may lie in every number: a wrong answer or a message comes out, no crash and no endless loop.
TEST(VCFCache, SurvivesAnyChunks) {
  TempFolder folder;
  const std::string path = folder.path("a.vcf.gz");
  writeVcf(path, madeRecords({"c", "d"}, 3000, 10, 60, 4));
  const auto whole = static_cast<int64_t>(std::filesystem::file_size(path)) << 16;
  std::mt19937 random(9);
  const std::string good_index = fileBytes(path + ".tbi");
  std::map<std::string, int> outcomes;
  for (int round = 0; round < 300; round++) {
    folder.write("a.vcf.gz.tbi", good_index);
    Tabix twisted({});
    ASSERT_TRUE(twisted.load(path));
    twisted.compactThreshold = 0;
    for (auto& [name, contig] : twisted.indices) {
      for (auto& [bin, chunks] : dynamic_cast<Tabix::Index&>(*contig).bins) {
        for (auto& [begin, end] : chunks) {
          for (int64_t* offset : {&begin, &end}) {
            if (random() % 8 != 0) continue;
            *offset = random() % 2 ? static_cast<int64_t>(random() % static_cast<uint64_t>(whole))
                                   : std::max<int64_t>(0, *offset + random() % 200 - 100);
          }
          if (begin > end) std::swap(begin, end);
        }
      }
    }
    ASSERT_TRUE(twisted.save(path));
    outcomes[thrownBy<std::runtime_error>([&] {
      VCFCache cache(path);
      for (const char* name : {"c", "d"}) {
        cache.setContig(name);
        for (int32_t start = 0; start < 30'000; start += 3000) cache.fetch(start, start + 3000);
      }
    })]++;
  }
  EXPECT_GT(outcomes.size(), 2u);
  EXPECT_GT(outcomes[""], 0);
}

TEST(VcfContigs, ReportsWhatDiffers) {
  const std::vector<Contig> reference = {{"a", 0, 100}, {"b", 0, 200}, {"c", 0, 300}};
  const ContigMap map = contigMapOf(reference);
  const std::string size = "Contig a has a different size in the vcf file f than in the reference\n";
  const std::string absent = "Contig x from the vcf file f is not present in the reference\n";
  const std::string warning =
      "Warning: Contigs in the vcf file f do not match any contigs in the reference\n";
  struct Case {
    std::vector<std::vector<VCFHeader::Pair>> contigs;  // first value: the name
    bool strict, good;
    std::string text;
  };
  const Case cases[] = {
      {{}, true, true, ""},
      {{{{"", "a"}, {"length", "100"}}, {{"", "b"}}}, true, true, ""},
      {{{{"", "a"}, {"length", "99"}}}, false, false, size},
      {{{{"", "a"}}, {{"", "x"}}}, false, true, ""},
      {{{{"", "x"}, {"length", "7"}}}, true, false, absent + warning},
      {{{{"", "x"}}}, false, true, warning},
      // Of two assemblies the one that has more names of the reference.
      {{{{"", "a"}, {"length", "1"}, {"assembly", "A"}},
        {{"", "b"}, {"length", "200"}, {"assembly", "B"}},
        {{"", "c"}, {"length", "300"}, {"assembly", "B"}}},
       true,
       true,
       ""},
  };
  for (const Case& test : cases) {
    VCFHeader header;
    for (const auto& contig : test.contigs)
      header.addDef("contig", contig[0].second, {contig.begin() + 1, contig.end()});
    testing::internal::CaptureStderr();
    EXPECT_EQ(checkContigs(header, "f", reference, map, test.strict), test.good);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), test.text);
  }
}

}  // namespace
