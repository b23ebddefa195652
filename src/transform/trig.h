// Compile-time sine and cosine in double precision, so that the transforms'
// fixed twiddle tables are constant data rather than tables built at load time.
#pragma once

#include <cstdint>

namespace zam {

inline constexpr double kPi = 3.14159265358979323846264338327950288;

// sin and cos of 2*pi*num/den, for 0 <= num. The angle is reduced exactly with
// integers to the first octant before the Taylor series, which keeps the result
// within an ulp or two of the true value.
struct SinCos {
    double s;
    double c;
};

constexpr double taylorSin(double x)
{
    double term = x, sum = x, x2 = x * x;
    for (int k = 1; k < 14; ++k) {
        term *= -x2 / ((2.0 * k) * (2.0 * k + 1.0));
        sum += term;
    }
    return sum;
}

constexpr double taylorCos(double x)
{
    double term = 1.0, sum = 1.0, x2 = x * x;
    for (int k = 1; k < 14; ++k) {
        term *= -x2 / ((2.0 * k - 1.0) * (2.0 * k));
        sum += term;
    }
    return sum;
}

// Square root of x > 0 by Newton's iteration, usable in constant expressions on
// every compiler (the builtin is constant only for some). It can miss the correctly
// rounded root by the last bit of the double, below what float tables built on it
// can see.
constexpr double constSqrt(double x)
{
    double y = x > 1.0 ? x : 1.0;
    for (int i = 0; i < 64; ++i) {
        const double next = 0.5 * (y + x / y);
        if (next == y) break;
        y = next;
    }
    return y;
}

// sin/cos of 2*pi*num/den for integers; exact octant reduction on 8*num mod 8*den.
constexpr SinCos sinCosTurn(int64_t num, int64_t den)
{
    num %= den;
    if (num < 0) num += den;
    // Work in units of 1/(8*den) of a turn: octant = floor(8*num/den).
    int64_t scaled = num * 8;
    int64_t octant = scaled / den;
    int64_t rem = scaled - octant * den;  // 0..den-1 inside the octant
    // Angle inside the octant, in radians: rem/den * (pi/4).
    double a = static_cast<double>(rem) / static_cast<double>(den) * (kPi / 4.0);
    double ra = static_cast<double>(den - rem) / static_cast<double>(den) * (kPi / 4.0);
    double sa = taylorSin(a), ca = taylorCos(a);
    double sb = taylorSin(ra), cb = taylorCos(ra);  // angle pi/4 - a
    switch (octant) {
    case 0: return {sa, ca};
    case 1: return {cb, sb};     // pi/2 - (pi/4 - a)
    case 2: return {ca, -sa};    // pi/2 + a
    case 3: return {sb, -cb};    // pi - (pi/4 - a)
    case 4: return {-sa, -ca};   // pi + a
    case 5: return {-cb, -sb};
    case 6: return {-ca, sa};
    default: return {-sb, cb};
    }
}

}  // namespace zam
