/*
 * The road of one SBR frame for one channel element (ISO/IEC 14496-3, 4.6.18):
 *
 *   payload        sbr_read_extension (sbr_bitstream.c): header, grid, envelopes, PS
 *   analysis       32-band QMF of the 1024 core samples into the low band rows
 *                  (zamsAnalysisFilter_SBR_RToC_32f_D2L; _RToR_ with --sbr-lp,
 *                  _RToC_32f32fc_ with --downsample)
 *   generation     sbr_hf_generate (sbr_hfgen.c)
 *   adjustment     sbr_dequantize, sbr_hf_adjust (sbr_hfadj.c)
 *   QMF matrix     low band delayed by t_HFAdj slots, the adjusted high band, and the
 *                  previous frame's high band where its last envelope reaches over
 *   PS             ps_apply (ps_decoder.c): a mono element becomes left and right
 *   synthesis      64-band QMF to 2048 samples (32-band down-sampling synthesis to
 *                  1024 with --downsample)
 *
 * With --fixed (aac_sbr_render_fixed) the banks and the predictor are the integer ones:
 *   analysis       zamsAnalysisFilter_SBRHQ_32s32sc (_SBRLP_32s with --sbr-lp) of the
 *                  core's 32-bit PCM (8 fractional bits); the integer rows are kept for
 *   generation     zamsPredictOneCoef_SBRHQ_32sc_D2L / _SBRLP_32s_D2L per low subband
 *   synthesis      zamsSynthesisFilter_SBRHQ_32sc32s / _SBRLP_32s, with --downsample
 *                  zamsSynthesisDownFilter_SBRHQ_32sc32s, rounded to saturated 16-bit PCM.
 * No integer stage exists for the rest, which runs on the integer QMF samples taken
 * as floats: the rows are converted once after the analysis (to_float_rows) and the
 * predictor coefficients after the predictor (sbr_hf_generate); the patching, the
 * envelope and gain computation of the HF adjuster, the aliasing degree (--sbr-lp)
 * and the PS mixing stay in float; the synthesis matrix is converted back to
 * integers before the synthesis (to_fixed_rows).
 *
 * A frame without usable SBR data (none yet, or damaged) goes through the same banks
 * with the whole low band and no high band: the core, upsampled.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "sbr.h"
#include "sbr_decoder.h"
#include "zamac.h"

enum { MAX_SLOTS = 16, PAYLOAD_BYTES = 272, XROWS = SBR_SLOTS + 6 };

typedef struct {
    SbrAnalysisSpec_RToC_32f* hq;
    SbrAnalysisSpec_RToR_32f* lp;
    SbrAnalysisSpec_RToC_32f32fc* il;
    SbrSynthesisSpec_CToR_32f* hqSyn[2];
    SbrSynthesisSpec_RToR_32f* lpSyn[2];
    SbrSynthesisDownSpec_CToR_32fc32f* downSyn[2];
    /* --fixed */
    SbrAnalysisSpecHQ_32s32sc* fixHq;
    SbrAnalysisSpecLP_32s* fixLp;
    SbrSynthesisSpecHQ_32sc32s* fixHqSyn[2];
    SbrSynthesisSpecLP_32s* fixLpSyn[2];
    SbrSynthesisDownSpecHQ_32sc32s* fixDownSyn[2];
    int32_t q[SBR_XSLOTS][64];  /* integer low band rows: 32 (re, im) pairs, or 32 values (LP) */
} Banks;

typedef struct {
    int channels, outputs[2];
    int hasPayload, payloadBits, crc;
    uint8_t payload[PAYLOAD_BYTES];
    SbrReader reader;
    SbrFrame frame[2];
    SbrChannel* ch[2];
    Banks banks[2];
    PsState* ps;
    int created;
} SbrSlot;

struct AacSbr {
    int coreRate, mode, fixed, enabled, monoToStereo;
    int slotCount;
    int blockHasSbr, psSeen;
    int goodCount, goodChannels[MAX_SLOTS], goodOutputs[MAX_SLOTS][2];  /* the last clean block's elements */
    SbrSlot slots[MAX_SLOTS];
    /* work rows shared by the elements */
    float hRe[SBR_XSLOTS][64], hIm[SBR_XSLOTS][64];
    float xRe[2][XROWS][64], xIm[2][XROWS][64];
    float il[SBR_SLOTS][128];
    int32_t qs[SBR_SLOTS][128];  /* --fixed: synthesis input rows */
    int32_t out32[2048];
    float env[2][SBR_MAX_ENV][SBR_MAX_BANDS], noise[2][SBR_MAX_NOISE][SBR_MAX_NQ];
};

