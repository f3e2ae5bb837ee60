// The header of the output.
#include "algo/vcall/variant_call_algo.h"
#include "base/text.h"
#include "readdata/vcf/vcf_contigs.h"

void VariantCallAlgo::fillHeader(VCFHeader& header) {
  header.addCommandLine(name, command_line_);
  addContigLines(header);
  header.addRawLine("reference=file://" + context->reference->path());
  if (call_conf_ > emit_conf_ || emit_mode_ == kAll)
    header.addDef("FILTER", "LowQual", {{"Description", "\"Low quality\""}});
  if (dbsnp_) header.addInfoDef("DB", "0", "Flag", "\"dbSNP membership\"");
  for (const char* id : {"GT", "AD", "DP", "GQ", "PL"}) header.addFormatDef(id);
  addAnnotationLines(header);
  if (emit_mode_ == kGvcf) addGvcfLines(header);
  header.samples = samples_;
  addHeaderLines(header);
}

void VariantCallAlgo::addContigLines(VCFHeader& header) const {
  const std::string& path = context->reference->path();
  const char* const otherwise = path.find("h38") != path.npos ? "hg38" : "unknown";
  const std::string assembly = std::string("assembly=") + assemblyOf(path, otherwise);
  std::vector<VCFHeaderDef>& lines = header.defs["contig"];
  lines.clear();
  for (const Contig& contig : context->reference->contigs())
    lines.push_back({contig.contig, {"length=" + std::to_string(contig.end), assembly}});
}

// The columns of samples are those of mode gvcf, where each block has a MIN_DP.
void VariantCallAlgo::addAnnotationLines(VCFHeader& header) const {
  const bool gvcf = emit_mode_ == kGvcf;
  for (size_t i = 0; i < static_cast<size_t>(AnnotationField::kCount); ++i) {
    const auto field = static_cast<AnnotationField>(i);
    const AnnotationDef& def = annotationDef(field);
    if (!wanted_.has(field) && !(gvcf && field == AnnotationField::MIN_DP)) continue;
    if (!def.perSample)
      header.addInfoDef(def.name, def.number, def.type, def.description);
    else if (gvcf)
      header.addFormatDef(def.name, def.number, def.type, def.description);
  }
}

void VariantCallAlgo::addGvcfLines(VCFHeader& header) const {
  header.addDef("ALT", "NON_REF",
                {{"Description", "\"Represents any possible alternative allele at this location\""}});
  header.addInfoDef("END", "1", "Integer", "\"Stop position of the interval\"");
  int32_t low = 0;
  for (int32_t high : gq_bands_) {
    header.addLine(format("GVCFBlock%d-%d", low, high),
                   format("minGQ=%d(inclusive),maxGQ=%d(exclusive)", low, high));
    low = high;
  }
}
