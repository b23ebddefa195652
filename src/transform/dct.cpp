// Orthonormal DCT of type III of any length:
//   y[n] = s0*x[0] + s1 * sum_{k=1}^{N-1} x[k] cos(pi*k*(2n+1)/(2N)).
// Lengths 1, 2, 4, 8 by fixed kernels; other lengths below 36 by the cosine
// matrix; powers of two above 8 through an N-point complex FFT; the other lengths
// from 36 up through a chirp (Bluestein) convolution on a power-of-two FFT.
//
// FFT and general paths use the even/odd reordering of an N-point DFT: with the
// scaled inputs X_0 = 2*s0*x[0], X_k = s1*x[k] and X_N = 0,
//   U_k = (1/2) e^{-i pi k/(2N)} (X_k + i X_{N-k}),   F = DFT_N(U),
//   y[2n] = Re F_n,  y[2n+1] = Re F_{N-1-n}.
// The general path computes that DFT as a chirp convolution,
//   F_n = h_n * sum_k (U_k h_k) conj(h_{n-k}),  h_m = e^{-i pi m^2/N},
// of length M >= 2N-1 with three power-of-two transforms of M points (the
// chirp's transform is kept in the DctSpec tables, divided by M).
#include <immintrin.h>

#include <climits>
#include <cmath>
#include <cstring>

#include "core/memory.h"
#include "transform/fft.h"
#include "transform/trig.h"

