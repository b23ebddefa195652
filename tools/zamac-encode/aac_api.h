/* zamac-encode: the AAC-LC encoder's entry point for the command line. */
#ifndef ZAMAC_ENCODE_AAC_API_H
#define ZAMAC_ENCODE_AAC_API_H

#include <stddef.h>
#include <stdint.h>

/* An extension payload per frame and element, written in a fill element right after
 * the element (HE-AAC: the SBR data of the SCE or CPE). payload() writes the bits of
 * extension_payload() that follow its 4-bit extension_type into buf (MSB first),
 * returns their count (0: none this time) or -1 to stop; *type is the extension_type. */
typedef struct {
    void* ctx;
    int (*payload)(void* ctx, int element, int* type, uint8_t* buf, int bufBytes);
} AacExtension;

/* Settings of one encoding. */
typedef struct {
    int sampleRate;        /* 8000..96000, one of the twelve AAC rates */
    int channels;          /* 1..6: mono, stereo, 3.0, 4.0, 5.0, 5.1 (WAVE channel order) */
    int bitRate;           /* total bits per second (average bit rate mode) */
    int quality;           /* 0: average bit rate; 1..100: quality-driven VBR */
    int bandwidth;         /* Hz; 0: chosen from the rate */
    int noMidSide;         /* disables M/S stereo */
    int noIntensity;       /* disables intensity stereo (otherwise used at the lowest rates) */
    int noPns;             /* disables noise substitution (otherwise used at low rates) */
    int fixedBank;         /* the library's integer analysis bank instead of the float MDCT */
    int noTns;             /* disables temporal noise shaping of long windows */
    AacExtension extension; /* payload NULL: none; its bits come out of the frame's budget */
} AacConfig;

/* Where the PCM comes from: read() fills up to `frames` interleaved frames of float
 * samples in 16-bit units (full scale +-32768) and returns how many it gave, 0 at the end. */
typedef struct {
    void* ctx;
    long (*read)(void* ctx, float* interleaved, long frames);
} AacPcmSource;

/* Where the ADTS stream goes: write() returns 0, or -1 to stop. */
typedef struct {
    void* ctx;
    int (*write)(void* ctx, const void* bytes, size_t count);
} AacSink;

typedef struct {
    long frames;           /* ADTS frames written */
    long shortFrames;      /* frames with an eight-short window sequence */
    long samples;          /* input samples per channel */
    long bytes;            /* bytes written */
} AacEncodeStats;

/* Encodes the whole source as ADTS; returns 0, or -1 after a message on stderr. */
int aac_encode(const AacConfig* config, AacPcmSource* source, AacSink* sink, AacEncodeStats* stats);

/* HE-AAC v1 (he_aac.c): config->sampleRate is the input's (32, 44.1 or 48 kHz), the core
 * runs at half of it with the SBR data in fill elements; 1 or 2 channels, 24..64 kb/s
 * stereo, 16..48 kb/s mono, average bit rate. he_aac_supported() says whether a
 * combination is, with the reason in *why if not; he_aac_encode as aac_encode. */
int he_aac_supported(int sampleRate, int channels, int bitRate, const char** why);
int he_aac_encode(const AacConfig* config, AacPcmSource* source, AacSink* sink, AacEncodeStats* stats);

/* The command line of an AAC run (aac_main.c): main.c hands argc and argv over when
 * aac_wanted() says the run asks for AAC (--aac, or an output name ending in .aac). */
int aac_wanted(int argc, char** argv);
int aac_main(int argc, char** argv);

#endif
