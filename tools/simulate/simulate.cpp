#include "simulate.h"

#include <filesystem>
#include <stdexcept>

#include "genome.h"
#include "text_output.h"
#include "tumor.h"
#include "variants.h"

std::string Summary::text() const {
  std::string text;
  auto add = [&](const std::string& subject, const Tally& tally) {
    for (const auto& [what, count] : tally)
      text += subject + '\t' + what + '\t' + std::to_string(count) + '\n';
  };
  add("genome", genome);
  for (const auto& [name, tally] : samples) add(name, tally);
  return text;
}

Summary simulate(const SimulateOptions& options) {
  std::error_code error;
  std::filesystem::create_directories(options.out_dir, error);
  if (error) throw std::runtime_error("Failed to make " + options.out_dir + ": " + error.message());
  OutputPaths paths(options);
  Genome genome = makeGenome(options.seed, options.contigs);
  Variants variants = makeVariants(options, genome);
  TumorPair pair;
  if (!options.tumor.empty()) pair = makeTumorPair(options, genome, variants);
  writeReference(genome, paths.reference);
  writeTruth(genome, variants, paths.truth);
  uint64_t known = writeKnownSites(genome, variants, paths.known_sites);

  Summary summary;
  uint64_t unknown = 0, masked = 0;
  for (const GenomeContig& contig : genome.contigs) {
    unknown += contig.length() - contig.known_bases;
    for (Span span : contig.masked) masked += span.end - span.start;
  }
  summary.genome = {{"contigs", genome.contigs.size()},
                    {"bases", genome.length()},
                    {"unknown bases", unknown},
                    {"masked bases", masked},
                    {"homopolymers", genome.homopolymers},
                    {"tandem repeats", genome.tandem_repeats},
                    {"repeat pairs", genome.repeat_pairs},
                    {"variant sites", variants.sites.size()},
                    {"snps", variants.snps},
                    {"insertions", variants.insertions},
                    {"deletions", variants.deletions},
                    {"multi-allelic", variants.multi_allelic},
                    {"known sites", known},
                    {"known sites nobody carries", variants.decoys.size()}};
  if (!options.tumor.empty()) {
    writeSomatic(genome, pair.somatic, paths.somatic);
    writeArtefacts(genome, pair.artefacts, paths.artefacts);
    writeSites(genome, pair.cosmic, "COSV", paths.cosmic);
    writeSites(genome, pair.panel, "PON", paths.panel);
    summary.genome.insert(summary.genome.end(), {{"somatic sites", pair.somatic.size()},
                                                 {"artefacts", pair.artefacts.size()},
                                                 {"cosmic sites", pair.cosmic.size()},
                                                 {"panel of normals sites", pair.panel.size()}});
  }
  const Variants& carried = options.tumor.empty() ? variants : pair.carried;
  for (size_t i = 0; i < options.samples.size(); ++i)
    summary.samples.emplace_back(options.samples[i],
                                 writeSample(options, genome, carried, pair.artefactsOf(i == 1), i,
                                             paths.sampleBam(options.samples[i])));
  return summary;
}
