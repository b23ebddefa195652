#include "aac_fixed.h"

#include <string.h>

ZamStatus aac_fixed_run(AacFixedBank* bank, int ch, const int32_t* spectrum, int windowSequence, int windowShape,
                        int previousShape)
{
    int32_t* time = bank->time[ch];
    memcpy(time, spectrum, 1024 * sizeof(int32_t));
    ZamStatus status = zamsMDCTInv_AAC_32s_I(time, windowSequence, windowShape, previousShape, bank->overlap[ch]);
    if (status != zamStsOk) return status;
    for (int n = 0; n < 1024; ++n) {
        const int32_t v = (int32_t)(((int64_t)time[n] + 128) >> 8);  /* half up, as zamsMDCTInv_AAC_32s16s */
        bank->pcm[ch][n] = (int16_t)(v > 32767 ? 32767 : v < -32768 ? -32768 : v);
    }
    return zamStsOk;
}
