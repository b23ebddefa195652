/*
 * The SBR and PS bit-stream reader (ISO/IEC 14496-3, 4.4.2.8 sbr_extension_data()
 * and its elements; 8.3 ps_data()). Envelope and noise values are resolved against
 * the previous envelope here, so a frame leaves the reader with absolute quantised
 * values; everything is read into a copy of the reader's state, which replaces the
 * state only when the whole payload reads cleanly.
 */
#include <string.h>

#include "sbr.h"
#include "sbr_tables.h"

unsigned sbr_bits_read(SbrBits* b, int n)
{
    unsigned value = 0;
    for (int i = 0; i < n; ++i, ++b->pos) {
        unsigned bit = 0;
        if (b->pos < b->bits) bit = (b->data[b->pos >> 3] >> (7 - (b->pos & 7))) & 1u;
        else b->overrun = 1;
        value = (value << 1) | bit;
    }
    return value;
}

static int read_huffman(SbrBits* b, const SbrHuffman* code)
{
    int node = 0;
    for (;;) {
        const int next = code->node[node][sbr_bits_read(b, 1)];
        if (next < 0) return -1 - next - code->lav;
        node = next;
    }
}

/* ------------------------------------------------------------ SBR */

static void read_header(SbrBits* b, SbrHeader* h)
{
    h->ampRes = (int)sbr_bits_read(b, 1);
    h->startFreq = (int)sbr_bits_read(b, 4);
    h->stopFreq = (int)sbr_bits_read(b, 4);
    h->xoverBand = (int)sbr_bits_read(b, 3);
    sbr_bits_read(b, 2);  /* bs_reserved */
    const int extra1 = (int)sbr_bits_read(b, 1), extra2 = (int)sbr_bits_read(b, 1);
    h->freqScale = 2, h->alterScale = 1, h->noiseBands = 2;
    if (extra1) {
        h->freqScale = (int)sbr_bits_read(b, 2);
        h->alterScale = (int)sbr_bits_read(b, 1);
        h->noiseBands = (int)sbr_bits_read(b, 2);
    }
    h->limiterBands = 2, h->limiterGains = 2, h->interpolFreq = 1, h->smoothingMode = 1;
    if (extra2) {
        h->limiterBands = (int)sbr_bits_read(b, 2);
        h->limiterGains = (int)sbr_bits_read(b, 2);
        h->interpolFreq = (int)sbr_bits_read(b, 1);
        h->smoothingMode = (int)sbr_bits_read(b, 1);
    }
}

static int pointer_bits(int numEnv)
{
    return numEnv < 2 ? 1 : numEnv < 4 ? 2 : 3;  /* ceil(log2(numEnv + 1)) */
}

/* sbr_grid(): frame class, borders, frequency resolutions; the noise borders and
 * the transient envelope follow from them. */
static int read_grid(SbrBits* b, SbrFrame* fr, int ampRes)
{
    SbrGridFields g = {0};
    fr->ampRes = ampRes;
    g.frameClass = fr->frameClass = (int)sbr_bits_read(b, 2);
    switch (g.frameClass) {
    case SBR_FIXFIX:
        g.numEnv = 1 << sbr_bits_read(b, 2);
        if (g.numEnv > 4) return -1;
        if (g.numEnv == 1) fr->ampRes = 0;
        fr->freqRes[0] = (uint8_t)sbr_bits_read(b, 1);
        for (int l = 1; l < g.numEnv; ++l) fr->freqRes[l] = fr->freqRes[0];
        break;
    case SBR_FIXVAR:
    case SBR_VARFIX:
        if (g.frameClass == SBR_FIXVAR) g.bord1 = (int)sbr_bits_read(b, 2);
        else g.bord0 = (int)sbr_bits_read(b, 2);
        if (g.frameClass == SBR_FIXVAR) g.numRel1 = (int)sbr_bits_read(b, 2);
        else g.numRel0 = (int)sbr_bits_read(b, 2);
        for (int i = 0; i < g.numRel0; ++i) g.rel0[i] = 2 * (int)sbr_bits_read(b, 2) + 2;
        for (int i = 0; i < g.numRel1; ++i) g.rel1[i] = 2 * (int)sbr_bits_read(b, 2) + 2;
        g.numEnv = g.numRel0 + g.numRel1 + 1;
        if (g.numEnv > SBR_MAX_ENV - 1) return -1;
        g.pointer = (int)sbr_bits_read(b, pointer_bits(g.numEnv));
        for (int l = 0; l < g.numEnv; ++l) {
            const int res = (int)sbr_bits_read(b, 1);
            fr->freqRes[g.frameClass == SBR_FIXVAR ? g.numEnv - 1 - l : l] = (uint8_t)res;
        }
        break;
    default: /* VARVAR */
        g.bord0 = (int)sbr_bits_read(b, 2);
        g.bord1 = (int)sbr_bits_read(b, 2);
        g.numRel0 = (int)sbr_bits_read(b, 2);
        g.numRel1 = (int)sbr_bits_read(b, 2);
        g.numEnv = g.numRel0 + g.numRel1 + 1;
        if (g.numEnv > SBR_MAX_ENV) return -1;
        for (int i = 0; i < g.numRel0; ++i) g.rel0[i] = 2 * (int)sbr_bits_read(b, 2) + 2;
        for (int i = 0; i < g.numRel1; ++i) g.rel1[i] = 2 * (int)sbr_bits_read(b, 2) + 2;
        g.pointer = (int)sbr_bits_read(b, pointer_bits(g.numEnv));
        for (int l = 0; l < g.numEnv; ++l) fr->freqRes[l] = (uint8_t)sbr_bits_read(b, 1);
        break;
    }
    fr->numEnv = g.numEnv;
    fr->pointer = g.pointer;
    return sbr_grid_times(&g, fr->tEnv, fr->tNoise, &fr->numNoise, &fr->lA);
}

