// AAC noiseless decoding of one individual channel stream from global_gain on:
// section data, scale factors, pulse / TNS / gain-control side information and
// the Huffman-coded spectrum in grouped, band-interleaved order.
#include <cstring>

#include "aac/aac_bitstream.h"
#include "aac/aac_huffman.h"
#include "aac/aac_tables.h"
#include "core/export.h"

namespace zam {

namespace {

constexpr int kMaxSections = 120;
constexpr int kLongWindow = 1024;
constexpr int kShortWindow = 128;

struct PulseData {
    int numberPulse;
    int startSfb;
    int offset[4];
    int amp[4];
};

struct Layout {
    bool eightShort;
    int windowLength;  // 1024 or 128
    int numGroups;
    const int32_t* groupLength;
};

// Window groups must cover at most the frame's windows, each group non-empty.
bool groupsValid(const Layout& l)
{
    if (l.numGroups < 1 || l.numGroups > 8) return false;
    int windows = 0;
    for (int g = 0; g < l.numGroups; ++g) {
        if (l.groupLength[g] < 1) return false;
        windows += l.groupLength[g];
    }
    return windows <= (l.eightShort ? 8 : 1);
}

ZamStatus readSectionData(AacCursor& c, AacChanInfo* ci, const Layout& l, int maxSfb, uint8_t* sfbCb)
{
    const int lenBits = l.eightShort ? 3 : 5;
    const uint32_t escape = l.eightShort ? 7u : 31u;
    int section = 0;
    for (int g = 0; g < l.numGroups; ++g) {
        int band = 0;
        int sectionsInGroup = 0;
        uint8_t* cb = sfbCb + g * maxSfb;
        while (band < maxSfb) {
            if (section >= kMaxSections) return zamStsAacSectDataErr;
            const uint8_t book = static_cast<uint8_t>(c.read(4));
            ci->sect_cb[section] = book;
            int len = 0;
            uint32_t piece;
            do {
                piece = c.read(lenBits);
                len += static_cast<int>(piece);
            } while (piece == escape && band + len <= maxSfb);
            const int end = band + len;
            if (end > maxSfb) return zamStsAacSectDataErr;
            for (int b = band; b < end; ++b) cb[b] = book;
            ci->sect_end[section] = static_cast<uint8_t>(end);
            ++section;
            ++sectionsInGroup;
            band = end;
        }
        ci->num_sec[g] = sectionsInGroup;
    }
    return zamStsOk;
}

// Scale-factor reader with its own bit cache: the valid bits sit at the top of
// a 32-bit word, and bytes are added until at least 25 are valid (the longest
// code has 19 bits).
class ScaleFactorReader {
public:
    explicit ScaleFactorReader(const AacCursor& c) : start_(c.ptr), next_(c.ptr), startOffset_(c.offset) {}

    int decodeIndex()
    {
        refill();
        const uint32_t entry = kAacScaleFactorLookup[cache_ >> 24];
        const int length = static_cast<int>(entry >> 8);
        if (length != 0) {
            cache_ <<= length;
            valid_ -= length;
            return static_cast<int>(entry & 0xFF);
        }
        cache_ <<= 8;
        valid_ -= 8;
        uint32_t node = entry;
        for (;;) {
            const uint32_t bit = cache_ >> 31;
            cache_ <<= 1;
            --valid_;
            node = bit ? node + (kAacScaleFactorTree[node] >> 1) : node + 1;
            if (kAacScaleFactorTree[node] & 1u) return kAacScaleFactorTree[node] >> 1;
        }
    }

    uint32_t readBits(int n)
    {
        refill();
        const uint32_t v = cache_ >> (32 - n);
        cache_ <<= n;
        valid_ -= n;
        return v;
    }

    void writeBack(AacCursor& c) const
    {
        if (next_ == start_) return;  // nothing was read
        const size_t bitPos = static_cast<size_t>(next_ - start_) * 8 - static_cast<size_t>(valid_);
        c.ptr = start_ + (bitPos >> 3);
        c.offset = static_cast<int>(bitPos & 7);
    }

private:
    void refill()
    {
        if (next_ == start_) {
            // First use: the rest of the cursor byte.
            cache_ = static_cast<uint32_t>(*next_++) << (24 + startOffset_);
            valid_ = 8 - startOffset_;
        }
        while (valid_ < 25) {
            cache_ |= static_cast<uint32_t>(*next_++) << (24 - valid_);
            valid_ += 8;
        }
    }

