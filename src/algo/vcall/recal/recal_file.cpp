#include "algo/vcall/recal/recal_file.h"

#include <algorithm>
#include <cstdint>

#include "base/text.h"
#include "readdata/vcf/vcf_contigs.h"
#include "readdata/vcf/vcf_writer.h"

namespace {

VCFHeader makeHeader(const std::vector<Contig>& contigs, const std::string& referencePath) {
  VCFHeader header;
  header.addInfoDef("END", "1", "Integer", "\"Stop position of the interval\"");
  header.addInfoDef("NEGATIVE_TRAIN_SITE", "0", "Flag",
                    "\"This variant was used to build the negative training set of bad variants\"");
  header.addInfoDef("POSITIVE_TRAIN_SITE", "0", "Flag",
                    "\"This variant was used to build the positive training set of good variants\"");
  header.addInfoDef("VQSLOD", "1", "Float",
                    "\"Log odds ratio of being a true variant versus being false under the trained gaussian "
                    "mixture model\"");
  header.addInfoDef("culprit", "1", "String",
                    "\"The annotation which was the worst performing in the Gaussian mixture model, likely "
                    "the reason why the variant was filtered out\"");
  const std::string assembly = std::string("assembly=") + assemblyOf(referencePath, "hg19");
  std::vector<VCFHeaderDef>& lines = header.defs["contig"];
  for (const Contig& contig : contigs)
    lines.push_back({contig.contig, {"length=" + std::to_string(contig.end), assembly}});
  header.addRawLine("reference=file://" + referencePath);
  return header;
}

std::string infoOf(const VariantDatum& datum, const std::vector<std::string>& annotations) {
  std::string info = "END=" + std::to_string(datum.end());
  if (datum.atAntiTrainingSite) info += ";NEGATIVE_TRAIN_SITE";
  if (datum.atTrainingSite) info += ";POSITIVE_TRAIN_SITE";
  const char* const culprit = datum.culprit < 0 ? "NULL" : annotations[size_t(datum.culprit)].c_str();
  return info + format(";VQSLOD=%.4f;culprit=%s", datum.lod, culprit);
}

}  // namespace

void writeRecalFile(const std::string& name, const std::string& path, const VariantData& data,
                    const std::vector<std::string>& annotations, const std::vector<Contig>& contigs,
                    const std::string& referencePath) {
  VCFWriter writer(name);
  writer.open(path);
  VCFHeader header = makeHeader(contigs, referencePath);
  writer.writeHeader(header);
  int32_t contig = -1;
  for (const VariantDatum* datum : data) {
    if (datum->isAggregate || datum->contig < 0) continue;
    const std::string& contig_name = contigs[size_t(datum->contig)].contig;
    if (datum->contig != contig) {
      if (contig >= 0) writer.merge(nullptr, nullptr);  // ends the contig
      writer.startContig(contig_name);
      contig = datum->contig;
    }
    writer.writeLine(format("%s\t%d\t.\tN\t<VQSR>\t.\t.\t%s\n", contig_name.c_str(), datum->pos + 1,
                            infoOf(*datum, annotations).c_str()),
                     datum->pos, int32_t(std::min<int64_t>(datum->end(), INT32_MAX)));
  }
  writer.close();
}
