/*
 * AAC-LC decoding with the zamac stages. The road of one frame:
 *
 *   ADTS header      zamsUnpackADTSFrameHeader_AAC (or, once, zamsUnpackADIFHeader_AAC)
 *   element loop     this file reads id_syn_ele and element_instance_tag, then
 *                      CPE: zamsDecodeChanPairElt_AAC (common window, M/S mask)
 *                      DSE / FIL / PCE: zamsDecodeDatStrElt_AAC / zamsDecodeFillElt_AAC /
 *                                       zamsDecodePrgCfgElt_AAC
 *   per channel      zamsNoiselessDecoder_LC_AAC (zamsNoiselessDecode_AAC when the
 *                    channel has noise-substituted bands), zamsQuantInv_AAC_32s_I
 *                    (Main, LTP: zamsNoiselessDecode_AAC; pairs: zamsDecodeChanPairElt_MP4_AAC for LTP)
 *   per pair         zamsDecodeMsStereo_AAC_32s_I
 *   Main             zamsFDPInv_32f_I and the predictor resets (aac_prediction.c)
 *   per pair         zamsDecodeIsStereo_AAC_32s
 *   per channel      zamsDeinterleaveSpectrum_AAC_32s (eight short windows),
 *                    zamsDecodePNS_AAC_32s / zamsDecodeMsPNS_AAC_32s,
 *   LTP              zamsLongTermPredict_AAC_32s, zamsMDCTFwd_AAC_32s_I,
 *                    zamsLongTermReconstruct_AAC_32s (aac_prediction.c)
 *   per channel      zamsDecodeTNS_AAC_32s_I
 *   filter bank      zamsMDCTInv_32f, windows and overlap-add (aac_filterbank.c), or
 *                    with --fixed zamsMDCTInv_AAC_32s_I (aac_fixed.c)
 *   LTP              zamsLtpUpdate_AAC_32s
 *   output           zamsJoin_32f16s_D2L to interleaved 16-bit PCM
 *
 * Choices of this decoder:
 *  - A frame that cannot be decoded (a stage reports an error, the elements run past
 *    the frame's end, the frame is truncated, or its length does not lead to the next
 *    header) is reported with its number and concealed by silence: all its spectra are
 *    taken as zero, so the previous frame's tail still fades out through the overlap.
 *  - Coupling channel elements (CCE) are parsed and skipped: the coupling is not applied.
 *  - HE-AAC: SBR data in a fill element after an element (implicit signalling) switch
 *    on SBR for the whole stream when the first frame has them: the output rate is
 *    twice the core rate, a mono core (possibly with parametric stereo) becomes two
 *    channels (sbr_decoder.c); with --fixed through the integer QMF banks and predictor
 *    from the core's 32-bit PCM (aac_sbr_render_fixed). The SSR object type is refused with a message.
 *  - The ADTS CRC is not verified.
 *  - Elements are matched to the channel layout by type in order of appearance (and by
 *    instance tag when a program configuration lists them).
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "aac_filterbank.h"
#include "aac_fixed.h"
#include "aac_layout.h"
#include "aac_prediction.h"
#include "aac_sf_code.h"
#include "decoder.h"
#include "sbr_decoder.h"
#include "zamac.h"

enum { ID_SCE = 0, ID_CPE = 1, ID_CCE = 2, ID_LFE = 3, ID_DSE = 4, ID_PCE = 5, ID_FIL = 6, ID_END = 7 };

/* An element may read well past a corrupt frame's end before the damage shows, so each
 * frame is copied into a buffer with this much zero padding behind it. */
enum { MAX_FRAME_BYTES = 8192, FRAME_PADDING = 16384, MAX_ELEMENTS_PER_BLOCK = 64 };

static const int kSampleRates[12] = {96000, 88200, 64000, 48000, 44100, 32000,
                                     24000, 22050, 16000, 12000, 11025, 8000};
static const char* const kProfileNames[4] = {"Main", "LC", "SSR", "LTP"};

/* A bit-stream cursor as the library takes it. */
typedef struct {
    uint8_t* byte;
    int32_t bit;
} Cursor;

static unsigned read_bits(Cursor* c, int n)
{
    unsigned value = 0;
    for (int i = 0; i < n; ++i) {
        value = (value << 1) | ((*c->byte >> (7 - c->bit)) & 1u);
        if (++c->bit == 8) {
            c->bit = 0;
            ++c->byte;
        }
    }
    return value;
}

static void byte_align(Cursor* c)
{
    if (c->bit != 0) {
        c->bit = 0;
        ++c->byte;
    }
}

/* One channel of the element being decoded: its side information and spectrum. */
typedef struct {
    AacChanInfo info;
    AacIcsInfo ics;
    int16_t scaleFactors[8 * 64];  /* max_sfb per group, group after group */
    uint8_t codebooks[8 * 64];
    int8_t tnsCoef[64];
    AacLtpData ltp;                /* LTP: this channel's long-term prediction data */
    int32_t* grouped;              /* 1024: quantized, then dequantized, in stream order */
    int32_t* spectrum;             /* 1024: final spectrum in window order */
    int hasNoise, hasIntensity;
} ChannelWork;

typedef struct {
    AacFilterBank bank;
    AacLayout layout;
    AacChannelHistory history[AAC_MAX_CHANNELS];
    AacPrediction prediction;      /* Main and LTP state per output channel */
    AacFixedBank* fixedBank;       /* --fixed */
    int objectType;                /* 1 Main, 2 LC, 4 LTP */
    int32_t* outSpectrum[AAC_MAX_CHANNELS];  /* final spectrum of each output channel */
    int outSequence[AAC_MAX_CHANNELS], outShape[AAC_MAX_CHANNELS], outPresent[AAC_MAX_CHANNELS];
    float* pcm[AAC_MAX_CHANNELS];
    int16_t* interleaved;
    AacSbr* sbr;                   /* HE-AAC: SBR and PS after the filter bank */
    long sbrFrames;

    ChannelWork work[2];
    AacChanPairElt pair;
    AacMainHeader mainHeader;      /* receives what the general noiseless decoder reads */
    uint8_t mainMsUsed[8 * 60];
    int32_t noiseState[8 * 64];    /* per window and band: the noise of a pair's first channel */
    int32_t predictionUsed[64];    /* cleared by noise substitution; unused by AAC-LC */
    int32_t randomState;           /* the noise generator, kept from frame to frame */

    int samplingIndex, sampleRate;
    int formatSent;
    int sbrReported, cceReported;  /* notices already shown */
    int sawSbr, sawCoupling;       /* seen in the current block */
    const DecodeOptions* options;
    PcmSink* sink;
    DecodeStats* stats;
    long frameNumber;              /* 1-based number of the current frame */
    long frameBytes;               /* --info: size of the current ADTS frame (0 for ADIF) */
    long cleanFrames, badFrames;
    char elementText[512];         /* --info: the block's elements */
    const char* error;             /* why the current block failed */
} AacDecoder;

