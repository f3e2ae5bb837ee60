#include "text_output.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <stdexcept>
#include <tuple>

#include "readdata/stream/posix_io_handle.h"
#include "readdata/vcf/vcf_writer.h"

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

VCFHeader vcfHeader(const Genome& genome) {
  VCFHeader header;
  header.addLine("source", "simulate");
  for (const GenomeContig& contig : genome.contigs)
    header.addDef("contig", contig.name, {{"length", std::to_string(contig.length())}});
  return header;
}

// A VCF with its index, whose sites come in order.
class SiteFile {
 public:
  SiteFile(const Genome& genome, const std::string& path, VCFHeader header)
      : genome_(genome), vcf_("simulate") {
    vcf_.open(path);
    vcf_.writeHeader(header);
  }
  void write(const Site& site, const std::string& line) {
    if (site.contig != contig_) {
      vcf_.merge(nullptr, static_cast<IOHandle*>(nullptr));  // the contig before ends
      vcf_.startContig(genome_.contigs[site.contig].name);
      contig_ = site.contig;
    }
    vcf_.writeLine(line, static_cast<int32_t>(site.start),
                   static_cast<int32_t>(site.start + site.ref.size()));
  }
  void close() { vcf_.close(); }

 private:
  const Genome& genome_;
  VCFWriter vcf_;
  std::optional<uint32_t> contig_;
};

std::string siteColumns(const Genome& genome, const Site& site, const std::string& id,
                        const std::string& info = ".") {
  std::string text = genome.contigs[site.contig].name + '\t' + std::to_string(site.start + 1) + '\t' + id +
                     '\t' + site.ref + '\t';
  for (size_t i = 0; i < site.alts.size(); ++i) text += (i > 0 ? "," : "") + site.alts[i];
  return text + "\t.\tPASS\t" + info;
}

// Decimal, of 1 at most; printf would look at the locale.
std::string fractionText(uint32_t millionths) {
  if (millionths == 1'000'000) return "1";
  std::string digits = std::to_string(1'000'000 + millionths);
  digits.erase(digits.find_last_not_of('0') + 1);
  return "0." + digits.substr(1);
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
  VCFHeader header = vcfHeader(genome);
  header.addFormatDef("GT");
  for (const Sample& sample : variants.samples) header.samples.push_back(sample.name);
  SiteFile vcf(genome, path, header);
  for (size_t i = 0; i < variants.sites.size(); ++i) {
    std::string line = siteColumns(genome, variants.sites[i], ".") + "\tGT";
    for (const Sample& sample : variants.samples)
      for (size_t h = 0; h < sample.haplotypes.size(); ++h)
        line += (h == 0 ? '\t' : '|') + std::to_string(sample.haplotypes[h].alleles[i]);
    vcf.write(variants.sites[i], line + '\n');
  }
  vcf.close();
}

uint64_t writeKnownSites(const Genome& genome, const Variants& variants, const std::string& path) {
  std::vector<Site> known;
  for (size_t i = 0; i < variants.sites.size(); ++i)
    if (variants.site_known[i]) known.push_back(variants.sites[i]);
  known.insert(known.end(), variants.decoys.begin(), variants.decoys.end());
  std::sort(known.begin(), known.end(), [](const Site& a, const Site& b) {
    return std::tie(a.contig, a.start) < std::tie(b.contig, b.start);
  });
  writeSites(genome, known, "rs", path);
  return known.size();
}

void writeSites(const Genome& genome, const std::vector<Site>& sites, const std::string& id,
                const std::string& path) {
  SiteFile vcf(genome, path, vcfHeader(genome));
  uint64_t number = 0;
  for (const Site& site : sites)
    vcf.write(site, siteColumns(genome, site, id + std::to_string(++number)) + '\n');
  vcf.close();
}

void writeSomatic(const Genome& genome, const std::vector<SomaticSite>& somatic, const std::string& path) {
  VCFHeader header = vcfHeader(genome);
  header.addInfoDef("AF", "1", "Float", "\"Fraction of the tumor's own fragments that carry the allele\"");
  header.addInfoDef("KIND", "1", "String", "\"snv, insertion or deletion\"");
  SiteFile vcf(genome, path, header);
  for (const auto& [site, fraction] : somatic) {
    const char* kind = site.isSnp()                            ? "snv"
                       : site.alts[0].size() > site.ref.size() ? "insertion"
                                                               : "deletion";
    vcf.write(site, siteColumns(genome, site, ".", "AF=" + fractionText(fraction) + ";KIND=" + kind) + '\n');
  }
  vcf.close();
}

void writeArtefacts(const Genome& genome, const std::vector<Artefact>& artefacts, const std::string& path) {
  VCFHeader header = vcfHeader(genome);
  header.addInfoDef("KIND", "1", "String", "\"strand, read_end or oxidation\"");
  header.addInfoDef("SAMPLES", "1", "String", "\"tumor or both\"");
  SiteFile vcf(genome, path, header);
  for (const Artefact& artefact : artefacts) {
    std::string info =
        std::string("KIND=") + nameOf(artefact.kind) + ";SAMPLES=" + (artefact.in_normal ? "both" : "tumor");
    vcf.write(artefact.site, siteColumns(genome, artefact.site, ".", info) + '\n');
  }
  vcf.close();
}