/* sbr_envelope(): delta decoding in frequency or time; balance values of a coupled
 * pair's second channel are doubled. */
static int read_envelope(SbrBits* b, const SbrFreq* f, SbrFrame* fr, const uint8_t* df, SbrReadHistory* hist,
                         int balance)
{
    const int delta = balance ? 2 : 1;
    const SbrHuffman *tCode, *fCode;
    int startBits;
    if (fr->ampRes) {
        tCode = balance ? &kSbr_t_huffman_env_bal_3_0dB : &kSbr_t_huffman_env_3_0dB;
        fCode = balance ? &kSbr_f_huffman_env_bal_3_0dB : &kSbr_f_huffman_env_3_0dB;
        startBits = balance ? 5 : 6;
    } else {
        tCode = balance ? &kSbr_t_huffman_env_bal_1_5dB : &kSbr_t_huffman_env_1_5dB;
        fCode = balance ? &kSbr_f_huffman_env_bal_1_5dB : &kSbr_f_huffman_env_1_5dB;
        startBits = balance ? 6 : 7;
    }
    const int maxValue = balance ? 48 : 127;
    for (int l = 0; l < fr->numEnv; ++l) {
        const int res = fr->freqRes[l], n = f->n[res];
        int16_t* e = fr->env[l];
        if (!df[l]) {
            e[0] = (int16_t)(delta * (int)sbr_bits_read(b, startBits));
            for (int k = 1; k < n; ++k) e[k] = (int16_t)(e[k - 1] + delta * read_huffman(b, fCode));
        } else {
            const int16_t* prev = l == 0 ? hist->env : fr->env[l - 1];
            const int prevRes = l == 0 ? hist->freqRes : fr->freqRes[l - 1];
            for (int k = 0; k < n; ++k) {
                const int i = prevRes == res ? k : sbr_band_containing(f->fTable[prevRes], f->n[prevRes], f->fTable[res][k]);
                e[k] = (int16_t)(prev[i] + delta * read_huffman(b, tCode));
            }
        }
        for (int k = 0; k < n; ++k)
            if (e[k] < 0 || e[k] > maxValue) return -1;
    }
    const int last = fr->numEnv - 1;
    memcpy(hist->env, fr->env[last], sizeof hist->env);
    hist->freqRes = fr->freqRes[last];
    return 0;
}

