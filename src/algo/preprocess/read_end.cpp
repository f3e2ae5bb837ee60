#include "algo/preprocess/read_end.h"