    const uint8_t* start_;
    const uint8_t* next_;
    int startOffset_;
    uint32_t cache_ = 0;
    int valid_ = 0;
};

ZamStatus readScaleFactors(AacCursor& c, const AacChanInfo* ci, const Layout& l, int maxSfb, const uint8_t* sfbCb,
                           int16_t* scaleFactor, bool generalForm)
{
    ScaleFactorReader r(c);
    int32_t running = ci->global_gain;
    int32_t intensity = 0;
    bool firstNoise = true;
    ZamStatus st = zamStsOk;
    for (int g = 0; g < l.numGroups && st == zamStsOk; ++g) {
        const uint8_t* cb = sfbCb + g * maxSfb;
        int16_t* sf = scaleFactor + g * maxSfb;
        for (int b = 0; b < maxSfb; ++b) {
            const int book = cb[b];
            if (book == kAacZeroHcb) {
                sf[b] = 0;
            } else if (book == kAacReservedHcb || (book == kAacNoiseHcb && !generalForm)) {
                st = zamStsAacSfCbErr;
                break;
            } else if (book == kAacIntensityHcb || book == kAacIntensityHcb2) {
                intensity += r.decodeIndex() - 60;
                sf[b] = static_cast<int16_t>(intensity);
            } else if (book == kAacNoiseHcb) {
                if (firstNoise) {
                    firstNoise = false;
                    running = ci->global_gain + static_cast<int32_t>(r.readBits(9)) - 346;
                } else {
                    running += r.decodeIndex() - 60;
                    if (running > 255) {
                        st = zamStsAacSfValueErr;
                        break;
                    }
                }
                sf[b] = static_cast<int16_t>(running);
            } else {
                running += r.decodeIndex() - 60;
                if (running > 255) {
                    st = zamStsAacSfValueErr;
                    break;
                }
                sf[b] = static_cast<int16_t>(running);
            }
        }
    }
    r.writeBack(c);
    return st;
}

ZamStatus readPulseData(AacCursor& c, PulseData* pd)
{
    pd->numberPulse = static_cast<int>(c.read(2)) + 1;
    pd->startSfb = static_cast<int>(c.read(6));
    if (pd->startSfb > 51) return zamStsAacPulseErr;
    for (int i = 0; i < pd->numberPulse; ++i) {
        pd->offset[i] = static_cast<int>(c.read(5));
        pd->amp[i] = static_cast<int>(c.read(4));
    }
    return zamStsOk;
}

ZamStatus addPulses(const PulseData& pd, int samplingFrequencyIndex, int32_t* spectrum)
{
    int k = kAacSwbOffsetLong[samplingFrequencyIndex][pd.startSfb];
    for (int i = 0; i < pd.numberPulse; ++i) {
        k += pd.offset[i];
        if (k >= kLongWindow) return zamStsAacPulseErr;
        if (spectrum[k] > 0) spectrum[k] += pd.amp[i];
        else spectrum[k] -= pd.amp[i];
    }
    return zamStsOk;
}

ZamStatus readSpectralData(AacCursor& c, const AacChanInfo* ci, const Layout& l, int32_t* spectrum)
{
    const uint16_t* swbOffset = aacSwbOffsets(ci->sampling_frequency_index, l.eightShort);
    const int numSwb = ci->num_swb;
    int section = 0;
    int32_t* groupBase = spectrum;
    for (int g = 0; g < l.numGroups; ++g) {
        const int groupLength = l.groupLength[g];
        const int groupSize = groupLength * l.windowLength;
        int k = 0;
        for (int s = 0; s < ci->num_sec[g]; ++s, ++section) {
            const int end = ci->sect_end[section];
            if (end > numSwb) return zamStsBadData;
            const int top = swbOffset[end] * groupLength;
            const int book = ci->sect_cb[section];
            if (book == kAacZeroHcb || book >= kAacNoiseHcb) {
                if (top > k) std::memset(groupBase + k, 0, static_cast<size_t>(top - k) * sizeof(int32_t));
            } else if (book == kAacReservedHcb) {
                return zamStsAacSpectCbErr;
            } else {
                const ZamStatus st = aacDecodeSpectralValues(c, book, groupBase + k, top - k);
                if (st != zamStsOk) return st;
            }
            k = top;
        }
        if (k < groupSize) std::memset(groupBase + k, 0, static_cast<size_t>(groupSize - k) * sizeof(int32_t));
        groupBase += groupSize;
    }
    return zamStsOk;
}

void setWindowFields(AacChanInfo* ci, bool eightShort)
{
    ci->num_window = eightShort ? 8 : 1;
    ci->frame_length = eightShort ? kShortWindow : kLongWindow;
    ci->num_swb = aacNumSwb(ci->sampling_frequency_index, eightShort);
}

// Pulse, TNS and gain-control side information (after the scale factors).
ZamStatus readToolData(AacCursor& c, AacChanInfo* ci, const Layout& l, int8_t* tnsCoef, PulseData* pd)
{
    ci->pulse_data_present = static_cast<int32_t>(c.readBit());
    if (ci->pulse_data_present) {
        if (l.eightShort) return zamStsAacPulseErr;
        const ZamStatus st = readPulseData(c, pd);
        if (st != zamStsOk) return st;
        if (pd->startSfb >= ci->num_swb) return zamStsAacPulseErr;
    }
    ci->n_filt[0] = 0;
    ci->tns_data_present = static_cast<int32_t>(c.readBit());
    if (ci->tns_data_present) {
        const ZamStatus st =
            aacReadTnsData(c, l.eightShort, ci->n_filt, ci->coef_res, ci->length, ci->order, ci->direction, tnsCoef);
        if (st != zamStsOk) return st;
    }
    ci->gain_control_data_present = static_cast<int32_t>(c.readBit());
    if (ci->gain_control_data_present) return zamStsAacGainCtrlErr;
    return zamStsOk;
}

}  // namespace

}  // namespace zam

