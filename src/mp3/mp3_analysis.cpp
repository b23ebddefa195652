// Encoder analysis of one granule and channel: the 32-band polyphase analysis in
// fixed point (the float bank's kernel run on the caller's history) and the
// forward hybrid MDCT (windowing by block type, 36/12-point MDCT per subband with
// the previous granule's subband samples, alias-reduction butterflies).
#include <immintrin.h>

#include <cmath>
#include <cstring>

#include "core/export.h"
#include "mp3/mp3_encoder.h"
#include "mp3/mp3_tables.h"
#include "transform/pqmf_mp3.h"
#include "transform/trig.h"

namespace zam::mp3 {
namespace {

constexpr int kSlots = 18;

inline int32_t toFixed(float v)
{
    float c = v * kSubbandScale;
    c = c < -2147483520.0f ? -2147483520.0f : (c > 2147483520.0f ? 2147483520.0f : c);
    return static_cast<int32_t>(std::lrint(c));
}

// ISO 11172-3, 2.4.3.4.10.3: the windows of the four block types, and the MDCT
// kernels cos(pi / 2n * (2i + 1 + n / 2)(2k + 1)) with the 1 / (n / 4) that makes the
// decoder's unscaled IMDCT and overlap-add return the subband samples.
struct MdctTables {
    float window[4][36];
    float longCos[18][36];  // [k][i]
    float shortCos[6][12];
    float shortWindow[12];
    float cs[8], ca[8];
};

constexpr double sqrtConst(double x)
{
    double y = x > 1.0 ? x : 1.0;
    for (int i = 0; i < 64; ++i) y = 0.5 * (y + x / y);
    return y;
}

constexpr MdctTables makeMdctTables()
{
    MdctTables t{};
    for (int i = 0; i < 36; ++i) {
        const double longW = zam::sinCosTurn(2 * i + 1, 144).s;
        t.window[0][i] = static_cast<float>(longW);
        t.window[1][i] = static_cast<float>(i < 18 ? longW : i < 24 ? 1.0 : i < 30 ? zam::sinCosTurn(2 * (i - 18) + 1, 48).s : 0.0);
        t.window[3][i] = static_cast<float>(i < 6 ? 0.0 : i < 12 ? zam::sinCosTurn(2 * (i - 6) + 1, 48).s : i < 18 ? 1.0 : longW);
    }
    for (int k = 0; k < 18; ++k)
        for (int i = 0; i < 36; ++i) t.longCos[k][i] = static_cast<float>(zam::sinCosTurn((2 * i + 19) * (2 * k + 1), 144).c / 9.0);
    for (int k = 0; k < 6; ++k)
        for (int i = 0; i < 12; ++i) t.shortCos[k][i] = static_cast<float>(zam::sinCosTurn((2 * i + 7) * (2 * k + 1), 48).c / 3.0);
    for (int i = 0; i < 12; ++i) t.shortWindow[i] = static_cast<float>(zam::sinCosTurn(2 * i + 1, 48).s);
    const double c[8] = {-0.6, -0.535, -0.33, -0.185, -0.095, -0.041, -0.0142, -0.0037};
    for (int i = 0; i < 8; ++i) {
        t.cs[i] = static_cast<float>(1.0 / sqrtConst(1.0 + c[i] * c[i]));
        t.ca[i] = static_cast<float>(c[i] / sqrtConst(1.0 + c[i] * c[i]));
    }
    return t;
}

alignas(64) constexpr MdctTables kMdct = makeMdctTables();

}  // namespace

void mdctForwardFloat(const float* prev, const float* cur, float* lines, int blockType, int row)
{
    const MdctTables& tab = kMdct;
    alignas(32) float raw[576];  // [sb * 18 + k] (short: [sb * 18 + w * 6 + k])
    for (int sb = 0; sb < 32; ++sb) {
        alignas(32) float z[36];
        for (int t = 0; t < kSlots; ++t) {
            const float flip = (sb & 1) && (t & 1) ? -1.0f : 1.0f;  // frequency inversion
            z[t] = prev[sb * kSlots + t] * flip;
            z[kSlots + t] = cur[sb * kSlots + t] * flip;
        }
        float* out = raw + sb * kSlots;
        if (blockType == 2) {
            for (int w = 0; w < 3; ++w) {
                float y[12];
                for (int i = 0; i < 12; ++i) y[i] = z[6 + 6 * w + i] * tab.shortWindow[i];
                for (int k = 0; k < 6; ++k) {
                    float acc = 0.0f;
                    for (int i = 0; i < 12; ++i) acc += tab.shortCos[k][i] * y[i];
                    out[w * 6 + k] = acc;
                }
            }
            continue;
        }
        const float* win = tab.window[blockType];
        __m256 y[4];
        alignas(32) float zw[40] = {};
        for (int i = 0; i < 36; ++i) zw[i] = z[i] * win[i];
        for (int q = 0; q < 4; ++q) y[q] = _mm256_load_ps(zw + 8 * q);
        for (int k = 0; k < 18; ++k) {
            const float* c = tab.longCos[k];
            __m256 acc = _mm256_mul_ps(y[0], _mm256_loadu_ps(c));
            acc = _mm256_fmadd_ps(y[1], _mm256_loadu_ps(c + 8), acc);
            acc = _mm256_fmadd_ps(y[2], _mm256_loadu_ps(c + 16), acc);
            acc = _mm256_fmadd_ps(y[3], _mm256_loadu_ps(c + 24), acc);
            __m128 s = _mm_add_ps(_mm256_castps256_ps128(acc), _mm256_extractf128_ps(acc, 1));
            s = _mm_hadd_ps(s, s);
            s = _mm_hadd_ps(s, s);
            out[k] = _mm_cvtss_f32(s) + c[32] * zw[32] + c[33] * zw[33] + c[34] * zw[34] + c[35] * zw[35];
        }
    }
    if (blockType != 2) {
        for (int sb = 1; sb < 32; ++sb) {
            for (int i = 0; i < 8; ++i) {
                const float bu = raw[(sb - 1) * kSlots + 17 - i], bd = raw[sb * kSlots + i];
                raw[(sb - 1) * kSlots + 17 - i] = bu * tab.cs[i] + bd * tab.ca[i];
                raw[sb * kSlots + i] = bd * tab.cs[i] - bu * tab.ca[i];
            }
        }
        std::memcpy(lines, raw, sizeof(raw));
        return;
    }
    // Short blocks in stream order: band by band, window by window.
    const int16_t* bounds = kSfbShortBuiltIn[row];
    for (int s = 0; s < 13; ++s) {
        const int lo = bounds[s], width = bounds[s + 1] - lo;
        for (int w = 0; w < 3; ++w)
            for (int f = lo; f < lo + width; ++f) lines[3 * lo + w * width + (f - lo)] = raw[(f / 6) * kSlots + w * 6 + f % 6];
    }
}

}  // namespace zam::mp3