/* sbr_noise() */
static int read_noise(SbrBits* b, const SbrFreq* f, SbrFrame* fr, const uint8_t* df, SbrReadHistory* hist,
                      int balance)
{
    const int delta = balance ? 2 : 1;
    const SbrHuffman* tCode = balance ? &kSbr_t_huffman_noise_bal_3_0dB : &kSbr_t_huffman_noise_3_0dB;
    const SbrHuffman* fCode = balance ? &kSbr_f_huffman_env_bal_3_0dB : &kSbr_f_huffman_env_3_0dB;
    for (int l = 0; l < fr->numNoise; ++l) {
        int16_t* q = fr->noise[l];
        const int16_t* prev = l == 0 ? hist->noise : fr->noise[l - 1];
        if (!df[l]) {
            q[0] = (int16_t)(delta * (int)sbr_bits_read(b, 5));
            for (int k = 1; k < f->nQ; ++k) q[k] = (int16_t)(q[k - 1] + delta * read_huffman(b, fCode));
        } else {
            for (int k = 0; k < f->nQ; ++k) q[k] = (int16_t)(prev[k] + delta * read_huffman(b, tCode));
        }
        for (int k = 0; k < f->nQ; ++k)
            if (q[k] < 0 || q[k] > (balance ? 48 : 30)) return -1;
    }
    memcpy(hist->noise, fr->noise[fr->numNoise - 1], sizeof hist->noise);
    return 0;
}

static void read_dtdf(SbrBits* b, const SbrFrame* fr, uint8_t* dfEnv, uint8_t* dfNoise)
{
    for (int l = 0; l < fr->numEnv; ++l) dfEnv[l] = (uint8_t)sbr_bits_read(b, 1);
    for (int l = 0; l < fr->numNoise; ++l) dfNoise[l] = (uint8_t)sbr_bits_read(b, 1);
}

static void read_invf(SbrBits* b, const SbrFreq* f, SbrFrame* fr)
{
    for (int n = 0; n < f->nQ; ++n) fr->invf[n] = (uint8_t)sbr_bits_read(b, 2);
}

static void read_harmonics(SbrBits* b, const SbrFreq* f, SbrFrame* fr)
{
    memset(fr->addHarmonic, 0, sizeof fr->addHarmonic);
    if (sbr_bits_read(b, 1))
        for (int n = 0; n < f->n[1]; ++n) fr->addHarmonic[n] = (uint8_t)sbr_bits_read(b, 1);
}

/* ------------------------------------------------------------ PS */

static int read_ps_values(SbrBits* b, PsData* ps, int8_t (*par)[PS_MAX_PAR], int e, int num, int dt,
                          const SbrHuffman* code, int limit, int modulo)
{
    int prev = e > 0 ? e - 1 : ps->numEnvOld - 1;
    if (prev < 0) prev = 0;
    int value = 0;
    for (int i = 0; i < num; ++i) {
        const int d = read_huffman(b, code);
        value = dt ? par[prev][i] + d : value + d;
        if (modulo) value &= 7;
        else if (value < -limit || value > limit) return -1;
        par[e][i] = (int8_t)value;
    }
    return 0;
}

/* ps_extension() with id 0: IPD and OPD. Returns the bits read. */
static int read_ps_ipdopd(SbrBits* b, PsData* ps)
{
    const int start = b->pos;
    ps->enableIpdOpd = (int)sbr_bits_read(b, 1);
    if (ps->enableIpdOpd) {
        for (int e = 0; e < ps->numEnv; ++e) {
            int dt = (int)sbr_bits_read(b, 1);
            read_ps_values(b, ps, ps->ipd, e, ps->nrIpdOpdPar, dt, dt ? &kPs_t_huff_ipd : &kPs_f_huff_ipd, 7, 1);
            dt = (int)sbr_bits_read(b, 1);
            read_ps_values(b, ps, ps->opd, e, ps->nrIpdOpdPar, dt, dt ? &kPs_t_huff_opd : &kPs_f_huff_opd, 7, 1);
        }
    }
    sbr_bits_read(b, 1);  /* reserved_ps */
    return b->pos - start;
}