static void* aligned_zeroed(size_t bytes)
{
    void* p = aligned_alloc(64, (bytes + 63) & ~(size_t)63);
    if (p) memset(p, 0, bytes);
    return p;
}

static void decoder_free(AacDecoder* d)
{
    aac_filterbank_free(&d->bank);
    aac_sbr_free(d->sbr);
    aac_prediction_free(&d->prediction);
    free(d->fixedBank);
    for (int c = 0; c < AAC_MAX_CHANNELS; ++c) {
        free(d->outSpectrum[c]);
        free(d->pcm[c]);
    }
    for (int i = 0; i < 2; ++i) {
        free(d->work[i].grouped);
        free(d->work[i].spectrum);
    }
    free(d->interleaved);
}

static int decoder_init(AacDecoder* d, const DecodeOptions* options, PcmSink* sink, DecodeStats* stats)
{
    memset(d, 0, sizeof *d);
    d->options = options;
    d->sink = sink;
    d->stats = stats;
    d->mainHeader.pMsUsed = d->mainMsUsed;
    if (aac_filterbank_init(&d->bank) != 0) return -1;
    int ok = 1;
    for (int c = 0; c < AAC_MAX_CHANNELS; ++c) {
        d->outSpectrum[c] = (int32_t*)aligned_zeroed(1024 * sizeof(int32_t));
        d->pcm[c] = (float*)aligned_zeroed(2048 * sizeof(float));
        ok = ok && d->outSpectrum[c] && d->pcm[c];
        aac_history_reset(&d->history[c]);
    }
    for (int i = 0; i < 2; ++i) {
        d->work[i].grouped = (int32_t*)aligned_zeroed(1024 * sizeof(int32_t));
        d->work[i].spectrum = (int32_t*)aligned_zeroed(1024 * sizeof(int32_t));
        ok = ok && d->work[i].grouped && d->work[i].spectrum;
    }
    d->interleaved = (int16_t*)aligned_zeroed(2048 * AAC_MAX_CHANNELS * sizeof(int16_t));
    if (options->fixed) ok = ok && (d->fixedBank = (AacFixedBank*)aligned_zeroed(sizeof(AacFixedBank)));
    return ok && d->interleaved ? 0 : -1;
}

/* ------------------------------------------------------------ one channel */

/* The general noiseless decoder keeps one running value for scale factors and noise
 * energies, so a band after a noise band continues from the noise energy. AAC keeps
 * two separate running values; rebuild them from the differences. */
static void separate_noise_energies(ChannelWork* ch, int bands)
{
    const int globalGain = ch->info.global_gain;
    int shared = globalGain, scaleFactor = globalGain, noiseEnergy = 0, firstNoise = 1;
    for (int i = 0; i < bands; ++i) {
        const int cb = ch->codebooks[i];
        if (cb == 0 || cb == 14 || cb == 15) continue;
        const int stored = ch->scaleFactors[i];
        const int difference = stored - shared;
        shared = stored;
        if (cb == 13) {
            noiseEnergy = firstNoise ? stored : noiseEnergy + difference;
            firstNoise = 0;
            ch->scaleFactors[i] = (int16_t)noiseEnergy;
        } else {
            scaleFactor += difference;
            ch->scaleFactors[i] = (int16_t)scaleFactor;
        }
    }
}

static int window_length(const AacIcsInfo* ics)
{
    return ics->window_sequence == AAC_EIGHT_SHORT_SEQUENCE ? 128 : 1024;
}

/* individual_channel_stream(): noiseless decoding and inverse quantization. */
static ZamStatus decode_channel_stream(AacDecoder* d, Cursor* c, ChannelWork* ch, AacIcsInfo* ics, int commonWin)
{
    memset(&ch->info, 0, sizeof ch->info);
    ch->info.sampling_frequency_index = d->samplingIndex;
    ch->info.num_pred_sfb = 0;
    ch->info.pIcsInfo = ics;
    const Cursor start = *c;
    ZamStatus status = zamStsAacSfCbErr;
    if (d->objectType == AAC_OBJECT_LC)
        status = zamsNoiselessDecoder_LC_AAC(&c->byte, &c->bit, commonWin, &ch->info, ch->scaleFactors, ch->grouped,
                                             ch->codebooks, ch->tnsCoef);
    else
        ch->info.num_pred_sfb = d->objectType == AAC_OBJECT_MAIN ? d->prediction.predSfbMax : 0;
    ch->hasNoise = 0;
    if (status == zamStsAacSfCbErr) {
        /* A noise-substituted band (code book 13): read the channel again with the
         * decoder that knows noise bands. */
        *c = start;
        ch->info.pIcsInfo = ics;
        if (!commonWin) d->mainHeader.ltp[0].ltp_data_present = 0;
        status = zamsNoiselessDecode_AAC(&c->byte, &c->bit, &d->mainHeader, ch->scaleFactors, ch->grouped,
                                         ch->codebooks, ch->tnsCoef, &ch->info, 0, 0, commonWin, 0, d->objectType);
        if (status >= 0) {
            separate_noise_energies(ch, ics->num_window_groups * ics->max_sfb);
            for (int i = 0; i < ics->num_window_groups * ics->max_sfb; ++i) ch->hasNoise |= ch->codebooks[i] == 13;
        }
        if (!commonWin) ch->ltp = d->mainHeader.ltp[0];
    }
    if (status < 0) {
        d->error = "channel stream";
        return status;
    }
    if (ics->predictor_data_present && d->objectType == AAC_OBJECT_LC) {
        d->error = "prediction data in an AAC-LC stream";
        return zamStsBadData;
    }
    const int bands = ics->num_window_groups * ics->max_sfb;
    ch->hasIntensity = 0;
    for (int i = 0; i < bands; ++i) ch->hasIntensity |= ch->codebooks[i] == 14 || ch->codebooks[i] == 15;

    status = zamsQuantInv_AAC_32s_I(ch->grouped, ch->scaleFactors, ics->num_window_groups, ics->window_group_length,
                                    ics->max_sfb, ch->codebooks, (uint32_t)d->samplingIndex, window_length(ics));
    if (status < 0) d->error = "inverse quantization";
    return status;
}

