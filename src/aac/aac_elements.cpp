// AAC syntax elements: ics_info() in its MPEG-2 and MPEG-4 forms, ltp_data(),
// tns_data(), channel_pair_element() side information, data_stream_element(),
// fill_element(), and the main and extension layer headers of layered streams.
#include <cstring>

#include "aac/aac_bitstream.h"
#include "core/export.h"

namespace zam {

namespace {

// ltp_coef in Q14, by its 3-bit index.
constexpr int32_t kLtpCoefQ14[8] = {9352, 11413, 13320, 14931, 16137, 17496, 19572, 22438};

constexpr int kMaxLtpLongBands = 40;

void readPredictionFlags(AacCursor& c, AacIcsInfo* ics, int predSfbMax)
{
    const int n = ics->max_sfb < predSfbMax ? ics->max_sfb : predSfbMax;
    for (int b = 0; b < n; ++b) ics->prediction_used[b] = static_cast<uint8_t>(c.readBit());
    for (int b = n; b < predSfbMax; ++b) ics->prediction_used[b] = 0;
}

void readShortWindowInfo(AacCursor& c, AacIcsInfo* ics)
{
    ics->max_sfb = static_cast<int32_t>(c.read(4));
    ics->scale_factor_grouping = static_cast<int32_t>(c.read(7));
    aacGroupWindows(static_cast<uint32_t>(ics->scale_factor_grouping), &ics->num_window_groups,
                    ics->window_group_length);
}

// ms_used[g][b] for every group and every band below maxSfb, one bit each.
void readMsUsed(AacCursor& c, uint8_t* msUsed, int numGroups, int maxSfb)
{
    for (int g = 0; g < numGroups; ++g) {
        for (int b = 0; b < maxSfb; ++b) msUsed[g * 60 + b] = static_cast<uint8_t>(c.readBit());
    }
}

bool cursorArgsBad(uint8_t** ppBitStream, int32_t* pOffset) { return !ppBitStream || !pOffset || !*ppBitStream; }

}  // namespace

void aacGroupWindows(uint32_t grouping, int32_t* numGroups, int32_t* groupLength)
{
    int groups = 1;
    groupLength[0] = 1;
    for (int bit = 6; bit >= 0; --bit) {
        if ((grouping >> bit) & 1u) {
            ++groupLength[groups - 1];
        } else {
            groupLength[groups] = 1;
            ++groups;
        }
    }
    *numGroups = groups;
}

ZamStatus aacReadIcsInfo(AacCursor& c, AacIcsInfo* ics, int predSfbMax)
{
    ics->ics_reserved_bit = static_cast<int32_t>(c.readBit());
    ics->window_sequence = static_cast<int32_t>(c.read(2));
    ics->window_shape = static_cast<int32_t>(c.readBit());
    ics->predictor_data_present = 0;
    if (ics->window_sequence == kAacEightShort) {
        readShortWindowInfo(c, ics);
        return zamStsOk;
    }
    ics->max_sfb = static_cast<int32_t>(c.read(6));
    if (ics->max_sfb > 51) return zamStsAacMaxSfbErr;
    ics->predictor_data_present = static_cast<int32_t>(c.readBit());
    ics->predictor_reset = 0;
    if (ics->predictor_data_present) {
        ics->predictor_reset = static_cast<int32_t>(c.readBit());
        if (ics->predictor_reset) ics->predictor_reset_group_number = static_cast<int32_t>(c.read(5));
        readPredictionFlags(c, ics, predSfbMax);
    }
    ics->num_window_groups = 1;
    ics->window_group_length[0] = 1;
    return zamStsOk;
}

ZamStatus aacReadIcsInfoMp4(AacCursor& c, AacIcsInfo* ics, int predSfbMax, int audioObjectType,
                            AacMainHeader* mainHeader, bool bothLtpChannels)
{
    ics->ics_reserved_bit = static_cast<int32_t>(c.readBit());
    ics->window_sequence = static_cast<int32_t>(c.read(2));
    ics->window_shape = static_cast<int32_t>(c.readBit());
    ics->predictor_data_present = 0;
    mainHeader->ltp[0].ltp_data_present = 0;
    mainHeader->ltp[1].ltp_data_present = 0;
    if (ics->window_sequence == kAacEightShort) {
        readShortWindowInfo(c, ics);
        return zamStsOk;
    }
    ics->max_sfb = static_cast<int32_t>(c.read(6));
    if (ics->max_sfb > 51) return zamStsAacMaxSfbErr;
    ics->predictor_data_present = static_cast<int32_t>(c.readBit());
    ics->predictor_reset = 0;
    if (ics->predictor_data_present) {
        if (audioObjectType != 1) {
            mainHeader->max_sfb = ics->max_sfb;
            mainHeader->window_sequence = ics->window_sequence;
            const int channels = bothLtpChannels ? 2 : 1;
            for (int ch = 0; ch < channels; ++ch) {
                AacLtpData* ltp = &mainHeader->ltp[ch];
                ltp->ltp_data_present = static_cast<int32_t>(c.readBit());
                if (ltp->ltp_data_present) aacReadLtpData(c, ltp, ics->window_sequence, ics->max_sfb);
            }
        } else {
            ics->predictor_reset = static_cast<int32_t>(c.readBit());
            if (ics->predictor_reset) ics->predictor_reset_group_number = static_cast<int32_t>(c.read(5));
            if (predSfbMax > 41) return zamStsAacPredSfbErr;
            readPredictionFlags(c, ics, predSfbMax);
        }
    }
    ics->num_window_groups = 1;
    ics->window_group_length[0] = 1;
    return zamStsOk;
}

void aacReadLtpData(AacCursor& c, AacLtpData* ltp, int windowSequence, int maxSfb)
{
    ltp->ltp_lag = static_cast<int32_t>(c.read(11));
    ltp->ltp_coef = kLtpCoefQ14[c.read(3)];
    if (windowSequence != kAacEightShort) {
        ltp->ltp_long_used[0] = ltp->ltp_data_present;
        const int n = maxSfb < kMaxLtpLongBands ? (maxSfb < 0 ? 0 : maxSfb) : kMaxLtpLongBands;
        for (int b = 1; b <= n; ++b) ltp->ltp_long_used[b] = static_cast<int32_t>(c.readBit());
        for (int b = n + 1; b <= kMaxLtpLongBands; ++b) ltp->ltp_long_used[b] = 0;
        return;
    }
    ltp->ltp_short_lag[0] = ltp->ltp_lag;
    int previous = -1;
    for (int w = 0; w < 8; ++w) {
        ltp->ltp_short_used[w] = static_cast<int32_t>(c.readBit());
        if (!ltp->ltp_short_used[w]) continue;
        if (previous < 0) {
            ltp->ltp_short_lag_present[w] = 0;
            ltp->ltp_short_lag[w] = ltp->ltp_lag;
        } else {
            ltp->ltp_short_lag_present[w] = static_cast<int32_t>(c.readBit());
            if (ltp->ltp_short_lag_present[w]) {
                const int32_t delta = static_cast<int32_t>(c.read(5));
                ltp->ltp_short_lag[w] = static_cast<int16_t>(ltp->ltp_short_lag[previous] - delta) + 16;
            } else {
                ltp->ltp_short_lag[w] = ltp->ltp_short_lag[previous];
            }
        }
        previous = w;
    }
}

ZamStatus aacReadTnsData(AacCursor& c, bool eightShort, int32_t* nFilt, int32_t* coefRes, int32_t* length,
                         int32_t* order, int32_t* direction, int8_t* coef)
{
    const int numWindows = eightShort ? 8 : 1;
    const int nFiltBits = eightShort ? 1 : 2;
    const int lengthBits = eightShort ? 4 : 6;
    const int orderBits = eightShort ? 3 : 5;
    const int maxOrder = eightShort ? 7 : 12;
    int filter = 0;
    int coefCount = 0;
    for (int w = 0; w < numWindows; ++w) {
        const int filters = static_cast<int>(c.read(nFiltBits));
        nFilt[w] = filters;
        if (filters == 0) continue;
        const int res = static_cast<int>(c.readBit()) + 3;
        coefRes[w] = res;
        for (int f = 0; f < filters; ++f, ++filter) {
            length[filter] = static_cast<int32_t>(c.read(lengthBits));
            const int ord = static_cast<int>(c.read(orderBits));
            order[filter] = ord;
            if (ord > maxOrder) return zamStsAacTnsOrderErr;
            if (ord == 0) continue;
            direction[filter] = static_cast<int32_t>(c.readBit());
            const int width = res - static_cast<int>(c.readBit());  // coef_compress
            for (int i = 0; i < ord; ++i) {
                coef[coefCount++] = static_cast<int8_t>(readSignedField(c.ptr, c.offset, width));
            }
        }
    }
    return zamStsOk;
}

}  // namespace zam

