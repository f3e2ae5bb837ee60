// sam_text.h - records as SAM lines, for messages, tests and debugging.
#pragma once

#include <string>

#include "readdata/bam/bam_header.h"
#include "readdata/bam/bam_record.h"

// Replaces `buffer` by the SAM line, without newline.
void to_text(const bam_record& record, const bam_header& header, std::string& buffer);
// One short line: name, flag, contig, position and the mate's, for log lines.
std::string shortText(const bam_record& record, const bam_header& header);
void print_flag_legend(FILE* stream);
