// Index selection: the last stage of the two-book VQ encoder. Turns the pair the
// main search chose into per-stage indices, sign multipliers and transmitted codes.
#include "core/export.h"
#include "vq/vq_codebook.h"

using namespace zam::vq;

namespace {

// Position of code vector `index` among the nCand candidates, the first one when
// it is listed more than once (the main search keeps the first pair of smallest
// distance); -1 when it is not a candidate.
int candidatePosition(const int* list, int nCand, int index)
{
    for (int j = 0; j < nCand; ++j)
        if (list[j] == index) return j;
    return -1;
}

// The flag of the chosen code vector of one book, or -1 when the choice is not
// usable (not among the candidates, outside the book, or a flag other than 0/1).
int chosenFlag(const int* indices, const int* signs, int nCand, int index, int height)
{
    if (index < 0 || index >= height) return -1;
    const int j = candidatePosition(indices, nCand, index);
    if (j < 0) return -1;
    const int flag = signs[j];
    return flag == 0 || flag == 1 ? flag : -1;
}

}  // namespace

ZAM_API ZamStatus zamsVQIndexSelect_32f(CandidateLists indices, CandidateLists signs, CandidateLists chosen,
                                        int** ppIndices, int** ppSigns, int** ppCodes, int nDiv, int nCand,
                                        CodeBookPair codeBooks)
{
    if (!indices.pA || !indices.pB || !signs.pA || !signs.pB || !chosen.pA || !chosen.pB || !ppIndices ||
        !ppSigns || !codeBooks.pA || !codeBooks.pB)
        return zamStsNullPtr;
    if (!ppIndices[0] || !ppIndices[1] || !ppSigns[0] || !ppSigns[1] || (ppCodes && (!ppCodes[0] || !ppCodes[1])))
        return zamStsNullPtr;
    if (nDiv < 1) return zamStsOk;
    if (nCand < 1) return zamStsSize;

    const int* lists[2] = {indices.pA, indices.pB};
    const int* flags[2] = {signs.pA, signs.pB};
    const int* picks[2] = {chosen.pA, chosen.pB};
    const int heights[2] = {record(codeBooks.pA)->height, record(codeBooks.pB)->height};
    for (int i = 0; i < nDiv; ++i)
        for (int s = 0; s < 2; ++s) {
            const int64_t at = int64_t{i} * nCand;
            if (chosenFlag(lists[s] + at, flags[s] + at, nCand, picks[s][i], heights[s]) < 0) return zamStsBadData;
        }
    for (int i = 0; i < nDiv; ++i)
        for (int s = 0; s < 2; ++s) {
            const int64_t at = int64_t{i} * nCand;
            const int index = picks[s][i];
            const int flag = chosenFlag(lists[s] + at, flags[s] + at, nCand, index, heights[s]);
            ppIndices[s][i] = index;
            ppSigns[s][i] = 1 - 2 * flag;
            if (ppCodes) ppCodes[s][i] = index + flag * heights[s];
        }
    return zamStsOk;
}