AacSbr* aac_sbr_create(int coreRate, int mode, int fixed)
{
    AacSbr* s = (AacSbr*)calloc(1, sizeof *s);
    if (!s) return NULL;
    s->coreRate = coreRate;
    s->mode = mode;
    s->fixed = fixed;
    return s;
}

static void free_banks(Banks* b)
{
    zamsAnalysisFilterFree_SBR_RToC_32f(b->hq);
    zamsAnalysisFilterFree_SBR_RToR_32f(b->lp);
    zamsAnalysisFilterFree_SBR_RToC_32f32fc(b->il);
    for (int i = 0; i < 2; ++i) {
        zamsSynthesisFilterFree_SBR_CToR_32f(b->hqSyn[i]);
        zamsSynthesisFilterFree_SBR_RToR_32f(b->lpSyn[i]);
        zamsSynthesisDownFilterFree_SBR_CToR_32fc32f(b->downSyn[i]);
        zamsSynthesisFilterFree_SBRHQ_32sc32s(b->fixHqSyn[i]);
        zamsSynthesisFilterFree_SBRLP_32s(b->fixLpSyn[i]);
        zamsSynthesisDownFilterFree_SBRHQ_32sc32s(b->fixDownSyn[i]);
    }
    zamsAnalysisFilterFree_SBRHQ_32s32sc(b->fixHq);
    zamsAnalysisFilterFree_SBRLP_32s(b->fixLp);
}

void aac_sbr_free(AacSbr* s)
{
    if (!s) return;
    for (int i = 0; i < MAX_SLOTS; ++i) {
        SbrSlot* e = &s->slots[i];
        for (int c = 0; c < 2; ++c) {
            free(e->ch[c]);
            if (e->created) free_banks(&e->banks[c]);
        }
        ps_free(e->ps);
    }
    free(s);
}

void aac_sbr_block_start(AacSbr* s)
{
    s->slotCount = 0;
    s->blockHasSbr = 0;
    for (int i = 0; i < MAX_SLOTS; ++i) s->slots[i].hasPayload = 0;
}

void aac_sbr_element(AacSbr* s, int channels, const int outputs[2])
{
    if (s->slotCount >= MAX_SLOTS) return;
    SbrSlot* e = &s->slots[s->slotCount++];
    e->channels = channels;
    e->outputs[0] = outputs[0];
    e->outputs[1] = channels == 2 ? outputs[1] : -1;
    e->hasPayload = 0;
}

int aac_sbr_payload(AacSbr* s, const uint8_t* payload, int count)
{
    const int type = count > 0 ? payload[0] >> 4 : 0;
    if (type != 13 && type != 14) return 0;  /* EXT_SBR_DATA, EXT_SBR_DATA_CRC */
    s->blockHasSbr = 1;
    if (s->slotCount == 0 || count > PAYLOAD_BYTES) return 1;
    SbrSlot* e = &s->slots[s->slotCount - 1];
    if (e->channels == 0) return 1;
    memcpy(e->payload, payload, (size_t)count);
    e->payloadBits = 8 * count;
    e->crc = type == 14;
    e->hasPayload = 1;
    return 1;
}

int aac_sbr_block_has_sbr(const AacSbr* s) { return s->blockHasSbr; }
int aac_sbr_has_ps(const AacSbr* s) { return s->psSeen; }
int aac_sbr_enabled(const AacSbr* s) { return s->enabled; }

int aac_sbr_enable(AacSbr* s, int monoToStereo)
{
    s->enabled = 1;
    s->monoToStereo = monoToStereo;
    return s->mode == SBR_MODE_DOWNSAMPLE ? s->coreRate : 2 * s->coreRate;
}