/* Noise substitution for one channel (pairChannel 0 or 1 with the pair's ms_used, -1
 * for a channel on its own). Eight-short frames run window by window on the
 * deinterleaved spectrum, each window with its group's bands. */
static ZamStatus substitute_noise(AacDecoder* d, ChannelWork* ch, const AacIcsInfo* ics, int pairChannel,
                                  const uint8_t* msUsed)
{
    const uint32_t sfi = (uint32_t)d->samplingIndex;
    const int maxSfb = ics->max_sfb;
    if (ics->window_sequence != AAC_EIGHT_SHORT_SEQUENCE) {
        const int32_t one = 1;
        if (pairChannel < 0)
            return zamsDecodePNS_AAC_32s(ch->spectrum, d->predictionUsed, ch->codebooks,
                                         (uint16_t*)ch->scaleFactors, maxSfb, 1, &one, sfi, 1024, &d->randomState);
        return zamsDecodeMsPNS_AAC_32s(ch->spectrum, d->predictionUsed, ch->codebooks, (uint16_t*)ch->scaleFactors,
                                       maxSfb, 1, &one, sfi, 1024, &d->randomState, pairChannel, msUsed,
                                       d->noiseState);
    }
    int window = 0;
    for (int g = 0; g < ics->num_window_groups; ++g) {
        const uint8_t* codebooks = ch->codebooks + g * maxSfb;
        uint16_t* energies = (uint16_t*)ch->scaleFactors + g * maxSfb;
        for (int w = 0; w < ics->window_group_length[g]; ++w, ++window) {
            const int32_t one = 1;
            int32_t* spectrum = ch->spectrum + 128 * window;
            ZamStatus status;
            if (pairChannel < 0)
                status = zamsDecodePNS_AAC_32s(spectrum, d->predictionUsed, codebooks, energies, maxSfb, 1, &one,
                                               sfi, 128, &d->randomState);
            else
                status = zamsDecodeMsPNS_AAC_32s(spectrum, d->predictionUsed, codebooks, energies, maxSfb, 1, &one,
                                                 sfi, 128, &d->randomState, pairChannel, msUsed + 60 * g,
                                                 d->noiseState + 64 * window);
            if (status < 0) return status;
        }
    }
    return zamStsOk;
}

/* Everything after the stereo tools: window order, noise, TNS. */
static ZamStatus finish_channel(AacDecoder* d, ChannelWork* ch, const AacIcsInfo* ics, int pairChannel,
                                const uint8_t* msUsed, int output)
{
    ZamStatus status = zamStsOk;
    const int winLen = window_length(ics);
    if (winLen == 128) {
        status = zamsDeinterleaveSpectrum_AAC_32s(ch->grouped, ch->spectrum, ics->num_window_groups,
                                                  ics->window_group_length, ics->max_sfb,
                                                  (uint32_t)d->samplingIndex, 128);
        if (status < 0) {
            d->error = "spectrum deinterleave";
            return status;
        }
    } else {
        int32_t* t = ch->spectrum;  /* a long window is already in order: swap buffers */
        ch->spectrum = ch->grouped;
        ch->grouped = t;
    }
    if (ch->hasNoise) {
        status = substitute_noise(d, ch, ics, pairChannel, msUsed);
        if (status < 0) {
            d->error = "noise substitution";
            return status;
        }
    }
    status = aac_prediction_ltp(&d->prediction, output, ch->spectrum, ics, &ch->ltp,
                                output >= 0 ? d->history[output].previousShape : 0, &ch->info, ch->tnsCoef);
    if (status < 0) {
        d->error = "long-term prediction";
        return status;
    }
    if (ch->info.tns_data_present) {
        status = zamsDecodeTNS_AAC_32s_I(ch->spectrum, ch->info.n_filt, ch->info.length, ch->info.order,
                                         ch->info.coef_res, ch->tnsCoef, ch->info.direction, ics->max_sfb, 1,
                                         (uint32_t)d->samplingIndex, winLen);
        if (status < 0) d->error = "temporal noise shaping";
    }
    return status;
}

/* Hands a finished channel to its output slot (or drops it when the layout has none). */
static void deliver_channel(AacDecoder* d, int output, ChannelWork* ch, const AacIcsInfo* ics)
{
    if (output < 0) return;
    int32_t* t = d->outSpectrum[output];
    d->outSpectrum[output] = ch->spectrum;
    ch->spectrum = t;
    d->outSequence[output] = ics->window_sequence;
    d->outShape[output] = ics->window_shape;
    d->outPresent[output] = 1;
}

/* --info: appends "label[sequence shape flags]" to the block's element list. */
static void describe(AacDecoder* d, const char* label, const AacIcsInfo* ics, const ChannelWork* ch,
                     const char* extra)
{
    if (!d->options->info) return;
    static const char* const kSequences[4] = {"long", "start", "short", "stop"};
    size_t used = strlen(d->elementText);
    if (used + 80 >= sizeof d->elementText) return;
    snprintf(d->elementText + used, sizeof d->elementText - used, " %s[%s %s%s%s%s]", label,
             kSequences[ics->window_sequence & 3], ics->window_shape ? "kbd" : "sine", ch->hasNoise ? " pns" : "",
             ch->info.tns_data_present ? " tns" : "", extra);
}

