#include "algo/vcall/gvcf_bands.h"
