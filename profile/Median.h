#pragma once

namespace estimator {

/** Most values that median takes: the slopes between any two of sixteen readings. */
inline constexpr int kMostOfMedian = 120;

/** Puts the values, of which there is one at least, into another order and loses some. */
double median(double* values, int count);

}  // namespace estimator