/* AAC Main: frequency-domain prediction of one channel (between M/S and intensity). */
static ZamStatus predict_main(AacDecoder* d, int output, ChannelWork* ch, const AacIcsInfo* ics)
{
    ZamStatus status = aac_prediction_main(&d->prediction, output, ch->grouped, ics, ch->codebooks);
    if (status < 0) d->error = "prediction";
    return status;
}

/* single_channel_element() and lfe_channel_element(). */
static ZamStatus decode_single(AacDecoder* d, Cursor* c, int type, int tag)
{
    ChannelWork* ch = &d->work[0];
    ZamStatus status = decode_channel_stream(d, c, ch, &ch->ics, 0);
    if (status < 0) return status;
    int outputs[2];
    aac_layout_place(&d->layout, type == ID_LFE ? AAC_ELEMENT_LFE : AAC_ELEMENT_SCE, tag, outputs);
    aac_sbr_element(d->sbr, type == ID_LFE ? 0 : 1, outputs);
    status = predict_main(d, outputs[0], ch, &ch->ics);
    if (status >= 0) status = finish_channel(d, ch, &ch->ics, -1, NULL, outputs[0]);
    if (status < 0) return status;
    deliver_channel(d, outputs[0], ch, &ch->ics);
    if (d->options->info) {
        char label[16];
        snprintf(label, sizeof label, "%s%d", type == ID_LFE ? "LFE" : "SCE", tag);
        describe(d, label, &ch->ics, ch, "");
    }
    return zamStsOk;
}

/* channel_pair_element(). */
static ZamStatus decode_pair(AacDecoder* d, Cursor* c, int tag)
{
    ChannelWork* left = &d->work[0];
    ChannelWork* right = &d->work[1];
    AacChanPairElt* pair = &d->pair;
    ZamStatus status;
    if (d->objectType == AAC_OBJECT_LTP) {
        d->mainHeader.ltp[0].ltp_data_present = d->mainHeader.ltp[1].ltp_data_present = 0;
        status = zamsDecodeChanPairElt_MP4_AAC(&c->byte, &c->bit, &left->ics, pair, &d->mainHeader, 0,
                                               AAC_OBJECT_LTP);
        left->ltp = d->mainHeader.ltp[0];
        right->ltp = d->mainHeader.ltp[1];
    } else {
        status = zamsDecodeChanPairElt_AAC(&c->byte, &c->bit, &left->ics, pair,
                                           d->objectType == AAC_OBJECT_MAIN ? d->prediction.predSfbMax : 0);
    }
    if (status < 0) {
        d->error = "channel pair header";
        return status;
    }
    const int common = pair->common_window;
    if (!common) pair->ms_mask_present = 0;
    /* ms_used is read only when ms_mask_present is 1; 2 means every band. */
    if (pair->ms_mask_present != 1) memset(pair->ms_used, pair->ms_mask_present == 2, sizeof pair->ms_used);

    AacIcsInfo* leftIcs = &left->ics;
    AacIcsInfo* rightIcs = common ? &left->ics : &right->ics;
    status = decode_channel_stream(d, c, left, leftIcs, common);
    if (status >= 0) status = decode_channel_stream(d, c, right, rightIcs, common);
    if (status < 0) return status;

    const uint32_t sfi = (uint32_t)d->samplingIndex;
    const int winLen = window_length(leftIcs);
    if (common && pair->ms_mask_present != 0) {
        status = zamsDecodeMsStereo_AAC_32s_I(left->grouped, right->grouped, pair->ms_mask_present,
                                              &pair->ms_used[0][0], right->codebooks, leftIcs->num_window_groups,
                                              leftIcs->window_group_length, leftIcs->max_sfb, sfi, winLen);
        if (status < 0) {
            d->error = "mid/side stereo";
            return status;
        }
    }
    int outputs[2];
    aac_layout_place(&d->layout, AAC_ELEMENT_CPE, tag, outputs);
    status = predict_main(d, outputs[0], left, leftIcs);
    if (status >= 0) status = predict_main(d, outputs[1], right, rightIcs);
    if (status < 0) return status;
    if (common && right->hasIntensity) {
        status = zamsDecodeIsStereo_AAC_32s(left->grouped, right->grouped, right->scaleFactors, right->codebooks,
                                            leftIcs->num_window_groups, leftIcs->window_group_length,
                                            leftIcs->max_sfb, sfi, winLen);
        if (status < 0) {
            d->error = "intensity stereo";
            return status;
        }
    }
    /* With a common window, noise bands flagged in ms_used get the same noise in both channels. */
    const int correlated = common && (left->hasNoise || right->hasNoise);
    if (correlated) {
        memset(d->noiseState, 0, sizeof d->noiseState);
        left->hasNoise = right->hasNoise = 1;
    }
    status = finish_channel(d, left, leftIcs, correlated ? 0 : -1, &pair->ms_used[0][0], outputs[0]);
    if (status >= 0)
        status = finish_channel(d, right, rightIcs, correlated ? 1 : -1, &pair->ms_used[0][0], outputs[1]);
    if (status < 0) return status;
    aac_sbr_element(d->sbr, 2, outputs);
    deliver_channel(d, outputs[0], left, leftIcs);
    deliver_channel(d, outputs[1], right, rightIcs);
    if (d->options->info) {
        const char* ms = pair->ms_mask_present == 0 ? "" : pair->ms_mask_present == 2 ? " ms-all" : " ms";
        char label[16];
        snprintf(label, sizeof label, "CPE%d.L", tag);
        describe(d, label, leftIcs, left, common ? ms : "");
        snprintf(label, sizeof label, "CPE%d.R", tag);
        describe(d, label, rightIcs, right, right->hasIntensity ? " is" : "");
    }
    return zamStsOk;
}

/* One scale-factor code word; -1 when none of the 121 codes matches. */
static int read_sf_code(Cursor* c)
{
    uint32_t code = 0;
    for (int length = 1; length <= 19; ++length) {
        code = (code << 1) | read_bits(c, 1);
        for (int i = 0; i < 121; ++i)
            if (kAacSfCode[i].length == length && kAacSfCode[i].code == code) return i;
    }
    return -1;
}