using namespace zam;

ZAM_API ZamStatus zamsNoiselessDecoder_LC_AAC(uint8_t** ppBitStream, int32_t* pOffset, int32_t commonWin,
                                              AacChanInfo* pChanInfo, int16_t* pScaleFactor, int32_t* pSpectrum,
                                              uint8_t* pSfbCb, int8_t* pTnsCoef)
{
    if (!ppBitStream || !pOffset || !pChanInfo || !pScaleFactor || !pSpectrum || !pSfbCb || !pTnsCoef ||
        !*ppBitStream || !pChanInfo->pIcsInfo) {
        return zamStsNullPtr;
    }
    if (static_cast<uint32_t>(*pOffset) > 7) return zamStsAacBitOffsetErr;
    if (static_cast<uint32_t>(commonWin) > 1) return zamStsAacCommonWinErr;
    if (static_cast<uint32_t>(pChanInfo->sampling_frequency_index) > 11) return zamStsAacSmplRateIdxErr;
    if (pChanInfo->num_pred_sfb != 0) return zamStsAacPredSfbErr;

    AacChanInfo* ci = pChanInfo;
    AacIcsInfo* ics = ci->pIcsInfo;
    AacCursor c{*ppBitStream, *pOffset};
    auto finish = [&](ZamStatus st) {
        *ppBitStream = const_cast<uint8_t*>(c.ptr);
        *pOffset = c.offset;
        return st;
    };

    ci->global_gain = static_cast<int32_t>(c.read(8));
    if (!commonWin) {
        const ZamStatus st = aacReadIcsInfo(c, ics, 0);
        if (st != zamStsOk) return finish(st);
    }
    const bool eightShort = ics->window_sequence == kAacEightShort;
    setWindowFields(ci, eightShort);
    const int maxSfb = ics->max_sfb;
    if (maxSfb > ci->num_swb) return finish(zamStsAacMaxSfbErr);
    const Layout l{eightShort, eightShort ? kShortWindow : kLongWindow, ics->num_window_groups,
                   ics->window_group_length};
    if (!groupsValid(l)) return finish(zamStsAacNumWinGrpErr);

    ZamStatus st = readSectionData(c, ci, l, maxSfb, pSfbCb);
    if (st != zamStsOk) return finish(st);
    st = readScaleFactors(c, ci, l, maxSfb, pSfbCb, pScaleFactor, false);
    if (st != zamStsOk) return finish(st);
    PulseData pd{};
    st = readToolData(c, ci, l, pTnsCoef, &pd);
    if (st != zamStsOk) return finish(st);
    st = readSpectralData(c, ci, l, pSpectrum);
    if (st != zamStsOk) return finish(st);
    if (!eightShort && ci->pulse_data_present) st = addPulses(pd, ci->sampling_frequency_index, pSpectrum);
    return finish(st);
}

