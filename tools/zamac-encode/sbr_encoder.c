/*
 * The SBR encoder (see sbr_encoder.h). The road of a frame:
 *
 *   analysis     zamsAnalysisFilterEnc_SBR_32f32fc: 32 slots x 64 complex bands per
 *                channel; the energies |X|^2 drive everything below
 *   grid         zamsDetectTransient_SBR_32f on the high band: without a transient one
 *                envelope over the frame, or four when the high band's level changes
 *                within it (FIXFIX, or VARFIX after a variable end); with one an
 *                envelope starting at it (FIXVAR / VARVAR), see make_grid
 *   envelopes    mean energy per envelope and band of the frequency table, quantised
 *                in the decoder's scale: E = 2^(v/a + 6), a = 2 (1.5 dB) or 1 (3 dB)
 *   noise, invf  zamsEstimateTNR_SBR_32f on the original high band and on the low band
 *                the decoder patches up: the noise floor Q from the high band's
 *                tonality, the inverse filtering level from how much more tonal the
 *                patched source is
 *   stereo       one grid for both channels; level/balance coupling when it codes in
 *                fewer bits than independent channels
 *   harmonics    a sinusoid for a tone the patch cannot bring (detect_harmonics)
 *   payload      sbr_write_extension (sbr_writer.c), header every ~0.5 s
 *
 * Energy scale: the encoder bank (64 bands, full rate, the window c unscaled) and the
 * decoder's analysis (32 bands at half rate, factor 2) give a sinusoid or white noise
 * of the same level the same |X|^2 per band (measured: within 0.05 dB on noise), so
 * the envelopes are the analysis energies, raised by ENVELOPE_GAIN = 1 dB: decoded
 * (ffmpeg, faad and zamac-decode alike) the replicated band of pink noise came out
 * 1.2 dB low in every SBR band without it (lost between the decoders' generation and
 * synthesis of the high band), within 0.8 dB with it.
 */
#include <math.h>
#include <stdlib.h>
#include <string.h>

#include "sbr_encoder.h"
#include "sbr_tables.h"
#include "sbr_writer.h"
#include "zamac.h"

enum { SLOTS = 32, FRAME = 2048 };
/* A frame without a transient whose high band differs by more than this between its
 * quarters gets four envelopes (PEAQ on music at 48 kb/s stereo: DI -1.44 without,
 * -1.38 at 6 dB, -1.40 at 10 dB). */
#define SPLIT_DB 6.0
/* Energy scale of the envelopes over the analysis energies (see the top). */
#define ENVELOPE_GAIN 1.2589254 /* +1 dB */

struct SbrEncoder {
    int rate, channels, bitRate;
    SbrHeader header;
    SbrFreq freq;
    SbrEncAnalysisSpec_32f* qmf[2];
    float rows[2][SLOTS][128];
    float* rowPtr[2][SLOTS];
    float energy[2][SLOTS][64];
    SbrTransientState transient[2];
    int prevClass, prevCoupling, frames, headerPeriod;
    uint8_t source[64];          /* low band the decoder patches to each high band */
    SbrWriteHistory history[2];
    SbrEncChannel ch[2], coupled[2];
    uint8_t harmonics[2][SBR_MAX_BANDS]; /* bands with a sinusoid in the previous frame */
};

/* ---------------------------------------------------------------- set-up */

/* Crossover and top frequency by bit rate: a stereo stream counts as 2/3 of its rate
 * in mono terms (the core codes the pair jointly). Crossover 7 kHz up to 16 kb/s in
 * mono terms, 8 kHz up to 32 (24 to 48 kb/s stereo), 9.5 kHz up to 48, then 11 kHz;
 * the replicated band reaches 16 kHz below 16 kb/s, else 19.5 kHz (or what the rate
 * and the band-count limits allow). Chosen by PEAQ (basic, ODG and DI) on music and
 * speech at 24-48 kb/s: a higher crossover and a higher top scored better at every
 * rate tried, e.g. 48 kb/s stereo music DI -2.12 (8 / 16.5 kHz), -1.44 (8 / 19.5),
 * -1.37 (9.5 / 19.5); 24 kb/s mono music -2.57 (6.5 / 15), -1.75 (8 / 19.5). */
