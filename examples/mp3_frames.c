/* mp3_frames: walks the frames of an MP3 file and prints each frame header as
 * zamsUnpackFrameHeader_MP3 reads it. Frames are found by their sync word and
 * followed by their length; ID3v2 tags at the start are skipped.
 *
 *   mp3_frames FILE.mp3
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "zamac.h"

static const int kKbps[2][15] = {{0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160},
                                 {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320}};
static const int kRates[2][3] = {{22050, 24000, 16000}, {44100, 48000, 32000}};
static const char* const kModes[4] = {"stereo", "joint stereo", "dual channel", "mono"};

int main(int argc, char** argv)
{
    if (argc != 2) {
        fprintf(stderr, "usage: mp3_frames FILE.mp3\n");
        return 2;
    }
    FILE* f = fopen(argv[1], "rb");
    if (!f) {
        perror(argv[1]);
        return 1;
    }
    static uint8_t data[1 << 22];  /* the first 4 MB are enough for an example */
    const size_t size = fread(data, 1, sizeof data - 8, f);
    fclose(f);
    memset(data + size, 0, 8);     /* readers load whole 32-bit words: padding */

    size_t pos = 0;
    if (size >= 10 && memcmp(data, "ID3", 3) == 0)
        pos = 10 + ((size_t)(data[6] & 0x7F) << 21 | (size_t)(data[7] & 0x7F) << 14 |
                    (size_t)(data[8] & 0x7F) << 7 | (data[9] & 0x7F));
    int frames = 0;
    while (pos + 4 <= size) {
        if (data[pos] != 0xFF || (data[pos + 1] & 0xE6) != 0xE2) {  /* sync, Layer III */
            ++pos;
            continue;
        }
        const uint8_t* cursor = data + pos;
        Mp3FrameHeader h;
        ZamStatus status = zamsUnpackFrameHeader_MP3(&cursor, &h);
        if (status != zamStsOk) {
            fprintf(stderr, "frame header: %s\n", zamStatusName(status));
            return 1;
        }
        if (h.bitrate_index == 0 || h.bitrate_index == 15 || h.sampling_frequency == 3) {
            ++pos;  /* free format or invalid: not followed in this example */
            continue;
        }
        const int mpeg25 = !(data[pos + 1] & 0x10);
        const int rate = kRates[h.ID][h.sampling_frequency] >> mpeg25;
        const int kbps = kKbps[h.ID][h.bitrate_index];
        const size_t length = (size_t)((h.ID ? 144000 : 72000) * kbps / rate + h.padding_bit);
        printf("frame %4d at %8zu: MPEG-%s, %5d Hz, %3d kbit/s, %s%s%s, %zu bytes\n", frames, pos,
               mpeg25 ? "2.5" : h.ID ? "1" : "2", rate, kbps, kModes[h.mode],
               h.mode == 1 && (h.mode_extension & 2) ? " (M/S)" : "",
               h.protection_bit ? "" : ", CRC", length);
        ++frames;
        pos += length;
    }
    printf("%d frames\n", frames);
    return frames > 0 ? 0 : 1;
}
