#include "timebase/PartialRegressionLine.h"

unsigned long long slope_x = 0;
unsigned long long slope_y = 0;
long long slope_mZ = 1;
long long slope_mN = 1;
