/*
 * AAC raw_data_block writer (ISO/IEC 14496-3, 4.4.2) and the ADTS header
 * (ISO/IEC 13818-7, 6.2). Spectral data and scale factors go through the library's
 * VLC encoders; the fixed-width fields through bw_put.
 *
 * The library's VLC writers fill the rest of the 32-bit word after a code with ones,
 * so bw_put clears what follows the cursor in the byte it writes.
 */
#include <string.h>

#include "aac_encoder.h"

int aac_codes_init(AacCodes* codes)
{
    memset(codes, 0, sizeof *codes);
    for (int b = 1; b <= 11; ++b)
        if (zamsVLCEncodeInitAlloc_32s(kAacBooks[b].entries, kAacBooks[b].count, &codes->book[b]) != zamStsOk ||
            !codes->book[b])
            return -1;
    if (zamsVLCEncodeInitAlloc_32s(kAacScaleFactorCode, 121, &codes->scaleFactor) != zamStsOk ||
        !codes->scaleFactor)
        return -1;
    return 0;
}

void aac_codes_free(AacCodes* codes)
{
    for (int b = 1; b <= 11; ++b) zamsVLCEncodeFree_32s(codes->book[b]);
    zamsVLCEncodeFree_32s(codes->scaleFactor);
    memset(codes, 0, sizeof *codes);
}

void bw_put(BitWriter* w, uint32_t value, int n)
{
    while (n > 0) {
        const int room = 8 - w->bit;
        const int take = n < room ? n : room;
        const uint32_t part = (value >> (n - take)) & ((1u << take) - 1u);
        const uint8_t keep = (uint8_t)(w->bit ? *w->byte & (0xFF00u >> w->bit) : 0);
        *w->byte = (uint8_t)(keep | (part << (room - take)));
        n -= take;
        w->bit += take;
        if (w->bit == 8) {
            w->bit = 0;
            ++w->byte;
        }
    }
}

int bw_position(const BitWriter* w, const uint8_t* start)
{
    return (int)(w->byte - start) * 8 + w->bit;
}

static void put_ics_info(BitWriter* w, const AacChannel* ch)
{
    bw_put(w, 0, 1); /* ics_reserved_bit */
    bw_put(w, (uint32_t)ch->sequence, 2);
    bw_put(w, (uint32_t)ch->shape, 1);
    if (ch->sequence == AAC_EIGHT_SHORT) {
        bw_put(w, (uint32_t)ch->maxSfb, 4);
        bw_put(w, (uint32_t)ch->grouping, 7);
    } else {
        bw_put(w, (uint32_t)ch->maxSfb, 6);
        bw_put(w, 0, 1); /* predictor_data_present */
    }
}

static void put_section_data(BitWriter* w, const AacChannel* ch)
{
    const int lenBits = ch->sequence == AAC_EIGHT_SHORT ? 3 : 5;
    const int escape = (1 << lenBits) - 1;
    for (int g = 0; g < ch->numGroups; ++g) {
        uint8_t books[64];
        int ends[64];
        const int n = aac_sections(ch, g, books, ends);
        int start = 0;
        for (int s = 0; s < n; ++s) {
            bw_put(w, books[s], 4);
            int len = ends[s] - start;
            while (len >= escape) {
                bw_put(w, (uint32_t)escape, lenBits);
                len -= escape;
            }
            bw_put(w, (uint32_t)len, lenBits);
            start = ends[s];
        }
    }
}

static void put_scale_factors(BitWriter* w, const AacCodes* codes, const AacChannel* ch)
{
    int last = ch->globalGain, lastNoise = -1000, lastPosition = 0;
    for (int g = 0; g < ch->numGroups; ++g)
        for (int b = 0; b < ch->maxSfb; ++b) {
            const int i = g * AAC_BANDS + b;
            if (ch->cb[i] == 0) continue;
            if (ch->cb[i] == 14 || ch->cb[i] == 15) {
                zamsVLCEncodeOne_16s1u((int16_t)(ch->sf[i] - lastPosition), &w->byte, &w->bit, codes->scaleFactor);
                lastPosition = ch->sf[i];
                continue;
            }
            if (ch->cb[i] == 13) {
                /* noise energy: the first as 9 bits (offset by global_gain - 346), then differences */
                if (lastNoise == -1000)
                    bw_put(w, (uint32_t)(ch->sf[i] - ch->globalGain + 346), 9);
                else
                    zamsVLCEncodeOne_16s1u((int16_t)(ch->sf[i] - lastNoise), &w->byte, &w->bit, codes->scaleFactor);
                lastNoise = ch->sf[i];
                continue;
            }
            const int diff = ch->sf[i] - last;
            last = ch->sf[i];
            zamsVLCEncodeOne_16s1u((int16_t)diff, &w->byte, &w->bit, codes->scaleFactor);
        }
}

