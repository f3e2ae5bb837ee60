#include "text_output.h"

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <tuple>

#include "readdata/stream/bgzf_handle.h"
#include "readdata/stream/posix_io_handle.h"

namespace {

constexpr uint32_t kLineBases = 60;

// A file of text behind any handle; every failure is an exception.
class TextFile {
 public:
  TextFile(std::unique_ptr<IOHandle> opener, const std::string& path, const char* mode)
      : path_(path), handle_(opener->open(path.c_str(), mode)) {
    if (handle_ == nullptr) throw std::runtime_error("Failed to open " + path + ": " + opener->error_text());
  }
  void write(const std::string& text) {
    if (handle_->write(text.data(), text.size()) != static_cast<int64_t>(text.size())) fail();
  }
  void close() {
    if (handle_->close() != 0) fail();
  }

 private:
  [[noreturn]] void fail() const {
    throw std::runtime_error("Failed to write to " + path_ + ": " + handle_->error_text());
  }
  std::string path_;
  std::unique_ptr<IOHandle> handle_;
};

std::string vcfHeader(const Genome& genome) {
  std::string text = "##fileformat=VCFv4.2\n##source=simulate\n";
  for (const GenomeContig& contig : genome.contigs)
    text += "##contig=<ID=" + contig.name + ",length=" + std::to_string(contig.length()) + ">\n";
  return text;
}

std::string siteColumns(const Genome& genome, const Site& site, const std::string& id) {
  std::string text = genome.contigs[site.contig].name + '\t' + std::to_string(site.start + 1) + '\t' + id +
                     '\t' + site.ref + '\t';
  for (size_t i = 0; i < site.alts.size(); ++i) text += (i > 0 ? "," : "") + site.alts[i];
  return text + "\t.\tPASS\t.";
}

}  // namespace

void writeReference(const Genome& genome, const std::string& path) {
  TextFile fasta(std::make_unique<POSIXIOHandle>(), path, "w");
  std::string index;
  uint64_t offset = 0;
  for (const GenomeContig& contig : genome.contigs) {
    std::string bases = contig.bases;
    for (Span span : contig.masked)
      for (uint32_t i = span.start; i < span.end; ++i) bases[i] = static_cast<char>(bases[i] | 0x20);
    std::string text = ">" + contig.name + "\n";
    uint64_t first_base = offset + text.size();
    index += contig.name + '\t' + std::to_string(contig.length()) + '\t' + std::to_string(first_base) + '\t' +
             std::to_string(kLineBases) + '\t' + std::to_string(kLineBases + 1) + '\n';
    for (size_t at = 0; at < bases.size(); at += kLineBases) {
      text.append(bases, at, kLineBases);
      text += '\n';
    }
    offset += text.size();
    fasta.write(text);
  }
  fasta.close();
  TextFile fai(std::make_unique<POSIXIOHandle>(), path + ".fai", "w");
  fai.write(index);
  fai.close();
}

void writeTruth(const Genome& genome, const Variants& variants, const std::string& path) {
  TextFile vcf(std::make_unique<BGZFHandle>(), path, "w6");
  std::string head = vcfHeader(genome) +
                     "##FORMAT=<ID=GT,Number=1,Type=String,Description=\"Genotype\">\n"
                     "#CHROM\tPOS\tID\tREF\tALT\tQUAL\tFILTER\tINFO\tFORMAT";
  for (const Sample& sample : variants.samples) head += '\t' + sample.name;
  vcf.write(head + '\n');
  for (size_t i = 0; i < variants.sites.size(); ++i) {
    std::string line = siteColumns(genome, variants.sites[i], ".") + "\tGT";
    for (const Sample& sample : variants.samples)
      for (size_t h = 0; h < sample.haplotypes.size(); ++h)
        line += (h == 0 ? '\t' : '|') + std::to_string(sample.haplotypes[h].alleles[i]);
    vcf.write(line + '\n');
  }
  vcf.close();
}

uint64_t writeKnownSites(const Genome& genome, const Variants& variants, const std::string& path) {
  std::vector<const Site*> known;
  for (size_t i = 0; i < variants.sites.size(); ++i)
    if (variants.site_known[i]) known.push_back(&variants.sites[i]);
  for (const Site& site : variants.decoys) known.push_back(&site);
  std::sort(known.begin(), known.end(), [](const Site* a, const Site* b) {
    return std::tie(a->contig, a->start) < std::tie(b->contig, b->start);
  });
  TextFile vcf(std::make_unique<BGZFHandle>(), path, "w6");
  vcf.write(vcfHeader(genome) + "#CHROM\tPOS\tID\tREF\tALT\tQUAL\tFILTER\tINFO\n");
  uint64_t number = 0;
  for (const Site* site : known)
    vcf.write(siteColumns(genome, *site, "rs" + std::to_string(++number)) + '\n');
  vcf.close();
  return number;
}
