// SBR encoder analysis tools on the rows of the 64-band analysis: transient
// detection for the time grid, and the tonality-to-noise ratio by second-order
// linear prediction.
#include <cmath>
#include <cstring>

#include "core/export.h"

namespace {

constexpr int kBands = 64;
constexpr int kMaxSlots = 64;
constexpr int kRefSlots = 4;  // preceding slots a slot's energy is compared with

bool rangeOk(int numSlots, int minSlots, int startBand, int numBands)
{
    return numSlots >= minSlots && numSlots <= kMaxSlots && startBand >= 0 && numBands >= 1 &&
           startBand + numBands <= kBands;
}

bool rowsPresent(const float* const* rows, int n)
{
    for (int i = 0; i < n; ++i)
        if (!rows[i]) return false;
    return true;
}

double energy(const float* row, int k)
{
    const double re = row[2 * k], im = row[2 * k + 1];
    return re * re + im * im;
}

}  // namespace

ZAM_API ZamStatus zamsDetectTransient_SBR_32f(const float* const* ppSrc, int* pPos, int* pFrameClass, int numSlots,
                                              int startBand, int numBands, float thresholdDb,
                                              SbrTransientState* pState)
{
    if (!ppSrc || !pPos || !pFrameClass || !pState) return zamStsNullPtr;
    if (!rangeOk(numSlots, 1, startBand, numBands)) return zamStsSize;
    if (!(thresholdDb > 0.0f)) return zamStsBadArg;
    if (!rowsPresent(ppSrc, numSlots)) return zamStsNullPtr;
    const int hist = pState->numHistory < 0 ? 0 : pState->numHistory > kRefSlots ? kRefSlots : pState->numHistory;
    // Energies of the held slots then the frame's: e[(kRefSlots + l) * 64 + k].
    static_assert(kRefSlots * kBands <= 256);
    double e[(kRefSlots + kMaxSlots) * kBands];
    double total = 0;
    for (int h = 0; h < kRefSlots; ++h)
        for (int k = startBand; k < startBand + numBands; ++k) e[h * kBands + k] = pState->prevEnergy[h][k];
    for (int l = 0; l < numSlots; ++l)
        for (int k = startBand; k < startBand + numBands; ++k)
            total += e[(kRefSlots + l) * kBands + k] = energy(ppSrc[l], k);
    // Floor far below the frame's mean slot energy (silence compares as equal).
    const double eps = 1e-9 * total / numSlots + 1e-30;
    // Band sums: a slot is a candidate when it rises above the mean of the slots
    // before it by more than the threshold; the transient is the candidate with
    // the largest rise in energy.
    double sum[kRefSlots + kMaxSlots];
    for (int l = -hist; l < numSlots; ++l) {
        double a = 0;
        for (int k = startBand; k < startBand + numBands; ++k) a += e[(kRefSlots + l) * kBands + k];
        sum[kRefSlots + l] = a;
    }
    const double ratio = std::pow(10.0, thresholdDb / 10.0);
    int pos = -1;
    double best = 0;
    for (int l = 0; l < numSlots; ++l) {
        const int first = l - kRefSlots < -hist ? -hist : l - kRefSlots;  // earliest usable reference slot
        if (first >= l) continue;
        double ref = 0;
        for (int r = first; r < l; ++r) ref += sum[kRefSlots + r];
        ref /= (l - first);
        const double cur = sum[kRefSlots + l];
        if (cur + eps > ratio * (ref + eps) && cur - ref > best) best = cur - ref, pos = l;
    }
    const bool prevVar = pState->prevFrameClass == ZAM_SBR_FIXVAR || pState->prevFrameClass == ZAM_SBR_VARVAR;
    const int cls = prevVar ? (pos >= 0 ? ZAM_SBR_VARVAR : ZAM_SBR_VARFIX) : (pos >= 0 ? ZAM_SBR_FIXVAR : ZAM_SBR_FIXFIX);
    // Keep the last kRefSlots slots (held ones first when the frame is shorter).
    for (int h = 0; h < kRefSlots; ++h) {
        const int src = numSlots - kRefSlots + h;  // index into the frame, negative: held slots
        for (int k = 0; k < kBands; ++k) {
            const bool inRange = k >= startBand && k < startBand + numBands;
            pState->prevEnergy[h][k] =
                inRange ? static_cast<float>(e[(kRefSlots + src) * kBands + k]) : 0.0f;
        }
    }
    pState->numHistory = hist + numSlots > kRefSlots ? kRefSlots : hist + numSlots;
    pState->prevFrameClass = cls;
    *pPos = pos;
    *pFrameClass = cls;
    return zamStsOk;
}

ZAM_API ZamStatus zamsEstimateTNR_SBR_32f(const float* const* ppSrc, float* pDst, int numSlots, int startBand,
                                          int numBands)
{
    if (!ppSrc || !pDst) return zamStsNullPtr;
    if (!rangeOk(numSlots, 3, startBand, numBands)) return zamStsSize;
    if (!rowsPresent(ppSrc, numSlots)) return zamStsNullPtr;
    for (int i = 0; i < numBands; ++i) {
        const int k = startBand + i;
        // x0 = x(n), x1 = x(n-1), x2 = x(n-2), n = 2..numSlots-1; r_ij = <x_i, x_j>.
        double r00 = 0, r11 = 0, r22 = 0, r12re = 0, r12im = 0, b1re = 0, b1im = 0, b2re = 0, b2im = 0;
        for (int n = 2; n < numSlots; ++n) {
            const double ar = ppSrc[n][2 * k], ai = ppSrc[n][2 * k + 1];
            const double br = ppSrc[n - 1][2 * k], bi = ppSrc[n - 1][2 * k + 1];
            const double cr = ppSrc[n - 2][2 * k], ci = ppSrc[n - 2][2 * k + 1];
            r00 += ar * ar + ai * ai, r11 += br * br + bi * bi, r22 += cr * cr + ci * ci;
            r12re += br * cr + bi * ci, r12im += br * ci - bi * cr;  // conj(x1) x2
            b1re += br * ar + bi * ai, b1im += br * ai - bi * ar;    // conj(x1) x0
            b2re += cr * ar + ci * ai, b2im += cr * ai - ci * ar;    // conj(x2) x0
        }
        double explained = 0;
        const double det = r11 * r22 - (r12re * r12re + r12im * r12im);
        if (det > 1e-9 * r11 * r22) {
            // b^H R^-1 b with R = [[r11, r12], [conj r12, r22]]
            const double cross = (b1re * (r12re * b2re - r12im * b2im) + b1im * (r12re * b2im + r12im * b2re));
            explained = (r22 * (b1re * b1re + b1im * b1im) + r11 * (b2re * b2re + b2im * b2im) - 2 * cross) / det;
        } else if (r11 > 0) {
            explained = (b1re * b1re + b1im * b1im) / r11;  // first order
        }
        double residual = r00 - explained;
        if (residual < r00 * 1e-12) residual = r00 * 1e-12;
        pDst[i] = r00 > 0 ? static_cast<float>(10.0 * std::log10(r00 / residual)) : 0.0f;
    }
    return zamStsOk;
}
