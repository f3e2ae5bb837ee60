// descriptor_limit.h - how many files the process may hold open.
#pragma once

// Raises the limit to what is allowed and returns it; the largest number when it cannot be told, so that opening has to
// show it.
unsigned long raiseDescriptorLimit();

// Descriptors in use.
unsigned long openDescriptors();
