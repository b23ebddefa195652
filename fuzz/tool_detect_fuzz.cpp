// zamac-decode's format detection, the tag readers (ID3v2, ID3v1, APE, Lyrics3, the
// Xing/Info/LAME/VBRI frame) and the --info description on arbitrary bytes, held in a
// heap buffer of exactly the input's size: any read past the end is a finding.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

extern "C" {
#include "detect.h"
#include "stream_info.h"
#include "tool_tags.h"
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static FILE* sink = std::fopen("/dev/null", "w");
    uint8_t* exact = static_cast<uint8_t*>(std::malloc(size ? size : 1));
    if (size) std::memcpy(exact, data, size);

    InputFormat format;
    detect_format(exact, size, &format);
    if (format.kind != INPUT_UNKNOWN && (format.audioStart > format.audioEnd || format.audioEnd > size)) std::abort();
    if (tag_audio_end(exact, size) > size) std::abort();

    TagText text;
    std::memset(&text, 0, sizeof text);
    tag_read_id3v2(exact, size, &text);
    if (size >= 128) tag_read_id3v1(exact + size - 128, 128, &text);
    Mp3StreamInfo info;
    for (int sideInfo : {9, 17, 32}) tag_read_mp3_info(exact, size, sideInfo, 1, &info);

    if (format.kind == INPUT_MP3 || format.kind == INPUT_ADTS) {
        ToolReader reader;
        if (reader_open_memory(&reader, exact, size) == 0) {
            StreamProbe probe;
            probe_stream(&reader, &format, &probe);
            StreamSummary summary = {format.kind, 10, 11520, 44100, 2, 0, 0, -1, nullptr, 4000};
            print_stream_info(sink, "fuzz", &probe, &format, &summary);
            reader_close(&reader);
        }
    }
    std::free(exact);
    return 0;
}