/* Banks and state of a slot, made when it is first used. */
static int create_slot(AacSbr* s, SbrSlot* e)
{
    e->reader.sbrRate = 2 * s->coreRate;
    for (int c = 0; c < 2; ++c) {
        e->ch[c] = (SbrChannel*)calloc(1, sizeof(SbrChannel));
        if (!e->ch[c]) return -1;
        e->ch[c]->prevEnd = SBR_SLOTS;
        e->ch[c]->lowPower = s->mode == SBR_MODE_LP;
        Banks* b = &e->banks[c];
        ZamStatus st;
        if (s->fixed) {
            st = s->mode == SBR_MODE_LP ? zamsAnalysisFilterInitAlloc_SBRLP_32s(&b->fixLp)
                                        : zamsAnalysisFilterInitAlloc_SBRHQ_32s32sc(&b->fixHq);
            for (int i = 0; i < 2 && st >= 0; ++i) {
                if (s->mode == SBR_MODE_LP) st = zamsSynthesisFilterInitAlloc_SBRLP_32s(&b->fixLpSyn[i]);
                else if (s->mode == SBR_MODE_DOWNSAMPLE) st = zamsSynthesisDownFilterInitAlloc_SBRHQ_32sc32s(&b->fixDownSyn[i]);
                else st = zamsSynthesisFilterInitAlloc_SBRHQ_32sc32s(&b->fixHqSyn[i]);
            }
        } else if (s->mode == SBR_MODE_LP) st = zamsAnalysisFilterInitAlloc_SBR_RToR_32f(&b->lp);
        else if (s->mode == SBR_MODE_DOWNSAMPLE) st = zamsAnalysisFilterInitAlloc_SBR_RToC_32f32fc(&b->il);
        else st = zamsAnalysisFilterInitAlloc_SBR_RToC_32f(&b->hq);
        for (int i = 0; i < 2 && st >= 0 && !s->fixed; ++i) {
            if (s->mode == SBR_MODE_LP) st = zamsSynthesisFilterInitAlloc_SBR_RToR_32f(&b->lpSyn[i]);
            else if (s->mode == SBR_MODE_DOWNSAMPLE) st = zamsSynthesisDownFilterInitAlloc_SBR_CToR_32fc32f(&b->downSyn[i]);
            else st = zamsSynthesisFilterInitAlloc_SBR_CToR_32f(&b->hqSyn[i]);
        }
        if (st < 0) return -1;
    }
    e->ps = ps_create();
    e->created = 1;
    return e->ps ? 0 : -1;
}

/* 32 core samples per slot into the low band rows 8..39 of the channel. */
static void analysis(AacSbr* s, Banks* b, SbrChannel* ch, const float* pcm)
{
    memmove(ch->xRe[0], ch->xRe[SBR_SLOTS], SBR_HFGEN * sizeof ch->xRe[0]);
    memmove(ch->xIm[0], ch->xIm[SBR_SLOTS], SBR_HFGEN * sizeof ch->xIm[0]);
    float* re[SBR_SLOTS];
    float* im[SBR_SLOTS];
    for (int l = 0; l < SBR_SLOTS; ++l) {
        re[l] = ch->xRe[SBR_HFGEN + l];
        im[l] = ch->xIm[SBR_HFGEN + l];
    }
    if (s->mode == SBR_MODE_LP) {
        zamsAnalysisFilter_SBR_RToR_32f_D2L(pcm, re, SBR_SLOTS, 32, b->lp);
        for (int l = 0; l < SBR_SLOTS; ++l) memset(im[l], 0, 64 * sizeof(float));
    } else if (s->mode == SBR_MODE_DOWNSAMPLE) {
        float* rows[SBR_SLOTS];
        for (int l = 0; l < SBR_SLOTS; ++l) rows[l] = s->il[l];
        zamsAnalysisFilter_SBR_RToC_32f32fc_D2L(pcm, rows, SBR_SLOTS, 32, b->il);
        for (int l = 0; l < SBR_SLOTS; ++l)
            for (int k = 0; k < 32; ++k) {
                re[l][k] = s->il[l][2 * k];
                im[l][k] = s->il[l][2 * k + 1];
            }
    } else {
        zamsAnalysisFilter_SBR_RToC_32f_D2L(pcm, re, im, SBR_SLOTS, 32, b->hq);
    }
    for (int l = 0; l < SBR_SLOTS; ++l) {
        memset(re[l] + 32, 0, 32 * sizeof(float));
        memset(im[l] + 32, 0, 32 * sizeof(float));
    }
}

