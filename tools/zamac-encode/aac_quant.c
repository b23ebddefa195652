/*
 * Quantization, scale factors and noiseless coding decisions of the AAC encoder.
 *
 * A band's scale factor follows from the noise it may carry: quantizing y = (|x| / A)^(3/4)
 * to integers leaves a noise energy of about (4/27) A^(3/2) sum |x|^(1/2) in the band,
 * with A = 2^((sf - 100) / 4) the step the decoder applies (ISO/IEC 14496-3, 4.6.1.3).
 * Code books and sections are chosen by dynamic programming over the bands of a
 * group, with the bit counts of the library's VLC counters.
 */
#include <math.h>
#include <string.h>

#include "aac_encoder.h"

enum { INF = 1 << 28, NB = 16 /* books 0..15 (12 is never used) */ };
enum { NOISE_BOOK = 13 };

static int is_special(int book)
{
    return book >= NOISE_BOOK; /* noise and intensity bands carry no spectral data */
}

static int sf_code_length(int diff)
{
    return kAacScaleFactorCode[diff + 60].length;
}

/* The smallest book that holds values up to m. */
static int smallest_book(int m)
{
    if (m == 0) return 0;
    if (m <= 1) return 1;
    if (m <= 2) return 3;
    if (m <= 4) return 5;
    if (m <= 7) return 7;
    if (m <= 12) return 9;
    return 11;
}

/* (2^(-(sf - 100) / 4))^(3/4) for sf 0..255: the library's scale-factor multipliers
 * raised by its power law. */
static float kQuantScale[256];

void aac_quant_init(void)
{
    int16_t steps[256];
    float multipliers[256];
    for (int sf = 0; sf < 256; ++sf) steps[sf] = (int16_t)(200 - sf);
    zamsCalcSF_16s32f(steps, multipliers, 256, 100);
    zamsPow34_32f(multipliers, kQuantScale, 256);
}

/* Quantizes n values with scale factor sf (x34 = x^(3/4) with the sign of x); returns
 * the largest magnitude. Rounding is biased toward zero (0.4054), which lowers the
 * bits more than the noise. */
static int quantize_band(const float* x, const float* x34, int16_t* q, int n, int sf)
{
    const float scale = kQuantScale[sf];
    int m = 0;
    for (int i = 0; i < n; ++i) {
        int v = (int)(fabsf(x34[i]) * scale + 0.4054f);
        if (v > 8191) v = 8191;
        if (v > m) m = v;
        q[i] = (int16_t)(x[i] < 0 ? -v : v);
    }
    return m;
}

/* Section data cost of one section of len bands. */
static int section_bits(int len, int lenBits)
{
    const int escape = (1 << lenBits) - 1;
    return 4 + lenBits * (1 + len / escape);
}

/* Chooses the books of group g by dynamic programming; cost[b][k] are the band costs. */
static void choose_books(AacChannel* ch, int g, int cost[][NB])
{
    const int nb = ch->maxSfb;
    const int lenBits = ch->sequence == AAC_EIGHT_SHORT ? 3 : 5;
    const int escape = (1 << lenBits) - 1;
    int dp[65][NB], run[65][NB];
    uint8_t cont[65][NB];
    for (int k = 0; k < NB; ++k) dp[0][k] = INF;
    for (int b = 0; b < nb; ++b) {
        int best = INF;
        for (int k = 0; k < NB; ++k)
            if (dp[b][k] < best) best = dp[b][k];
        for (int k = 0; k < NB; ++k) {
            dp[b + 1][k] = INF;
            if (cost[b][k] >= INF) continue;
            /* continue the section of book k, or open a new one */
            int c1 = INF;
            if (dp[b][k] < INF) c1 = dp[b][k] + cost[b][k] + ((run[b][k] + 1) % escape == 0 ? lenBits : 0);
            const int c2 = (b == 0 ? 0 : best) + cost[b][k] + 4 + lenBits;
            if (c1 <= c2) {
                dp[b + 1][k] = c1;
                run[b + 1][k] = run[b][k] + 1;
                cont[b + 1][k] = 1;
            } else {
                dp[b + 1][k] = c2;
                run[b + 1][k] = 1;
                cont[b + 1][k] = 0;
            }
        }
    }
    /* trace back */
    int k = 0, best = INF;
    for (int j = 0; j < NB; ++j)
        if (dp[nb][j] < best) {
            best = dp[nb][j];
            k = j;
        }
    for (int b = nb; b > 0; --b) {
        ch->cb[g * AAC_BANDS + b - 1] = (uint8_t)k;
        if (!cont[b][k] && b > 1) {
            int pb = INF, pk = 0;
            for (int j = 0; j < NB; ++j)
                if (dp[b - 1][j] < pb) {
                    pb = dp[b - 1][j];
                    pk = j;
                }
            k = pk;
        }
    }
}