static void rate_targets(int channels, int bitRate, double* startHz, double* stopHz)
{
    const double mono = channels == 2 ? bitRate * 2.0 / 3.0 : bitRate;
    *startHz = mono <= 16000 ? 7000 : mono <= 32000 ? 8000 : mono <= 48000 ? 9500 : 11000;
    *stopHz = mono < 16000 ? 16000 : 19500;
}

static int choose_header(SbrEncoder* e)
{
    const SbrRate* rate = NULL;
    for (int i = 0; i < SBR_NUM_RATES; ++i)
        if (kSbrRates[i].fs == e->rate) rate = &kSbrRates[i];
    if (!rate) return -1;
    double startHz, stopHz;
    rate_targets(e->channels, e->bitRate, &startHz, &stopHz);
    const double band = e->rate / 128.0;
    SbrHeader* h = &e->header;
    memset(h, 0, sizeof *h);
    h->ampRes = 1;
    h->freqScale = 2, h->alterScale = 1, h->noiseBands = 2;
    h->limiterBands = 2, h->limiterGains = 2, h->interpolFreq = 1, h->smoothingMode = 1;
    int best = 0;
    for (int i = 1; i < 16; ++i)
        if (fabs(rate->k0[i] * band - startHz) < fabs(rate->k0[best] * band - startHz)) best = i;
    h->startFreq = best;
    /* the stop band nearest the target among those the tables accept */
    double bestDistance = 1e9;
    int found = 0;
    for (int j = 0; j < 14; ++j) {
        SbrHeader trial = *h;
        trial.stopFreq = j;
        SbrFreq f;
        const double distance = fabs(rate->k2[j] * band - stopHz);
        if (distance < bestDistance && sbr_freq_tables(&f, &trial, e->rate) == 0) {
            bestDistance = distance, h->stopFreq = j, found = 1;
        }
    }
    if (!found) return -1;
    return sbr_freq_tables(&e->freq, h, e->rate);
}

/* The low band each high band is patched from (4.6.18.6.3: patch p copies
 * patchBands[p] bands from patchStart[p] up, one after the other from kx). */
static void map_sources(SbrEncoder* e)
{
    const SbrFreq* f = &e->freq;
    int k = f->kx;
    for (int p = 0; p < f->numPatches; ++p)
        for (int i = 0; i < f->patchBands[p] && k < 64; ++i, ++k) e->source[k] = (uint8_t)(f->patchStart[p] + i);
}

SbrEncoder* sbr_encoder_open(int inRate, int channels, int bitRate)
{
    if (channels < 1 || channels > 2 || bitRate <= 0) return NULL;
    if (inRate != 22050 && inRate != 24000 && inRate != 32000 && inRate != 44100 && inRate != 48000) return NULL;
    SbrEncoder* e = (SbrEncoder*)calloc(1, sizeof *e);
    if (!e) return NULL;
    e->rate = inRate, e->channels = channels, e->bitRate = bitRate;
    if (choose_header(e) != 0) {
        free(e);
        return NULL;
    }
    map_sources(e);
    for (int c = 0; c < channels; ++c) {
        if (zamsAnalysisFilterEncInitAlloc_SBR_32f(&e->qmf[c]) != zamStsOk) {
            sbr_encoder_close(e);
            return NULL;
        }
        for (int l = 0; l < SLOTS; ++l) e->rowPtr[c][l] = e->rows[c][l];
    }
    e->headerPeriod = (int)(0.5 * inRate / (double)FRAME + 0.5);
    if (e->headerPeriod < 1) e->headerPeriod = 1;
    return e;
}

void sbr_encoder_close(SbrEncoder* e)
{
    if (!e) return;
    for (int c = 0; c < 2; ++c)
        if (e->qmf[c]) zamsAnalysisFilterEncFree_SBR_32f(e->qmf[c]);
    free(e);
}

int sbr_encoder_delay(const SbrEncoder* e)
{
    (void)e;
    return 0;
}

int sbr_encoder_crossover_hz(const SbrEncoder* e)
{
    return (int)(e->freq.kx * (e->rate / 128.0) + 0.5);
}

/* ---------------------------------------------------------------- grid */

/* The grid of a frame with the transient at QMF slot pos (-1: none), given the
 * previous frame's class. All borders are whole: bs_var_bord_0/1 stay 0, so every
 * frame spans time slots 0..16 and the borders fall on even time slots (4 QMF slots,
 * the step of the relative borders). With a transient at time slot t (rounded down
 * to even) the frame becomes [0, t) [t, 16) split into envelopes of at most 8, and
 * bs_pointer marks the envelope starting at t; t = 0 gives [0, 4) [4, 8) [8, 16)
 * unmarked (the first envelope cannot be marked: its noise border would fall on the
 * frame's start). Long
 * envelopes (4 time slots or more) get the high frequency resolution. */
