#include "algo/vcall/annotate/annotator.h"