int aac_sections(const AacChannel* ch, int g, uint8_t* books, int* ends)
{
    int n = 0;
    for (int b = 0; b < ch->maxSfb; ++b) {
        const uint8_t book = ch->cb[g * AAC_BANDS + b];
        if (n > 0 && books[n - 1] == book) {
            ends[n - 1] = b + 1;
        } else {
            books[n] = book;
            ends[n] = b + 1;
            ++n;
        }
    }
    return n;
}

static int tns_bits(const AacChannel* ch)
{
    if (!ch->tnsPresent) return 0;
    const int windows = ch->sequence == AAC_EIGHT_SHORT ? 8 : 1;
    const int lw = windows == 1;
    int bits = 0, f = 0;
    for (int w = 0; w < windows; ++w) {
        bits += lw ? 2 : 1;
        if (!ch->nFilt[w]) continue;
        bits += 1;
        for (int k = 0; k < ch->nFilt[w]; ++k, ++f) {
            bits += lw ? 11 : 7;
            if (ch->order[f]) bits += 2 + ch->order[f] * ch->coefRes[w];
        }
    }
    return bits;
}

/* The scale factor that lets a band carry `noise`, from its sum of |x|^(1/2). */
static int scale_factor_for(float noise, float sumSqrt)
{
    const float r = 27.0f * noise / (4.0f * sumSqrt);
    return 100 + (int)floorf(2.6666667f * log2f(r) + 0.5f);
}

