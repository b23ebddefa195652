// The integer SBR QMF banks: the float banks' design (qmf_core.h) in 32-bit
// fixed point, six state objects (tags "a" to "f").
#include <cstring>

#include "core/export.h"
#include "core/memory.h"
#include "sbr/qmf.h"
#include "sbr/qmf_core.h"

namespace zam::sbr {
namespace {

using Fx = FixedArith;

// State object: this header at the first 16-byte boundary, then the line (the
// analysis history in time order, or the synthesis ring of 10 blocks of 2M values).
struct FixedState {
    uint32_t tag;
    int32_t ownsMemory;
    int32_t position;
    int32_t lineInts;
    int32_t* line;
    int32_t reserved[10];
};
static_assert(sizeof(FixedState) == 64);

enum class FixedKind { Analysis, Synthesis, Down };

int lineIntsOf(FixedKind k)
{
    return k == FixedKind::Analysis ? kAnalysisLine : kRingBlocks * 2 * (k == FixedKind::Down ? 32 : 64);
}

int stateBytes(FixedKind k) { return static_cast<int>(sizeof(FixedState)) + 4 * lineIntsOf(k) + kStateSlack; }

constexpr char kAnaHQ = 'a', kAnaLP = 'b', kSynHQ = 'c', kSynLP = 'd', kDownHQ = 'e', kDownLP = 'f';

FixedState* place(uint8_t* mem, FixedKind k, char letter, int32_t owns)
{
    auto* st = alignUp<FixedState>(mem, kStateAlign);
    std::memset(st, 0, sizeof(FixedState));
    st->tag = fourCharTag(letter);
    st->ownsMemory = owns;
    st->lineInts = lineIntsOf(k);
    st->line = reinterpret_cast<int32_t*>(st + 1);
    std::memset(st->line, 0, 4 * static_cast<size_t>(st->lineInts));
    return st;
}

ZamStatus initKind(void** pp, uint8_t* mem, FixedKind k, char letter)
{
    if (!pp || !mem) return zamStsNullPtr;
    *pp = place(mem, k, letter, kCallerMemory);
    return zamStsOk;
}

ZamStatus initAllocKind(void** pp, FixedKind k, char letter)
{
    if (!pp) return zamStsNullPtr;
    auto* mem = static_cast<uint8_t*>(allocBytes(stateBytes(k)));
    if (!mem) return zamStsMemAlloc;
    place(mem, k, letter, kOwnedByLibrary);
    *pp = mem;
    return zamStsOk;
}

ZamStatus freeKind(void* p, char letter)
{
    if (!p) return zamStsNullPtr;
    FixedState* st = findHeader<FixedState>(p, fourCharTag(letter));
    if (!st) return zamStsContextMismatch;
    if (st->ownsMemory == kOwnedByLibrary) release(p);
    return zamStsOk;
}

ZamStatus sizeOf(int* pSize, FixedKind k)
{
    if (!pSize) return zamStsNullPtr;
    *pSize = stateBytes(k);
    return zamStsOk;
}

// The header of an object whose tag is `letter` or, when given, `alternative`.
FixedState* headerOf(void* p, char letter, char alternative = 0)
{
    FixedState* st = findHeader<FixedState>(p, fourCharTag(letter));
    if (!st && alternative) st = findHeader<FixedState>(p, fourCharTag(alternative));
    return st;
}

bool rowsPresent(const void* const* rows, int count)
{
    for (int i = 0; i < count; ++i)
        if (!rows[i]) return false;
    return true;
}

ZamStatus analyse(const int32_t* pSrc, int32_t* const* ppDst, int numSlots, int numBands, void* pSpec, char letter,
                  bool realKind)
{
    if (!pSrc || !ppDst || !pSpec) return zamStsNullPtr;
    FixedState* st = headerOf(pSpec, letter);
    if (!st) return zamStsContextMismatch;
    if (numSlots < 1 || numSlots > kQmfMaxSlots || numBands < 1 || numBands > kAnalysisBands) return zamStsSize;
    if (!rowsPresent(reinterpret_cast<const void* const*>(ppDst), numSlots)) return zamStsNullPtr;
    int32_t* line = st->line;
    alignas(32) int32_t uRev[64], re[32], im[32];
    for (int s0 = 0; s0 < numSlots; s0 += kAnalysisChunk) {
        const int n = numSlots - s0 < kAnalysisChunk ? numSlots - s0 : kAnalysisChunk;
        std::memcpy(line + kAnalysisHistory, pSrc + 32 * s0, 4 * 32 * static_cast<size_t>(n));
        for (int s = 0; s < n; ++s) {
            analysisWindow<Fx>(line + 256 + 32 * s, uRev);
            analysisModulation<Fx>(uRev, realKind, re, im, 0);
            int32_t* row = ppDst[s0 + s];
            for (int k = 0; k < 32; ++k) {
                if (realKind) {
                    row[k] = k < numBands ? re[k] : 0;
                } else {
                    row[2 * k] = k < numBands ? re[k] : 0;
                    row[2 * k + 1] = k < numBands ? im[k] : 0;
                }
            }
        }
        std::memmove(line, line + 32 * n, 4 * kAnalysisHistory);
    }
    return zamStsOk;
}

template <int M>
ZamStatus synthesise(const int32_t* const* ppSrc, int32_t* pDst, int numSlots, void* pSpec, char letter,
                     char alternative, bool realKind)
{
    if (!ppSrc || !pDst || !pSpec) return zamStsNullPtr;
    FixedState* st = headerOf(pSpec, letter, alternative);
    if (!st) return zamStsContextMismatch;
    if (numSlots < 1 || numSlots > kQmfMaxSlots) return zamStsSize;
    if (!rowsPresent(reinterpret_cast<const void* const*>(ppSrc), numSlots)) return zamStsNullPtr;
    for (int s = 0; s < numSlots; ++s) {
        st->position = (st->position + 1) % kRingBlocks;
        int32_t* block = st->line + st->position * 2 * M;
        const int32_t* row = ppSrc[s];
        synthesisModulation<Fx, M>(row, realKind ? nullptr : row + 1, realKind ? 1 : 2, realKind, block, 0);
        synthesisWindow<Fx, M>(st->line, st->position, pDst + M * s);
    }
    return zamStsOk;
}

}  // namespace
}  // namespace zam::sbr

