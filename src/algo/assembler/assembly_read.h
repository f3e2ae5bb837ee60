// assembly_read.h - a read as the assembler takes it.
// Owns     nothing: bases and qualities outlive the assembly.
#pragma once

#include <cstdint>

struct AssemblyRead {
  const char* bases = nullptr;     // letters
  const uint8_t* quals = nullptr;  // phred, one per base
  int32_t length = 0;
  int32_t sample = 0;  // index; counts of an edge are taken per sample
};