/* --fixed: 32 core samples per slot (32-bit PCM, 8 fractional bits) into the integer
 * low band rows, which are then taken as floats for the stages without an integer
 * counterpart. The integer analysis of PCM x 2^8 is 4 times the float bank's output
 * of the PCM (its output is the float transform / 64), hence the factor 1/4. */
static void analysis_fixed(AacSbr* s, Banks* b, SbrChannel* ch, const int32_t* core)
{
    memmove(b->q[0], b->q[SBR_SLOTS], SBR_HFGEN * sizeof b->q[0]);
    memmove(ch->xRe[0], ch->xRe[SBR_SLOTS], SBR_HFGEN * sizeof ch->xRe[0]);
    memmove(ch->xIm[0], ch->xIm[SBR_SLOTS], SBR_HFGEN * sizeof ch->xIm[0]);
    int32_t* rows[SBR_SLOTS];
    for (int l = 0; l < SBR_SLOTS; ++l) rows[l] = b->q[SBR_HFGEN + l];
    if (s->mode == SBR_MODE_LP) zamsAnalysisFilter_SBRLP_32s(core, rows, SBR_SLOTS, 32, b->fixLp);
    else zamsAnalysisFilter_SBRHQ_32s32sc(core, rows, SBR_SLOTS, 32, b->fixHq);
    /* integer to float boundary: the HF generator's patching, the HF adjuster and PS */
    for (int l = 0; l < SBR_SLOTS; ++l) {
        float* re = ch->xRe[SBR_HFGEN + l];
        float* im = ch->xIm[SBR_HFGEN + l];
        for (int k = 0; k < 32; ++k) {
            if (s->mode == SBR_MODE_LP) {
                re[k] = 0.25f * (float)rows[l][k];
                im[k] = 0.0f;
            } else {
                re[k] = 0.25f * (float)rows[l][2 * k];
                im[k] = 0.25f * (float)rows[l][2 * k + 1];
            }
        }
        memset(re + 32, 0, 32 * sizeof(float));
        memset(im + 32, 0, 32 * sizeof(float));
    }
}

/* Float to integer boundary before the synthesis: x 4, rounded, saturated to 2^30. */
static int32_t to_fixed(float v)
{
    const float q = 4.0f * v;
    if (q >= 1073741824.0f) return 1073741824;
    if (q <= -1073741824.0f) return -1073741824;
    return (int32_t)(q >= 0.0f ? q + 0.5f : q - 0.5f);  /* nearest, halves away from 0 */
}

static void synthesis_fixed(AacSbr* s, Banks* b, int index, float (*xRe)[64], float (*xIm)[64], int16_t* out)
{
    const int32_t* rows[SBR_SLOTS];
    const int bands = s->mode == SBR_MODE_DOWNSAMPLE ? 32 : 64;
    for (int l = 0; l < SBR_SLOTS; ++l) {
        int32_t* q = s->qs[l];
        for (int k = 0; k < bands; ++k) {
            if (s->mode == SBR_MODE_LP) {
                q[k] = to_fixed(xRe[l][k]);
            } else {
                q[2 * k] = to_fixed(xRe[l][k]);
                q[2 * k + 1] = to_fixed(xIm[l][k]);
            }
        }
        rows[l] = q;
    }
    int samples = 2048;
    if (s->mode == SBR_MODE_LP) {
        zamsSynthesisFilter_SBRLP_32s(rows, s->out32, SBR_SLOTS, b->fixLpSyn[index]);
    } else if (s->mode == SBR_MODE_DOWNSAMPLE) {
        zamsSynthesisDownFilter_SBRHQ_32sc32s(rows, s->out32, SBR_SLOTS, b->fixDownSyn[index]);
        samples = 1024;
    } else {
        zamsSynthesisFilter_SBRHQ_32sc32s(rows, s->out32, SBR_SLOTS, b->fixHqSyn[index]);
    }
    for (int n = 0; n < samples; ++n) {
        const int32_t v = (int32_t)(((int64_t)s->out32[n] + 128) >> 8);  /* half up, as the core */
        out[n] = (int16_t)(v > 32767 ? 32767 : v < -32768 ? -32768 : v);
    }
}

