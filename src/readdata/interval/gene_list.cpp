#include "readdata/interval/gene_list.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/plain_file.h"
#include "base/text.h"

namespace {

// As strtol reads it: text without digits is 0. Clears `fits` for a number outside of 32 bits.
int32_t toNumber(const std::string& text, bool& fits) {
  errno = 0;
  long value = strtol(text.c_str(), nullptr, 10);
  if (errno == ERANGE || value < INT32_MIN || value > INT32_MAX) {
    fits = false;
    return 0;
  }
  return static_cast<int32_t>(value);
}

// The first `count` numbers of a comma-separated list, or fewer when it is shorter.
std::vector<int32_t> toNumbers(const std::string& text, int32_t count, bool& fits) {
  std::vector<int32_t> numbers;
  if (count < 1) return numbers;
  for (const std::string& item : split(text, ',')) {
    if (numbers.size() == size_t(count)) break;
    numbers.push_back(toNumber(item, fits));
  }
  return numbers;
}

// The number of a status word, -1 for an unknown one.
int32_t toStat(const std::string& word) {
  static const char* const words[] = {"none", "unk", "incmpl", "cmpl"};
  for (int32_t i = 0; i < 4; ++i) {
    if (word == words[i]) return i;
  }
  return -1;
}

}  // namespace

bool GeneList::load(const char* path) {
  FileOwner stream(open_plain_file(path));
  if (!stream) {
    fprintf(stderr, "Failed to open RefSeq file %s, %s\n", path, strerror(errno));
    return false;
  }
  char* buffer = nullptr;
  size_t room = 0;
  bool good = true;
  std::string line;
  for (ssize_t length; good && (length = getdelim(&buffer, &room, '\n', stream.get())) > 0;) {
    if (buffer[0] == '#') continue;
    while (length > 0 && (buffer[length - 1] == '\n' || buffer[length - 1] == '\r')) --length;
    line.assign(buffer, length);
    good = addLine(line, path);
  }
  int error = errno;
  free(buffer);
  if (good && !feof(stream.get())) {  // a failed read, or a line beyond the memory
    fprintf(stderr, "Failed to read RefSeq file %s, %s\n", path, strerror(error));
    good = false;
  }
  if (!good) return false;
  genes_.resize(by_gene_.size());
  for (const auto& [name, gene] : by_gene_) genes_[gene.index] = &gene;
  transcript_total_ = static_cast<uint32_t>(transcripts_.size());
  exon_total_ = 0;
  for (const auto& transcript : transcripts_) exon_total_ += transcript->exon_count;
  return true;
}

bool GeneList::addLine(const std::string& line, const char* path) {
  std::vector<std::string> columns = split(line, '\t');
  if (columns.size() < 16) {
    fprintf(stderr, "Failed to parse transcripts in RefSeq file %s, expecting at least 16 columns\n", path);
    return false;
  }
  bool fits = true;
  auto transcript = std::make_unique<Transcript>();
  transcript->bin = toNumber(columns[0], fits);
  transcript->name = columns[1];
  transcript->strand = columns[3] == "+" ? -1 : 1;
  transcript->tx_start = toNumber(columns[4], fits);
  transcript->tx_end = toNumber(columns[5], fits);
  transcript->cds_start = toNumber(columns[6], fits);
  transcript->cds_end = toNumber(columns[7], fits);
  const int32_t count = transcript->exon_count = toNumber(columns[8], fits);
  transcript->exon_starts = toNumbers(columns[9], count, fits);
  transcript->exon_ends = toNumbers(columns[10], count, fits);
  transcript->score = toNumber(columns[11], fits);
  transcript->exon_frames = toNumbers(columns[15], count, fits);
  if (!fits) {
    fprintf(stderr, "Number out of range at line \"%s\" in RefSeq file %s\n", line.c_str(), path);
    return false;
  }
  const int32_t start_stat = transcript->cds_start_stat = toStat(columns[13]);
  const int32_t end_stat = transcript->cds_end_stat = toStat(columns[14]);
  if (start_stat < 0 || end_stat < 0) {
    fprintf(stderr, "Unknown cds stat descr at line \"%s\" in RefSeq file %s\n", line.c_str(), path);
    return false;
  }
  for (const auto* list : {&transcript->exon_starts, &transcript->exon_ends, &transcript->exon_frames}) {
    if (int64_t(list->size()) == count) continue;
    fprintf(stderr,
            "Exon starts or ends or frames count does not match exonCount at line \"%s\" in RefSeq file %s\n",
            line.c_str(), path);
    return false;
  }
  if (start_stat < Transcript::kIncomplete || end_stat < Transcript::kIncomplete ||
      transcript->cds_start == transcript->cds_end)
    return true;

  auto [gene, fresh] = by_gene_.try_emplace(columns[12]);
  if (fresh) {
    gene->second.index = static_cast<int32_t>(by_gene_.size() - 1);
    gene->second.name = columns[12];
  }
  auto contig = by_contig_.try_emplace(columns[2]).first;
  transcript->gene = &gene->second;
  transcript->contig = contig->first.c_str();
  gene->second.transcripts.push_back(transcript.get());
  contig->second.push_back(transcript.get());
  transcripts_.push_back(std::move(transcript));
  return true;
}
