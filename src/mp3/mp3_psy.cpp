// Psychoacoustic model 2 of ISO/IEC 11172-3, Annex D, for Layer III: a 1024-point
// and three 256-point FFTs per granule, the unpredictability measure, spreading in
// the partition domain (about a third of a Bark per partition), tonality, the SNR
// per partition, the threshold in quiet and pre-echo control; then the signal-to-
// mask ratio per scale-factor band, the perceptual entropy and the block type with
// its start and stop transitions, one granule late. All state sits in the caller's
// record; its tables are built on the first call for a sampling rate.
#include <immintrin.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "core/export.h"
#include "core/memory.h"
#include "mp3/mp3_encoder.h"
#include "mp3/mp3_tables.h"
#include "transform/fft.h"

namespace zam::mp3 {
namespace {

constexpr uint32_t kPsyTag = 0x7073794Du;  // "Mysp"
constexpr int kLongN = 1024, kShortN = 256;
constexpr int kLongBins = kLongN / 2 + 1, kShortBins = kShortN / 2 + 1;
constexpr int kMaxPart = 80;
constexpr int kPredictedBins = 206;  // unpredictability from the long FFTs below this bin
constexpr float kTmn = 29.0f, kNmt = 6.0f;
constexpr float kShortSnr = 12.0f;
constexpr float kSwitchPe = 1800.0f;
constexpr float kAttackRatio = 10.0f;
// Energy of a full-scale sine summed over the half spectrum of a Hann-windowed
// N-point FFT is 32767^2 * 3N^2/32: 140.2 dB for N = 1024, taken as 96 dB SPL.
constexpr float kLongSplOffset = 44.2f, kShortSplOffset = 32.2f;

struct Partitions {
    int count;
    int16_t start[kMaxPart + 1];  // first bin of each partition; start[count] = bins
    float bval[kMaxPart];
    float rnorm[kMaxPart];
    float qthr[kMaxPart];
    float minval[kMaxPart];
    float spread[kMaxPart][kMaxPart];  // [maskee][masker]
};

struct PsyState {
    uint32_t tag;
    int32_t row;
    uintptr_t self;  // the FFT objects hold pointers into this record
    FftSpec* fftLong;
    FftSpec* fftShort;
    int32_t calls;
    int32_t pendingShort;
    int32_t lastType;
    float lastShortEnergy;
    int16_t sfbBinLong[23];
    int16_t sfbBinShort[14];
    Partitions longPart, shortPart;
    float prevR[2][kLongBins], prevCos[2][kLongBins], prevSin[2][kLongBins];
    float nb1[kMaxPart], nb2[kMaxPart];
    Mp3PsychoacousticInfo pending;
    alignas(64) float window[kLongN];
    alignas(64) float shortWindow[kShortN];
    alignas(64) uint8_t fftMemory[40960];
};
static_assert(sizeof(PsyState) + 64 <= sizeof(Mp3PsychoacousticState), "the public record holds the state");

inline float bark(float f) { return 13.0f * std::atan(0.00076f * f) + 3.5f * std::atan((f / 7500.0f) * (f / 7500.0f)); }

// Threshold in quiet, dB SPL (Terhardt), floored at -20 dB.
inline float athDb(float f)
{
    const float k = std::max(f, 20.0f) / 1000.0f;
    return std::max(-20.0f, 3.64f * std::pow(k, -0.8f) - 6.5f * std::exp(-0.6f * (k - 3.3f) * (k - 3.3f)) + 1e-3f * k * k * k * k);
}

void buildPartitions(Partitions& p, int n, float fs, float splOffset)
{
    const int bins = n / 2 + 1;
    const float binHz = fs / n;
    p.count = 0;
    int w = 0;
    while (w < bins && p.count < kMaxPart) {
        const float z0 = bark(w * binHz);
        int e = w + 1;
        while (e < bins && bark(e * binHz) - z0 < 1.0f / 3.0f) ++e;
        if (p.count == kMaxPart - 1) e = bins;
        p.start[p.count] = static_cast<int16_t>(w);
        p.bval[p.count] = bark(0.5f * (w + e - 1) * binHz);
        float qmin = 1e30f;
        for (int i = w; i < e; ++i) qmin = std::min(qmin, athDb(std::max(i, 1) * binHz));
        p.qthr[p.count] = (e - w) * std::pow(10.0f, (qmin + splOffset) / 10.0f);
        p.minval[p.count] = std::max(6.0f, 24.5f - 0.74f * p.bval[p.count]);
        ++p.count;
        w = e;
    }
    p.start[p.count] = static_cast<int16_t>(bins);
    // The spreading function through the library's kernel, Q10 Bark distances.
    for (int b = 0; b < p.count; ++b) {
        int16_t dz[kMaxPart], s[kMaxPart];
        for (int k = 0; k < p.count; ++k)
            dz[k] = static_cast<int16_t>(std::clamp(std::lrint((p.bval[b] - p.bval[k]) * 1024.0f), -32768L, 32767L));
        zamsSpread_16s_Sfs(dz, s, p.count, 0);
        float sum = 0.0f;
        for (int k = 0; k < p.count; ++k) sum += p.spread[b][k] = s[k] / 32767.0f;
        p.rnorm[b] = 1.0f / sum;
    }
}

ZamStatus setUp(PsyState& st, int row)
{
    static constexpr float kRates[6] = {22050, 24000, 16000, 44100, 48000, 32000};
    const float fs = kRates[row];
    if (st.tag != kPsyTag || st.row != row) {
        std::memset(&st, 0, sizeof st);
        st.tag = kPsyTag;
        st.row = row;
        buildPartitions(st.longPart, kLongN, fs, kLongSplOffset);
        buildPartitions(st.shortPart, kShortN, fs, kShortSplOffset);
        for (int s = 0; s < 23; ++s)
            st.sfbBinLong[s] = static_cast<int16_t>(std::lrint(kSfbLongBuiltIn[row][s] * (kLongN / 1152.0)));
        for (int s = 0; s < 14; ++s)
            st.sfbBinShort[s] = static_cast<int16_t>(std::lrint(kSfbShortBuiltIn[row][s] * (kShortN / 384.0)));
        for (int i = 0; i < kLongN; ++i) st.window[i] = 0.5f - 0.5f * std::cos(6.2831853f * (i + 0.5f) / kLongN);
        for (int i = 0; i < kShortN; ++i) st.shortWindow[i] = 0.5f - 0.5f * std::cos(6.2831853f * (i + 0.5f) / kShortN);
        for (int b = 0; b < kMaxPart; ++b) st.nb1[b] = st.nb2[b] = 1e30f;
        st.self = 0;
    }
    if (st.self != reinterpret_cast<uintptr_t>(&st)) {  // first call, or the record was moved
        uint8_t* mem = st.fftMemory;
        int spec, init, work;
        fftGetSize(10, kFftNoScale, 0, &spec, &init, &work);
        uint8_t initBuf[8192];
        ZamStatus s = fftInit(&st.fftLong, 10, kFftNoScale, 0, mem, initBuf);
        if (s != zamStsOk) return s;
        mem += spec + 64;
        fftGetSize(8, kFftNoScale, 0, &spec, &init, &work);
        s = fftInit(&st.fftShort, 8, kFftNoScale, 0, mem, initBuf);
        if (s != zamStsOk) return s;
        st.self = reinterpret_cast<uintptr_t>(&st);
    }
    return zamStsOk;
}

// Hann-windowed FFT of n samples; energies, magnitudes and unit phasors per bin.
void spectrum(const PsyState& st, const int16_t* src, int stride, int n, const float* window, FftSpec* spec,
              float* energy, float* r, float* cs, float* sn)
{
    alignas(64) float buf[2 * kLongN];
    alignas(64) uint8_t work[8 * kLongN + 64];
    for (int i = 0; i < n; ++i) buf[2 * i] = src[i * stride] * window[i], buf[2 * i + 1] = 0.0f;
    fftFwd(buf, buf, spec, work);
    for (int w = 0; w <= n / 2; ++w) {
        const float re = buf[2 * w], im = buf[2 * w + 1];
        energy[w] = re * re + im * im;
        if (r) {
            r[w] = std::sqrt(energy[w]);
            cs[w] = r[w] > 0.0f ? re / r[w] : 1.0f;
            sn[w] = r[w] > 0.0f ? im / r[w] : 0.0f;
        }
    }
    (void)st;
}

// Spreads energies (and weighted unpredictabilities) and returns each partition's
// threshold before pre-echo control and quiet.
void partitionThreshold(const Partitions& p, const float* energy, const float* c, float fixedSnr, float* eb, float* nb)
{
    float cb[kMaxPart] = {};
    for (int b = 0; b < p.count; ++b) {
        float e = 0.0f, ec = 0.0f;
        for (int w = p.start[b]; w < p.start[b + 1]; ++w) e += energy[w], ec += c ? energy[w] * c[w] : 0.0f;
        eb[b] = e;
        cb[b] = ec;
    }
    alignas(32) float ebPad[kMaxPart] = {}, cbPad[kMaxPart] = {};
    std::memcpy(ebPad, eb, sizeof(float) * p.count);
    std::memcpy(cbPad, cb, sizeof(float) * p.count);
    const int rounded = (p.count + 7) & ~7;  // rows are zero beyond count
    for (int b = 0; b < p.count; ++b) {
        __m256 e8 = _mm256_setzero_ps(), c8 = _mm256_setzero_ps();
        for (int k = 0; k < rounded; k += 8) {
            const __m256 s = _mm256_loadu_ps(p.spread[b] + k);
            e8 = _mm256_fmadd_ps(s, _mm256_load_ps(ebPad + k), e8);
            c8 = _mm256_fmadd_ps(s, _mm256_load_ps(cbPad + k), c8);
        }
        alignas(32) float lanes[16];
        _mm256_store_ps(lanes, e8);
        _mm256_store_ps(lanes + 8, c8);
        float ecb = 0.0f, ct = 0.0f;
        for (int i = 0; i < 8; ++i) ecb += lanes[i], ct += lanes[8 + i];
        float snr = fixedSnr;
        if (c) {
            const float cbb = ecb > 0.0f ? ct / ecb : 0.0f;
            const float tb = std::clamp(-0.299f - 0.43f * std::log(std::max(cbb, 1e-10f)), 0.0f, 1.0f);
            snr = tb * kTmn + (1.0f - tb) * kNmt;
        }
        snr = std::max(snr, p.minval[b]);
        nb[b] = ecb * p.rnorm[b] * std::pow(10.0f, -snr / 10.0f);
    }
}

// SMR in dB Q8 of the bins [lo, hi) given per-bin energy and threshold.
int32_t smrQ8(const float* energy, const float* thrBin, int lo, int hi)
{
    hi = std::max(hi, lo + 1);
    float en = 0.0f, th = 0.0f;
    for (int w = lo; w < hi; ++w) en += energy[w], th += thrBin[w];
    if (en <= 0.0f) return -100 * 256;
    const float smr = 10.0f * std::log10(en / std::max(th, 1e-20f));
    return static_cast<int32_t>(std::lrint(std::clamp(smr, -100.0f, 100.0f) * 256.0f));
}

void spreadToBins(const Partitions& p, const float* thr, float* thrBin)
{
    for (int b = 0; b < p.count; ++b) {
        const float per = thr[b] / (p.start[b + 1] - p.start[b]);
        for (int w = p.start[b]; w < p.start[b + 1]; ++w) thrBin[w] = per;
    }
}

}  // namespace
}  // namespace zam::mp3

