#include "readdata/bam/bam_record.h"