/* The synthesis matrix: rows 0..31 are output, rows 32..37 the low band ahead (for
 * the PS hybrid filters). */
static void build_matrix(SbrChannel* ch, int kx, int m, float (*xRe)[64], float (*xIm)[64])
{
    const int spill = ch->prevEnd - SBR_SLOTS;
    const float (*yPrevRe)[64] = (const float (*)[64])ch->yRe[ch->yCur ^ 1];
    const float (*yPrevIm)[64] = (const float (*)[64])ch->yIm[ch->yCur ^ 1];
    const float (*yRe)[64] = (const float (*)[64])ch->yRe[ch->yCur];
    const float (*yIm)[64] = (const float (*)[64])ch->yIm[ch->yCur];
    for (int l = 0; l < XROWS; ++l) {
        int low = kx, top = kx + m;
        const float *hr = NULL, *hi = NULL;
        if (l < spill) {
            low = ch->prevKx;
            top = ch->prevKx + ch->prevM;
            hr = yPrevRe[l + SBR_SLOTS];
            hi = yPrevIm[l + SBR_SLOTS];
        } else if (l < SBR_SLOTS) {
            hr = yRe[l];
            hi = yIm[l];
        } else {
            top = low;
        }
        memcpy(xRe[l], ch->xRe[l + SBR_HFADJ], (size_t)low * sizeof(float));
        memcpy(xIm[l], ch->xIm[l + SBR_HFADJ], (size_t)low * sizeof(float));
        for (int k = low; k < top; ++k) {
            xRe[l][k] = hr[k];
            xIm[l][k] = hi[k];
        }
        memset(xRe[l] + top, 0, (size_t)(64 - top) * sizeof(float));
        memset(xIm[l] + top, 0, (size_t)(64 - top) * sizeof(float));
    }
}

static void synthesis(AacSbr* s, Banks* b, int index, float (*xRe)[64], float (*xIm)[64], float* out)
{
    const float* re[SBR_SLOTS];
    const float* im[SBR_SLOTS];
    for (int l = 0; l < SBR_SLOTS; ++l) {
        re[l] = xRe[l];
        im[l] = xIm[l];
    }
    if (s->mode == SBR_MODE_LP) {
        zamsSynthesisFilter_SBR_RToR_32f_D2L(re, out, SBR_SLOTS, b->lpSyn[index]);
    } else if (s->mode == SBR_MODE_DOWNSAMPLE) {
        const float* rows[SBR_SLOTS];
        for (int l = 0; l < SBR_SLOTS; ++l) {
            for (int k = 0; k < 32; ++k) {
                s->il[l][2 * k] = xRe[l][k];
                s->il[l][2 * k + 1] = xIm[l][k];
            }
            rows[l] = s->il[l];
        }
        zamsSynthesisDownFilter_SBR_CToR_32fc32f_D2L(rows, out, SBR_SLOTS, b->downSyn[index]);
    } else {
        zamsSynthesisFilter_SBR_CToR_32f_D2L(re, im, out, SBR_SLOTS, b->hqSyn[index]);
    }
}

/* One element: returns -1 when its SBR data were damaged (the core is output). */
/* pcm: the float path's channels (core in, output out); with --fixed core and out. */
typedef struct {
    float* const* pcm;
    const int32_t* const* core;
    int16_t* const* out;
} SbrIo;

