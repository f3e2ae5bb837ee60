#include "algo/vcall/model/genotype_index.h"