using namespace zam::mp3;

ZAM_API ZamStatus zamsPsychoacousticModelTwo_MP3_16s(const int16_t* pSrc, Mp3PsychoacousticInfo* pDstInfo, int mode,
                                                    const Mp3FrameHeader* pFrameHeader, Mp3PsychoacousticState* pState)
{
    if (!pSrc || !pDstInfo || !pFrameHeader || !pState) return zamStsNullPtr;
    if (mode != 1 && mode != 2) return zamStsBadArg;
    if (static_cast<uint32_t>(pFrameHeader->ID) > 1 || static_cast<uint32_t>(pFrameHeader->sampling_frequency) > 2)
        return zamStsMp3FrameHeaderErr;
    PsyState& st = *zam::alignUp<PsyState>(reinterpret_cast<uint8_t*>(pState), 64);
    if (const ZamStatus s = setUp(st, bandRow(pFrameHeader)); s != zamStsOk) return s;

    // Long block: spectrum, unpredictability, thresholds, pre-echo control, PE.
    alignas(32) float energy[kLongBins], r[kLongBins], cs[kLongBins], sn[kLongBins], c[kLongBins];
    spectrum(st, pSrc, mode, kLongN, st.window, st.fftLong, energy, r, cs, sn);
    for (int w = 0; w < kLongBins; ++w) {
        if (w >= kPredictedBins) {
            c[w] = 0.4f;
            continue;
        }
        const float r1 = st.prevR[0][w], r2 = st.prevR[1][w];
        const float rhat = 2.0f * r1 - r2;
        // Predicted phase 2 phi1 - phi2 as a unit phasor.
        const float c1 = st.prevCos[0][w], s1 = st.prevSin[0][w], c2 = st.prevCos[1][w], s2 = st.prevSin[1][w];
        const float c21 = c1 * c1 - s1 * s1, s21 = 2.0f * c1 * s1;
        const float pc = c21 * c2 + s21 * s2, ps = s21 * c2 - c21 * s2;
        const float dr = r[w] * cs[w] - rhat * pc, di = r[w] * sn[w] - rhat * ps;
        const float denom = r[w] + std::fabs(rhat);
        c[w] = denom > 0.0f ? std::sqrt(dr * dr + di * di) / denom : 0.0f;
    }
    std::memcpy(st.prevR[1], st.prevR[0], sizeof st.prevR[0]);
    std::memcpy(st.prevCos[1], st.prevCos[0], sizeof st.prevCos[0]);
    std::memcpy(st.prevSin[1], st.prevSin[0], sizeof st.prevSin[0]);
    std::memcpy(st.prevR[0], r, sizeof r);
    std::memcpy(st.prevCos[0], cs, sizeof cs);
    std::memcpy(st.prevSin[0], sn, sizeof sn);

    const Partitions& lp = st.longPart;
    float eb[kMaxPart], nb[kMaxPart], thr[kMaxPart];
    partitionThreshold(lp, energy, c, 0.0f, eb, nb);
    float pe = 0.0f;
    for (int b = 0; b < lp.count; ++b) {
        thr[b] = std::max(lp.qthr[b], std::min({nb[b], 2.0f * st.nb1[b], 16.0f * st.nb2[b]}));
        st.nb2[b] = st.nb1[b];
        st.nb1[b] = nb[b];
        if (eb[b] > thr[b]) pe += (lp.start[b + 1] - lp.start[b]) * std::log((eb[b] + 1.0f) / (thr[b] + 1.0f));
    }
    Mp3PsychoacousticInfo now{};
    now.pe = static_cast<int32_t>(std::lrint(pe));
    alignas(32) float thrBin[kLongBins];
    spreadToBins(lp, thr, thrBin);
    for (int s = 0; s < 22; ++s) now.smrLong[s] = smrQ8(energy, thrBin, st.sfbBinLong[s], st.sfbBinLong[s + 1]);

    // Short blocks: three FFTs centred on the short windows of the granule.
    const Partitions& sp = st.shortPart;
    bool attack = pe > kSwitchPe;
    float last = st.lastShortEnergy;
    for (int j = 0; j < 3; ++j) {
        float se[kShortBins], sbin[kShortBins];
        spectrum(st, pSrc + (192 + 192 * j) * mode, mode, kShortN, st.shortWindow, st.fftShort, se, nullptr, nullptr, nullptr);
        float seb[kMaxPart], snb[kMaxPart], sthr[kMaxPart];
        partitionThreshold(sp, se, nullptr, kShortSnr, seb, snb);
        for (int b = 0; b < sp.count; ++b) sthr[b] = std::max(sp.qthr[b], snb[b]);
        spreadToBins(sp, sthr, sbin);
        for (int s = 0; s < 13; ++s) now.smrShort[3 * s + j] = smrQ8(se, sbin, st.sfbBinShort[s], st.sfbBinShort[s + 1]);
        float high = 0.0f;
        for (int w = 8; w < kShortBins; ++w) high += se[w];
        if (high > kAttackRatio * last && high > 1e9f) attack = true;
        last = high;
    }
    st.lastShortEnergy = last;

    // The previous granule's results with its block type, now that this one is known.
    Mp3PsychoacousticInfo out = st.pending;
    const bool pendingShort = st.pendingShort != 0;
    int type;
    if (pendingShort) type = 2;
    else if (st.lastType == 2 || st.lastType == 1) type = attack ? 2 : 3;
    else type = attack ? 1 : 0;
    out.block_type = st.calls == 0 ? 0 : type;
    st.lastType = out.block_type;
    st.pendingShort = attack;
    st.pending = now;
    ++st.calls;
    *pDstInfo = out;
    return zamStsOk;
}