static void make_grid(SbrEncChannel* ch, int pos, int split, int prevClass, int ampRes)
{
    const int prevVariable = prevClass == SBR_FIXVAR || prevClass == SBR_VARVAR;
    memset(ch, 0, sizeof *ch);
    if (pos < 0) {
        ch->frameClass = prevVariable ? SBR_VARFIX : SBR_FIXFIX;
        ch->numEnv = split ? 4 : 1;
        if (split && prevVariable) ch->numRel0 = 3, ch->rel0[0] = ch->rel0[1] = ch->rel0[2] = 4;
    } else {
        ch->frameClass = prevVariable ? SBR_VARVAR : SBR_FIXVAR;
        const int t = (pos / 2) & ~1, d = 16 - t;
        int lA;
        if (t == 0) {
            /* the transient envelope cannot be the first (its noise border would be
             * the frame's start): a short first envelope instead, none marked */
            ch->rel1[0] = 8, ch->rel1[1] = 4, ch->numRel1 = 2, lA = -1;
        } else if (d <= 8) {
            ch->rel1[0] = d, ch->numRel1 = 1, lA = 1;
        } else {
            ch->rel1[0] = 8, ch->rel1[1] = d - 8, ch->numRel1 = 2, lA = 1;
        }
        ch->numEnv = ch->numRel1 + 1;
        ch->pointer = lA < 0 ? 0 : ch->numEnv + 1 - lA;
    }
    if (sbr_grid_borders(ch, ampRes) != 0) { /* cannot happen: one envelope then */
        ch->frameClass = prevVariable ? SBR_VARFIX : SBR_FIXFIX;
        ch->numEnv = 1, ch->numRel0 = ch->numRel1 = 0, ch->pointer = 0;
        sbr_grid_borders(ch, ampRes);
    }
    for (int l = 0; l < ch->numEnv; ++l) ch->freqRes[l] = ch->tEnv[l + 1] - ch->tEnv[l] >= 4;
}

/* ---------------------------------------------------------------- estimation */

static int clampi(int v, int lo, int hi)
{
    return v < lo ? lo : v > hi ? hi : v;
}

/* Mean energy of one channel over QMF slots [s0, s1) and bands [k0, k1). */
static double mean_energy(const float (*energy)[64], int s0, int s1, int k0, int k1)
{
    double sum = 0;
    for (int s = s0; s < s1; ++s)
        for (int k = k0; k < k1; ++k) sum += energy[s][k];
    return sum / ((double)(s1 - s0) * (k1 - k0));
}

/* Keeps frequency deltas within the code's range (silence next to loud bands). */
static void limit_steps(int16_t* v, int n, int lav, int step)
{
    for (int k = 1; k < n; ++k) v[k] = (int16_t)clampi(v[k], v[k - 1] - lav * step, v[k - 1] + lav * step);
}

/* Envelope energies of the channels on the grid of ch[0]: e[c][l][b]. */
static void estimate_envelopes(const SbrEncoder* e, const SbrEncChannel* grid, double env[2][SBR_ENC_MAX_ENV][64])
{
    const SbrFreq* f = &e->freq;
    for (int c = 0; c < e->channels; ++c)
        for (int l = 0; l < grid->numEnv; ++l) {
            const int res = grid->freqRes[l];
            for (int b = 0; b < f->n[res]; ++b)
                env[c][l][b] = ENVELOPE_GAIN * mean_energy((const float (*)[64])e->energy[c], 2 * grid->tEnv[l],
                                                           2 * grid->tEnv[l + 1], f->fTable[res][b], f->fTable[res][b + 1]);
        }
}

/* Tonality (tone to noise power) from a prediction gain in dB: a complex QMF band
 * of noise already shows about 3 dB (see zamsEstimateTNR_SBR_32f), a tone T times
 * stronger than the noise about 10 log10(2 (1 + T)). */
static double tonality(double tnrDb)
{
    const double t = 0.5 * pow(10.0, tnrDb / 10.0) - 1.0;
    return t > 0 ? t : 0;
}

/* Noise floor (as a ratio Q of noise to the replicated tonal part) per noise
 * envelope and noise band, and the inverse filtering level per noise band. */
