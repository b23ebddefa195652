// 32-bit fixed-point FFT of the small orders (see fft32s.h).
#include "transform/fft32s.h"

#include "transform/trig.h"

namespace zam {
namespace {

struct Roots64 {
    int32_t re[32], im[32];  // W_64^k in Q30
};

constexpr int32_t q30(double v)
{
    const double s = v * 1073741824.0;
    return static_cast<int32_t>(s < 0 ? s - 0.5 : s + 0.5);
}

constexpr Roots64 makeRoots()
{
    Roots64 r{};
    for (int k = 0; k < 32; ++k) {
        const SinCos sc = sinCosTurn(k, 64);
        r.re[k] = q30(sc.c);
        r.im[k] = q30(-sc.s);
    }
    return r;
}
constexpr Roots64 kRoots = makeRoots();

constexpr int reverse(int v, int bits)
{
    int r = 0;
    for (int b = 0; b < bits; ++b) r |= ((v >> b) & 1) << (bits - 1 - b);
    return r;
}

}  // namespace

void fft32sFwd(const int32_t* src, int32_t* dst, int order, int halvings)
{
    const int n = 1 << order;
    for (int i = 0; i < n; ++i) {
        const int r = reverse(i, order);
        dst[2 * i] = src[2 * r];
        dst[2 * i + 1] = src[2 * r + 1];
    }
    for (int level = 0, h = 1; level < order; ++level, h *= 2) {
        const int stride = 32 / h;  // W_2h^j = W_64^(j * 32/h)
        const bool halve = level < halvings;
        for (int g = 0; g < n; g += 2 * h)
            for (int j = 0; j < h; ++j) {
                int32_t* a = dst + 2 * (g + j);
                int32_t* b = a + 2 * h;
                const int64_t wr = kRoots.re[j * stride], wi = kRoots.im[j * stride];
                const int64_t tr = (b[0] * wr - b[1] * wi + (int64_t{1} << 29)) >> 30;
                const int64_t ti = (b[0] * wi + b[1] * wr + (int64_t{1} << 29)) >> 30;
                int64_t s0 = a[0] + tr, s1 = a[1] + ti, d0 = a[0] - tr, d1 = a[1] - ti;
                if (halve) s0 = (s0 + 1) >> 1, s1 = (s1 + 1) >> 1, d0 = (d0 + 1) >> 1, d1 = (d1 + 1) >> 1;
                a[0] = static_cast<int32_t>(s0);
                a[1] = static_cast<int32_t>(s1);
                b[0] = static_cast<int32_t>(d0);
                b[1] = static_cast<int32_t>(d1);
            }
    }
}

}  // namespace zam