using namespace zam;

namespace {

ZamStatus decodeChanPair(AacCursor& c, AacIcsInfo* ics, AacChanPairElt* cpe, int predSfbMax, int audioObjectType,
                         AacMainHeader* mainHeader)
{
    cpe->common_window = static_cast<int32_t>(c.readBit());
    if (!cpe->common_window) return zamStsOk;
    const ZamStatus st = mainHeader ? aacReadIcsInfoMp4(c, ics, predSfbMax, audioObjectType, mainHeader, true)
                                    : aacReadIcsInfo(c, ics, predSfbMax);
    if (st != zamStsOk) return st;
    cpe->ms_mask_present = static_cast<int32_t>(c.read(2));
    if (cpe->ms_mask_present == 1) readMsUsed(c, &cpe->ms_used[0][0], ics->num_window_groups, ics->max_sfb);
    return zamStsOk;
}

}  // namespace

ZAM_API ZamStatus zamsDecodeChanPairElt_AAC(uint8_t** ppBitStream, int32_t* pOffset, AacIcsInfo* pIcsInfo,
                                            AacChanPairElt* pChanPairElt, int32_t predSfbMax)
{
    if (cursorArgsBad(ppBitStream, pOffset) || !pIcsInfo || !pChanPairElt) return zamStsNullPtr;
    if (static_cast<uint32_t>(*pOffset) > 7) return zamStsAacBitOffsetErr;
    if (static_cast<uint32_t>(predSfbMax) > 41) return zamStsAacPredSfbErr;

    AacCursor c{*ppBitStream, *pOffset};
    const ZamStatus st = decodeChanPair(c, pIcsInfo, pChanPairElt, predSfbMax, 0, nullptr);
    *ppBitStream = const_cast<uint8_t*>(c.ptr);
    *pOffset = c.offset;
    return st;
}