static void estimate_noise(SbrEncoder* e, int c, const SbrEncChannel* grid, double noise[SBR_ENC_MAX_NOISE][SBR_MAX_NQ],
                           uint8_t* invf)
{
    const SbrFreq* f = &e->freq;
    float tnrLow[64], tnrHigh[64];
    const float* const* rows = (const float* const*)e->rowPtr[c];
    zamsEstimateTNR_SBR_32f(rows, tnrLow, SLOTS, 0, f->kx);
    for (int q = 0; q < f->nQ; ++q) {
        const int k0 = f->fNoise[q], k1 = f->fNoise[q + 1];
        double source = 0, original = 0;
        for (int l = 0; l < grid->numNoise; ++l) {
            const int s0 = 2 * grid->tNoise[l], s1 = 2 * grid->tNoise[l + 1];
            zamsEstimateTNR_SBR_32f(rows + s0, tnrHigh, s1 - s0, k0, k1 - k0);
            /* weighted by the bands' energies: the loud bands decide */
            double mean = 0, weight = 1e-9;
            for (int k = k0; k < k1; ++k) {
                double w = 1e-9;
                for (int s = s0; s < s1; ++s) w += e->energy[c][s][k];
                mean += w * tnrHigh[k - k0], weight += w;
            }
            mean /= weight;
            original += mean * (s1 - s0) / (double)SLOTS;
            noise[l][q] = 1.0 / (tonality(mean) + 1e-3);
        }
        double weight = 1e-9;
        for (int k = k0; k < k1; ++k) {
            double w = 1e-9;
            for (int s = 0; s < SLOTS; ++s) w += e->energy[c][s][e->source[k]];
            source += w * tnrLow[e->source[k]], weight += w;
        }
        source /= weight;
        /* a source no more tonal than the original needs neither noise nor whitening */
        const double excess = source - original;
        for (int l = 0; l < grid->numNoise; ++l)
            if (excess <= 0) noise[l][q] = 1.0 / 1024;
        invf[q] = (uint8_t)(excess < 3 ? 0 : excess < 10 ? 1 : excess < 20 ? 2 : 3);
    }
}

/* Missing harmonics: a high-resolution band whose energy is mostly one steady tone
 * (prediction gain at least HARMONIC_DB, or HARMONIC_KEEP_DB for a band flagged in
 * the previous frame, and half the band's energy in its strongest QMF band) where
 * the low band patched into it is at least 15 dB less tonal (or 30 dB weaker) gets a
 * decoder sinusoid.
 * The envelope keeps the band's mean energy: the decoders' limiter compensation
 * brings the sinusoid to about the band's total (measured through ffmpeg and
 * zamac-decode: a tone alone in its band at 9.1 to 16 kHz comes out -0.4 to +1.4 dB
 * from the input's level, as a sinusoid at the band's centre). */
#define HARMONIC_DB 25.0
#define HARMONIC_KEEP_DB 18.0
static void detect_harmonics(SbrEncoder* e, int c, SbrEncChannel* ch)
{
    const SbrFreq* f = &e->freq;
    const float(*energy)[64] = (const float(*)[64])e->energy[c];
    const float* const* rows = (const float* const*)e->rowPtr[c];
    float tnrLow[64], tnrHigh[64];
    zamsEstimateTNR_SBR_32f(rows, tnrLow, SLOTS, 0, f->kx);
    zamsEstimateTNR_SBR_32f(rows, tnrHigh, SLOTS, f->kx, f->m);
    ch->addHarmonicFlag = 0;
    for (int b = 0; b < f->n[1]; ++b) {
        const int k0 = f->fTable[1][b], k1 = f->fTable[1][b + 1];
        double band = 0, peak = 0;
        int kp = k0;
        for (int k = k0; k < k1; ++k) {
            double sum = 0;
            for (int l = 0; l < SLOTS; ++l) sum += energy[l][k];
            band += sum;
            if (sum > peak) peak = sum, kp = k;
        }
        /* a source band 30 dB below the tone brings nothing, however tonal */
        double source = 0;
        for (int l = 0; l < SLOTS; ++l) source += energy[l][e->source[kp]];
        const double tonal = tnrHigh[kp - f->kx], sourceTonal = source < 1e-3 * peak ? 0.0 : tnrLow[e->source[kp]];
        const double threshold = e->harmonics[c][b] ? HARMONIC_KEEP_DB : HARMONIC_DB;
        const int flag = tonal >= threshold && sourceTonal <= tonal - 15.0 && peak >= 0.5 * band &&
                         band > 1e3 * (double)SLOTS * (k1 - k0);
        ch->addHarmonic[b] = e->harmonics[c][b] = (uint8_t)flag;
        ch->addHarmonicFlag |= ch->addHarmonic[b];
    }
}