/* ps_data(). Returns the bits read, or -1 when the data are invalid. */
static int read_ps(SbrBits* b, PsData* ps)
{
    const int start = b->pos;
    ps->numEnvOld = ps->numEnv;
    ps->is34Old = ps->is34;
    if (sbr_bits_read(b, 1)) { /* enable_ps_header */
        ps->headerSeen = 1;
        ps->enableIid = (int)sbr_bits_read(b, 1);
        if (ps->enableIid) {
            ps->iidMode = (int)sbr_bits_read(b, 3);
            if (ps->iidMode > 5) return -1;
            ps->nrIidPar = kPsModePar[ps->iidMode];
            ps->nrIpdOpdPar = kPsModeIpdOpdPar[ps->iidMode];
            ps->iidQuant = ps->iidMode > 2;
        }
        ps->enableIcc = (int)sbr_bits_read(b, 1);
        if (ps->enableIcc) {
            ps->iccMode = (int)sbr_bits_read(b, 3);
            if (ps->iccMode > 5) return -1;
            ps->nrIccPar = kPsModePar[ps->iccMode];
        }
        ps->enableExt = (int)sbr_bits_read(b, 1);
    }
    const int frameClass = (int)sbr_bits_read(b, 1);
    ps->numEnv = kPsNumEnv[frameClass][sbr_bits_read(b, 2)];
    ps->border[0] = -1;
    for (int e = 1; e <= ps->numEnv; ++e) {
        if (frameClass) {
            ps->border[e] = (int)sbr_bits_read(b, 5);
            if (ps->border[e] <= ps->border[e - 1] || ps->border[e] > 31) return -1;
        } else {
            ps->border[e] = e * SBR_SLOTS / ps->numEnv - 1;
        }
    }
    if (ps->enableIid) {
        const int fine = ps->iidQuant, limit = fine ? 15 : 7;
        for (int e = 0; e < ps->numEnv; ++e) {
            const int dt = (int)sbr_bits_read(b, 1);
            const SbrHuffman* code = fine ? (dt ? &kPs_t_huff_iid_fine : &kPs_f_huff_iid_fine)
                                          : (dt ? &kPs_t_huff_iid_def : &kPs_f_huff_iid_def);
            if (read_ps_values(b, ps, ps->iid, e, ps->nrIidPar, dt, code, limit, 0) != 0) return -1;
        }
    } else {
        memset(ps->iid, 0, sizeof ps->iid);
    }
    if (ps->enableIcc) {
        for (int e = 0; e < ps->numEnv; ++e) {
            const int dt = (int)sbr_bits_read(b, 1);
            if (read_ps_values(b, ps, ps->icc, e, ps->nrIccPar, dt, dt ? &kPs_t_huff_icc : &kPs_f_huff_icc, 7, 0) != 0)
                return -1;
            for (int i = 0; i < ps->nrIccPar; ++i)
                if (ps->icc[e][i] < 0) return -1;
        }
    } else {
        memset(ps->icc, 0, sizeof ps->icc);
    }
    ps->enableIpdOpd = 0;
    if (ps->enableExt) {
        int left = (int)sbr_bits_read(b, 4);
        if (left == 15) left += (int)sbr_bits_read(b, 8);
        left *= 8;
        while (left > 7) {
            const int id = (int)sbr_bits_read(b, 2);
            left -= 2;
            if (id == 0) left -= read_ps_ipdopd(b, ps);
            else break;
        }
        if (left < 0) return -1;
        sbr_bits_read(b, left);
    }
    /* A frame whose last envelope ends early keeps its parameters to the frame's end. */
    if (ps->numEnv == 0 || ps->border[ps->numEnv] < SBR_SLOTS - 1) {
        const int source = ps->numEnv ? ps->numEnv - 1 : ps->numEnvOld - 1;
        if (source >= 0 && source != ps->numEnv) {
            memcpy(ps->iid[ps->numEnv], ps->iid[source], PS_MAX_PAR);
            memcpy(ps->icc[ps->numEnv], ps->icc[source], PS_MAX_PAR);
            memcpy(ps->ipd[ps->numEnv], ps->ipd[source], PS_MAX_PAR);
            memcpy(ps->opd[ps->numEnv], ps->opd[source], PS_MAX_PAR);
        }
        ++ps->numEnv;
        ps->border[ps->numEnv] = SBR_SLOTS - 1;
    }
    if (ps->enableIid || ps->enableIcc)
        ps->is34 = (ps->enableIid && ps->nrIidPar == 34) || (ps->enableIcc && ps->nrIccPar == 34);
    if (!ps->enableIpdOpd) {
        memset(ps->ipd, 0, sizeof ps->ipd);
        memset(ps->opd, 0, sizeof ps->opd);
    }
    ps->present = ps->headerSeen;
    return b->pos - start;
}

/* bs_extended_data: parametric stereo (id 2) in a single channel element; other
 * extensions are skipped. */
static int read_extended(SbrBits* b, SbrReader* r, int channels)
{
    if (!sbr_bits_read(b, 1)) return 0;
    int left = (int)sbr_bits_read(b, 4);
    if (left == 15) left += (int)sbr_bits_read(b, 8);
    left *= 8;
    while (left > 7) {
        const int id = (int)sbr_bits_read(b, 2);
        left -= 2;
        if (id == 2 && channels == 1) {
            const int used = read_ps(b, &r->ps);
            if (used < 0) return -1;
            left -= used;
        } else {
            sbr_bits_read(b, left);
            left = 0;
        }
    }
    if (left < 0) return -1;
    sbr_bits_read(b, left);
    return 0;
}

