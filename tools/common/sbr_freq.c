/*
 * SBR frequency band tables (ISO/IEC 14496-3, 4.6.18.3.2): the master table from
 * the start and stop bands, the high and low resolution envelope tables, the noise
 * floor table, the patches of the high-frequency generator (4.6.18.6.3) and the
 * limiter table (4.6.18.7.3).
 */
#include <math.h>
#include <stdlib.h>
#include <string.h>

#include "sbr_common.h"
#include "sbr_tables.h"

static int compare_bytes(const void* a, const void* b)
{
    return (int)*(const uint8_t*)a - (int)*(const uint8_t*)b;
}

/* Band widths of numBands bands from start to stop on a logarithmic scale, sorted. */
static int log_widths(uint8_t* widths, int numBands, int start, int stop)
{
    int previous = start;
    for (int k = 1; k <= numBands; ++k) {
        const int border = (int)floor(start * pow((double)stop / start, (double)k / numBands) + 0.5);
        const int width = border - previous;
        if (width <= 0) return -1;
        widths[k - 1] = (uint8_t)width;
        previous = border;
    }
    qsort(widths, (size_t)numBands, 1, compare_bytes);
    return 0;
}

static int master_table(SbrFreq* f, const SbrHeader* h)
{
    const int k0 = f->k0, k2 = f->k2;
    uint8_t dk[SBR_MAX_BANDS];
    if (h->freqScale == 0) {
        const int step = h->alterScale ? 2 : 1;
        const int numBands = 2 * ((k2 - k0) / (2 * step));
        if (numBands < 1 || numBands > SBR_MAX_BANDS) return -1;
        for (int k = 0; k < numBands; ++k) dk[k] = (uint8_t)step;
        int diff = k2 - (k0 + numBands * step);
        int k = diff < 0 ? 0 : numBands - 1;
        const int incr = diff < 0 ? 1 : -1;
        while (diff != 0) {
            if (k < 0 || k >= numBands) return -1;
            dk[k] = (uint8_t)(dk[k] - incr);
            k += incr;
            diff += incr;
        }
        f->nMaster = numBands;
    } else {
        const int bands = kSbrBandsPerOctave[h->freqScale];
        const double warp = h->alterScale ? 1.3 : 1.0;
        const int twoRegions = (double)k2 / k0 > 2.2449;
        const int k1 = twoRegions ? 2 * k0 : k2;
        const int numBands0 = 2 * (int)floor(bands * log((double)k1 / k0) / (2.0 * log(2.0)) + 0.5);
        if (numBands0 < 1 || numBands0 > SBR_MAX_BANDS || log_widths(dk, numBands0, k0, k1) != 0) return -1;
        f->nMaster = numBands0;
        if (twoRegions) {
            const int numBands1 = 2 * (int)floor(bands * log((double)k2 / k1) / (2.0 * log(2.0) * warp) + 0.5);
            if (numBands1 < 1 || numBands0 + numBands1 > SBR_MAX_BANDS) return -1;
            uint8_t* dk1 = dk + numBands0;
            if (log_widths(dk1, numBands1, k1, k2) != 0) return -1;
            if (dk1[0] < dk[numBands0 - 1]) {
                const int change = dk[numBands0 - 1] - dk1[0];
                dk1[0] = (uint8_t)(dk1[0] + change);
                if (dk1[numBands1 - 1] <= change) return -1;
                dk1[numBands1 - 1] = (uint8_t)(dk1[numBands1 - 1] - change);
                qsort(dk1, (size_t)numBands1, 1, compare_bytes);
            }
            f->nMaster += numBands1;
        }
    }
    f->fMaster[0] = (uint8_t)k0;
    for (int k = 1; k <= f->nMaster; ++k) {
        const int border = f->fMaster[k - 1] + dk[k - 1];
        if (dk[k - 1] == 0 || border > 64) return -1;
        f->fMaster[k] = (uint8_t)border;
    }
    return 0;
}

static void patches(SbrFreq* f, int sbrRate, int goalSb)
{
    (void)sbrRate;
    const int k0 = f->k0, kx = f->kx, m = f->m;
    int msb = k0, usb = kx, k, sb = 0, rounds = 0;
    f->numPatches = 0;
    if (goalSb < kx + m) {
        for (k = 0; f->fMaster[k] < goalSb; ++k) {}
    } else {
        k = f->nMaster;
    }
    do {
        int j = k + 1, odd;
        do {
            --j;
            sb = f->fMaster[j];
            odd = (sb - 2 + k0) % 2;
        } while (sb > k0 - 1 + msb - odd);
        const int bands = sb - usb > 0 ? sb - usb : 0;
        if (bands > 0) {
            if (f->numPatches == SBR_MAX_PATCHES) {
                f->numPatches = SBR_MAX_PATCHES + 1;  /* too many: reported by the caller */
                return;
            }
            f->patchBands[f->numPatches] = (uint8_t)bands;
            f->patchStart[f->numPatches] = (uint8_t)(k0 - odd - bands);
            ++f->numPatches;
            usb = sb;
            msb = sb;
        } else {
            msb = kx;
        }
        if (f->fMaster[k] - sb < 3) k = f->nMaster;
        if (++rounds > 64) {
            f->numPatches = 0;  /* no way to the top band: reported by the caller */
            return;
        }
    } while (sb != kx + m);
    if (f->numPatches > 1 && f->patchBands[f->numPatches - 1] < 3) --f->numPatches;
}