/* Independent quantisation: E = 2^(v/a + 6), Q = 2^(6 - q). */
static void quantise_single(const SbrFreq* f, SbrEncChannel* ch, const double (*env)[64], const double (*noise)[SBR_MAX_NQ])
{
    const double a = ch->ampRes ? 1.0 : 2.0;
    const int top = ch->ampRes ? 63 : 127, lav = ch->ampRes ? 31 : 60;
    for (int l = 0; l < ch->numEnv; ++l) {
        const int n = f->n[ch->freqRes[l]];
        for (int b = 0; b < n; ++b)
            ch->env[l][b] = (int16_t)clampi((int)lrint(a * (log2(env[l][b] + 1e-9) - 6.0)), 0, top);
        limit_steps(ch->env[l], n, lav, 1);
    }
    for (int l = 0; l < ch->numNoise; ++l) {
        for (int q = 0; q < f->nQ; ++q) ch->noise[l][q] = (int16_t)clampi((int)lrint(6.0 - log2(noise[l][q])), 0, 30);
        limit_steps(ch->noise[l], f->nQ, 31, 1);
    }
}

/* Level and balance: level E_L + E_R = 2^(v0/a + 7), balance E_R / E_L = 2^((p - v1)/a)
 * with p = 24 (1.5 dB) or 12 (3 dB) and v1 even; the noise floors likewise with
 * Q_L + Q_R = 2^(7 - q0), Q_R / Q_L = 2^(12 - q1). */
static void quantise_coupled(const SbrFreq* f, SbrEncChannel ch[2], const double (*env)[SBR_ENC_MAX_ENV][64],
                             const double (*noise)[SBR_ENC_MAX_NOISE][SBR_MAX_NQ])
{
    const double a = ch[0].ampRes ? 1.0 : 2.0;
    const int pan = ch[0].ampRes ? 12 : 24, top = ch[0].ampRes ? 63 : 127, lav = ch[0].ampRes ? 31 : 60;
    const int balLav = ch[0].ampRes ? 12 : 24;
    for (int l = 0; l < ch[0].numEnv; ++l) {
        const int n = f->n[ch[0].freqRes[l]];
        for (int b = 0; b < n; ++b) {
            const double left = env[0][l][b] + 1e-9, right = env[1][l][b] + 1e-9;
            ch[0].env[l][b] = (int16_t)clampi((int)lrint(a * (log2(left + right) - 7.0)), 0, top);
            ch[1].env[l][b] = (int16_t)(2 * clampi((int)lrint((pan - a * log2(right / left)) / 2.0), 0, pan));
        }
        limit_steps(ch[0].env[l], n, lav, 1);
        limit_steps(ch[1].env[l], n, balLav, 2);
    }
    for (int l = 0; l < ch[0].numNoise; ++l) {
        for (int q = 0; q < f->nQ; ++q) {
            const double left = noise[0][l][q], right = noise[1][l][q];
            ch[0].noise[l][q] = (int16_t)clampi((int)lrint(7.0 - log2(left + right)), 0, 30);
            ch[1].noise[l][q] = (int16_t)(2 * clampi((int)lrint((12.0 - log2(right / left)) / 2.0), 0, 12));
        }
        limit_steps(ch[0].noise[l], f->nQ, 31, 1);
        limit_steps(ch[1].noise[l], f->nQ, 12, 2);
    }
}

/* ---------------------------------------------------------------- frame */