ZAM_API ZamStatus zamsDecodeChanPairElt_MP4_AAC(uint8_t** ppBitStream, int32_t* pOffset, AacIcsInfo* pIcsInfo,
                                                AacChanPairElt* pChanPairElt, AacMainHeader* pMainHeader,
                                                int32_t predSfbMax, int32_t audioObjectType)
{
    if (cursorArgsBad(ppBitStream, pOffset) || !pIcsInfo || !pChanPairElt || !pMainHeader) return zamStsNullPtr;
    if (static_cast<uint32_t>(*pOffset) > 7) return zamStsAacBitOffsetErr;
    if (static_cast<uint32_t>(predSfbMax) > 51) return zamStsAacMaxSfbErr;

    AacCursor c{*ppBitStream, *pOffset};
    const ZamStatus st = decodeChanPair(c, pIcsInfo, pChanPairElt, predSfbMax, audioObjectType, pMainHeader);
    *ppBitStream = const_cast<uint8_t*>(c.ptr);
    *pOffset = c.offset;
    return st;
}

ZAM_API ZamStatus zamsDecodeDatStrElt_AAC(uint8_t** ppBitStream, int32_t* pOffset, int32_t* pDataTag,
                                          int32_t* pDataCnt, uint8_t* pDataBuf)
{
    if (cursorArgsBad(ppBitStream, pOffset) || !pDataTag || !pDataCnt || !pDataBuf) return zamStsNullPtr;
    if (static_cast<uint32_t>(*pOffset) > 7) return zamStsAacBitOffsetErr;

    AacCursor c{*ppBitStream, *pOffset};
    *pDataTag = static_cast<int32_t>(c.read(4));
    const uint32_t alignFlag = c.readBit();
    int count = static_cast<int>(c.read(8));
    if (count == 255) count += static_cast<int>(c.read(8));
    if (alignFlag) c.align();
    if (c.offset == 0) {
        std::memcpy(pDataBuf, c.ptr, static_cast<size_t>(count));
        c.ptr += count;
    } else {
        for (int i = 0; i < count; ++i) pDataBuf[i] = static_cast<uint8_t>(c.read(8));
    }
    *pDataCnt = count;
    *ppBitStream = const_cast<uint8_t*>(c.ptr);
    *pOffset = c.offset;
    return zamStsOk;
}

