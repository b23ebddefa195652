#include <cmath>
#include <cstring>

#include "core/export.h"
#include "vq/vq_codebook.h"

using namespace zam::vq;

ZAM_API ZamStatus zamsVQReconstruction_32f(const int** ppIndices, const int** ppSigns, const int* pLengths, int nDiv,
                                           int nStages, float* pDst, const VqCodeBook** ppCodeBooks)
{
    if (!ppIndices || !ppSigns || !pLengths || !pDst || !ppCodeBooks) return zamStsNullPtr;

    int64_t total = 0;
    {
        const CodeBookRecord* book = record(ppCodeBooks[0]);
        float* out = pDst;
        for (int i = 0; i < nDiv; ++i) {
            const int len = pLengths[i];
            if (len < 1) continue;
            const float* row = book->rows[ppIndices[0][i]];
            const float sign = static_cast<float>(ppSigns[0][i]);
            for (int j = 0; j < len; ++j) out[j] = sign * row[j];
            out += len;
            total += len;
        }
    }
    for (int s = 1; s < nStages; ++s) {
        const CodeBookRecord* book = record(ppCodeBooks[s]);
        float* out = pDst;
        for (int i = 0; i < nDiv; ++i) {
            const int len = pLengths[i];
            if (len < 1) continue;
            const float* row = book->rows[ppIndices[s][i]];
            const float sign = static_cast<float>(ppSigns[s][i]);
            for (int j = 0; j < len; ++j) out[j] = std::fma(row[j], sign, out[j]);
            out += len;
        }
    }
    const float scale = 1.0f / static_cast<float>(nStages);
    if (scale == 0.0f) {
        std::memset(pDst, 0, sizeof(float) * static_cast<size_t>(total));
    } else if (scale != 1.0f) {
        for (int64_t j = 0; j < total; ++j) pDst[j] *= scale;
    }
    return zamStsOk;
}
