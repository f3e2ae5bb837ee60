// simulate.h - the whole of it: genome, variants, reads, files.
#pragma once

#include <string>
#include <vector>

#include "options.h"
#include "sample_writer.h"

struct Summary {
  Tally genome;
  std::vector<std::pair<std::string, Tally>> samples;  // by name, in the order given
  std::string text() const;                            // one line per count: subject, what, number
};

// Makes all files. The same options give the same bytes, wherever they go.
// Throws std::runtime_error or std::invalid_argument that names the file.
Summary simulate(const SimulateOptions& options);

// Where the files of a simulation go.
struct OutputPaths {
  explicit OutputPaths(const SimulateOptions& options)
      : start(options.out_dir + "/" + options.prefix),
        reference(start + "reference.fa"),
        truth(start + "truth.vcf.gz"),
        known_sites(start + "known_sites.vcf.gz"),
        somatic(start + "somatic.vcf.gz"),
        artefacts(start + "artefacts.vcf.gz"),
        cosmic(start + "cosmic.vcf.gz"),
        panel(start + "pon.vcf.gz") {}
  std::string sampleBam(const std::string& sample) const { return start + sample + ".bam"; }

  std::string start, reference, truth, known_sites;
  std::string somatic, artefacts, cosmic, panel;  // of a tumor
};
