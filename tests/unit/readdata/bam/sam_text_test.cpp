#include "readdata/bam/sam_text.h"

#include <gtest/gtest.h>
#include <random>

#include "random_cigar.h"
#include "temp_folder.h"

namespace {

bam_header sampleHeader() {
  bam_header header;
  header.names = {"chr1", "chr2"};
  header.lengths = {100000, 50000};
  return header;
}

std::string text(const bam_record& record) {
  std::string line = "left over";
  to_text(record, sampleHeader(), line);
  return line;
}

TEST(SamText, WritesEachKindOfField) {
  const std::string array("S\2\0\0\0abcd", 9);
  const struct {
    ReadBuilder read;
    const char* line;
  } cases[] = {
      {readBuilder("r1").at(0, 99).cigar("2S3M").qual(30).mate(0, 199, 150),
       "r1\t97\tchr1\t100\t60\t2S3M\t=\t200\t150\tACGTA\t?????"},
      {readBuilder("r2").at(0, 0).cigar("3M").seq("NRT").quals({0, 40, 93}).mate(1, 4, 0),
       "r2\t97\tchr1\t1\t60\t3M\tchr2\t5\t0\tNRT\t!I~"},
      {readBuilder("r3").at(1, 99).unmapped().cigar("").seq("").mapq(0),
       "r3\t4\tchr2\t100\t0\t*\t*\t0\t0\t*\t*"},
      {readBuilder("r4").seq("AC").qual(0xff), "r4\t4\t*\t0\t60\t*\t*\t0\t0\tAC\t*"},
      {readBuilder("r5").at(2, 99).cigar("1M").mate(-2, 7),
       "r5\t97\tINVALID_TID\t100\t60\t1M\tINVALID_TID\t8\t0\tA\t?"},
      {readBuilder("r6").at(7, INT32_MAX).cigar("").mate(7, INT32_MAX, INT32_MIN),
       "r6\t97\tINVALID_TID\t2147483648\t60\t*\t=\t2147483648\t-2147483648\t*\t*"},
      {readBuilder("r7")
           .tag("XA", 'q')
           .tag("XB", 'B', array)
           .tag("XC", 'C', "\xc8")
           .tag("XI", 'I', "\xff\xff\xff\xff")
           .tag("Xc", 'c', "\x9c")
           .tag("Xd", 2.5)
           .tag("Xf", -0.25f)
           .tag("XZ", "some text")
           .tag("XH", 'H', std::string("1AE3\0", 5)),
       "r7\t4\t*\t0\t60\t*\t*\t0\t0\t*\t*\tXA:A:q\tXB:B:-\tXC:i:200\tXI:i:4294967295\tXc:i:-100\tXd:d:2."
       "500000\t"
       "Xf:f:-0.250000\tXZ:Z:some text\tXH:H:1AE3"},
      {readBuilder("r8").tag("NM", 1).auxBytes("RGZcut"), "r8\t4\t*\t0\t60\t*\t*\t0\t0\t*\t*\tNM:i:1"},
  };
  for (const auto& c : cases) EXPECT_EQ(text(c.read), c.line);
}

// What samtools makes of our lines, written out again, must be the same lines.
TEST(SamText, SamtoolsReadsTheSameRecords) {
  std::mt19937 random(5);
  std::string lines;
  for (int i = 0; i < 500; ++i) {
    ReadBuilder read = readBuilder("read" + std::to_string(i));
    if (i % 7) read.at(int(random() % 2), int(random() % 40000)).cigar(randomCigar(random, 6, 9, "MID=XNP"));
    if (i % 7 == 0) read.seq(std::string(i % 5, 'G')).mapq(0);
    if (i % 11 == 1) read.seq("");
    if (i % 3) read.mate(int(random() % 3) - 1, int(random() % 40000), int(random() % 2000) - 1000);
    read.qual(i % 13 ? int(random() % 94) : 0xff);
    read.tag("RG", "group")
        .tag("NM", int(random()))
        .tag("XC", 'c', std::string(1, char(random())))
        .tag("XA", 'z');
    lines += text(read) + '\n';
  }
  TempFolder folder;
  const std::string head = "@SQ\tSN:chr1\tLN:100000\n@SQ\tSN:chr2\tLN:50000\n";
  const std::string input = folder.write("in.sam", head + lines), output = folder.path("out.sam");
  const std::string bam = folder.path("out.bam");
  ASSERT_EQ(system(("samtools view -b --no-PG -o " + bam + " " + input).c_str()), 0);
  ASSERT_EQ(system(("samtools view -o " + output + " " + bam).c_str()), 0);
  std::ifstream file(output);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), lines);
}

}  // namespace
