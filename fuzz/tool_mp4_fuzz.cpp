// The MP4/M4A reader of the tools (tools/common/tool_mp4.c) on arbitrary bytes held in
// a heap buffer of exactly the input's size: boxes, esds and AudioSpecificConfig, the
// sample tables, the edit list and iTunes metadata. Every sample it lists must lie
// inside the input, and an ADTS header made for it must carry its length; also through
// the reader that steps over the top-level boxes (mp4_read_reader).
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "tool_mp4.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    uint8_t* exact = static_cast<uint8_t*>(std::malloc(size ? size : 1));
    if (size) std::memcpy(exact, data, size);
    Mp4Track track;
    if (mp4_read(exact, size, &track) == 0) {
        Mp4Samples samples;
        uint64_t offset;
        uint32_t bytes;
        const char* why;
        if (mp4_samples_open(&samples, &track, nullptr) != 0) std::abort();
        while (mp4_samples_next(&samples, &offset, &bytes, &why) == 1) {
            if (offset > size || bytes > size - offset) std::abort();
            uint8_t header[7];
            if (mp4_adts_header(&track, bytes, header) == 0 &&
                ((size_t)(header[3] & 3) << 11 | (size_t)header[4] << 3 | header[5] >> 5) != bytes + 7)
                std::abort();
        }
        mp4_samples_close(&samples);
    } else if (track.error[0] == '\0') {
        std::abort();  // a failure always says why
    }
    mp4_free(&track);

    // The same through the reader that steps over the top-level boxes and leaves the
    // sample table where it is.
    ToolReader reader;
    if (reader_open_memory(&reader, exact, size) == 0) {
        if (mp4_read_reader(&reader, nullptr, &track) == 0) {
            Mp4Samples samples;
            uint64_t offset;
            uint32_t bytes;
            const char* why;
            if (mp4_samples_open(&samples, &track, nullptr) != 0) std::abort();
            while (mp4_samples_next(&samples, &offset, &bytes, &why) == 1)
                if (offset > size || bytes > size - offset) std::abort();
            mp4_samples_close(&samples);
        } else if (track.error[0] == '\0') {
            std::abort();
        }
        mp4_free(&track);
        reader_close(&reader);
    }
    std::free(exact);
    return 0;
}
