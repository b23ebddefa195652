/* Tags around compressed audio: the length of a leading ID3v2 tag, the end of the
 * audio before trailing ID3v1, Lyrics3 and APE tags, the text of ID3v1/ID3v2 title,
 * artist, album and year, and the stream information of a first MP3 frame (Xing or
 * "Info" with the LAME extension, or VBRI): frame count, encoder delay and padding. */
#ifndef ZAMAC_TOOL_TAGS_H
#define ZAMAC_TOOL_TAGS_H

#ifdef __cplusplus
extern "C" {
#endif

#include <stddef.h>
#include <stdint.h>

/* Length of the ID3v2 tag (header, footer included) at p, 0 when there is none. */
size_t tag_id3v2_size(const uint8_t* p, size_t left);

/* The end of the audio data once trailing ID3v1, Lyrics3v2 and APE tags are cut off.
 * Every tag found shortens the data, and an implausible size stops the search. */
size_t tag_audio_end(const uint8_t* data, size_t size);
/* One step of it: the length of the trailing tag that ends at `end` (size bytes of
 * data before it; at most the last 128 are read), 0 when there is none. */
size_t tag_trailing_bytes(const uint8_t* end, size_t size);

typedef struct {
    char title[128], artist[128], album[128], year[16], encoder[64];
} TagText;

/* Fill the fields of t that are still empty from an ID3v2 tag at p (v2.2 to v2.4,
 * Latin-1, UTF-16 and UTF-8 text; non-ASCII shown as UTF-8) or an ID3v1 tag of 128
 * bytes at p. Return 1 when a tag was read. */
int tag_read_id3v2(const uint8_t* p, size_t left, TagText* t);
int tag_read_id3v1(const uint8_t* p, size_t left, TagText* t);

/* Stream information of a Xing/"Info" (with a LAME tag) or VBRI frame. */
typedef struct {
    int kind;              /* 0 none, 1 Xing (VBR), 2 Info (CBR), 3 VBRI */
    long frames;           /* audio frames after this one, -1 unknown */
    long bytes;            /* -1 unknown */
    int hasLame;           /* the LAME extension gave delay and padding */
    int encoderDelay;      /* samples, -1 unknown (LAME tag or VBRI) */
    int encoderPadding;    /* samples, -1 unknown */
    char encoder[10];      /* "LAME3.100" etc., empty when unknown */
} Mp3StreamInfo;

/* Reads the info of the frame at p (length bytes). sideInfoBytes is the side
 * information's length (17 or 32 for MPEG-1, 9 or 17 for MPEG-2/2.5) and crc whether
 * a CRC word follows the header. Returns 1 when the frame is an info frame. */
int tag_read_mp3_info(const uint8_t* p, size_t length, int sideInfoBytes, int crc, Mp3StreamInfo* info);

#ifdef __cplusplus
}
#endif

#endif
