// read_end.h - what duplicate marking compares of a read.
// Coords   zero-based.
#pragma once

#include <cstdint>

#include "readdata/bam/read.h"

// Where the read's first base in sequencing order would stand if its soft clips were aligned. Hard clips do not count.
int32_t unclippedFivePrime(const Read& read);

// Sum of the base qualities of 15 and above.
int32_t qualityScore(Read& read);