static int render_slot(AacSbr* s, SbrSlot* e, const SbrIo* io, int concealed)
{
    int result = 0, valid = 0, reset = 0;
    const int channels = e->channels == 0 ? 1 : e->channels;
    if (e->hasPayload && !concealed) {
        SbrBits bits = {e->payload, e->payloadBits, 4, 0};
        const int r = sbr_read_extension(&e->reader, &bits, e->channels, e->crc, e->frame, &reset);
        valid = r == 0;
        if (r < 0) result = -1;
    }
    const SbrFreq* f = &e->reader.freq;
    const int lowPower = s->mode == SBR_MODE_LP;
    if (valid) sbr_dequantize(f, e->frame, channels, e->reader.coupling, s->env, s->noise);
    const int kx = valid ? f->kx : 32, m = valid ? f->m : 0;
    for (int c = 0; c < channels; ++c) {
        SbrChannel* ch = e->ch[c];
        const int out = e->outputs[c];
        if (out < 0) continue;
        if (s->fixed) analysis_fixed(s, &e->banks[c], ch, io->core[out]);
        else analysis(s, &e->banks[c], ch, io->pcm[out]);
        if (valid) {
            sbr_hf_generate(ch, f, &e->frame[c], s->hRe, s->hIm, lowPower,
                            s->fixed ? (const int32_t (*)[64])e->banks[c].q : NULL);
            sbr_hf_adjust(ch, f, &e->reader.header, &e->frame[c], (const float (*)[SBR_MAX_BANDS])s->env[c],
                          (const float (*)[SBR_MAX_NQ])s->noise[c], (const float (*)[64])s->hRe,
                          (const float (*)[64])s->hIm, reset);
        }
        build_matrix(ch, kx, m, s->xRe[c], s->xIm[c]);
        ch->prevEnd = valid ? 2 * e->frame[c].tEnv[e->frame[c].numEnv] : SBR_SLOTS;
        ch->prevKx = kx;
        ch->prevM = m;
        ch->yCur ^= 1;
    }
    const int stereo = e->channels == 1 && s->monoToStereo && e->outputs[0] >= 0;
    if (stereo) {
        const PsData* ps = &e->reader.ps;
        if (ps->headerSeen) s->psSeen = 1;
        if (ps->headerSeen && !lowPower) {
            ps_apply(e->ps, ps, s->xRe[0], s->xIm[0], s->xRe[1], s->xIm[1], kx + m);
        } else {
            memcpy(s->xRe[1], s->xRe[0], sizeof s->xRe[1]);
            memcpy(s->xIm[1], s->xIm[0], sizeof s->xIm[1]);
        }
    }
    for (int c = 0; c < (stereo ? 2 : channels); ++c) {
        const int out = stereo ? e->outputs[0] + c : e->outputs[c];
        if (out < 0) continue;
        if (s->fixed) synthesis_fixed(s, &e->banks[stereo ? 0 : c], c, s->xRe[c], s->xIm[c], io->out[out]);
        else synthesis(s, &e->banks[stereo ? 0 : c], c, s->xRe[c], s->xIm[c], io->pcm[out]);
    }
    return result;
}

static int render(AacSbr* s, const SbrIo* io, int concealed, int* damaged)
{
    *damaged = 0;
    if (concealed) {
        /* a corrupt block: its elements are unknown, the last clean block's run on */
        s->slotCount = s->goodCount;
        for (int i = 0; i < s->slotCount; ++i) {
            s->slots[i].channels = s->goodChannels[i];
            memcpy(s->slots[i].outputs, s->goodOutputs[i], sizeof s->goodOutputs[i]);
            s->slots[i].hasPayload = 0;
        }
    } else {
        s->goodCount = s->slotCount;
        for (int i = 0; i < s->slotCount; ++i) {
            s->goodChannels[i] = s->slots[i].channels;
            memcpy(s->goodOutputs[i], s->slots[i].outputs, sizeof s->goodOutputs[i]);
        }
    }
    for (int i = 0; i < s->slotCount; ++i) {
        SbrSlot* e = &s->slots[i];
        if (!e->created && create_slot(s, e) != 0) {
            fprintf(stderr, "zamac-decode: out of memory for SBR\n");
            return -1;
        }
        if (render_slot(s, e, io, concealed) < 0) ++*damaged;
    }
    return s->mode == SBR_MODE_DOWNSAMPLE ? 1024 : 2048;
}

int aac_sbr_render(AacSbr* s, float* const* pcm, int channels, int concealed, int* damaged)
{
    (void)channels;
    const SbrIo io = {pcm, NULL, NULL};
    return render(s, &io, concealed, damaged);
}

int aac_sbr_render_fixed(AacSbr* s, const int32_t* const* core, int16_t* const* out, int channels, int concealed,
                         int* damaged)
{
    (void)channels;
    const SbrIo io = {NULL, core, out};
    return render(s, &io, concealed, damaged);
}
