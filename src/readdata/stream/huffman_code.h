// huffman_code.h - canonical Huffman codes of limited length, as deflate wants them.
// Source   the deflate format, RFC 1951, section 3.2.2.
#pragma once

#include <cstddef>
#include <cstdint>

// Code lengths of symbols 0 to n-1 for their counts; 0 for a count of 0. No length is above `limit`, for which
// counts are halved until the tree is flat enough. At least two counts are above 0; their sum fits in 32 bits.
void huffmanLengths(const uint32_t* counts, size_t n, int limit, uint8_t* lengths);

// The codes that belong to lengths of at most 15, first bit lowest. A length of 0 leaves its code alone.
void huffmanCodes(const uint8_t* lengths, size_t n, uint16_t* codes);
