// text_output.h - the FASTA with its index, and the two VCF files with theirs.
// Errors   std::runtime_error that names the file; after one the file on disk is not whole.
#pragma once

#include <string>
#include <vector>

#include "artefact.h"
#include "genome.h"
#include "tumor.h"
#include "variants.h"

// `path` and `path`.fai, lines of 60 bases.
void writeReference(const Genome& genome, const std::string& path);

// BGZF-compressed VCF of all true sites with the phased genotypes of all samples.
void writeTruth(const Genome& genome, const Variants& variants, const std::string& path);

// BGZF-compressed VCF without genotypes: most of the true sites and some that no sample shows. The number of
// sites.
uint64_t writeKnownSites(const Genome& genome, const Variants& variants, const std::string& path);

// BGZF-compressed VCF of the sites alone; the IDs are `id` and a number.
void writeSites(const Genome& genome, const std::vector<Site>& sites, const std::string& id,
                const std::string& path);

// BGZF-compressed VCFs without genotypes: somatic sites with INFO AF and KIND, artefacts with KIND and SAMPLES.
void writeSomatic(const Genome& genome, const std::vector<SomaticSite>& somatic, const std::string& path);
void writeArtefacts(const Genome& genome, const std::vector<Artefact>& artefacts, const std::string& path);
