// descriptor_limit.h - makes sure, before a run opens its inputs, that it can hold all its files open.
#pragma once

#include <cstddef>

// Raises the process's limit of open files to what is allowed. Throws std::invalid_argument, telling what is
// needed and what is allowed, when the run does not fit: one descriptor per input, which clones share; per
// algorithm one partial file per thread and its outputs; and a reserve for the reference, an index being
// loaded and the like.
void reserveDescriptors(size_t inputs, size_t algos, int threads);