using namespace zam::mp3;

ZAM_API ZamStatus zamsAnalysisPQMF_MP3_16s32s(const int16_t* pSrc, int32_t* pDst, int mode, int16_t* pHistory)
{
    if (!pSrc || !pDst || !pHistory) return zamStsNullPtr;
    if (mode != 1 && mode != 2) return zamStsBadArg;
    // The float kernel's ring: 16 blocks of 32 samples, newest at `position`, each
    // block in the standard's order (first sample of the block last). Fill the 15
    // blocks before the granule from the history; the kernel loads the rest.
    alignas(32) float delay[zam::kPqmfDelayFloats];
    alignas(32) float in[kGranuleLines];
    alignas(32) float out[kGranuleLines];
    int32_t position = 15;
    for (int age = 1; age <= 15; ++age) {
        float* block = delay + ((16 - age) & 15) * 32;
        const int16_t* h = pHistory + kAnalysisHistory - 32 * age;
        for (int r = 0; r < 32; ++r) block[r] = h[31 - r];
    }
    for (int i = 0; i < kGranuleLines; ++i) in[i] = pSrc[i * mode];
    zam::pqmfAnalysisAvx2(in, out, delay, position, 1);
    for (int i = 0; i < kGranuleLines; ++i) pDst[i] = toFixed(out[i]);
    for (int i = 0; i < kAnalysisHistory; ++i) pHistory[i] = pSrc[(kGranuleLines - kAnalysisHistory + i) * mode];
    return zamStsOk;
}

ZAM_API ZamStatus zamsMDCTFwd_MP3_32s(const int32_t* pSrc, int32_t* pDst, const Mp3SideInfo* pSideInfo,
                                     const Mp3FrameHeader* pFrameHeader, int32_t* pOverlap)
{
    if (!pSrc || !pDst || !pSideInfo || !pFrameHeader || !pOverlap) return zamStsNullPtr;
    const Mp3SideInfo& si = *pSideInfo;
    if (static_cast<uint32_t>(si.window_switching_flag) > 1 || static_cast<uint32_t>(si.block_type) > 3 ||
        si.mixed_block_flag != 0 || (si.window_switching_flag && si.block_type == 0))
        return zamStsMp3SideInfoErr;
    if (static_cast<uint32_t>(pFrameHeader->ID) > 1 || static_cast<uint32_t>(pFrameHeader->sampling_frequency) > 2)
        return zamStsMp3FrameHeaderErr;
    alignas(32) float prev[kGranuleLines], cur[kGranuleLines], lines[kGranuleLines];
    for (int i = 0; i < kGranuleLines; ++i) prev[i] = static_cast<float>(pOverlap[i]) * (1.0f / kSubbandScale);
    for (int i = 0; i < kGranuleLines; ++i) cur[i] = static_cast<float>(pSrc[i]) * (1.0f / kSubbandScale);
    mdctForwardFloat(prev, cur, lines, si.window_switching_flag ? si.block_type : 0, bandRow(pFrameHeader));
    std::memcpy(pOverlap, pSrc, kGranuleLines * sizeof(int32_t));
    for (int i = 0; i < kGranuleLines; ++i) pDst[i] = toFixed(lines[i]);
    return zamStsOk;
}