static void put_tns(BitWriter* w, const AacChannel* ch)
{
    const int windows = ch->sequence == AAC_EIGHT_SHORT ? 8 : 1;
    const int longWin = windows == 1;
    int f = 0, c = 0;
    for (int win = 0; win < windows; ++win) {
        bw_put(w, (uint32_t)ch->nFilt[win], longWin ? 2 : 1);
        if (!ch->nFilt[win]) continue;
        bw_put(w, (uint32_t)(ch->coefRes[win] - 3), 1);
        for (int k = 0; k < ch->nFilt[win]; ++k, ++f) {
            bw_put(w, (uint32_t)ch->length[f], longWin ? 6 : 4);
            bw_put(w, (uint32_t)ch->order[f], longWin ? 5 : 3);
            if (!ch->order[f]) continue;
            bw_put(w, (uint32_t)ch->direction[f], 1);
            bw_put(w, 0, 1); /* coef_compress */
            for (int i = 0; i < ch->order[f]; ++i, ++c) bw_put(w, (uint32_t)ch->tnsCoef[c], ch->coefRes[win]);
        }
    }
}

/* Keys of one band's values for a code book without escape (see the table generator). */
static int book_keys(const int16_t* q, int n, int book, int16_t* keys)
{
    const AacBook* bk = &kAacBooks[book];
    const int mod = 2 * bk->lav + 1, lav = bk->lav;
    int k = 0;
    if (bk->dim == 4)
        for (int i = 0; i < n; i += 4)
            keys[k++] = (int16_t)((((q[i] + lav) * mod + q[i + 1] + lav) * mod + q[i + 2] + lav) * mod + q[i + 3] + lav);
    else
        for (int i = 0; i < n; i += 2) keys[k++] = (int16_t)((q[i] + lav) * mod + q[i + 1] + lav);
    return k;
}

int aac_count_band(const AacCodes* codes, const int16_t* q, int n, int book)
{
    int bits = 0;
    if (book == 11) {
        zamsVLCCountEscBits_AAC_16s32s(q, n, &bits, codes->book[11]);
        return bits;
    }
    int16_t keys[512];
    const int k = book_keys(q, n, book, keys);
    zamsVLCCountBits_16s32s(keys, k, &bits, codes->book[book]);
    return bits;
}

static void put_spectral_data(BitWriter* w, const AacCodes* codes, const AacChannel* ch)
{
    int16_t keys[512];
    int groupStart = 0;
    for (int g = 0; g < ch->numGroups; ++g) {
        const int L = ch->groupLen[g];
        for (int b = 0; b < ch->maxSfb; ++b) {
            const int book = ch->cb[g * AAC_BANDS + b];
            const int start = groupStart + ch->swb[b] * L;
            const int n = (ch->swb[b + 1] - ch->swb[b]) * L;
            if (book == 0 || book > 11) continue;
            if (book == 11) {
                zamsVLCEncodeEscBlock_AAC_16s1u(ch->q + start, n, &w->byte, &w->bit, codes->book[11]);
            } else {
                const int k = book_keys(ch->q + start, n, book, keys);
                zamsVLCEncodeBlock_16s1u(keys, k, &w->byte, &w->bit, codes->book[book]);
            }
        }
        groupStart += 128 * L;
    }
}

/* individual_channel_stream() */
static void put_ics(BitWriter* w, const AacCodes* codes, const AacChannel* ch, int commonWindow)
{
    bw_put(w, (uint32_t)ch->globalGain, 8);
    if (!commonWindow) put_ics_info(w, ch);
    put_section_data(w, ch);
    put_scale_factors(w, codes, ch);
    bw_put(w, 0, 1); /* pulse_data_present */
    bw_put(w, (uint32_t)ch->tnsPresent, 1);
    if (ch->tnsPresent) put_tns(w, ch);
    bw_put(w, 0, 1); /* gain_control_data_present */
    put_spectral_data(w, codes, ch);
}

