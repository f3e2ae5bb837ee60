// options.h - what a simulation is made from, and the option table behind the command line.
// Errors   parseOptions throws std::invalid_argument with a text for the user.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "rng.h"

struct ContigPlan {
  std::string name;
  uint32_t length = 0;  // bases
};

enum class ErrorProfile { kCycles, kBinned, kPerfect };

struct SimulateOptions {
  uint64_t seed = 1;
  std::vector<ContigPlan> contigs;
  std::vector<std::string> samples = {"sample1"};
  uint32_t depth = 30;  // mean coverage per sample, all reads counted
  uint64_t pairs = 0;   // per sample; above zero it takes the place of `depth`
  int32_t ploidy = 2;   // haplotypes per sample
  int32_t read_length = 150;
  int32_t insert_mean = 400, insert_sd = 80;
  int32_t read_groups = 4;  // per sample, dealt to the libraries in turn
  int32_t libraries = 2;
  ErrorProfile error = ErrorProfile::kCycles;
  Chance short_insert = chanceOf(0.01);  // fragments shorter than a read
  Chance duplicate = chanceOf(0.08);     // of a fragment having one more copy, repeatedly
  Chance optical = chanceOf(0.25);       // of a copy being optical
  Chance chimera = chanceOf(0.01);
  Chance half_mapped = chanceOf(0.01);
  Chance unmapped = chanceOf(0.01);
  Chance qc_fail = chanceOf(0.005);
  Chance soft_clip = chanceOf(0.03);  // of a read having a junk end
  Chance snp = chanceOf(0.001);       // per base
  Chance indel = chanceOf(0.00015);   // per base
  Chance cluster = 0;                 // of a site having one more close behind it, repeatedly
  Chance multi_allelic = 0;      // of a site having a second alternative, beside those that have one anyway
  bool flag_duplicates = false;  // set 0x400 on the copies
  int32_t compression = 2;       // BGZF level of the BAM
  // Of a tumor beside the one sample, which becomes its normal.
  std::string tumor;  // its name, then also the last of `samples`; empty: none
  uint32_t normal_depth = 35, tumor_depth = 90;
  Chance somatic_snv = chanceOf(0.0004);  // per base
  Chance somatic_indel = chanceOf(0.0002);
  std::vector<uint32_t> fractions = {500'000, 300'000, 200'000, 100'000, 50'000};  // millionths
  uint32_t tumor_contamination = 0;   // millionths of the tumor's fragments that are another individual's
  uint32_t normal_contamination = 0;  // millionths of the normal's fragments that are the tumor's
  Chance strand_artefact = 0, end_artefact = 0;  // per base
  Chance oxidation = 0;                          // per G or C
  std::string out_dir;
  std::string prefix;
  bool help = false;

  bool contigHasReads(size_t contig) const { return contigs.size() < 3 || contig != 2; }
  uint32_t depthOf(size_t sample) const {
    return tumor.empty() ? depth : sample == 0 ? normal_depth : tumor_depth;
  }
};

SimulateOptions parseOptions(const std::vector<std::string>& args);
std::string optionHelp();