ZAM_API ZamStatus zamsDecodeFillElt_AAC(uint8_t** ppBitStream, int32_t* pOffset, int32_t* pFillCnt, uint8_t* pFillBuf)
{
    if (cursorArgsBad(ppBitStream, pOffset) || !pFillCnt || !pFillBuf) return zamStsNullPtr;
    if (static_cast<uint32_t>(*pOffset) > 7) return zamStsAacBitOffsetErr;

    AacCursor c{*ppBitStream, *pOffset};
    int count = static_cast<int>(c.read(4));
    if (count == 15) count += static_cast<int>(c.read(8)) - 1;
    for (int i = 0; i < count; ++i) pFillBuf[i] = static_cast<uint8_t>(c.read(8));
    *pFillCnt = count;
    *ppBitStream = const_cast<uint8_t*>(c.ptr);
    *pOffset = c.offset;
    return zamStsOk;
}

ZAM_API ZamStatus zamsDecodeMainHeader_AAC(uint8_t** ppBitStream, int32_t* pOffset, AacMainHeader* pMainHeader,
                                           int32_t channels, int32_t flag)
{
    if (cursorArgsBad(ppBitStream, pOffset) || !pMainHeader || (channels == 2 && !pMainHeader->pMsUsed)) {
        return zamStsNullPtr;
    }
    if (static_cast<uint32_t>(*pOffset) > 7) return zamStsAacBitOffsetErr;
    if (channels != 1 && channels != 2) return zamStsAacChanNumErr;
    if (static_cast<uint32_t>(flag) > 1) return zamStsAacFlagErr;

    AacCursor c{*ppBitStream, *pOffset};
    AacMainHeader* h = pMainHeader;
    h->window_sequence = static_cast<int32_t>(c.read(2));
    h->window_shape = static_cast<int32_t>(c.readBit());
    const bool eightShort = h->window_sequence == kAacEightShort;
    if (!eightShort) {
        h->max_sfb = static_cast<int32_t>(c.read(6));
        h->num_window_groups = 1;
        h->window_group_length[0] = 1;
        for (int g = 1; g < 8; ++g) h->window_group_length[g] = 0;
    } else {
        h->max_sfb = static_cast<int32_t>(c.read(4));
        h->scale_factor_grouping = static_cast<int32_t>(c.read(7));
        aacGroupWindows(static_cast<uint32_t>(h->scale_factor_grouping), &h->num_window_groups, h->window_group_length);
    }

    if (channels == 2) {
        h->ms_mask_present = static_cast<int32_t>(c.read(2));
        if (h->ms_mask_present == 1) {
            readMsUsed(c, h->pMsUsed, h->num_window_groups, h->max_sfb);
        } else {
            const uint8_t value = h->ms_mask_present == 2 ? 1 : 0;
            for (int g = 0; g < h->num_window_groups; ++g) {
                std::memset(h->pMsUsed + g * 60, value, static_cast<size_t>(h->max_sfb));
            }
        }
    }

    for (int ch = 0; ch < channels; ++ch) {
        AacTnsData* tns = &h->tns[ch];
        std::memset(tns, 0, sizeof(*tns));
        tns->tns_data_present = static_cast<int32_t>(c.readBit());
        if (tns->tns_data_present) {
            // An order out of range ends the filter list; reading goes on from there.
            (void)aacReadTnsData(c, eightShort, tns->n_filt, tns->coef_res, tns->length, tns->order, tns->direction,
                                 tns->coef);
        }
        AacLtpData* ltp = &h->ltp[ch];
        std::memset(ltp, 0, sizeof(*ltp));
        ltp->ltp_data_present = static_cast<int32_t>(c.readBit());
        if (ltp->ltp_data_present) aacReadLtpData(c, ltp, h->window_sequence, h->max_sfb);
    }

    *ppBitStream = const_cast<uint8_t*>(c.ptr);
    *pOffset = c.offset;
    return flag == 1 ? zamStsAacNotSupported : zamStsOk;
}