/* coupling_channel_element(): read to its end and dropped (coupling is not applied). */
static ZamStatus skip_coupling(AacDecoder* d, Cursor* c)
{
    const int independent = (int)read_bits(c, 1);
    const int coupled = (int)read_bits(c, 3) + 1;
    int gainLists = 0;
    for (int i = 0; i < coupled; ++i) {
        ++gainLists;
        if (read_bits(c, 1)) {           /* cc_target_is_cpe */
            read_bits(c, 4);             /* cc_target_tag_select */
            const unsigned left = read_bits(c, 1), right = read_bits(c, 1);
            if (left && right) ++gainLists;
        } else {
            read_bits(c, 4);
        }
    }
    read_bits(c, 1 + 1 + 2);             /* cc_domain, gain_element_sign, gain_element_scale */
    ChannelWork* ch = &d->work[0];
    ZamStatus status = decode_channel_stream(d, c, ch, &ch->ics, 0);
    if (status < 0) return status;
    const int bands = ch->ics.num_window_groups * ch->ics.max_sfb;
    for (int list = 1; list < gainLists; ++list) {
        const int common = independent ? 1 : (int)read_bits(c, 1);
        if (common) {
            if (read_sf_code(c) < 0) return zamStsBadData;
        } else {
            for (int i = 0; i < bands; ++i)
                if (ch->codebooks[i] != 0 && read_sf_code(c) < 0) return zamStsBadData;
        }
    }
    d->sawCoupling = 1;
    return zamStsOk;
}

/* fill_element(): an SBR payload is kept for the element before it; others are skipped. */
static ZamStatus skip_fill(AacDecoder* d, Cursor* c)
{
    int32_t count = 0;
    uint8_t payload[272];
    ZamStatus status = zamsDecodeFillElt_AAC(&c->byte, &c->bit, &count, payload);
    if (status < 0) return status;
    if (aac_sbr_payload(d->sbr, payload, count)) d->sawSbr = 1;
    return zamStsOk;
}

/* raw_data_block(): decodes the elements into the output channels' spectra. The
 * cursor must not pass `end`; returns a negative status when the block is corrupt. */
static ZamStatus decode_elements(AacDecoder* d, Cursor* c, const uint8_t* end, AacProgramConfig* program)
{
    aac_layout_new_block(&d->layout);
    aac_sbr_block_start(d->sbr);
    for (int ch = 0; ch < AAC_MAX_CHANNELS; ++ch) d->outPresent[ch] = 0;
    d->elementText[0] = '\0';
    d->error = NULL;
    for (int elements = 0; elements < MAX_ELEMENTS_PER_BLOCK; ++elements) {
        const int id = (int)read_bits(c, 3);
        ZamStatus status = zamStsOk;
        int32_t tag = 0, count = 0;
        uint8_t data[512];
        switch (id) {
        case ID_SCE:
        case ID_LFE:
            tag = (int32_t)read_bits(c, 4);
            status = decode_single(d, c, id, tag);
            break;
        case ID_CPE:
            tag = (int32_t)read_bits(c, 4);
            status = decode_pair(d, c, tag);
            break;
        case ID_CCE:
            read_bits(c, 4);
            status = skip_coupling(d, c);
            if (status < 0 && !d->error) d->error = "coupling channel element";
            break;
        case ID_DSE:
            status = zamsDecodeDatStrElt_AAC(&c->byte, &c->bit, &tag, &count, data);
            if (status < 0) d->error = "data stream element";
            break;
        case ID_PCE:
            status = zamsDecodePrgCfgElt_AAC(&c->byte, &c->bit, program);
            if (status < 0) d->error = "program configuration element";
            else if (d->layout.open) aac_layout_from_program(&d->layout, program);
            break;
        case ID_FIL:
            status = skip_fill(d, c);
            if (status < 0) d->error = "fill element";
            break;
        case ID_END:
            byte_align(c);
            if (c->byte > end) {
                d->error = "elements run past the end of the frame";
                return zamStsBadData;
            }
            return zamStsOk;
        }
        if (status < 0) {
            if (!d->error) d->error = "element";
            return status;
        }
        if (c->byte > end) {
            d->error = "elements run past the end of the frame";
            return zamStsBadData;
        }
    }
    d->error = "too many elements";
    return zamStsBadData;
}

static int send_format(AacDecoder* d)
{
    if (d->formatSent) return 0;
    d->formatSent = 1;
    if (d->layout.channels == 0) {
        fprintf(stderr, "zamac-decode: the stream has no audio channels\n");
        return -1;
    }
    if (aac_sbr_block_has_sbr(d->sbr) && d->sampleRate <= 48000) {  /* implicit HE-AAC signalling */
        const int mono = d->layout.channels == 1;
        d->sampleRate = aac_sbr_enable(d->sbr, mono);
        if (mono) d->layout.channels = 2, d->layout.channelMask = 0x3;
        if (d->options->info)
            printf("HE-AAC: SBR%s, output %d Hz%s\n", d->options->sbrMode == SBR_MODE_LP ? " (low power)" : "",
                   d->sampleRate, mono ? "; mono core: two channels (parametric stereo when signalled)" : "");
    }
    if (d->options->info) {
        char positions[96];
        aac_layout_describe(&d->layout, positions, sizeof positions);
        printf("audio: %d Hz, %d channel%s (%s)\n", d->sampleRate, d->layout.channels,
               d->layout.channels == 1 ? "" : "s", positions);
    }
    return d->sink->format(d->sink->ctx, d->sampleRate, d->layout.channels, d->layout.channelMask);
}

static void report_bad_frame(AacDecoder* d, const char* why, ZamStatus status, const char* outcome);

/* Filter bank and output for one raw data block. A channel without an element in the
 * block (or every channel, when the block was corrupt) gets an all-zero spectrum. */