int aac_quantize_channel(const AacCodes* codes, AacChannel* ch, int offset)
{
    const int lenBits = ch->sequence == AAC_EIGHT_SHORT ? 3 : 5;
    int last = -1; /* last transmitted scale factor */
    int groupStart = 0;
    int spectralBits = 0, sectionBits = 0, sfBits = 0;
    static const float kMaxQuant43 = 165113.0f; /* 8191^(4/3) */
    for (int g = 0; g < ch->numGroups; ++g) {
        const int L = ch->groupLen[g];
        int cost[64][NB];
        for (int b = 0; b < ch->maxSfb; ++b) {
            const int i = g * AAC_BANDS + b;
            const int start = groupStart + ch->swb[b] * L;
            const int n = (ch->swb[b + 1] - ch->swb[b]) * L;
            int16_t* q = ch->q + start;
            int m = 0;
            if (ch->intensity[i]) {
                m = -1;
            } else if (ch->maxAbs[i] > 0.0f && ch->energy[i] > ch->threshold[i]) {
                int sf = scale_factor_for(ch->threshold[i], ch->sumSqrt[i]) + offset;
                const int sfMin = (int)ceilf(100.0f + 4.0f * log2f(ch->maxAbs[i] / kMaxQuant43));
                if (sf < sfMin) sf = sfMin;
                if (sf > 255) sf = 255;
                if (sf < 0) sf = 0;
                if (last >= 0) {
                    if (sf > last + 60) sf = last + 60;
                    if (sf < last - 60) sf = last - 60;
                }
                const int previous = last;
                m = quantize_band(ch->spec + start, ch->pow34 + start, q, n, sf);
                ch->sf[i] = sf;
                if (m > 0) last = sf;
                if (m <= 1 && ch->noiseCandidate[i]) {
                    /* this band would keep little more than its sign pattern: substitute noise */
                    m = -1;
                    last = previous;
                }
            }
            if (m <= 0) memset(q, 0, (size_t)n * sizeof *q);
            const int first = m >= 0 ? smallest_book(m) : ch->intensity[i] ? ch->intensity[i] : NOISE_BOOK;
            for (int k = 0; k < NB; ++k) cost[b][k] = INF;
            if (is_special(first)) {
                cost[b][first] = 0;
            } else if (first == 0) {
                cost[b][0] = 0;
                /* an all-zero band inside a section of another book costs its zeros and
                 * a scale-factor difference of 0 */
                for (int k = 1; k <= 11; ++k) cost[b][k] = aac_count_band(codes, q, n, k) + 1;
            } else {
                for (int k = first; k <= 11; ++k) cost[b][k] = aac_count_band(codes, q, n, k);
            }
            ch->cb[i] = (uint8_t)first; /* marks non-zero bands until the books are chosen */
        }
        /* remember which bands are non-zero before the books overwrite cb */
        uint8_t nonZero[64];
        for (int b = 0; b < ch->maxSfb; ++b) nonZero[b] = ch->cb[g * AAC_BANDS + b] != 0;
        choose_books(ch, g, cost);
        for (int b = 0; b < ch->maxSfb; ++b) {
            const int i = g * AAC_BANDS + b;
            if (ch->cb[i] && !is_special(ch->cb[i])) spectralBits += cost[b][ch->cb[i]] - (nonZero[b] ? 0 : 1);
            if (!nonZero[b]) ch->sf[i] = -1; /* takes the previous scale factor below */
        }
        uint8_t books[64];
        int ends[64];
        const int ns = aac_sections(ch, g, books, ends);
        for (int s = 0, st = 0; s < ns; ++s) {
            sectionBits += section_bits(ends[s] - st, lenBits);
            st = ends[s];
        }
        groupStart += 128 * L;
    }
    /* scale factors: global gain is the first transmitted one */
    int gg = -1;
    for (int g = 0; g < ch->numGroups && gg < 0; ++g)
        for (int b = 0; b < ch->maxSfb; ++b) {
            const int i = g * AAC_BANDS + b;
            if (ch->cb[i] && !is_special(ch->cb[i]) && ch->sf[i] >= 0) {
                gg = ch->sf[i];
                break;
            }
        }
    if (gg < 0) gg = 100;
    ch->globalGain = gg;
    last = gg;
    int lastNoise = -1000, lastPosition = 0;
    for (int g = 0; g < ch->numGroups; ++g)
        for (int b = 0; b < ch->maxSfb; ++b) {
            const int i = g * AAC_BANDS + b;
            if (!ch->cb[i]) continue;
            if (ch->cb[i] == 14 || ch->cb[i] == 15) {
                /* intensity position, counted from 0 */
                int p = ch->isPosition[i];
                if (p > lastPosition + 60) p = lastPosition + 60;
                if (p < lastPosition - 60) p = lastPosition - 60;
                sfBits += sf_code_length(p - lastPosition);
                ch->sf[i] = p;
                lastPosition = p;
                continue;
            }
            if (ch->cb[i] == NOISE_BOOK) {
                /* noise energy: the band's energy is 2^(value / 2) (ISO/IEC 14496-3, 4.6.13) */
                const float energy = ch->energy[i] > 1.0f ? ch->energy[i] : 1.0f;
                int v = (int)lrintf(2.0f * log2f(energy));
                if (lastNoise == -1000) {
                    if (v < gg - 346) v = gg - 346;
                    if (v > gg + 165) v = gg + 165;
                    sfBits += 9;
                } else {
                    if (v > lastNoise + 60) v = lastNoise + 60;
                    if (v < lastNoise - 60) v = lastNoise - 60;
                    sfBits += sf_code_length(v - lastNoise);
                }
                ch->sf[i] = v;
                lastNoise = v;
                continue;
            }
            if (ch->sf[i] < 0) ch->sf[i] = last;
            sfBits += sf_code_length(ch->sf[i] - last);
            last = ch->sf[i];
        }
    ch->bits = 8 + sectionBits + sfBits + 3 + tns_bits(ch) + spectralBits;
    return ch->bits;
}