int sbr_encoder_frame(SbrEncoder* e, const float* const* pcm, uint8_t* buf, int bufBytes)
{
    if (!e || !pcm || !buf || bufBytes < 0) return -1;
    const SbrFreq* f = &e->freq;
    int pos = -1;
    for (int c = 0; c < e->channels; ++c) {
        if (!pcm[c] || zamsAnalysisFilterEnc_SBR_32f32fc(pcm[c], e->rowPtr[c], SLOTS, e->qmf[c]) != zamStsOk)
            return -1;
        for (int l = 0; l < SLOTS; ++l)
            for (int k = 0; k < 64; ++k) {
                const float re = e->rows[c][l][2 * k], im = e->rows[c][l][2 * k + 1];
                e->energy[c][l][k] = re * re + im * im;
            }
        int p, frameClass;
        if (zamsDetectTransient_SBR_32f((const float* const*)e->rowPtr[c], &p, &frameClass, SLOTS, f->kx, f->m, 8.0f,
                                        &e->transient[c]) != zamStsOk)
            return -1;
        if (p >= 0 && (pos < 0 || p < pos)) pos = p;
    }

    /* one grid for all channels; four envelopes for a frame whose high band changes by
     * more than SPLIT_DB between its quarters (quiet bands, below about -60 dB, not) */
    double quarter[4] = {0, 0, 0, 0};
    for (int c = 0; c < e->channels; ++c)
        for (int l = 0; l < SLOTS; ++l)
            for (int k = f->kx; k < f->kx + f->m; ++k) quarter[l / 8] += e->energy[c][l][k];
    double lo = quarter[0], hi = quarter[0];
    for (int q = 1; q < 4; ++q) lo = quarter[q] < lo ? quarter[q] : lo, hi = quarter[q] > hi ? quarter[q] : hi;
    const int split = hi > lo * pow(10.0, SPLIT_DB / 10.0) + 1e3 * (double)SLOTS * f->m;
    SbrEncChannel grid;
    make_grid(&grid, pos, split, e->prevClass, e->header.ampRes);
    e->prevClass = grid.frameClass;
    for (int c = 0; c < e->channels; ++c) e->transient[c].prevFrameClass = grid.frameClass;

    static double env[2][SBR_ENC_MAX_ENV][64];
    double noise[2][SBR_ENC_MAX_NOISE][SBR_MAX_NQ];
    estimate_envelopes(e, &grid, env);
    for (int c = 0; c < e->channels; ++c) {
        e->ch[c] = grid;
        estimate_noise(e, c, &grid, noise[c], e->ch[c].invf);
        detect_harmonics(e, c, &e->ch[c]);
        quantise_single(f, &e->ch[c], (const double (*)[64])env[c], (const double (*)[SBR_MAX_NQ])noise[c]);
    }

    const int header = e->frames % e->headerPeriod == 0;
    const SbrHeader* h = header ? &e->header : NULL;
    SbrBitWriter w = {buf, bufBytes, 0, 0};
    memset(buf, 0, (size_t)bufBytes);
    int bits;
    if (e->channels == 2) {
        /* coupling when it is cheaper (both channels then take the left's invf) */
        e->coupled[0] = e->coupled[1] = grid;
        for (int c = 0; c < 2; ++c) {
            e->coupled[c].addHarmonicFlag = e->ch[c].addHarmonicFlag;
            memcpy(e->coupled[c].addHarmonic, e->ch[c].addHarmonic, sizeof e->ch[c].addHarmonic);
        }
        for (int q = 0; q < f->nQ; ++q) {
            const int m = e->ch[0].invf[q] > e->ch[1].invf[q] ? e->ch[0].invf[q] : e->ch[1].invf[q];
            e->coupled[0].invf[q] = e->coupled[1].invf[q] = (uint8_t)m;
        }
        quantise_coupled(f, e->coupled, (const double (*)[SBR_ENC_MAX_ENV][64])env,
                         (const double (*)[SBR_ENC_MAX_NOISE][SBR_MAX_NQ])noise);
        static uint8_t scratch[1024];
        int cost[2];
        for (int coupling = 0; coupling < 2; ++coupling) {
            SbrWriteHistory trial[2] = {e->history[0], e->history[1]};
            SbrBitWriter t = {scratch, sizeof scratch, 0, 0};
            cost[coupling] = sbr_write_extension(&t, h, f, 2, coupling, coupling ? e->coupled : e->ch, trial,
                                                 !header && coupling == e->prevCoupling);
            if (cost[coupling] < 0) cost[coupling] = 1 << 30;
        }
        const int coupling = cost[1] < cost[0];
        bits = sbr_write_extension(&w, h, f, 2, coupling, coupling ? e->coupled : e->ch, e->history,
                                   !header && coupling == e->prevCoupling);
        e->prevCoupling = coupling;
    } else {
        bits = sbr_write_extension(&w, h, f, 1, 0, e->ch, e->history, !header);
    }
    ++e->frames;
    return bits;
}