static int in_list(const uint8_t* list, int count, int value)
{
    for (int i = 0; i < count; ++i)
        if (list[i] == value) return 1;
    return 0;
}

static void limiter_table(SbrFreq* f, const SbrHeader* h)
{
    const uint8_t* low = f->fTable[0];
    const int nLow = f->n[0];
    if (h->limiterBands == 0) {
        f->fLim[0] = low[0];
        f->fLim[1] = low[nLow];
        f->nLim = 1;
        return;
    }
    uint8_t borders[SBR_MAX_PATCHES + 1];
    borders[0] = (uint8_t)f->kx;
    for (int i = 1; i <= f->numPatches; ++i) borders[i] = (uint8_t)(borders[i - 1] + f->patchBands[i - 1]);
    uint8_t* t = f->fLim;
    memcpy(t, low, (size_t)nLow + 1);
    if (f->numPatches > 1) memcpy(t + nLow + 1, borders + 1, (size_t)f->numPatches - 1);
    int nLim = nLow + f->numPatches - 1;
    qsort(t, (size_t)nLim + 1, 1, compare_bytes);
    const double ratio = pow(2.0, 0.49 / kSbrLimiterBandsPerOctave[h->limiterBands]);
    int in = 1, out = 0;
    while (out < nLim) {
        if (t[in] >= t[out] * ratio) {
            t[++out] = t[in++];
        } else if (t[in] == t[out] || !in_list(borders, f->numPatches + 1, t[in])) {
            ++in;
            --nLim;
        } else if (!in_list(borders, f->numPatches + 1, t[out])) {
            t[out] = t[in++];
            --nLim;
        } else {
            t[++out] = t[in++];
        }
    }
    f->nLim = nLim;
}

int sbr_freq_tables(SbrFreq* f, const SbrHeader* h, int sbrRate)
{
    const SbrRate* rate = NULL;
    for (int i = 0; i < SBR_NUM_RATES; ++i)
        if (kSbrRates[i].fs == sbrRate) rate = &kSbrRates[i];
    if (!rate) return -1;
    memset(f, 0, sizeof *f);
    f->k0 = rate->k0[h->startFreq];
    if (h->stopFreq < 14) f->k2 = rate->k2[h->stopFreq];
    else f->k2 = (h->stopFreq == 14 ? 2 : 3) * f->k0 > 64 ? 64 : (h->stopFreq == 14 ? 2 : 3) * f->k0;
    if (f->k2 <= f->k0) return -1;
    const int maxWidth = sbrRate <= 32000 ? 48 : sbrRate == 44100 ? 35 : 32;
    if (f->k2 - f->k0 > maxWidth) return -1;
    if (master_table(f, h) != 0) return -1;
    if (h->xoverBand >= f->nMaster) return -1;

    const int nHigh = f->nMaster - h->xoverBand;
    const int nLow = (nHigh + 1) / 2;
    f->n[1] = nHigh;
    f->n[0] = nLow;
    memcpy(f->fTable[1], f->fMaster + h->xoverBand, (size_t)nHigh + 1);
    f->fTable[0][0] = f->fTable[1][0];
    for (int i = 1; i <= nLow; ++i) f->fTable[0][i] = f->fTable[1][2 * i - (nHigh & 1)];
    f->kx = f->fTable[1][0];
    f->m = f->fTable[1][nHigh] - f->kx;
    if (f->kx > 32 || f->kx + f->m > 64 || f->m < 1) return -1;

    if (h->noiseBands == 0) {
        f->nQ = 1;
    } else {
        f->nQ = (int)floor(h->noiseBands * log((double)f->k2 / f->kx) / log(2.0) + 0.5);
        if (f->nQ < 1) f->nQ = 1;
    }
    if (f->nQ > SBR_MAX_NQ) return -1;
    f->fNoise[0] = f->fTable[0][0];
    for (int k = 1, i = 0; k <= f->nQ; ++k) {
        i += (nLow - i) / (f->nQ + 1 - k);
        f->fNoise[k] = f->fTable[0][i];
    }

    patches(f, sbrRate, rate->goalSb);
    if (f->numPatches < 1 || f->numPatches > SBR_MAX_PATCHES) return -1;
    limiter_table(f, h);
    return 0;
}
