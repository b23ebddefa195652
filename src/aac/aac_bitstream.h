// Internal pieces shared by the AAC bit-stream readers: the ICS, TNS and LTP
// side-information readers and the spectral code-book decoders.
#pragma once

#include <cstdint>

#include "core/bitcursor.h"
#include "zamac.h"

namespace zam {

// Window sequences.
constexpr int kAacOnlyLong = 0;
constexpr int kAacLongStart = 1;
constexpr int kAacEightShort = 2;
constexpr int kAacLongStop = 3;

// Book numbers with a meaning of their own.
constexpr int kAacZeroHcb = 0;
constexpr int kAacEscHcb = 11;
constexpr int kAacReservedHcb = 12;
constexpr int kAacNoiseHcb = 13;
constexpr int kAacIntensityHcb2 = 14;
constexpr int kAacIntensityHcb = 15;

// Bit cursor over read-only bytes as the readers use it internally.
struct AacCursor {
    const uint8_t* ptr;
    int offset;

    uint32_t read(int n) { return readField(ptr, offset, n); }
    uint32_t readBit() { return readField(ptr, offset, 1); }
    void align() { alignToByte(ptr, offset); }
};

// program_config_element() after element_id, into *pce.
void aacReadProgramConfig(AacCursor& c, AacProgramConfig* pce);

// Window grouping of an eight-short sequence from its 7 grouping bits.
void aacGroupWindows(uint32_t grouping, int32_t* numGroups, int32_t* groupLength);

// ics_info(), MPEG-2 form: zamStsOk or zamStsAacMaxSfbErr.
ZamStatus aacReadIcsInfo(AacCursor& c, AacIcsInfo* ics, int predSfbMax);

// ics_info(), MPEG-4 form. bothLtpChannels: the element carries a common window,
// so LTP data of a second channel follow. zamStsOk, zamStsAacMaxSfbErr or
// zamStsAacPredSfbErr.
ZamStatus aacReadIcsInfoMp4(AacCursor& c, AacIcsInfo* ics, int predSfbMax, int audioObjectType,
                            AacMainHeader* mainHeader, bool bothLtpChannels);

// ltp_data() for the given window sequence and max_sfb.
void aacReadLtpData(AacCursor& c, AacLtpData* ltp, int windowSequence, int maxSfb);

// tns_data() (after tns_data_present). Filters are packed over the windows;
// coefficients are sign-extended into coef back to back. zamStsOk, or
// zamStsAacTnsOrderErr with the cursor right after the offending order field.
ZamStatus aacReadTnsData(AacCursor& c, bool eightShort, int32_t* nFilt, int32_t* coefRes, int32_t* length,
                         int32_t* order, int32_t* direction, int8_t* coef);

// Decodes `count` values (a multiple of the book's dimension) of spectral code
// book 1..11 at the cursor into dst. zamStsOk, or zamStsAacQuantValErr for an
// escape prefix of more than 8 ones (a magnitude above 8191).
// The table-driven decoder takes code words from a 32-bit window loaded at the
// byte of the current position, so it never reads more than three bytes past
// the last bit it consumes.
ZamStatus aacDecodeSpectralValues(AacCursor& c, int book, int32_t* dst, int count);
// Bit-by-bit twin used as a reference: same results, same cursor.
ZamStatus aacDecodeSpectralValuesRef(AacCursor& c, int book, int32_t* dst, int count);

}  // namespace zam
