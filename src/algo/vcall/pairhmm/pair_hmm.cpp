#include "algo/vcall/pairhmm/pair_hmm.h"
