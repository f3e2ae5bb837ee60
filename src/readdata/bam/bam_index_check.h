// bam_index_check.h - whether an index covers its BAM file: reads outside of all chunks would never be seen.
#pragma once

#include <cstdint>

class BAMImpl;
class BamIndex;

// The chunks of all contigs, in the order of the contigs, must follow each other without a gap from
// `records_begin`, the virtual offset behind the header, to the last one, with nothing placed behind it.
// Where an offset has two spellings (the end of a block and the beginning of the next) either will do. The
// pseudo bins and the windows of the linear index must agree with the chunks. A change that another bin's
// chunk covers up is not seen here.
//
// `probe` is an open handle with its header, whose position is lost; one record is read from it.
// Errors  std::invalid_argument that names both files.
// Cost    sorts the chunks; a block or two is inflated at the end and where two spellings meet.
void checkIndexCovers(BAMImpl& probe, const BamIndex& index, uint64_t records_begin);
