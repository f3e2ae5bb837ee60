#include "readdata/vcf/allele.h"
