#include "readdata/bam/bam_impl.h"

#include <climits>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "bam_files.h"
#include "base/text.h"
#include "base/timer.h"
#include "temp_folder.h"
#include "thrown.h"

namespace {

using testing::HasSubstr;

// A record as bytes of the file, block size in front.
std::string bytesOf(const bam_record& record) {
  std::string bytes(reinterpret_cast<const char*>(record.fixedBlock()), bam_record::kFixedSize);
  bytes.append(reinterpret_cast<const char*>(record.data), record.data_len);
  return littleBytes(static_cast<uint32_t>(bytes.size()), 4) + bytes;
}

std::string readAll(BAMHandle& bam) {
  std::string bytes;
  bam_record record;
  while (bam.readRecord(record) > 0) bytes += bytesOf(record);
  return bytes;
}

std::string recordBytes(const std::vector<RawRead>& reads) {
  std::string bytes;
  for (const RawRead& read : reads) bytes += read.bytes();
  return bytes;
}

// What an attempt to open and read all of `path` says, standard error and exception together; "" when all is
// well.
std::string complaint(const std::string& path) {
  return toldBy([&] { readAll(*open_read_source(path, nullptr, false)); });
}

void copyRecords(BAMImpl& from, BAMImpl& to) {
  bam_record record;
  while (from.readRecord(record) > 0) to.writeRecord(record);
}

TEST(BamWriter, RecordsStartBlocksAndStayWhole) {
  TempFolder folder;
  auto reads = sampleReads(5000, 100, 2);
  std::string raw = rawBam(sampleContigs(), reads);
  std::string in = folder.write("in.bam", inBlocks(raw)), out = folder.path("out.bam");
  BAMImpl from(in), to(out);
  from.open("r");
  from.readHeader();
  to.open("w6");
  to.header = from.header;
  to.writeHeader();
  EXPECT_EQ(to.headerLength(), static_cast<int64_t>(to.tell() >> 16));
  copyRecords(from, to);
  to.close();

  auto blocks = blocksOf(fileBytes(out));
  EXPECT_TRUE(joined(blocks) == raw);
  EXPECT_EQ(blocks.front().data, headerBytes(sampleContigs(), headerText(sampleContigs())));
  EXPECT_EQ(fileBytes(out).substr(fileBytes(out).size() - 28), endMarker());
  for (size_t i = 1; i < blocks.size(); ++i) {
    size_t at = 0;
    while (at < blocks[i].data.size()) at += 4 + little(blocks[i].data, at, 4);
    EXPECT_EQ(at, blocks[i].data.size()) << "block " << i;
  }
}

TEST(OpenReadSource, RefusesWhatIsNoBam) {
  TempFolder folder;
  std::string vcf = inBlocks("##fileformat=VCFv4.2\n");
  const struct {
    std::string path;
    const char* message;
  } cases[] = {
      {folder.write("empty.bam", ""), "it is empty"},
      {folder.write("text.bam", "just some text, long enough for a header of a block\n"), "not a BAM"},
      {folder.write("short.bam", "B"), "not a BAM"},
      {folder.write("x.vcf.gz", vcf), "Invalid BAM header from file "},
      {folder.write("end.bam", endMarker()), "Invalid BAM header from file "},
      {folder.write("x.cram", "CRAM\3\0 and more"), "cram input needs reference"},
      {folder.path(""), "Is a directory"},
      {folder.path("missing.bam"), "No such file or directory"},
      {"/dev/zero", "Not a regular file"},
  };
  for (const auto& [path, message] : cases) {
    std::string told = complaint(path);
    EXPECT_THAT(told, HasSubstr(message)) << path;
    if (path.find(".cram") == std::string::npos) {
      EXPECT_THAT(told, HasSubstr(path));
    }
  }
  EXPECT_EQ(complaint(folder.path("missing.bam")), "Failed to open " + folder.path("missing.bam") +
                                                       ": No such file or directory\nInvalid input file");
}

TEST(OpenReadSource, WarnsOnceOfAMissingEndMarker) {
  TempFolder folder;
  std::string file = inBlocks(rawBam(sampleContigs(), sampleReads(10, 1, 3)));
  std::string whole = folder.write("whole.bam", file);
  std::string cut = folder.write("cut.bam", file.substr(0, file.size() - 28));
  testing::internal::CaptureStderr();
  open_read_source(whole, nullptr, false);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  testing::internal::CaptureStderr();
  auto bam = open_read_source(cut, nullptr, false);
  EXPECT_EQ(readAll(*bam), recordBytes(sampleReads(10, 1, 3)));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Warning: BAM file " + cut + " has no end marker, it may be truncated\n");
}

// --- hostile input ---

const int32_t kEvil[] = {-1, 0, INT32_MAX, INT32_MIN};

std::string withNumber(std::string bytes, size_t at, int64_t value) {
  return bytes.replace(at, 4, littleBytes(static_cast<uint32_t>(value), 4));
}

TEST(HostileBam, HeaderFields) {
  TempFolder folder;
  const std::vector<RawContig> contigs = {{"c1", 1000}, {"c2", 2000}};
  std::string text = headerText(contigs);
  std::string header = headerBytes(contigs, text);
  RawRead read;
  read.ref_id = 1;
  size_t count_at = 8 + text.size(), name_at = count_at + 4, length_at = name_at + 4 + 3;
  const struct {
    const char* what;
    size_t at;
    int64_t fits;
    bool zero_is_fine;
  } fields[] = {
      {"text length", 4, static_cast<int64_t>(text.size()), false},
      {"contig count", count_at, 2, false},
      {"name length", name_at, 3, false},
      {"contig length", length_at, 1000, true},
  };
  uint64_t before = peak_memory();
  for (const auto& field : fields) {
    for (int64_t value :
         {int64_t(kEvil[0]), int64_t(kEvil[1]), int64_t(kEvil[2]), int64_t(kEvil[3]), field.fits + 1}) {
      if (std::string_view(field.what) == "contig length" && value >= 0) continue;
      std::string path = folder.write("a.bam", inBlocks(withNumber(header, field.at, value) + read.bytes()));
      std::string told = complaint(path);
      EXPECT_THAT(told, HasSubstr(path)) << field.what << " " << value;
    }
  }
  EXPECT_LT(peak_memory() - before, 64u << 20);
  std::string twice = folder.write("twice.bam", inBlocks(headerBytes({{"c", 5}, {"d", 5}, {"c", 6}}, "")));
  EXPECT_THAT(complaint(twice), HasSubstr("contig c is there twice"));
  std::string zero = folder.write("zero.bam", inBlocks(headerBytes({{std::string("a\0b", 3), 5}}, "")));
  EXPECT_THAT(complaint(zero), HasSubstr("does not end in zero"));
}

// Small files whose headers would take gigabytes.
TEST(HostileBam, HeaderBombs) {
  TempFolder folder;
  const uint32_t most = 256u << 20;
  auto start = [](uint32_t text, uint32_t contigs) {
    return zlibBlock("BAM\1" + littleBytes(text, 4)) + (text > 0 ? "" : zlibBlock(littleBytes(contigs, 4)));
  };
  std::string same, numbered;
  for (int i = 0; i < 6000; ++i) same += littleBytes(2, 4) + std::string("a\0", 2) + littleBytes(100, 4);
  same = zlibBlock(same);
  std::string many_same = start(0, 60000000), many = start(0, 300000);
  for (int i = 0; i < 300; ++i) many_same += same;
  for (uint32_t i = 0; i < 300000; ++i) {
    numbered += littleBytes(1001, 4) + format("%01000u", i) + '\0' + littleBytes(100, 4);
    if (i % 60 == 59) many += zlibBlock(numbered), numbered.clear();
  }
  const struct {
    const char* what;
    std::string file, message;
    uint64_t memory;
  } cases[] = {
      {"text", start(most + 1, 0), "text of 268435457 bytes, more than 268435456", 8 << 20},
      {"text at the limit", start(most, 0), "truncated file", 8 << 20},
      {"name", start(0, 1) + zlibBlock(littleBytes(most, 4)),
       "the list of 1 contigs takes more than 268435456 bytes", 8 << 20},
      {"the same contig", many_same, "contig a is there twice", 8 << 20},
      {"contigs", many, "the list of 300000 contigs takes more than 268435456 bytes", most * 3ull / 2},
  };
  for (const auto& c : cases) {
    std::string path = folder.write("a.bam", c.file + endMarker());
    uint64_t before = peak_memory();
    std::string told = complaint(path);
    EXPECT_THAT(told, HasSubstr(path)) << c.what;
    EXPECT_THAT(told, HasSubstr(c.message)) << c.what;
#ifndef __SANITIZE_THREAD__  // whose shadow of the memory counts too
    EXPECT_LT(peak_memory() - before, c.memory) << c.what;
#else
    (void)before;
#endif
  }
}

TEST(HostileBam, RecordFields) {
  TempFolder folder;
  const std::vector<RawContig> contigs = {{"c1", 1000}, {"c2", 2000}};
  std::string header = headerBytes(contigs, headerText(contigs));
  RawRead read;
  read.name = "victim";
  read.pos = 10;
  read.ref_id = read.next_ref_id = 1;
  read.next_pos = 20;
  read.l_seq = 40;
  read.cigar = {40 << 4 | 0};
  auto size = static_cast<int64_t>(read.bytes().size());
  struct Case {
    const char* what;
    size_t at;
    std::vector<int64_t> refused;
  };
  const Case cases[] = {
      {"block size", 0, {-1, 0, 31, INT32_MAX, INT32_MIN, size - 4 + 1, size - 4 - 61}},
      {"contig", 4, {-2, 2, INT32_MAX, INT32_MIN}},
      {"position", 8, {-1, 2000, INT32_MAX, INT32_MIN}},
      {"name length 0", 12, {0x12483c00}},
      {"name too short", 12, {0x12483c06}},
      {"name beyond", 12, {0x12483cff}},
      {"CIGAR beyond", 16, {0xffff, 200}},
      {"CIGAR missing a word", 16, {2}},
      {"sequence", 20, {-1, INT32_MAX, INT32_MIN, 41, 39}},
      {"mate contig", 24, {-2, 2, INT32_MAX, INT32_MIN}},
      {"mate position", 28, {-2, INT32_MAX, INT32_MIN}},
      {"template length", 32, {INT32_MIN}},
      {"operator", 36 + 7, {40 << 4 | 10, 40 << 4 | 15}},
      {"too long a match", 36 + 7, {41 << 4, 0xfffffff0}},
  };
  uint64_t before = peak_memory();
  for (const Case& c : cases) {
    for (int64_t value : c.refused) {
      std::string path =
          folder.write("a.bam", inBlocks(header + read.bytes() + withNumber(read.bytes(), c.at, value)));
      std::string told = complaint(path);
      EXPECT_THAT(told, HasSubstr(path)) << c.what << " " << value;
      if (std::string_view(c.what) == "position" && (value == -1 || value == 2000)) {
        EXPECT_THAT(told, HasSubstr("victim"));
      }
    }
  }
  EXPECT_LT(peak_memory() - before, 64u << 20);
}

TEST(HostileBam, AlignmentBeyondAllContigs) {
  TempFolder folder;
  RawRead read;
  read.cigar.assign(9, 0xfffffff0 | 3);  // nine times 2^28 - 1 bases skipped
  std::string path = folder.write("a.bam", inBlocks(rawBam({{"c", 1000}}, {read})));
  EXPECT_THAT(complaint(path), HasSubstr("alignment end out of range"));
}

}  // namespace
