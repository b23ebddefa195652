/*
 * zamac-encode, AAC-LC: the state shared by the encoder's files.
 *
 *   aac_encoder.c   the road of a frame: input, window decision, filter bank, psychoacoustic
 *                   model, stereo, rate control, bit-stream writing, ADTS framing
 *   aac_psy.c       transient detection, window grouping, per-band energies and thresholds
 *   aac_stereo.c    intensity stereo and M/S decisions per band
 *   aac_quant.c     scale factors, quantization, section data by dynamic programming, bit counts
 *   aac_tns.c       temporal noise shaping analysis (filtering by zamsEncodeTNS_AAC_32s_I)
 *   aac_bitstream.c raw_data_block and ADTS header writer
 *   aac_main.c      the command line of an AAC run (main.c hands it over)
 *   he_aac.c        HE-AAC: the core at half rate, the SBR data in fill elements
 */
#ifndef ZAMAC_ENCODE_AAC_ENCODER_H
#define ZAMAC_ENCODE_AAC_ENCODER_H

#include <stdint.h>

#include "aac_api.h"
#include "aac_tables.h"
#include "zamac.h"

enum { AAC_ONLY_LONG = 0, AAC_LONG_START = 1, AAC_EIGHT_SHORT = 2, AAC_LONG_STOP = 3 };
enum { AAC_SHAPE_SINE = 0, AAC_SHAPE_KBD = 1 };
enum { AAC_SCE = 0, AAC_CPE = 1, AAC_LFE = 3, AAC_FIL = 6, AAC_END = 7 };
enum { AAC_EXT_SBR_DATA = 13 }; /* extension_type of SBR data without CRC */

#define AAC_BANDS 64         /* stride of the per-band arrays of one window group */
#define AAC_MAX_CHANNELS 6

/* One channel of the frame being coded. */
typedef struct {
    int sequence, shape;
    int numGroups, groupLen[8];
    int maxSfb;            /* bands coded in each group */
    int numSwb;
    const int* swb;        /* band offsets of the window length */
    int grouping;          /* scale_factor_grouping bits */

    float* spec;           /* 1024 MDCT coefficients; eight-short: grouped, band-interleaved order */
    float* pow34;          /* |spec|^(3/4) */
    float energy[8 * AAC_BANDS];
    float threshold[8 * AAC_BANDS];
    float sumSqrt[8 * AAC_BANDS]; /* sum of |x|^(1/2) over the band */
    float maxAbs[8 * AAC_BANDS];
    float tonality[8 * AAC_BANDS];     /* 0 noise .. 1 tone */
    uint8_t noiseCandidate[8 * AAC_BANDS]; /* may be coded as noise (PNS) */
    uint8_t intensity[8 * AAC_BANDS];  /* second channel of a pair: 15 / 14 for intensity bands, else 0 */
    int isPosition[8 * AAC_BANDS];

    /* quantization result */
    int sf[8 * AAC_BANDS];
    uint8_t cb[8 * AAC_BANDS];
    int16_t* q;            /* 1024 quantized values in stream order */
    int globalGain;
    int bits;              /* bits of this channel's stream (without ics_info) */

    /* temporal noise shaping */
    int tnsPresent;
    int32_t nFilt[8], coefRes[8], length[8], order[8], direction[8];
    int8_t tnsCoef[64];
} AacChannel;

/* A syntactic element: SCE, CPE or LFE and its channels. */
typedef struct {
    int type, tag;
    int first;             /* index of its first channel */
    int msMaskPresent;
    uint8_t msUsed[8 * AAC_BANDS];
} AacElement;

/* VLC encode specs of the code books and the scale-factor code. */
typedef struct {
    VlcEncodeSpec* book[12];
    VlcEncodeSpec* scaleFactor;
} AacCodes;

int aac_codes_init(AacCodes* codes);
void aac_codes_free(AacCodes* codes);

/* aac_psy.c */
typedef struct {
    float hpState[2];      /* high-pass filter state of the transient detector */
    float lastEnergy8[8];  /* energies of the eight segments examined last */
    float athLong[64], athShort[16]; /* absolute threshold per band, in MDCT energy units */
    float barkLong[64], barkShort[16];
    float hzLong[64], hzShort[16];    /* band centres */
    float fullScaleLong, fullScaleShort; /* band energy of a full-scale sine */
} AacPsyState;

void aac_psy_init(AacPsyState* psy, int sampleRate, int samplingIndex);
/* Looks for an attack in the 1152 samples that an eight-short frame would cover; returns
 * the attack's window (0..7), or -1. */
int aac_psy_detect_attack(AacPsyState* psy, const float* samples);
/* Chooses the grouping of eight short windows from their energies (spectrum in window order). */
void aac_psy_group(AacChannel* ch, const float winEnergy[8], int attackWindow);
/* Band energies and thresholds of a channel whose spectrum is in stream order. */
void aac_psy_analyse(const AacPsyState* psy, AacChannel* ch, float snrDb);

/* aac_stereo.c: chooses intensity stereo for the coherent bands from isStartBand on
 * (long windows; -1: none) and M/S for the others, and converts the bands chosen. */
void aac_stereo_decide(AacElement* el, AacChannel* left, AacChannel* right, int isStartBand, int allowMidSide);

/* aac_quant.c */
void aac_quant_init(void); /* once, before the first frame */
/* Quantizes a channel with the thresholds scaled by 2^(offset / 4) (offset in scale-factor
 * steps of 1.5 dB), chooses code books and sections; returns the bits of its individual
 * channel stream (global gain, section data, scale factors, TNS, spectral data). */
int aac_quantize_channel(const AacCodes* codes, AacChannel* ch, int offset);
/* Section data of group g: books, ends. Returns the section count. */
int aac_sections(const AacChannel* ch, int g, uint8_t* books, int* ends);
/* Bits of n values (a band of one group) in a code book 1..11. */
int aac_count_band(const AacCodes* codes, const int16_t* q, int n, int book);

/* aac_tns.c: analyses a long-window spectrum and filters it in place when TNS pays. */
void aac_tns_analyse(AacChannel* ch, int samplingIndex, int sampleRate);

/* aac_bitstream.c */
typedef struct {
    uint8_t* byte;
    int bit;
} BitWriter;

void bw_put(BitWriter* w, uint32_t value, int n);
int bw_position(const BitWriter* w, const uint8_t* start);
void aac_write_element(BitWriter* w, const AacCodes* codes, const AacElement* el, AacChannel* channels);
void aac_write_fill(BitWriter* w, int bits);
/* A fill element carrying an extension payload (extension_type `type`, then payloadBits
 * bits of payload): its size in bits (-1: too long for one element), and its writer. */
int aac_extension_bits(int payloadBits);
void aac_write_extension(BitWriter* w, int type, const uint8_t* payload, int payloadBits);
void aac_write_adts_header(uint8_t* out, int samplingIndex, int channelConfiguration, int frameBytes,
                           int fullness);

#endif
