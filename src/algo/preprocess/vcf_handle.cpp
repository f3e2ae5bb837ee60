#include "algo/preprocess/vcf_handle.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "base/text.h"

namespace {

constexpr size_t kReadBuffer = 512 << 10;
constexpr size_t kFirstLineCapacity = 1024;

}  // namespace

bool parsePlace(std::string_view line, const ContigNumbers& contigs, VcfPlace& place) {
  const size_t chrom_end = line.find('\t');
  if (chrom_end == line.npos) return false;
  const size_t pos_end = line.find('\t', chrom_end + 1);
  if (pos_end == line.npos) return false;
  const auto contig = contigs.find(line.substr(0, chrom_end));
  if (contig == contigs.end()) return false;
  place.contig = contig->second;
  const std::string_view pos = line.substr(chrom_end + 1, pos_end - chrom_end - 1);
  return parseNumber(pos, place.pos1) && place.pos1 <= INT_MAX;
}

LineReader::~LineReader() {
  free(text_);
}

bool LineReader::next() {
  if (!text_ && (text_ = static_cast<char*>(malloc(kFirstLineCapacity)))) capacity_ = kFirstLineCapacity;
  const ssize_t got = getdelim(&text_, &capacity_, '\n', file_);
  if (got < 0) {
    if (!feof(file_)) throw std::runtime_error("failed to read file " + path_ + ": " + strerror(errno));
    return false;
  }
  length_ = static_cast<size_t>(got);
  if (length_ > 0 && text_[length_ - 1] == '\n') --length_;
  return true;
}

VcfHandle::VcfHandle(const std::string& path, const ContigNumbers& contigs)
    : path_(path),
      contigs_(contigs),
      buffer_(std::make_unique<char[]>(kReadBuffer)),
      file_(fopen(path.c_str(), "re")),
      reader_(file_.get(), path_) {
  if (!file_) throw std::runtime_error("VcfHandle: Cannot not open file " + path + ": " + strerror(errno));
  setvbuf(file_.get(), buffer_.get(), _IOFBF, kReadBuffer);
}

bool VcfHandle::next() {
  if (!reader_.next()) return false;
  if (!parsePlace(reader_.line(), contigs_, place_))
    throw std::runtime_error("VcfHandle: " + path_ + " is in incorrect format or corrupted");
  return true;
}