ZAM_API ZamStatus zamsDecodeExtensionHeader_AAC(uint8_t** ppBitStream, int32_t* pOffset,
                                                AacExtensionHeader* pExtHeader, int32_t tnsFlag, int32_t msFlag,
                                                int32_t diffFlag, int32_t lastMaxSfb, int32_t maxSfbLimit,
                                                int32_t windowSequence)
{
    if (cursorArgsBad(ppBitStream, pOffset) || !pExtHeader || (msFlag == 1 && !pExtHeader->pMsUsed)) {
        return zamStsNullPtr;
    }
    if (static_cast<uint32_t>(*pOffset) > 7) return zamStsAacBitOffsetErr;
    if (static_cast<uint32_t>(tnsFlag) > 1) return zamStsAacFlagErr;
    if (static_cast<uint32_t>(msFlag) > 1) return zamStsAacMsFlagErr;
    if (static_cast<uint32_t>(diffFlag) > 1) return zamStsAacDiffFlagErr;
    if (lastMaxSfb < 0 || lastMaxSfb > 51 || maxSfbLimit > 51) return zamStsAacMaxSfbErr;
    if (static_cast<uint32_t>(windowSequence) > 3) return zamStsAacWinSeqErr;

    AacCursor c{*ppBitStream, *pOffset};
    AacExtensionHeader* h = pExtHeader;
    ZamStatus st = zamStsOk;
    const bool eightShort = windowSequence == kAacEightShort;
    if (!eightShort) {
        h->max_sfb = static_cast<int32_t>(c.read(6));
        if (h->max_sfb > 60) st = zamStsAacMaxSfbErr;
    } else {
        h->max_sfb = static_cast<int32_t>(c.read(4));
    }

    if (st == zamStsOk && msFlag) {
        h->ms_mask_present = static_cast<int32_t>(c.read(2));
        if (h->ms_mask_present == 1) {
            const int groups = eightShort ? 4 : 1;
            for (int g = 0; g < groups; ++g) {
                for (int b = lastMaxSfb; b < h->max_sfb; ++b) h->pMsUsed[g * 60 + b] = static_cast<uint8_t>(c.readBit());
            }
        }
    }
    if (st == zamStsOk && tnsFlag) {
        for (int ch = 0; ch < 2; ++ch) {
            AacTnsData* tns = &h->tns[ch];
            tns->tns_data_present = static_cast<int32_t>(c.readBit());
            if (tns->tns_data_present) {
                (void)aacReadTnsData(c, eightShort, tns->n_filt, tns->coef_res, tns->length, tns->order,
                                     tns->direction, tns->coef);
            }
        }
    }
    if (st == zamStsOk && diffFlag && msFlag) {
        for (int ch = 0; ch < 2; ++ch) {
            int32_t* diff = h->diff_control_lr[ch];
            if (!eightShort) {
                const int top = maxSfbLimit < h->max_sfb ? maxSfbLimit : h->max_sfb;
                int k = 0;
                for (int b = lastMaxSfb; b < top; ++b) {
                    if (h->pMsUsed[b] == 0) diff[k++] = static_cast<int32_t>(c.readBit());
                }
            } else if (lastMaxSfb == 0) {
                for (int w = 0; w < 8; ++w) diff[w] = static_cast<int32_t>(c.readBit());
            }
        }
    }

    *ppBitStream = const_cast<uint8_t*>(c.ptr);
    *pOffset = c.offset;
    return st;
}
