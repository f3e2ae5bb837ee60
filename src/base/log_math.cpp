#include "base/log_math.h"