/* sbr_single_channel_element() / sbr_channel_pair_element() */
static int read_data(SbrBits* b, SbrReader* r, int channels, SbrFrame frame[2])
{
    const SbrFreq* f = &r->freq;
    uint8_t dfEnv[2][SBR_MAX_ENV], dfNoise[2][SBR_MAX_NOISE];
    if (sbr_bits_read(b, 1)) sbr_bits_read(b, channels == 1 ? 4 : 8);  /* bs_data_extra: reserved */
    r->coupling = 0;
    if (channels == 1) {
        if (read_grid(b, &frame[0], r->header.ampRes) != 0) return -1;
        read_dtdf(b, &frame[0], dfEnv[0], dfNoise[0]);
        read_invf(b, f, &frame[0]);
        if (read_envelope(b, f, &frame[0], dfEnv[0], &r->history[0], 0) != 0) return -1;
        if (read_noise(b, f, &frame[0], dfNoise[0], &r->history[0], 0) != 0) return -1;
        read_harmonics(b, f, &frame[0]);
    } else {
        r->coupling = (int)sbr_bits_read(b, 1);
        if (r->coupling) {
            if (read_grid(b, &frame[0], r->header.ampRes) != 0) return -1;
            frame[1] = frame[0];
            read_dtdf(b, &frame[0], dfEnv[0], dfNoise[0]);
            read_dtdf(b, &frame[1], dfEnv[1], dfNoise[1]);
            read_invf(b, f, &frame[0]);
            memcpy(frame[1].invf, frame[0].invf, sizeof frame[0].invf);
            if (read_envelope(b, f, &frame[0], dfEnv[0], &r->history[0], 0) != 0 ||
                read_noise(b, f, &frame[0], dfNoise[0], &r->history[0], 0) != 0 ||
                read_envelope(b, f, &frame[1], dfEnv[1], &r->history[1], 1) != 0 ||
                read_noise(b, f, &frame[1], dfNoise[1], &r->history[1], 1) != 0)
                return -1;
        } else {
            if (read_grid(b, &frame[0], r->header.ampRes) != 0 || read_grid(b, &frame[1], r->header.ampRes) != 0)
                return -1;
            read_dtdf(b, &frame[0], dfEnv[0], dfNoise[0]);
            read_dtdf(b, &frame[1], dfEnv[1], dfNoise[1]);
            read_invf(b, f, &frame[0]);
            read_invf(b, f, &frame[1]);
            if (read_envelope(b, f, &frame[0], dfEnv[0], &r->history[0], 0) != 0 ||
                read_envelope(b, f, &frame[1], dfEnv[1], &r->history[1], 0) != 0 ||
                read_noise(b, f, &frame[0], dfNoise[0], &r->history[0], 0) != 0 ||
                read_noise(b, f, &frame[1], dfNoise[1], &r->history[1], 0) != 0)
                return -1;
        }
        read_harmonics(b, f, &frame[0]);
        read_harmonics(b, f, &frame[1]);
    }
    return read_extended(b, r, channels);
}

int sbr_read_extension(SbrReader* r, SbrBits* b, int channels, int crc, SbrFrame frame[2], int* reset)
{
    static SbrReader work;  /* the decoder is single-threaded; keeps the copy off the stack */
    work = *r;
    *reset = 0;
    r->ps.present = 0;
    work.ps.present = 0;
    if (crc) sbr_bits_read(b, 10);  /* bs_sbr_crc_bits: not verified */
    if (sbr_bits_read(b, 1)) {
        SbrHeader h;
        read_header(b, &h);
        if (!work.headerSeen || memcmp(&h, &work.header, sizeof h) != 0) {
            const SbrHeader* old = &work.header;
            *reset = !work.headerSeen || h.startFreq != old->startFreq || h.stopFreq != old->stopFreq ||
                     h.xoverBand != old->xoverBand || h.freqScale != old->freqScale ||
                     h.alterScale != old->alterScale || h.noiseBands != old->noiseBands;
            work.header = h;
            if (sbr_freq_tables(&work.freq, &h, work.sbrRate) != 0) return -1;
            work.headerSeen = 1;
        }
    }
    if (!work.headerSeen) return 1;
    if (read_data(b, &work, channels, frame) != 0 || b->overrun) {
        r->ps.present = 0;
        return -1;
    }
    *r = work;
    return 0;
}
