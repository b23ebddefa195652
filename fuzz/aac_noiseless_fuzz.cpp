// Both noiseless decoders with random channel, ICS and layer settings.
#include <cstring>

#include "aac_fuzz_common.h"
#include "zamac.h"

namespace {

struct Outputs {
    AacChanInfo info;
    AacIcsInfo ics;
    AacMainHeader mh;
    int16_t sf[8 * 64];
    uint8_t cb[8 * 64];
    int32_t spectrum[1024];
    int8_t tns[60];
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 8) return 0;
    // Settings: sampling index (12 rejected), common window with a caller ICS,
    // layer form, object type, window sequence, max_sfb, groups.
    const int sfi = data[0] % 13;
    const int offset = (data[0] >> 4) & 7;
    const int commonWin = data[1] & 1;
    const int scaleFlag = (data[1] >> 1) & 1;
    const int aot = (data[1] >> 2) % 18;
    const int windowSequence = data[2] & 3;
    const int maxSfb = data[2] >> 2;  // 0..63
    const int grouping = data[3] & 0x7F;
    const int predSfb = data[4] % 45;
    const uint8_t icsSeed = data[5];
    data += 8, size -= 8;

    auto setup = [&](Outputs& o) {
        std::memset(&o, 0, sizeof o);
        o.info.sampling_frequency_index = sfi;
        o.info.num_pred_sfb = predSfb;
        o.info.pIcsInfo = &o.ics;
        o.ics.window_sequence = icsSeed & 3;
        o.ics.max_sfb = (icsSeed >> 2) % 53;
        // Caller-side groups, as the grouping rule would give them (or broken).
        int groups = 1;
        o.ics.window_group_length[0] = 1;
        for (int bit = 6; bit >= 0; --bit) {
            if ((grouping >> bit) & 1) ++o.ics.window_group_length[groups - 1];
            else o.ics.window_group_length[groups++] = 1;
        }
        o.ics.num_window_groups = o.ics.window_sequence == 2 ? groups : 1;
        if (o.ics.window_sequence != 2) o.ics.window_group_length[0] = 1;
        if (icsSeed == 0xFF) o.ics.num_window_groups = 9;
        o.mh.num_window_groups = windowSequence == 2 ? groups : 1;
        for (int g = 0; g < 8; ++g) o.mh.window_group_length[g] = o.ics.window_group_length[g];
        if (windowSequence != 2) o.mh.window_group_length[0] = 1;
    };
    const size_t maxBytes = 8192;
    static Outputs general, lc;
    ZamStatus generalStatus = 0;
    aacfuzz::runWithExactSlack(data, size, maxBytes, [&](uint8_t* buf) -> long {
        setup(general);
        uint8_t* p = buf;
        int off = offset;
        generalStatus = zamsNoiselessDecode_AAC(&p, &off, &general.mh, general.sf, general.spectrum, general.cb,
                                                general.tns, &general.info, windowSequence, maxSfb, commonWin,
                                                scaleFlag, aot);
        if (generalStatus > 0) std::abort();
        return aacfuzz::bitsFrom(buf, p, off);
    });
    aacfuzz::runWithExactSlack(data, size, maxBytes, [&](uint8_t* buf) -> long {
        setup(lc);
        lc.info.num_pred_sfb = 0;
        uint8_t* p = buf;
        int off = offset;
        const ZamStatus st = zamsNoiselessDecoder_LC_AAC(&p, &off, commonWin, &lc.info, lc.sf, lc.spectrum, lc.cb,
                                                         lc.tns);
        if (st > 0) std::abort();
        return aacfuzz::bitsFrom(buf, p, off);
    });
    return 0;
}