namespace zam {

namespace {

constexpr int64_t roundUp64(int64_t b) { return roundUp(b, 64); }
constexpr int kRecordArea = 128;  // the record, padded to the next 64-byte boundary

bool pow2(int n) { return n > 0 && (n & (n - 1)) == 0; }
int log2Of(int64_t v) { return 63 - __builtin_clzll(static_cast<uint64_t>(v)); }

// ------------------------------------------------------------ fixed kernels

struct Dct8Table {
    float c[8][8];
};
constexpr Dct8Table makeDct8()
{
    Dct8Table t{};
    for (int n = 0; n < 8; ++n)
        for (int k = 0; k < 8; ++k) {
            double v = k == 0 ? 0.35355339059327376 : 0.5 * sinCosTurn(int64_t{k} * (2 * n + 1), 32).c;
            t.c[n][k] = static_cast<float>(v);
        }
    return t;
}
constexpr Dct8Table kDct8 = makeDct8();

void dct1(const float* x, float* y) { y[0] = x[0]; }

void dct2(const float* x, float* y)
{
    const float a = x[0], b = x[1];
    y[0] = (a + b) * 0.70710677f;
    y[1] = (a - b) * 0.70710677f;
}

void dct4(const float* x, float* y)
{
    const float e0 = 0.5f * (x[0] + x[2]), e1 = 0.5f * (x[0] - x[2]);
    const float o0 = 0.6532815f * x[1] + 0.27059805f * x[3];
    const float o1 = 0.27059805f * x[1] - 0.6532815f * x[3];
    y[0] = e0 + o0;
    y[3] = e0 - o0;
    y[1] = e1 + o1;
    y[2] = e1 - o1;
}

// Even and odd input terms separately: y[n] = E + O and y[7-n] = E - O, because
// the even cosines are symmetric and the odd ones antisymmetric about the middle.
void dct8(const float* x, float* y)
{
    float e[4], o[4];
    for (int n = 0; n < 4; ++n) {
        e[n] = kDct8.c[n][0] * x[0] + kDct8.c[n][2] * x[2] + kDct8.c[n][4] * x[4] + kDct8.c[n][6] * x[6];
        o[n] = kDct8.c[n][1] * x[1] + kDct8.c[n][3] * x[3] + kDct8.c[n][5] * x[5] + kDct8.c[n][7] * x[7];
    }
    for (int n = 0; n < 4; ++n) {
        y[n] = e[n] + o[n];
        y[7 - n] = e[n] - o[n];
    }
}

// ------------------------------------------------------------ layout

struct DctLayout {
    int64_t used;       // bytes from the record
    int64_t init;
    int64_t work;       // the record's work size
    int fftOrder;       // -1 when none
};

int64_t convLength(int n)
{
    int64_t m = 1;
    while (m < 2 * int64_t{n} - 1) m *= 2;
    return m;
}

ZamStatus layoutFor(int n, DctLayout& l)
{
    l = {kRecordArea, 0, 0, -1};
    if (pow2(n) && n <= 8) return zamStsOk;
    int fs = 0, fi = 0, fw = 0;
    if (pow2(n)) {
        if (n > 0x0FFFFFFF) return zamStsSize;
        l.fftOrder = log2Of(n);
        ZamStatus st = fftGetSize(l.fftOrder, kFftNoScale, 0, &fs, &fi, &fw);
        if (st != zamStsOk) return st;
        l.used = kRecordArea + roundUp64(8 * int64_t{n}) + fs;
        l.init = fi;
        l.work = 8 * int64_t{n} + fw + 64;
        return zamStsOk;
    }
    if (n < 36) {
        l.used = kRecordArea + roundUp64(4 * int64_t{n} * n);
        l.work = 4 * int64_t{n};
        return zamStsOk;
    }
    if (n > 0x3FFFFFF) return zamStsSize;
    const int64_t m = convLength(n);
    l.fftOrder = log2Of(m);
    ZamStatus st = fftGetSize(l.fftOrder, kFftNoScale, 0, &fs, &fi, &fw);
    if (st != zamStsOk) return st;
    l.used = kRecordArea + 2 * roundUp64(8 * int64_t{n}) + roundUp64(8 * m) + fs;
    // The init buffer serves the FFT's own init first, then the chirp's transform.
    l.init = (fi > 8 * m + fw ? fi : 8 * m + fw) + 128;
    l.work = 8 * m + fw + 64;
    return zamStsOk;
}

void scaleInto(const float* x, float* w, int n, float s0, float s1)
{
    w[0] = x[0] * s0;
    for (int k = 1; k < n; ++k) w[k] = x[k] * s1;
}

}  // namespace

ZamStatus dctGetSize(int length, int hint, int* pSpecSize, int* pInitSize, int* pWorkSize)
{
    if (length < 1) return zamStsSize;
    if (!pSpecSize || !pInitSize || !pWorkSize) return zamStsNullPtr;
    DctLayout l;
    ZamStatus st = layoutFor(length, l);
    if (st != zamStsOk) return st;
    const int64_t spec = 64 + l.used, work = l.work > 0 ? l.work + 64 : 0;
    if (spec > INT_MAX || work > INT_MAX || l.init > INT_MAX) return zamStsSize;
    *pSpecSize = static_cast<int>(spec);
    *pInitSize = static_cast<int>(l.init);
    *pWorkSize = static_cast<int>(work);
    return zamStsOk;
}

ZamStatus dctInit(DctSpec** ppSpec, int n, int hint, uint8_t* pMemSpec, uint8_t* pMemInit)
{
    if (n < 1) return zamStsSize;
    if (!ppSpec || !pMemSpec) return zamStsNullPtr;
    auto* s = alignUp<DctSpec>(pMemSpec, 64);
    std::memset(s, 0, kDctClearBytes);
    s->length = n;
    s->hint = hint;
    s->reserved = 0;
    if (pow2(n) && n <= 8) {
        s->smallKernel = 1;
        s->workSize = 0;
        s->s0 = rsqrtNewton(static_cast<float>(n));
        s->s1 = static_cast<float>(1.4142135623730951 / std::sqrt(static_cast<double>(n)));
        s->tag = kTagDct;
        *ppSpec = s;
        return zamStsOk;
    }
    s->s0 = rsqrtNewton(static_cast<float>(n));
    s->s1 = static_cast<float>(1.4142135623730951 / std::sqrt(static_cast<double>(n)));
    DctLayout l;
    ZamStatus st = layoutFor(n, l);
    if (st != zamStsOk) return st;
    uint8_t* area = reinterpret_cast<uint8_t*>(s) + kRecordArea;
    s->table = reinterpret_cast<float*>(area);
    s->workSize = static_cast<int32_t>(l.work);
    if (pow2(n)) {
        // (1/2) e^{-i pi k/(2N)} for k < N
        for (int64_t k = 0; k < n; ++k) {
            SinCos sc = sinCosTurn(k, 4 * int64_t{n});
            s->table[2 * k] = static_cast<float>(0.5 * sc.c);
            s->table[2 * k + 1] = static_cast<float>(-0.5 * sc.s);
        }
        st = fftInit(&s->fft, l.fftOrder, kFftNoScale, 0, area + roundUp64(8 * int64_t{n}), pMemInit);
        if (st != zamStsOk) return st;
        s->fftPath = 1;
    } else if (n < 36) {
        for (int64_t r = 0; r < n; ++r)
            for (int64_t k = 0; k < n; ++k)
                s->table[r * n + k] = static_cast<float>(sinCosTurn(k * (2 * r + 1), 4 * int64_t{n}).c);
    } else {
        if (!pMemInit) return zamStsNullPtr;
        const int64_t m = convLength(n);
        float* pre = s->table;                                          // e^{-i pi k/(2N)} h_k
        float* post = pre + roundUp64(8 * int64_t{n}) / 4;              // h_n
        float* chirp = post + roundUp64(8 * int64_t{n}) / 4;            // transform of conj(h)/M
        uint8_t* fftMem = reinterpret_cast<uint8_t*>(chirp) + roundUp64(8 * m);
        uint8_t* init = alignUp(pMemInit, 64);
        st = fftInit(&s->fft, l.fftOrder, kFftNoScale, 0, fftMem, init);
        if (st != zamStsOk) return st;
        for (int64_t k = 0; k < n; ++k) {
            // h_k = e^{-i pi k^2/N} = turn -(k^2 mod 2N)/(2N)
            SinCos h = sinCosTurn((k * k) % (2 * int64_t{n}), 2 * int64_t{n});
            SinCos t = sinCosTurn(k, 4 * int64_t{n});
            // e^{-i a} e^{-i b} = cos(a+b) - i sin(a+b)
            double re = 0.5 * (h.c * t.c - h.s * t.s), im = -0.5 * (h.s * t.c + h.c * t.s);
            pre[2 * k] = static_cast<float>(re);
            pre[2 * k + 1] = static_cast<float>(im);
            post[2 * k] = static_cast<float>(h.c);
            post[2 * k + 1] = static_cast<float>(-h.s);
        }
        // d_m = conj(h_m) / M for |m| < N, placed circularly.
        std::memset(chirp, 0, static_cast<size_t>(8 * m));
        for (int64_t k = 0; k < n; ++k) {
            SinCos h = sinCosTurn((k * k) % (2 * int64_t{n}), 2 * int64_t{n});
            const float re = static_cast<float>(h.c / static_cast<double>(m));
            const float im = static_cast<float>(h.s / static_cast<double>(m));
            chirp[2 * k] = re;
            chirp[2 * k + 1] = im;
            if (k > 0) {
                chirp[2 * (m - k)] = re;
                chirp[2 * (m - k) + 1] = im;
            }
        }
        float* tmp = reinterpret_cast<float*>(init);
        uint8_t* fftWork = init + 8 * m;
        st = fftFwd(chirp, tmp, s->fft, fftWork);
        if (st != zamStsOk) return st;
        std::memcpy(chirp, tmp, static_cast<size_t>(8 * m));
        s->chirpSpectrum = chirp;
        s->convOrder = l.fftOrder;
        s->generalPath = 1;
    }
    s->tag = kTagDct;
    *ppSpec = s;
    return zamStsOk;
}

ZamStatus dctApply(const float* pSrc, float* pDst, const DctSpec* pSpec, uint8_t* pWork)
{
    if (!pSpec || !pSrc || !pDst) return zamStsNullPtr;
    if (pSpec->tag != kTagDct) return zamStsContextMismatch;
    const int n = pSpec->length;
    if (pSpec->smallKernel) {
        switch (n) {
        case 1: dct1(pSrc, pDst); break;
        case 2: dct2(pSrc, pDst); break;
        case 4: dct4(pSrc, pDst); break;
        default: dct8(pSrc, pDst); break;
        }
        return zamStsOk;
    }
    uint8_t* allocated = nullptr;
    uint8_t* work;
    if (pWork) {
        work = alignUp(pWork, 64);
    } else {
        allocated = static_cast<uint8_t*>(allocBytes(pSpec->workSize));
        if (!allocated) return zamStsMemAlloc;
        work = allocated;
    }
    ZamStatus st = zamStsOk;
    auto* w = reinterpret_cast<float*>(work);
    if (pSpec->fftPath || pSpec->generalPath) {
        const float* t = pSpec->table;
        const float s0 = 2.0f * pSpec->s0, s1 = pSpec->s1;
        for (int k = 0; k < n; ++k) {
            const float xk = pSrc[k] * (k == 0 ? s0 : s1);
            const float xm = k == 0 ? 0.0f : pSrc[n - k] * s1;
            w[2 * k] = t[2 * k] * xk - t[2 * k + 1] * xm;
            w[2 * k + 1] = t[2 * k] * xm + t[2 * k + 1] * xk;
        }
        if (pSpec->fftPath) {
            st = fftFwd(w, w, pSpec->fft, work + 8 * int64_t{n});
        } else {
            const int64_t m = int64_t{1} << pSpec->convOrder;
            const float* post = t + roundUp64(8 * int64_t{n}) / 4;
            const float* d = pSpec->chirpSpectrum;
            uint8_t* fftWork = work + 8 * m;
            std::memset(w + 2 * n, 0, static_cast<size_t>(8 * (m - n)));
            st = fftFwd(w, w, pSpec->fft, fftWork);
            if (st == zamStsOk) {
                // conj(A * D), so that a forward transform gives the conjugated inverse.
                for (int64_t i = 0; i < m; ++i) {
                    const float ar = w[2 * i], ai = w[2 * i + 1], dr = d[2 * i], di = d[2 * i + 1];
                    w[2 * i] = ar * dr - ai * di;
                    w[2 * i + 1] = -(ar * di + ai * dr);
                }
                st = fftFwd(w, w, pSpec->fft, fftWork);
            }
            // F_n = h_n * conj(G_n); only the real part is needed.
            if (st == zamStsOk)
                for (int k = 0; k < n; ++k) w[2 * k] = post[2 * k] * w[2 * k] + post[2 * k + 1] * w[2 * k + 1];
        }
        if (st == zamStsOk) {
            for (int j = 0; 2 * j < n; ++j) pDst[2 * j] = w[2 * j];
            for (int j = 0; 2 * j + 1 < n; ++j) pDst[2 * j + 1] = w[2 * (n - 1 - j)];
        }
    } else {
        // Matrix path: scale first, then the cosine sums.
        scaleInto(pSrc, w, n, pSpec->s0, pSpec->s1);
        for (int r = 0; r < n; ++r) {
            const float* row = pSpec->table + static_cast<int64_t>(r) * n;
            float acc = 0;
            for (int k = 0; k < n; ++k) acc += row[k] * w[k];
            pDst[r] = acc;
        }
    }
    release(allocated);
    return st;
}

}  // namespace zam