static int render_block(AacDecoder* d, int concealed)
{
    const int channels = d->layout.channels;
    const float* sources[AAC_MAX_CHANNELS];
    const int16_t* fixedSources[AAC_MAX_CHANNELS];
    for (int ch = 0; ch < channels; ++ch) {
        if (concealed || !d->outPresent[ch]) {
            memset(d->outSpectrum[ch], 0, 1024 * sizeof(int32_t));
            d->outSequence[ch] = AAC_ONLY_LONG_SEQUENCE;
            d->outShape[ch] = d->history[ch].previousShape;
        }
        ZamStatus status;
        if (d->fixedBank) {
            status = aac_fixed_run(d->fixedBank, ch, d->outSpectrum[ch], d->outSequence[ch], d->outShape[ch],
                                   d->history[ch].previousShape);
            d->history[ch].previousShape = d->outShape[ch] & 1;
            aac_prediction_update(&d->prediction, ch, d->fixedBank->time[ch], d->fixedBank->overlap[ch]);
            fixedSources[ch] = d->fixedBank->pcm[ch];
        } else {
            status = aac_filterbank_run(&d->bank, d->outSpectrum[ch], d->outSequence[ch], d->outShape[ch],
                                        &d->history[ch], d->pcm[ch]);
            aac_prediction_update_float(&d->prediction, ch, d->pcm[ch], d->history[ch].overlap);
        }
        if (status < 0) {
            fprintf(stderr, "zamac-decode: inverse MDCT failed (status %d)\n", status);
            return -1;
        }
        sources[ch] = d->pcm[ch];
    }
    int samples = 1024, damaged = 0;
    if (aac_sbr_enabled(d->sbr) && d->fixedBank) {
        const int32_t* core[AAC_MAX_CHANNELS];
        int16_t* out[AAC_MAX_CHANNELS];
        for (int ch = 0; ch < channels; ++ch) {
            core[ch] = d->fixedBank->time[ch];
            out[ch] = d->fixedBank->sbrPcm[ch];
            fixedSources[ch] = d->fixedBank->sbrPcm[ch];
        }
        samples = aac_sbr_render_fixed(d->sbr, core, out, channels, concealed, &damaged);
        if (samples < 0) return -1;
        if (damaged) report_bad_frame(d, "damaged SBR data", 0, "core only for this frame");
    } else if (aac_sbr_enabled(d->sbr)) {
        samples = aac_sbr_render(d->sbr, d->pcm, channels, concealed, &damaged);
        if (samples < 0) return -1;
        if (damaged) report_bad_frame(d, "damaged SBR data", 0, "core only for this frame");
    }
    d->stats->framesDecoded++;
    d->stats->audioSeconds += (double)samples / d->sampleRate;
    if (d->sink->writeFloat && !d->fixedBank) return d->sink->writeFloat(d->sink->ctx, sources, channels, samples);
    ZamStatus status = d->fixedBank ? zamsInterleave_16s(fixedSources, channels, samples, d->interleaved)
                                    : zamsJoin_32f16s_D2L(sources, channels, samples, d->interleaved);
    if (status < 0) {
        fprintf(stderr, "zamac-decode: sample conversion failed (status %d)\n", status);
        return -1;
    }
    return d->sink->write(d->sink->ctx, d->interleaved, samples);
}

/* Reports a frame that cannot be decoded. why: what went wrong; status: the failing
 * library status, or 0 for the decoder's own finding. */
static void report_bad_frame(AacDecoder* d, const char* why, ZamStatus status, const char* outcome)
{
    ++d->badFrames;
    if (d->options->quiet) return;
    if (d->options->verbose || d->badFrames <= 10) {
        if (status < 0 && why && strncmp(why, "elements", 8) != 0)
            fprintf(stderr, "zamac-decode: frame %ld: corrupt (%s: status %d); %s\n", d->frameNumber, why, status,
                    outcome);
        else
            fprintf(stderr, "zamac-decode: frame %ld: %s; %s\n", d->frameNumber, why ? why : "corrupt", outcome);
    }
    if (d->badFrames == 10 && !d->options->verbose)
        fprintf(stderr, "zamac-decode: (further bad frames are counted, not reported; -v reports all)\n");
}

/* Replaces a frame that cannot be decoded by silence (the previous frame's tail still
 * fades out through the overlap). Before the channel layout is known nothing can be
 * output, and the frame is dropped. Returns -1 when the sink asks to stop. */
static int conceal_frame(AacDecoder* d, const char* why, ZamStatus status)
{
    if (d->layout.open) {
        report_bad_frame(d, why, status, "dropped (the channel layout is not known yet)");
        return 0;
    }
    report_bad_frame(d, why, status, "replaced by silence");
    if (send_format(d) != 0) return -1;
    d->stats->framesConcealed++;
    return render_block(d, 1);
}

/* One-time notices about what a block contained; shown only once a block decodes
 * cleanly, so that corrupt frames do not raise them. */
static void show_notices(AacDecoder* d)
{
    if (d->sawCoupling && !d->cceReported) {
        fprintf(stderr, "zamac-decode: the stream has coupling channel elements; they are skipped, not applied\n");
        d->cceReported = 1;
    }
    if (d->sawSbr && !d->sbrReported && d->formatSent && !aac_sbr_enabled(d->sbr)) {
        fprintf(stderr, "zamac-decode: the stream carries SBR (HE-AAC) data, which is ignored: "
                        "the output is the AAC-LC core at %d Hz\n", d->sampleRate);
        d->sbrReported = 1;
    }
}

/* --info: "frame 12 (371 bytes): CPE0.L[long kbd tns ms] CPE0.R[long kbd is]" */
static void print_frame_line(const AacDecoder* d, const char* state)
{
    printf("frame %ld", d->frameNumber);
    if (d->frameBytes > 0) printf(" (%ld bytes)", d->frameBytes);
    printf(":%s%s\n", state, d->elementText);
}

/* Decodes one raw data block at the cursor and sends its PCM. Returns -1 when the
 * sink asks to stop, 1 when the block was concealed, 0 otherwise. */
