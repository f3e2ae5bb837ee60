// artefact.h - places where reads show a base that their molecule does not have.
// Coords   zero-based.
#pragma once

#include <cstdint>

#include "rng.h"
#include "variants.h"

enum class ArtefactKind : uint8_t {
  kStrand,   // seen in reads that are aligned in one direction
  kReadEnd,  // seen near the ends of reads
  kOxidation  // guanine read as thymine, by the read that begins on its strand: both reads and all copies show it
};

struct Artefact {
  Site site;  // a SNP of one alternative
  ArtefactKind kind = ArtefactKind::kStrand;
  bool reversed = false;  // of kStrand: the direction
  Chance chance = 0;      // of a read (kOxidation: a molecule) that can show it
  bool in_normal = false;
  bool in_panel = false;
};

// The name of the kind in files.
inline const char* nameOf(ArtefactKind kind) {
  return kind == ArtefactKind::kStrand ? "strand" : kind == ArtefactKind::kReadEnd ? "read_end" : "oxidation";
}