ZAM_API ZamStatus zamsNoiselessDecode_AAC(uint8_t** ppBitStream, int32_t* pOffset, AacMainHeader* pMainHeader,
                                          int16_t* pScaleFactor, int32_t* pSpectrum, uint8_t* pSfbCb,
                                          int8_t* pTnsCoef, AacChanInfo* pChanInfo, int32_t windowSequence,
                                          int32_t maxSfb, int32_t commonWin, int32_t scaleFlag,
                                          int32_t audioObjectType)
{
    if (!ppBitStream || !pOffset || !pMainHeader || !pScaleFactor || !pSpectrum || !pSfbCb || !pTnsCoef ||
        !pChanInfo || !*ppBitStream || !pChanInfo->pIcsInfo) {
        return zamStsNullPtr;
    }
    if (static_cast<uint32_t>(*pOffset) > 7) return zamStsAacBitOffsetErr;
    if (static_cast<uint32_t>(commonWin) > 1) return zamStsAacCommonWinErr;
    if (static_cast<uint32_t>(windowSequence) > 3) return zamStsAacWinSeqErr;
    if (static_cast<uint32_t>(scaleFlag) > 1) return zamStsAacLayerFlagErr;
    if (static_cast<uint32_t>(audioObjectType) > 16) return zamStsAacObjTypeErr;
    if (static_cast<uint32_t>(maxSfb) > 51) return zamStsAacMaxSfbErr;
    if (static_cast<uint32_t>(pChanInfo->sampling_frequency_index) > 11) return zamStsAacSmplRateIdxErr;

    AacChanInfo* ci = pChanInfo;
    AacIcsInfo* ics = ci->pIcsInfo;
    AacCursor c{*ppBitStream, *pOffset};
    auto finish = [&](ZamStatus st) {
        *ppBitStream = const_cast<uint8_t*>(c.ptr);
        *pOffset = c.offset;
        return st;
    };

    ci->global_gain = static_cast<int32_t>(c.read(8));
    int sequence;
    int sfbCount;
    int numGroups;
    const int32_t* groupLength;
    if (scaleFlag) {
        sequence = windowSequence;
        sfbCount = maxSfb;
        numGroups = pMainHeader->num_window_groups;
        groupLength = pMainHeader->window_group_length;
    } else {
        if (!commonWin) {
            const ZamStatus st =
                aacReadIcsInfoMp4(c, ics, ci->num_pred_sfb, audioObjectType, pMainHeader, false);
            if (st != zamStsOk) return finish(st);
        }
        sequence = ics->window_sequence;
        sfbCount = ics->max_sfb;
        // A record filled by the caller (common window) must hold a value the
        // 6-bit field can carry.
        if (static_cast<uint32_t>(sfbCount) > 63) return finish(zamStsAacMaxSfbErr);
        numGroups = ics->num_window_groups;
        groupLength = ics->window_group_length;
    }
    const bool eightShort = sequence == kAacEightShort;
    setWindowFields(ci, eightShort);
    const Layout l{eightShort, eightShort ? kShortWindow : kLongWindow, numGroups, groupLength};
    if (!groupsValid(l)) return finish(zamStsAacNumWinGrpErr);

    ZamStatus st = readSectionData(c, ci, l, sfbCount, pSfbCb);
    if (st != zamStsOk) return finish(st);
    st = readScaleFactors(c, ci, l, sfbCount, pSfbCb, pScaleFactor, true);
    if (st != zamStsOk) return finish(st);
    PulseData pd{};
    if (!scaleFlag) {
        st = readToolData(c, ci, l, pTnsCoef, &pd);
        if (st != zamStsOk) return finish(st);
    }
    st = readSpectralData(c, ci, l, pSpectrum);
    if (st != zamStsOk) return finish(st);
    if (!scaleFlag && !eightShort && ci->pulse_data_present) {
        st = addPulses(pd, ci->sampling_frequency_index, pSpectrum);
    }
    return finish(st);
}