using namespace zam;
using namespace zam::sbr;

#define ZAM_SBR_FIXED_LIFECYCLE(Family, Suffix, Type, Kind, Letter)                                  \
    ZAM_API ZamStatus zams##Family##Init_##Suffix(Type** ppSpec, uint8_t* pMem)                       \
    {                                                                                                 \
        return initKind(reinterpret_cast<void**>(ppSpec), pMem, FixedKind::Kind, Letter);             \
    }                                                                                                 \
    ZAM_API ZamStatus zams##Family##InitAlloc_##Suffix(Type** ppSpec)                                 \
    {                                                                                                 \
        return initAllocKind(reinterpret_cast<void**>(ppSpec), FixedKind::Kind, Letter);              \
    }                                                                                                 \
    ZAM_API ZamStatus zams##Family##Free_##Suffix(Type* pSpec) { return freeKind(pSpec, Letter); }

ZAM_SBR_FIXED_LIFECYCLE(AnalysisFilter, SBRHQ_32s32sc, SbrAnalysisSpecHQ_32s32sc, Analysis, kAnaHQ)
ZAM_SBR_FIXED_LIFECYCLE(AnalysisFilter, SBRLP_32s, SbrAnalysisSpecLP_32s, Analysis, kAnaLP)
ZAM_SBR_FIXED_LIFECYCLE(SynthesisFilter, SBRHQ_32sc32s, SbrSynthesisSpecHQ_32sc32s, Synthesis, kSynHQ)
ZAM_SBR_FIXED_LIFECYCLE(SynthesisFilter, SBRLP_32s, SbrSynthesisSpecLP_32s, Synthesis, kSynLP)
ZAM_SBR_FIXED_LIFECYCLE(SynthesisDownFilter, SBRHQ_32sc32s, SbrSynthesisDownSpecHQ_32sc32s, Down, kDownHQ)
ZAM_SBR_FIXED_LIFECYCLE(SynthesisDownFilter, SBRLP_32s, SbrSynthesisDownSpecLP_32s, Down, kDownLP)

