/* aac_frame: decodes one frame (the first, or number N counted from 1) of a mono
 * AAC-LC ADTS file (one single channel
 * element) by the road of one AAC frame through the library, and prints what each
 * stage gives:
 *
 *   ADTS header        zamsUnpackADTSFrameHeader_AAC
 *   element            id_syn_ele and element_instance_tag, read here
 *   channel stream     zamsNoiselessDecoder_LC_AAC (section data, scale factors,
 *                      pulse and TNS data, spectrum)
 *   inverse quantizer  zamsQuantInv_AAC_32s_I (fixed point, 3 fractional bits)
 *   window order       zamsDeinterleaveSpectrum_AAC_32s for eight short windows
 *   TNS                zamsDecodeTNS_AAC_32s_I
 *   filter bank        zamsMDCTInv_32f (long window; the windowing and overlap-add
 *                      with the neighbours are left out here)
 *
 * Streams with noise substitution, coupling or several elements need the rest of a
 * decoder (tools/zamac-decode/aac_decoder.c is one).
 *
 *   aac_frame FILE.aac [N]
 */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "zamac.h"

static const char* const kSequences[4] = {"only long", "long start", "eight short", "long stop"};

int main(int argc, char** argv)
{
    if (argc != 2 && argc != 3) {
        fprintf(stderr, "usage: aac_frame FILE.aac [N]\n");
        return 2;
    }
    FILE* f = fopen(argv[1], "rb");
    if (!f) {
        perror(argv[1]);
        return 1;
    }
    /* Frame N: skip N - 1 frames by their aac_frame_length (13 bits from bit 30). */
    static uint8_t frame[8192 + 64];  /* an ADTS frame is at most 8191 bytes; zero padding */
    size_t size = 0;
    for (int n = argc == 3 ? atoi(argv[2]) : 1; n >= 1; --n) {
        if (fread(frame, 1, 7, f) != 7 || frame[0] != 0xFF || (frame[1] & 0xF6) != 0xF0) {
            fprintf(stderr, "%s: no ADTS frame there\n", argv[1]);
            return 1;
        }
        size = (size_t)(frame[3] & 3) << 11 | (size_t)frame[4] << 3 | frame[5] >> 5;
        if (size < 7 || fread(frame + 7, 1, size - 7, f) != size - 7) {
            fprintf(stderr, "%s: truncated frame\n", argv[1]);
            return 1;
        }
    }
    fclose(f);

    /* 1. ADTS header */
    uint8_t* cursor = frame;
    AacAdtsFrameHeader header;
    ZamStatus status = zamsUnpackADTSFrameHeader_AAC(&cursor, &header);
    if (status != zamStsOk || header.profile != 1) {
        fprintf(stderr, "not an AAC-LC ADTS frame (%s)\n", zamStatusName(status));
        return 1;
    }
    printf("ADTS: profile %d, sampling index %d, channel configuration %d, %d bytes\n", header.profile,
           header.sampling_frequency_index, header.channel_configuration, header.aac_frame_length);

    /* 2. elements: id_syn_ele (3 bits); fill elements (id 6, e.g. an encoder's
     * notes) are read past with zamsDecodeFillElt_AAC; then a single channel
     * element (id 0) with its element_instance_tag (4 bits). */
    int32_t bit = 0;
    int id;
    for (;;) {
        id = ((cursor[0] << 8 | cursor[1]) >> (13 - bit)) & 7;
        if ((bit += 3) >= 8) bit -= 8, ++cursor;
        if (id != 6) break;
        int32_t count = 0;
        static uint8_t fill[269];
        status = zamsDecodeFillElt_AAC(&cursor, &bit, &count, fill);
        if (status != zamStsOk) break;
        printf("fill element: %d bytes\n", count);
    }
    if (id != 0 || status != zamStsOk) {
        fprintf(stderr, "no single channel element first (id %d)\n", id);
        return 1;
    }
    if ((bit += 4) >= 8) bit -= 8, ++cursor;  /* element_instance_tag */

    /* 3. channel stream */
    AacIcsInfo ics;
    AacChanInfo info;
    memset(&ics, 0, sizeof ics);
    memset(&info, 0, sizeof info);
    info.sampling_frequency_index = header.sampling_frequency_index;
    info.pIcsInfo = &ics;
    static int16_t scaleFactors[8 * 64];
    static uint8_t codebooks[8 * 64];
    static int8_t tnsCoef[64];
    static int32_t grouped[1024], spectrum[1024];
    status = zamsNoiselessDecoder_LC_AAC(&cursor, &bit, 0, &info, scaleFactors, grouped, codebooks, tnsCoef);
    if (status != zamStsOk) {
        fprintf(stderr, "channel stream: %s (noise substitution needs zamsNoiselessDecode_AAC)\n",
                zamStatusName(status));
        return 1;
    }
    const int winLen = ics.window_sequence == 2 ? 128 : 1024; /* 2: eight short */
    printf("channel: %s window, max_sfb %d, %d group(s), global gain %d, TNS %s\n",
           kSequences[ics.window_sequence & 3], ics.max_sfb, ics.num_window_groups, info.global_gain,
           info.tns_data_present ? "on" : "off");

    /* 4. inverse quantization and window order */
    status = zamsQuantInv_AAC_32s_I(grouped, scaleFactors, ics.num_window_groups, ics.window_group_length,
                                    ics.max_sfb, codebooks, (uint32_t)header.sampling_frequency_index, winLen);
    if (status == zamStsOk && winLen == 128)
        status = zamsDeinterleaveSpectrum_AAC_32s(grouped, spectrum, ics.num_window_groups, ics.window_group_length,
                                                  ics.max_sfb, (uint32_t)header.sampling_frequency_index, 128);
    else
        memcpy(spectrum, grouped, sizeof spectrum);

    /* 5. TNS */
    if (status == zamStsOk && info.tns_data_present)
        status = zamsDecodeTNS_AAC_32s_I(spectrum, info.n_filt, info.length, info.order, info.coef_res, tnsCoef,
                                         info.direction, ics.max_sfb, 1,
                                         (uint32_t)header.sampling_frequency_index, winLen);
    if (status != zamStsOk) {
        fprintf(stderr, "spectrum: %s\n", zamStatusName(status));
        return 1;
    }
    double energy = 0;
    int nonZero = 0;
    for (int i = 0; i < 1024; ++i) {
        energy += (double)spectrum[i] * spectrum[i];
        nonZero += spectrum[i] != 0;
    }
    printf("spectrum: %d non-zero coefficients, rms %.1f (units of 1/8)\n", nonZero, sqrt(energy / 1024));

    /* 6. inverse MDCT of a long window: 1024 coefficients -> 2048 samples. The
     * coefficients' unit is 1/8; the transform takes the dequantized values. */
    if (winLen == 1024) {
        MdctInvSpec_32f* imdct = NULL;
        int workBytes = 0;
        static float coefficients[1024], samples[2048];
        for (int i = 0; i < 1024; ++i) coefficients[i] = spectrum[i] * 0.125f;
        status = zamsMDCTInvInitAlloc_32f(&imdct, 2048);
        if (status == zamStsOk) status = zamsMDCTInvGetBufSize_32f(imdct, &workBytes);
        uint8_t* work = status == zamStsOk ? malloc((size_t)workBytes) : NULL;
        if (work) status = zamsMDCTInv_32f(coefficients, samples, imdct, work);
        if (!work || status != zamStsOk) {
            fprintf(stderr, "inverse MDCT: %s\n", zamStatusName(status));
            return 1;
        }
        float peak = 0;
        for (int i = 0; i < 2048; ++i) peak = fmaxf(peak, fabsf(samples[i]));
        printf("inverse MDCT: 2048 samples before windowing, peak %.1f\n", peak);
        free(work);
        zamsMDCTInvFree_32f(imdct);
    }
    return 0;
}