static int decode_block(AacDecoder* d, Cursor* c, const uint8_t* end, AacProgramConfig* program)
{
    const Cursor start = *c;
    const int wasOpen = d->layout.open;
    ZamStatus status = decode_elements(d, c, end, program);
    if (wasOpen && status >= 0) {
        /* The first block fixed the layout; decode it again with the final channel order. */
        aac_layout_close(&d->layout);
        aac_prediction_reset(&d->prediction);
        *c = start;
        status = decode_elements(d, c, end, program);
    }
    if (status >= 0) show_notices(d);
    d->sawCoupling = d->sawSbr = 0;
    if (status < 0) {
        const int stop = conceal_frame(d, d->error, status) < 0;
        if (d->options->info) print_frame_line(d, " corrupt");
        return stop ? -1 : 1;
    }
    if (send_format(d) != 0) return -1;
    if (d->options->info) print_frame_line(d, "");
    if (render_block(d, 0) != 0) return -1;
    ++d->cleanFrames;
    return 0;
}

/* ------------------------------------------------------------------ ADTS */

typedef struct {
    int id, profile, samplingIndex, channelConfiguration;
} AdtsFixedFields;

/* Reads the fixed fields and the frame length of an ADTS header at p without the
 * library (this is only the sync search); 0 when p holds no plausible header. */
static size_t probe_adts(const uint8_t* p, size_t left, AdtsFixedFields* fields)
{
    if (left < 7 || p[0] != 0xFF || (p[1] & 0xF6) != 0xF0) return 0;
    fields->id = (p[1] >> 3) & 1;
    fields->profile = p[2] >> 6;
    fields->samplingIndex = (p[2] >> 2) & 0xF;
    fields->channelConfiguration = ((p[2] & 1) << 2) | (p[3] >> 6);
    const size_t length = ((size_t)(p[3] & 3) << 11) | ((size_t)p[4] << 3) | (p[5] >> 5);
    const size_t headerLength = (p[1] & 1) ? 7 : 9;
    if (fields->samplingIndex > 12 || length <= headerLength) return 0;
    return length;
}

static int same_stream(const AdtsFixedFields* a, const AdtsFixedFields* b)
{
    return a->id == b->id && a->profile == b->profile && a->samplingIndex == b->samplingIndex &&
           a->channelConfiguration == b->channelConfiguration;
}

/* Bytes looked at from a header on: the longest frame and the next header. */
#define ADTS_LOOK ((size_t)8192 + 16)

/* A header at pos that belongs to the stream (matches `ref` when ref->samplingIndex
 * >= 0) and is followed by another such header or by the end of the input. */
static size_t confirmed_adts(ToolReader* r, uint64_t pos, AdtsFixedFields* ref)
{
    AdtsFixedFields here, next;
    size_t left;
    const uint8_t* p = reader_at(r, pos, ADTS_LOOK, &left);
    const size_t length = p ? probe_adts(p, left, &here) : 0;
    if (length == 0 || (ref->samplingIndex >= 0 && !same_stream(&here, ref))) return 0;
    if (length != left) { /* left is below ADTS_LOOK only at the end of the input */
        if (length > left) return 0;
        if (probe_adts(p + length, left - length, &next) == 0 || !same_stream(&here, &next)) return 0;
    }
    *ref = here;
    return length;
}

/* First confirmed header at or after pos, or the end of the input when there is none. */
static uint64_t find_adts(ToolReader* r, uint64_t pos, AdtsFixedFields* ref)
{
    for (;; ++pos) {
        size_t left;
        const uint8_t* p = reader_at(r, pos, ADTS_LOOK, &left);
        if (left < 7) return pos + left;
        if (p[0] == 0xFF && confirmed_adts(r, pos, ref) != 0) return pos;
    }
}

static int set_stream_format(AacDecoder* d, int objectType, int samplingIndex, const char* container, int mpegVersion)
{
    if (objectType != AAC_OBJECT_LC && objectType != AAC_OBJECT_MAIN && objectType != AAC_OBJECT_LTP) {
        fprintf(stderr, "zamac-decode: AAC %s (object type %d) is not supported; only Main, LC and LTP are\n",
                objectType >= 1 && objectType <= 4 ? kProfileNames[objectType - 1] : "?", objectType);
        return -1;
    }
    if (samplingIndex > 11) {
        fprintf(stderr, "zamac-decode: sampling frequency index %d is not supported\n", samplingIndex);
        return -1;
    }
    d->samplingIndex = samplingIndex;
    d->sampleRate = kSampleRates[samplingIndex];
    d->sbr = aac_sbr_create(d->sampleRate, d->options->sbrMode, d->fixedBank != NULL);
    if (!d->sbr) return -1;
    d->objectType = objectType;
    if (aac_prediction_init(&d->prediction, objectType, samplingIndex) != 0) {
        fprintf(stderr, "zamac-decode: out of memory\n");
        return -1;
    }
    if (d->options->info)
        printf("stream: %s, MPEG-%d AAC %s, %d Hz\n", container, mpegVersion, kProfileNames[objectType - 1],
               d->sampleRate);
    return 0;
}