ZAM_API ZamStatus zamsAnalysisFilterGetSize_SBRHQ_32s32sc(int* pSize) { return sizeOf(pSize, FixedKind::Analysis); }
ZAM_ALIAS(ZamStatus, zamsAnalysisFilterGetSize_SBRLP_32s, zamsAnalysisFilterGetSize_SBRHQ_32s32sc, (int* pSize));
ZAM_API ZamStatus zamsSynthesisFilterGetSize_SBRHQ_32sc32s(int* pSize) { return sizeOf(pSize, FixedKind::Synthesis); }
ZAM_ALIAS(ZamStatus, zamsSynthesisFilterGetSize_SBRLP_32s, zamsSynthesisFilterGetSize_SBRHQ_32sc32s, (int* pSize));
ZAM_API ZamStatus zamsSynthesisDownFilterGetSize_SBRHQ_32sc32s(int* pSize) { return sizeOf(pSize, FixedKind::Down); }
ZAM_ALIAS(ZamStatus, zamsSynthesisDownFilterGetSize_SBRLP_32s, zamsSynthesisDownFilterGetSize_SBRHQ_32sc32s,
          (int* pSize));

ZAM_API ZamStatus zamsAnalysisFilter_SBRHQ_32s32sc(const int32_t* pSrc, int32_t* const* ppDst, int numSlots,
                                                   int numBands, SbrAnalysisSpecHQ_32s32sc* pSpec)
{
    return analyse(pSrc, ppDst, numSlots, numBands, pSpec, kAnaHQ, false);
}

ZAM_API ZamStatus zamsAnalysisFilter_SBRLP_32s(const int32_t* pSrc, int32_t* const* ppDst, int numSlots, int numBands,
                                               SbrAnalysisSpecLP_32s* pSpec)
{
    return analyse(pSrc, ppDst, numSlots, numBands, pSpec, kAnaLP, true);
}

ZAM_API ZamStatus zamsSynthesisFilter_SBRHQ_32sc32s(const int32_t* const* ppSrc, int32_t* pDst, int numSlots,
                                                    SbrSynthesisSpecHQ_32sc32s* pSpec)
{
    return synthesise<64>(ppSrc, pDst, numSlots, pSpec, kSynHQ, 0, false);
}

ZAM_API ZamStatus zamsSynthesisFilter_SBRLP_32s(const int32_t* const* ppSrc, int32_t* pDst, int numSlots,
                                                SbrSynthesisSpecLP_32s* pSpec)
{
    return synthesise<64>(ppSrc, pDst, numSlots, pSpec, kSynLP, 0, true);
}

ZAM_API ZamStatus zamsSynthesisDownFilter_SBRHQ_32sc32s(const int32_t* const* ppSrc, int32_t* pDst, int numSlots,
                                                        SbrSynthesisDownSpecHQ_32sc32s* pSpec)
{
    return synthesise<32>(ppSrc, pDst, numSlots, pSpec, kDownHQ, kSynHQ, false);
}

ZAM_API ZamStatus zamsSynthesisDownFilter_SBRLP_32s(const int32_t* const* ppSrc, int32_t* pDst, int numSlots,
                                                    SbrSynthesisDownSpecLP_32s* pSpec)
{
    return synthesise<32>(ppSrc, pDst, numSlots, pSpec, kDownLP, kSynLP, true);
}