void aac_write_element(BitWriter* w, const AacCodes* codes, const AacElement* el, AacChannel* channels)
{
    bw_put(w, (uint32_t)el->type, 3);
    bw_put(w, (uint32_t)el->tag, 4);
    AacChannel* ch = &channels[el->first];
    if (el->type != AAC_CPE) {
        put_ics(w, codes, ch, 0);
        return;
    }
    bw_put(w, 1, 1); /* common_window */
    put_ics_info(w, ch);
    bw_put(w, (uint32_t)el->msMaskPresent, 2);
    if (el->msMaskPresent == 1)
        for (int g = 0; g < ch->numGroups; ++g)
            for (int b = 0; b < ch->maxSfb; ++b) bw_put(w, el->msUsed[g * AAC_BANDS + b], 1);
    put_ics(w, codes, ch, 1);
    put_ics(w, codes, ch + 1, 1);
}

/* fill_element()s taking close to `bits` bits (never more), each with an EXT_FILL payload:
 * 7 + 8 p bits for a payload of p < 15 bytes, 15 + 8 p bits for 15 <= p <= 269. */
void aac_write_fill(BitWriter* w, int bits)
{
    while (bits >= 7) {
        int p = (bits - 7) / 8;
        if (p >= 15) {
            p = (bits - 15) / 8;
            if (p > 269) p = 269;
            if (p < 15) p = 14;
        }
        bw_put(w, AAC_FIL, 3);
        if (p < 15) {
            bw_put(w, (uint32_t)p, 4);
        } else {
            bw_put(w, 15, 4);
            bw_put(w, (uint32_t)(p - 14), 8);
        }
        for (int i = 0; i < p; ++i) bw_put(w, i == 0 ? 0x00 : 0xA5, 8); /* EXT_FILL, then fill bytes */
        bits -= (p < 15 ? 7 : 15) + 8 * p;
    }
}

/* fill_element(): ID_FIL, count (with the escape from 15 on) and `count` bytes of
 * extension_payload(): the 4-bit extension_type, the payload, zero bits to the byte. */
static int extension_bytes(int payloadBits)
{
    return (4 + payloadBits + 7) / 8;
}

int aac_extension_bits(int payloadBits)
{
    const int count = extension_bytes(payloadBits);
    if (count > 15 + 255 - 1) return -1;
    return 7 + (count >= 15 ? 8 : 0) + 8 * count;
}

void aac_write_extension(BitWriter* w, int type, const uint8_t* payload, int payloadBits)
{
    const int count = extension_bytes(payloadBits);
    bw_put(w, AAC_FIL, 3);
    if (count < 15) {
        bw_put(w, (uint32_t)count, 4);
    } else {
        bw_put(w, 15, 4);
        bw_put(w, (uint32_t)(count - 14), 8);
    }
    bw_put(w, (uint32_t)type, 4);
    for (int i = 0; i < payloadBits / 8; ++i) bw_put(w, payload[i], 8);
    if (payloadBits % 8) bw_put(w, (uint32_t)payload[payloadBits / 8] >> (8 - payloadBits % 8), payloadBits % 8);
    bw_put(w, 0, 8 * count - 4 - payloadBits);
}

void aac_write_adts_header(uint8_t* out, int samplingIndex, int channelConfiguration, int frameBytes,
                           int fullness)
{
    BitWriter w = {out, 0};
    bw_put(&w, 0xFFF, 12);
    bw_put(&w, 0, 1);  /* ID: MPEG-4 */
    bw_put(&w, 0, 2);  /* layer */
    bw_put(&w, 1, 1);  /* protection_absent */
    bw_put(&w, 1, 2);  /* profile: LC */
    bw_put(&w, (uint32_t)samplingIndex, 4);
    bw_put(&w, 0, 1);  /* private_bit */
    bw_put(&w, (uint32_t)channelConfiguration, 3);
    bw_put(&w, 0, 1);  /* original_copy */
    bw_put(&w, 0, 1);  /* home */
    bw_put(&w, 0, 1);  /* copyright_identification_bit */
    bw_put(&w, 0, 1);  /* copyright_identification_start */
    bw_put(&w, (uint32_t)frameBytes, 13);
    bw_put(&w, (uint32_t)fullness, 11);
    bw_put(&w, 0, 2);  /* number_of_raw_data_blocks_in_frame - 1 */
}
