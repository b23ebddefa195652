/* The encoder's side of psychoacoustics: turning the model's signal-to-mask ratios
 * into the allowed noise the quantizer works to, band by band. */
#include "mp3_psy.h"

#include <math.h>

#include "mp3_bands.h"

#define NO_ENERGY_DB (-120.0f)

void psy_band_energy(const int32_t* lines, int blockType, int row, float* energyDb)
{
    const int isShort = blockType == 2;
    const int bands = isShort ? 39 : 22;
    for (int b = 0; b < bands; ++b) {
        int start, width;
        if (isShort) {
            const int s = b / 3, w = b % 3;
            width = mp3_band_short[row][s + 1] - mp3_band_short[row][s];
            start = 3 * mp3_band_short[row][s] + w * width;
        } else {
            start = mp3_band_long[row][b];
            width = mp3_band_long[row][b + 1] - start;
        }
        double e = 0.0;
        for (int i = start; i < start + width; ++i) e += (double)lines[i] * lines[i];
        energyDb[b] = e > 0.0 ? (float)(10.0 * log10(e)) : NO_ENERGY_DB;
    }
}

void psy_allowed_noise(const Mp3PsychoacousticInfo* info, const float* energyDb, int blockType, float offsetDb,
                       int32_t* xmin)
{
    const int isShort = blockType == 2;
    const int bands = isShort ? 39 : 22;
    for (int b = 0; b < bands; ++b) {
        const float smr = (isShort ? info->smrShort[b] : info->smrLong[b]) / 256.0f;
        float allowed = energyDb[b] - smr + offsetDb;
        if (energyDb[b] <= NO_ENERGY_DB) allowed = NO_ENERGY_DB;
        xmin[b] = (int32_t)lrintf(allowed * 256.0f);
    }
}

void psy_shared_noise(int32_t* xminA, int32_t* xminB, int bands)
{
    for (int b = 0; b < bands; ++b) {
        const int32_t m = xminA[b] < xminB[b] ? xminA[b] : xminB[b];
        xminA[b] = xminB[b] = m;
    }
}

int psy_common_block_type(const int* types, int channels, int previous)
{
    int anyShort = 0, anyStart = 0;
    for (int c = 0; c < channels; ++c) {
        anyShort |= types[c] == 2;
        anyStart |= types[c] == 1;
    }
    if (anyShort) return 2;
    if (previous == 1 || previous == 2) return anyStart ? 2 : 3;
    return anyStart ? 1 : 0;
}

void psy_lowpass(int32_t* lines, int blockType, int row, int cutLine)
{
    if (cutLine >= 576) return;
    if (blockType != 2) {
        for (int i = cutLine; i < 576; ++i) lines[i] = 0;
        return;
    }
    for (int s = 0; s < 13; ++s) {
        const int lo = mp3_band_short[row][s], width = mp3_band_short[row][s + 1] - lo;
        for (int w = 0; w < 3; ++w)
            for (int k = 0; k < width; ++k)
                if (3 * (lo + k) >= cutLine) lines[3 * lo + w * width + k] = 0;
    }
}

int psy_default_lowpass(int bitrate, int channels, int vbrQuality, int sampleRate)
{
    static const int kVbr[10] = {19500, 19000, 18600, 18000, 17500, 16500, 15500, 14500, 12500, 11000};
    static const int kRate[][2] = {{8, 2000},    {16, 3700},   {24, 3900},   {32, 5500},   {40, 7000},
                                   {48, 7500},   {56, 10000},  {64, 11000},  {80, 13500},  {96, 15100},
                                   {112, 15600}, {128, 17000}, {160, 17500}, {192, 18600}, {224, 19400},
                                   {256, 19700}, {320, 20500}};
    int hz;
    if (vbrQuality >= 0) {
        hz = kVbr[vbrQuality];
    } else {
        const int pairRate = channels == 1 ? 2 * bitrate : bitrate;
        hz = kRate[0][1];
        for (unsigned i = 0; i < sizeof kRate / sizeof kRate[0]; ++i)
            if (pairRate >= kRate[i][0]) hz = kRate[i][1];
    }
    const int nyquist = sampleRate / 2;
    return hz < nyquist ? hz : nyquist;
}
