// The whole MP3 path of zamac-decode --fixed (framing, reservoir, the bit-stream
// stages, the integer requantization, hybrid and polyphase banks, 16-bit output) on
// arbitrary input; seeds are pieces of the ISO compliance streams.
#define MP3_FUZZ_FIXED 1
#include "mp3_decoder_fuzz.cpp"
