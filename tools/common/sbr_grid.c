/*
 * SBR time grid (ISO/IEC 14496-3, 4.6.18.3.3): the envelope and noise floor borders
 * and the transient envelope of an sbr_grid(), for the reader of zamac-decode and
 * the writer of zamac-encode.
 */
#include "sbr_common.h"

int sbr_grid_times(const SbrGridFields* g, uint8_t* tEnv, uint8_t* tNoise, int* numNoise, int* lA)
{
    const int L = g->numEnv;
    if (L < 1 || L > 5) return -1;
    if (g->frameClass == SBR_FIXFIX) {
        for (int l = 0; l <= L; ++l) tEnv[l] = (uint8_t)(l * 16 / L);
    } else {
        if (g->pointer > L + 1 || g->numRel0 + g->numRel1 + 1 != L) return -1;
        int t[6];
        t[0] = g->frameClass == SBR_FIXVAR ? 0 : g->bord0;
        t[L] = g->frameClass == SBR_VARFIX ? 16 : g->bord1 + 16;
        for (int i = 0; i < g->numRel0; ++i) t[i + 1] = t[i] + g->rel0[i];
        for (int i = 0; i < g->numRel1; ++i) t[L - 1 - i] = t[L - i] - g->rel1[i];
        for (int l = 0; l <= L; ++l) {
            if (l > 0 && t[l] <= t[l - 1]) return -1;
            tEnv[l] = (uint8_t)t[l];
        }
    }
    /* transient envelope l_A and the middle noise border */
    int middle;
    switch (g->frameClass) {
    case SBR_FIXFIX:
        *lA = -1;
        middle = L / 2;
        break;
    case SBR_VARFIX:
        *lA = g->pointer > 1 ? g->pointer - 1 : -1;
        middle = g->pointer == 0 ? 1 : g->pointer == 1 ? L - 1 : g->pointer - 1;
        break;
    default:
        *lA = g->pointer ? L + 1 - g->pointer : -1;
        middle = g->pointer > 1 ? L + 1 - g->pointer : L - 1;
        break;
    }
    *numNoise = L > 1 ? 2 : 1;
    tNoise[0] = tEnv[0];
    tNoise[*numNoise] = tEnv[L];
    if (*numNoise == 2) {
        if (middle < 1 || middle >= L) return -1;
        tNoise[1] = tEnv[middle];
    }
    return 0;
}

int sbr_band_containing(const uint8_t* table, int n, int start)
{
    int i = 0;
    while (i + 1 < n && table[i + 1] <= start) ++i;
    return i;
}
