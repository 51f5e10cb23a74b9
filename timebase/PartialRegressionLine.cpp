#include "timebase/PartialRegressionLine.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <limits>

#include "base/Exports.h"
#include "base/Extended80.h"

unsigned long long slope_x = 0;
unsigned long long slope_y = 0;
long long slope_mZ = 1;
long long slope_mN = 1;

namespace {

constexpr int kRingSize = 20;
constexpr unsigned long long kUnitNs = 20;  // samples are kept in units of 20 ns
constexpr long double kFitsBelowNs = 3000;
constexpr long double kOutlierAboveNs = 24000;

unsigned long long tSamples[kRingSize];
unsigned long long uSamples[kRingSize];
int sampleIndex = 0;
int sampleCount = 0;

enum class Gate { kFits, kOutlier, kRefit };

/** Sums of a fit, modulo 2^64: long spacings wrap, and the lines they give are part of what
 *  embedding programs know. */
struct FitSums {
    unsigned long long t = 0, u = 0, tu = 0, tt = 0;
};

long double quotient(long long numerator, long long denominator) {
    return static_cast<long double>(numerator) / static_cast<long double>(denominator);
}

/** The first eight bytes of the extended value read as a double: what the log has always shown as
 *  m, although it is not the value of the quotient. */
double significandAsDouble(long double value) {
    double shown = 0;
    std::memcpy(&shown, &value, sizeof shown);
    return shown;
}

void printCall(unsigned long long t, unsigned long long u) {
    std::printf("t_org=%llu u_org=%llu  slope_y=%llu m=%lf\n", t, u, slope_y,
                significandAsDouble(quotient(slope_mZ, slope_mN)));
    std::cout << "m=" << quotient(slope_mN, slope_mZ) << std::endl;
}

long long wrappingDivide(long long a, long long b) {
    return b == -1 ? static_cast<long long>(0 - static_cast<unsigned long long>(a)) : a / b;
}

long long wrappingRemainder(long long a, long long b) {
    return b == -1 ? 0 : a % b;
}

/** Greatest common divisor with the sign of the denominator. */
long long signedGcd(long long numerator, long long denominator) {
    long long a = denominator;
    long long b = numerator;
    while (b != 0) {
        const long long remainder = wrappingRemainder(a, b);
        a = b;
        b = remainder;
    }
    return (a < 0) != (denominator < 0)
               ? static_cast<long long>(0 - static_cast<unsigned long long>(a))
               : a;
}

Gate judge(unsigned long long t, unsigned long long u) {
    const long double predicted =
        static_cast<long double>(slope_y) + unsignedDiff(t, slope_x) * quotient(slope_mZ, slope_mN);
    const long double error = std::fabs(predicted - static_cast<long double>(u));
    if (error < kFitsBelowNs) {
        return Gate::kFits;
    }
    return error > kOutlierAboveNs ? Gate::kOutlier : Gate::kRefit;
}

/** Least squares through the first samples of the ring. Samples of one single t have no line. */
void refit(int samples) {
    const unsigned long long t0 = *std::min_element(tSamples, tSamples + samples);
    const unsigned long long u0 = *std::min_element(uSamples, uSamples + samples);
    FitSums sums;
    for (int i = 0; i < samples; ++i) {
        const unsigned long long dt = tSamples[i] - t0;
        const unsigned long long du = uSamples[i] - u0;
        sums.t += dt;
        sums.u += du;
        sums.tu += dt * du;
        sums.tt += dt * dt;
    }
    const auto n = static_cast<unsigned long long>(samples);
    const auto numerator = static_cast<long long>(n * sums.tu - sums.t * sums.u);
    const auto denominator = static_cast<long long>(n * sums.tt - sums.t * sums.t);
    if (denominator == 0) {
        return;
    }
    const unsigned long long intercept = sums.u * sums.tt - sums.t * sums.tu;
    const long long divisor = signedGcd(numerator, denominator);
    slope_mZ = wrappingDivide(numerator, divisor);
    slope_mN = wrappingDivide(denominator, divisor);
    slope_x = t0 * kUnitNs;
    const long long interceptNs =
        wrappingDivide(static_cast<long long>(intercept * kUnitNs), denominator);
    slope_y = static_cast<unsigned long long>(interceptNs) + u0 * kUnitNs;
}

}  // namespace

ZEB_ENTRY void PartialRegressionLine(unsigned long long t, unsigned long long u) {
    printCall(t, u);
    tSamples[sampleIndex] = (t + kUnitNs / 2) / kUnitNs;
    uSamples[sampleIndex] = (u + kUnitNs / 2) / kUnitNs;
    sampleIndex = (sampleIndex + 1) % kRingSize;
    sampleCount = std::min(sampleCount + 1, kRingSize);
    if (sampleCount < kRingSize) {
        refit(sampleCount);
        return;
    }
    switch (judge(t, u)) {
    case Gate::kFits:
        break;
    case Gate::kOutlier:
        // The next sample overwrites this one, which until then takes part in refits.
        sampleIndex = (sampleIndex + kRingSize - 1) % kRingSize;
        break;
    case Gate::kRefit:
        refit(kRingSize);
        break;
    }
}

ZEB_PLAIN_NAME(void, PartialRegressionLine, (unsigned long long t, unsigned long long u),
               "_Z21PartialRegressionLineyy");
