// host.h - the machine the program runs on.
#pragma once

#include <string>

// Operating system and processor as text lines, or an empty text when they cannot be read.
std::string host_report();

// SSSE3, SSE4.2, AES and AVX, which the fast deflate path wants. Read once, at the first call.
bool cpu_has_fast_deflate();
