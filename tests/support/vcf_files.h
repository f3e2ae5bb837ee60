// vcf_files.h - VCF files of made-up records with an index beside them.
#pragma once

#include <map>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "readdata/stream/open_stream.h"
#include "readdata/vcf/genome_index.h"

inline const std::string kVcfStart = "##fileformat=VCFv4.2\n";
inline const std::string kVcfColumns = "#CHROM\tPOS\tID\tREF\tALT\tQUAL\tFILTER\tINFO\n";

struct MadeRecord {
  std::string contig;
  int32_t start, end;
  std::string line;  // with its newline
};

inline MadeRecord madeRecord(const std::string& contig, int32_t start, int32_t length, const std::string& id,
                             const std::string& info = "AC=1") {
  const std::string reach = length == 1 ? "" : ";END=" + std::to_string(start + length);
  return {contig, start, start + length,
          contig + "\t" + std::to_string(start + 1) + "\t" + id + "\tA\tC\t.\t.\t" + info + reach + "\n"};
}

// In order on each contig; the ID is the record's number. Few are long, and some have a line of up to `widest` bytes.
inline std::vector<MadeRecord> madeRecords(const std::vector<std::string>& contigs, size_t each, int32_t gap,
                                           size_t widest, uint32_t seed) {
  std::mt19937 random(seed);
  std::vector<MadeRecord> records;
  for (const std::string& contig : contigs) {
    int32_t start = 0;
    for (size_t i = 0; i < each; i++) {
      start += static_cast<int32_t>(random() % static_cast<uint32_t>(gap));
      const uint32_t kind = random() % 100;
      const auto length = static_cast<int32_t>(kind == 0   ? random() % (50 * gap) + 1
                                               : kind < 20 ? random() % 40 + 1
                                                           : 1);
      const size_t width = random() % 200 == 0 ? random() % widest : random() % 60;
      records.push_back(
          madeRecord(contig, start, length, std::to_string(records.size()), std::string(width + 1, 'I')));
    }
  }
  return records;
}

// Writes the records as they come and the index that suits the name; `tail` goes behind them.
inline void writeVcf(const std::string& path, const std::vector<MadeRecord>& records,
                     const std::string& header = kVcfStart + kVcfColumns, const std::string& tail = "") {
  auto stream = openStream(path, "w");
  auto index = newGenomeIndex(path, {});
  std::unique_ptr<GenomeIndex::ContigIndex> contig;
  const auto close = [&] {
    if (contig == nullptr) return;
    contig->finish();
    index->addContigIndex(std::move(contig));
  };
  stream->write(header.data(), header.size());
  for (const MadeRecord& record : records) {
    if (contig == nullptr || contig->name != record.contig) {
      close();
      contig = index->newContigIndex(record.contig);
      contig->start(stream->seek(0, SEEK_CUR));
    }
    stream->write(record.line.data(), record.line.size());
    contig->add(record.start, record.end, stream->seek(0, SEEK_CUR));
  }
  close();
  stream->write(tail.data(), tail.size());
  if (stream->close() != 0 || !index->save(path)) throw std::runtime_error("cannot write " + path);
}
