// sam_text.h - records as SAM lines, for messages, tests and debugging.
#pragma once

#include <cstdio>
#include <string>

#include "readdata/bam/bam_header.h"
#include "readdata/bam/bam_record.h"

// Replaces `buffer` by the SAM line, without newline.
void to_text(const bam_record& record, const bam_header& header, std::string& buffer);
// One short line for logs: name, flag, mapq, bases, contig, position, the mate's contig and position,
// template length.
std::string shortText(const bam_record& record, const bam_header& header);
// The letters of the twelve flag bits, from 0x1 on, and their meaning.
void print_flag_legend(FILE* stream);