static int decode_adts(AacDecoder* d, ToolReader* r, uint64_t from)
{
    AdtsFixedFields stream = {-1, -1, -1, -1};
    uint64_t pos = find_adts(r, from, &stream);
    size_t left;
    if (stream.samplingIndex < 0) {
        fprintf(stderr, "zamac-decode: no ADTS frame found\n");
        return 1;
    }
    if (pos > from && !d->options->quiet)
        fprintf(stderr, "zamac-decode: skipped %llu bytes before the first ADTS frame\n", (unsigned long long)(pos - from));
    if (set_stream_format(d, stream.profile + 1, stream.samplingIndex, "ADTS", stream.id ? 2 : 4) != 0) return 1;
    if (stream.channelConfiguration == 0) aac_layout_open(&d->layout);
    else aac_layout_from_configuration(&d->layout, stream.channelConfiguration);

    uint8_t* frame = (uint8_t*)aligned_zeroed(MAX_FRAME_BYTES + FRAME_PADDING);
    if (!frame) return 1;
    AacProgramConfig program;
    memset(&program, 0, sizeof program);
    size_t filled = 0; /* bytes of the buffer that hold data of an earlier frame */
    int stop = 0;
    const uint8_t* p;
    /* Two frames' reach: the look at the next header stays inside the window. */
    while (!stop && (p = reader_at(r, pos, 2 * ADTS_LOOK, &left)) != NULL && left > 0) {
        AdtsFixedFields here;
        size_t length = probe_adts(p, left, &here);
        ++d->frameNumber;
        const char* problem = NULL;
        uint64_t next = pos + length;
        if (length == 0 || !same_stream(&here, &stream)) {
            /* Lost sync: skip to the next confirmed header. */
            --d->frameNumber;
            const uint64_t found = find_adts(r, pos + 1, &stream);
            if (!d->options->quiet)
                fprintf(stderr, "zamac-decode: after frame %ld: skipped %llu bytes that are not an ADTS frame\n",
                        d->frameNumber, (unsigned long long)(found - pos));
            pos = found;
            continue;
        }
        /* The frame, with zero padding behind it for readers that run past a damaged end:
         * the buffer starts zeroed and the readers only read it, so only the part of
         * a longer earlier frame beyond this one needs clearing. */
        if (length <= left) {
            memcpy(frame, p, length);
            if (filled > length) memset(frame + length, 0, filled - length);
            filled = length;
        }
        size_t nextLeft;
        if (length > left) {
            problem = "truncated";
            next = pos + left;
        } else if (length < left && confirmed_adts(r, next, &stream) == 0 &&
                   (p = reader_at(r, next, ADTS_LOOK, &nextLeft)) != NULL && probe_adts(p, nextLeft, &here) == 0) {
            /* The length does not lead to another header: the frame ends at the next one. */
            problem = "frame length does not lead to the next frame";
            next = find_adts(r, pos + 7, &stream);
        }
        if (problem) {
            if (conceal_frame(d, problem, 0) < 0) stop = 1;
            pos = next;
            continue;
        }

        uint8_t* cursor = frame;
        d->frameBytes = (long)length;
        AacAdtsFrameHeader header;
        zamsUnpackADTSFrameHeader_AAC(&cursor, &header);
        const uint8_t* end = frame + length;
        const int blocks = header.number_of_raw_data_blocks_in_frame;
        /* With a CRC, frames of several blocks list their positions, then each block has a CRC. */
        if (!header.protection_absent && blocks > 1) cursor += 2 * (blocks - 1);
        Cursor c = {cursor, 0};
        for (int b = 0; b < blocks && !stop; ++b) {
            if (b > 0) ++d->frameNumber;
            const int result = decode_block(d, &c, end, &program);
            if (result < 0) stop = 1;
            if (result == 1) {
                for (++b; b < blocks && !stop; ++b) {  /* the rest of the frame cannot be found */
                    ++d->frameNumber;
                    if (conceal_frame(d, "follows a corrupt block in the same frame", 0) < 0) stop = 1;
                }
                break;
            }
            if (!header.protection_absent && blocks > 1) c.byte += 2;
        }
        pos += length;
    }
    free(frame);
    return d->cleanFrames > 0 ? 0 : 1;
}

/* ------------------------------------------------------------------ ADIF */

/* The most one raw data block may take (48 channels of the longest channel stream). */
#define ADIF_LOOK ((size_t)48 << 10)

static int decode_adif(AacDecoder* d, ToolReader* r)
{
    /* The raw data blocks follow each other without lengths: each is decoded from the
     * window, which has zero padding behind the end of the input. */
    size_t left;
    uint8_t* stream = (uint8_t*)reader_at(r, 0, ADIF_LOOK, &left);
    if (!stream) return 1;
    AacAdifHeader header;
    AacProgramConfig programs[16];
    memset(programs, 0, sizeof programs);
    uint8_t* cursor = stream;
    ZamStatus status = zamsUnpackADIFHeader_AAC(&cursor, &header, programs, 16);
    if (status < 0) {
        fprintf(stderr, "zamac-decode: unreadable ADIF header (status %d)\n", status);
        return 1;
    }
    if (set_stream_format(d, programs[0].object_type + 1, programs[0].sampling_frequency_index, "ADIF", 2) != 0)
        return 1;
    aac_layout_from_program(&d->layout, &programs[0]);
    AacProgramConfig program = programs[0];
    uint64_t pos = (uint64_t)(cursor - stream);
    int32_t bit = 0;
    while ((stream = (uint8_t*)reader_at(r, pos, ADIF_LOOK, &left)) != NULL && left > 0) {
        Cursor c = {stream, bit};
        ++d->frameNumber;
        const int result = decode_block(d, &c, stream + left, &program);
        pos += (uint64_t)(c.byte - stream);
        bit = c.bit;
        if (result < 0) break;
        if (result == 1) {
            /* Without frame lengths there is no way back into the stream. */
            fprintf(stderr, "zamac-decode: ADIF stream unreadable after byte %llu; decoding stops\n",
                    (unsigned long long)pos);
            break;
        }
    }
    return d->cleanFrames > 0 ? 0 : 1;
}

/* ------------------------------------------------------------------ entry */

int aac_decode(const uint8_t* data, size_t size, const DecodeOptions* options, PcmSink* sink, DecodeStats* stats)
{
    ToolReader r;
    if (reader_open_memory(&r, data, size) != 0) return 1;
    const int result = aac_decode_reader(&r, 0, options, sink, stats);
    reader_close(&r);
    return result;
}

int aac_decode_reader(ToolReader* r, uint64_t from, const DecodeOptions* options, PcmSink* sink, DecodeStats* stats)
{
    AacDecoder* d = (AacDecoder*)malloc(sizeof *d);
    if (!d || decoder_init(d, options, sink, stats) != 0) {
        fprintf(stderr, "zamac-decode: out of memory\n");
        if (d) decoder_free(d);
        free(d);
        return 1;
    }
    size_t left;
    const uint8_t* head = reader_at(r, from, 4, &left);
    const int result = head && left >= 4 && memcmp(head, "ADIF", 4) == 0 ? decode_adif(d, r) : decode_adts(d, r, from);
    if (result != 0 && d->frameNumber > 0) fprintf(stderr, "zamac-decode: no frame could be decoded\n");
    if (options->info && d->sbr && aac_sbr_enabled(d->sbr))
        printf("HE-AAC: parametric stereo %s\n", aac_sbr_has_ps(d->sbr)
                   ? (options->sbrMode == SBR_MODE_LP ? "present, not applied in low-power mode" : "present")
                   : "absent");
    decoder_free(d);
    free(d);
    return result;
}
