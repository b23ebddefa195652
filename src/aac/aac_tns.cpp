// AAC temporal noise shaping: all-pole filters (decoder) and their all-zero
// inverses (encoder) run over ranges of scale-factor bands, with direct-form
// coefficients stepped up from quantized reflection coefficients in fixed point.
#include <algorithm>

#include "aac/aac_quant.h"
#include "aac/aac_tns.h"
#include "core/export.h"

namespace zam {

// sin(i / ((2^(r-1) + 0.5) / (pi/2))) for i < 0 and sin(i / ((2^(r-1) - 0.5) / (pi/2)))
// for i >= 0, in Q31, rows r = 3 and r = 4.
const int32_t kAacTnsReflection[2][16] = {
    {-734482665, -1380375881, -1859775393, -2114858546, -2114858546, -1859775393, -1380375881, -734482665, 0,
     931758235, 1678970324, 2093641749, 2093641749, 1678970324, 931758235, 0},
    {-2138322861, -2065504841, -1922348530, -1713728946, -1446750378, -1130504462, -775760571, -394599085, 0,
     446486956, 873460290, 1262259218, 1595891361, 1859775393, 2042378317, 2135719508},
};

const uint8_t kAacTnsMaxBandsLong[12] = {31, 31, 34, 40, 42, 51, 46, 46, 42, 42, 42, 39};
const uint8_t kAacTnsMaxBandsShort[12] = {9, 9, 10, 14, 14, 14, 14, 14, 14, 14, 14, 14};

ZamStatus aacTnsConvert(const int8_t* indices, int order, int coefRes, int32_t* a, int* shift)
{
    const int32_t* row = kAacTnsReflection[coefRes - 3];
    int64_t coef[kAacTnsMaxOrder + 1] = {};
    for (int m = 1; m <= order; ++m) {
        const int index = indices[m - 1];
        if (index < -8 || index > 7) return zamStsAacTnsCoefErr;
        const int64_t k = row[index + 8];
        coef[m] = k;
        for (int i = 1; i <= m / 2; ++i) {
            const int64_t low = coef[i];
            const int64_t high = coef[m - i];
            coef[i] = low + ((((high + 512) >> 10) * k) >> 21);
            coef[m - i] = high + ((((low + 512) >> 10) * k) >> 21);
        }
    }
    int64_t largest = 0;
    for (int i = 1; i <= order; ++i) largest = std::max(largest, coef[i] < 0 ? -coef[i] : coef[i]);
    int s = 31;
    // Keep the coefficients within 2^26 so that the filter sums stay inside 64 bits.
    if (largest > (int64_t{1} << 26)) {
        while (largest > (int64_t{1} << 26)) {
            largest >>= 1;
            --s;
        }
        for (int i = 1; i <= order; ++i) coef[i] >>= 31 - s;
    }
    for (int i = 1; i <= order; ++i) a[i - 1] = static_cast<int32_t>(coef[i]);
    *shift = s;
    return zamStsOk;
}

namespace {

// The steady state of the all-pole filter, with every tap present: the order is a
// constant so that the tap loop unrolls. The newest output stays in a register
// and its product is taken last, which keeps the recursion's critical path to one
// multiply, subtract and shift; the older outputs are read back from the spectrum.
template <int Order>
void allPoleSteady(int32_t* p, int count, int step, const int32_t* a, int shift, int64_t previous)
{
    for (int j = 0; j < count; ++j, p += step) {
        int64_t acc = static_cast<int64_t>(*p) << shift;
        for (int i = 2; i <= Order; ++i) acc -= static_cast<int64_t>(a[i - 1]) * p[-i * step];
        acc -= a[0] * previous;
        const int32_t y = static_cast<int32_t>(acc >> shift);
        *p = y;
        previous = y;
    }
}

using SteadyKernel = void (*)(int32_t*, int, int, const int32_t*, int, int64_t);
constexpr SteadyKernel kSteady[kAacTnsMaxOrder + 1] = {
    nullptr,           allPoleSteady<1>, allPoleSteady<2>, allPoleSteady<3>,  allPoleSteady<4>,
    allPoleSteady<5>,  allPoleSteady<6>, allPoleSteady<7>, allPoleSteady<8>,  allPoleSteady<9>,
    allPoleSteady<10>, allPoleSteady<11>, allPoleSteady<12>,
};

}  // namespace

// The state starts cleared at the first coefficient of the range: the first
// `order` outputs use only the taps that exist.
void aacTnsAllPole(int32_t* x, int size, int step, const int32_t* a, int order, int shift)
{
    if (order < 1) return;  // no taps: y = (x << s) >> s = x
    int64_t previous = 0;
    int32_t* p = x;
    const int head = std::min(order, size);
    for (int j = 0; j < head; ++j, p += step) {
        int64_t acc = static_cast<int64_t>(*p) << shift;
        for (int i = 2; i <= j; ++i) acc -= static_cast<int64_t>(a[i - 1]) * p[-i * step];
        if (j >= 1) acc -= a[0] * previous;
        const int32_t y = static_cast<int32_t>(acc >> shift);
        *p = y;
        previous = y;
    }
    if (size > head) kSteady[order](p, size - head, step, a, shift, previous);
}

// Run from the far end backwards, so that the previous inputs are still unchanged
// when they are read.
void aacTnsAllZero(int32_t* x, int size, int step, const int32_t* a, int order, int shift)
{
    for (int j = size - 1; j >= 0; --j) {
        int64_t acc = static_cast<int64_t>(x[j * step]) << shift;
        const int taps = std::min(order, j);
        for (int i = 1; i <= taps; ++i) acc += static_cast<int64_t>(a[i - 1]) * x[(j - i) * step];
        x[j * step] = static_cast<int32_t>(acc >> shift);
    }
}

}  // namespace zam

