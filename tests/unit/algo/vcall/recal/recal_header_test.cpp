#include "algo/vcall/recal/recal_header.h"

#include <fstream>
#include <gtest/gtest.h>
#include <unistd.h>

#include "readdata/stream/open_stream.h"

namespace {

class RecalHeaderTest : public testing::Test {
 protected:
  ~RecalHeaderTest() override { unlink(path_.c_str()); }

  std::unique_ptr<IOHandle> fileOf(const std::string& text) {
    std::ofstream(path_, std::ios::binary) << text;
    return openStream(path_, "r");
  }
  std::string copy(RecalHeader& header, const std::string& text) {
    std::string copied;
    header.copy(*fileOf(text), "in", "##command\n", [&](std::string_view piece) { copied += piece; });
    return copied;
  }

  std::string path_ = testing::TempDir() + "recal_header" + std::to_string(getpid());
  RecalFilter filter_;
};

const std::string kLow = "##FILTER=<ID=LOW_VQSLOD,Description=\"VQSLOD < -1.500000\">\n";
const std::string kPassLine = "##FILTER=<ID=PASS,Description=\"Passed all filters\">\n";

TEST_F(RecalHeaderTest, ReplacesLinesOfItsIdsAndKeepsLongOnes) {
  filter_.cutoff = -1.5;
  RecalHeader header("Algo", filter_);
  header.readInfoLines(
      *fileOf("##fileformat=VCFv4.2\n##INFO=<ID=B,new>\r\n##INFO=<ID=AA,x>\n##other\n##INFO=<ID=C,y>\n"
              "#CHROM\n##INFO=<ID=Z>\n"),
      "recal");
  // Lines at and beyond the size of a piece; those that look like others inside a line are no lines.
  std::string kept = "##INFO=<ID=B,old>\n##FILTER=<ID=PASSED>\n##FILTER=<ID=LOW_VQSLOD+,x>\n";
  for (size_t size : {4093, 4094, 4095, 4096, 8190})
    kept += "##" + std::string(size - 2, 'x') + "##FILTER=<ID=PASS,>" + "\n";
  const std::string dropped =
      "##FILTER=<ID=PASS>\n##FILTER=<ID=LOW_VQSLOD,Description=\"" + std::string(9000, '#') + "\">\n";
  const std::string columns = "#CHROM\t" + std::string(5000, 's') + "\n";
  const std::string added = "##INFO=<ID=AA,x>\n##INFO=<ID=C,y>\n" + kLow + kPassLine + "##command\n";
  EXPECT_EQ(copy(header, kept + dropped + "##crlf\r\n" + columns + "chr1\t1\n"),
            kept + "##crlf\n" + added + columns);
}

TEST_F(RecalHeaderTest, NeedsALineOfColumns) {
  RecalHeader header("Algo", filter_);
  for (const char* text : {"", "##fileformat=VCFv4.2\n", "##fileformat=VCFv4.2\nchr1\t1\n"})
    EXPECT_THROW(copy(header, text), std::runtime_error) << text;
}

}  // namespace