using namespace zam;

namespace {

struct TnsArgs {
    int32_t* spectrum;
    const int32_t* numFilt;
    const int32_t* regionLen;
    const int32_t* order;
    const int32_t* coefRes;
    const int8_t* coef;
    const int32_t* direction;
    int32_t maxSfb;
    uint32_t samplingRateIndex;
    int32_t winLen;
};

ZamStatus runTns(const TnsArgs& t, bool encode)
{
    const bool eightShort = t.winLen == kAacShortWindowLength;
    if (t.samplingRateIndex > 11) return zamStsAacSmplRateIdxErr;
    const int sri = static_cast<int>(t.samplingRateIndex);
    const int numSwb = aacNumSwb(sri, eightShort);
    if (t.maxSfb < 0 || t.maxSfb > 51 || t.maxSfb > numSwb) return zamStsAacMaxSfbErr;

    const uint16_t* offsets = aacSwbOffsets(sri, eightShort);
    const int limit = std::min<int>(t.maxSfb, eightShort ? kAacTnsMaxBandsShort[sri] : kAacTnsMaxBandsLong[sri]);
    const int windows = eightShort ? 8 : 1;
    const int maxFilters = eightShort ? 1 : 3;
    const int maxOrder = eightShort ? 7 : 12;
    int filter = 0;
    int coefPos = 0;
    for (int w = 0; w < windows; ++w) {
        int32_t* x = t.spectrum + w * t.winLen;
        const int32_t numFilt = t.numFilt[w];
        if (numFilt < 0 || numFilt > maxFilters) return zamStsAacTnsNumFiltErr;
        int top = numSwb;
        for (int f = 0; f < numFilt; ++f, ++filter) {
            const int32_t length = t.regionLen[filter];
            if (length < 0 || length > numSwb) return zamStsAacTnsLenErr;
            const int32_t order = t.order[filter];
            if (order < 0 || order > maxOrder) return zamStsAacTnsOrderErr;
            const int bottom = std::max(top - length, 0);
            if (order != 0) {
                const int32_t coefRes = t.coefRes[w];
                if (coefRes != 3 && coefRes != 4) return zamStsAacTnsCoefResErr;
                int32_t a[kAacTnsMaxOrder];
                int shift = 0;
                ZamStatus st = aacTnsConvert(t.coef + coefPos, order, coefRes, a, &shift);
                if (st != zamStsOk) return st;
                const int32_t direction = t.direction[filter];
                if (direction != 0 && direction != 1) return zamStsAacTnsDirErr;
                const int start = offsets[std::min(limit, bottom)];
                const int end = offsets[std::min(limit, top)];
                const int size = end - start;
                if (size > 0) {
                    int32_t* first = direction == 0 ? x + start : x + end - 1;
                    const int step = direction == 0 ? 1 : -1;
                    if (encode)
                        aacTnsAllZero(first, size, step, a, order, shift);
                    else
                        aacTnsAllPole(first, size, step, a, order, shift);
                }
            }
            top = bottom;
            coefPos += order;
        }
    }
    return zamStsOk;
}

}  // namespace

ZAM_API ZamStatus zamsDecodeTNS_AAC_32s_I(int32_t* pSrcDst, const int32_t* pTnsNumFilt, const int32_t* pTnsRegionLen,
                                          const int32_t* pTnsFiltOrder, const int32_t* pTnsFiltCoefRes,
                                          const int8_t* pTnsFiltCoef, const int32_t* pTnsDirection, int32_t maxSfb,
                                          int32_t profile, uint32_t samplingRateIndex, int32_t winLen)
{
    if (!pSrcDst || !pTnsNumFilt || !pTnsRegionLen || !pTnsFiltOrder || !pTnsFiltCoefRes || !pTnsFiltCoef ||
        !pTnsDirection)
        return zamStsNullPtr;
    if (winLen != kAacFrameLength && winLen != kAacShortWindowLength) return zamStsAacWinLenErr;
    return runTns(TnsArgs{pSrcDst, pTnsNumFilt, pTnsRegionLen, pTnsFiltOrder, pTnsFiltCoefRes, pTnsFiltCoef,
                          pTnsDirection, maxSfb, samplingRateIndex, winLen},
                  false);
}

ZAM_API ZamStatus zamsEncodeTNS_AAC_32s_I(int32_t* pSrcDst, const int32_t* pTnsNumFilt, const int32_t* pTnsRegionLen,
                                          const int32_t* pTnsFiltOrder, const int32_t* pTnsFiltCoefRes,
                                          const int8_t* pTnsFiltCoef, const int32_t* pTnsDirection, int32_t maxSfb,
                                          int32_t profile, uint32_t samplingRateIndex, int32_t winLen)
{
    if (!pSrcDst || !pTnsNumFilt || !pTnsRegionLen || !pTnsFiltOrder || !pTnsFiltCoefRes || !pTnsFiltCoef ||
        !pTnsDirection)
        return zamStsNullPtr;
    if (winLen != kAacFrameLength && winLen != kAacShortWindowLength) return zamStsAacWinLenErr;
    if (profile != 1) return zamStsAacProfileErr;
    return runTns(TnsArgs{pSrcDst, pTnsNumFilt, pTnsRegionLen, pTnsFiltOrder, pTnsFiltCoefRes, pTnsFiltCoef,
                          pTnsDirection, maxSfb, samplingRateIndex, winLen},
                  true);
}
