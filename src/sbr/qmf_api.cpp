// Public entry points of the float SBR QMF banks: the four lifecycle functions of
// each of the nine object kinds and the nine filters.
#include "core/export.h"
#include "core/memory.h"
#include "sbr/qmf.h"

namespace zam::sbr {
namespace {

ZamStatus initKind(void** ppSpec, uint8_t* pMem, QmfKind kind, char letter)
{
    if (!ppSpec || !pMem) return zamStsNullPtr;
    *ppSpec = qmfPlace(pMem, kind, fourCharTag(letter), kCallerMemory);
    return zamStsOk;
}

ZamStatus initAllocKind(void** ppSpec, QmfKind kind, char letter)
{
    if (!ppSpec) return zamStsNullPtr;
    auto* mem = static_cast<uint8_t*>(allocBytes(qmfStateBytes(kind)));
    if (!mem) return zamStsMemAlloc;
    qmfPlace(mem, kind, fourCharTag(letter), kOwnedByLibrary);
    *ppSpec = mem;
    return zamStsOk;
}

ZamStatus freeKind(void* pSpec, char letter)
{
    if (!pSpec) return zamStsNullPtr;
    QmfState* st = findHeader<QmfState>(pSpec, fourCharTag(letter));
    if (!st) return zamStsContextMismatch;
    // Filter banks leave the tag in place.
    if (st->ownsMemory == kOwnedByLibrary) release(pSpec);
    return zamStsOk;
}

ZamStatus sizeOf(int* pSize, QmfKind kind)
{
    if (!pSize) return zamStsNullPtr;
    *pSize = qmfStateBytes(kind);
    return zamStsOk;
}

template <typename Ptr>
bool rowsPresent(Ptr const* rows, int count)
{
    for (int i = 0; i < count; ++i)
        if (!rows[i]) return false;
    return true;
}

// Tag, then counts, of a filter call whose pointers have been checked.
ZamStatus checkState(void* pSpec, char letter, int numSlots, int numBands, QmfState*& st)
{
    st = findHeader<QmfState>(pSpec, fourCharTag(letter));
    if (!st) return zamStsContextMismatch;
    if (numSlots < 1 || numSlots > kQmfMaxSlots || numBands < 1 || numBands > kAnalysisBands) return zamStsSize;
    return zamStsOk;
}

// Runs the analysis in chunks of slots; store(slot, values) writes one row.
template <typename Store>
ZamStatus analyse(QmfState* st, const float* pSrc, int numSlots, Store store)
{
    AnalysisSlot slots[kAnalysisChunk];
    for (int s0 = 0; s0 < numSlots; s0 += kAnalysisChunk) {
        const int n = numSlots - s0 < kAnalysisChunk ? numSlots - s0 : kAnalysisChunk;
        qmfAnalysisChunk(st, pSrc + 32 * s0, n, slots, Kernels::Avx2);
        for (int s = 0; s < n; ++s) store(s0 + s, slots[s]);
    }
    return zamStsOk;
}

template <typename Slot>
ZamStatus synthesise(QmfState* st, float* pDst, int numSlots, Slot slot)
{
    const int m = synthesisBands(st->kind);
    for (int s = 0; s < numSlots; ++s) slot(s, pDst + m * s);
    return zamStsOk;
}

// Tag letters of the nine kinds.
constexpr char kAnaSplit = 'W', kAnaInter = 'V', kAnaReal = 'X';
constexpr char kSynSplit = 'Z', kSynInter = 'Y', kSynReal = '[';
constexpr char kDownSplit = ']', kDownInter = '\\', kDownReal = '^';

}  // namespace
}  // namespace zam::sbr

using namespace zam;
using namespace zam::sbr;

// ------------------------------------------------------------------ lifecycle

#define ZAM_SBR_QMF_LIFECYCLE(Family, Suffix, Type, Kind, Letter)                                  \
    ZAM_API ZamStatus zams##Family##Init_SBR_##Suffix(Type** ppSpec, uint8_t* pMem)                 \
    {                                                                                               \
        return initKind(reinterpret_cast<void**>(ppSpec), pMem, QmfKind::Kind, Letter);             \
    }                                                                                               \
    ZAM_API ZamStatus zams##Family##InitAlloc_SBR_##Suffix(Type** ppSpec)                           \
    {                                                                                               \
        return initAllocKind(reinterpret_cast<void**>(ppSpec), QmfKind::Kind, Letter);              \
    }                                                                                               \
    ZAM_API ZamStatus zams##Family##Free_SBR_##Suffix(Type* pSpec) { return freeKind(pSpec, Letter); }

ZAM_SBR_QMF_LIFECYCLE(AnalysisFilter, RToC_32f, SbrAnalysisSpec_RToC_32f, AnalysisComplex, kAnaSplit)
ZAM_SBR_QMF_LIFECYCLE(AnalysisFilter, RToC_32f32fc, SbrAnalysisSpec_RToC_32f32fc, AnalysisComplex, kAnaInter)
ZAM_SBR_QMF_LIFECYCLE(AnalysisFilter, RToR_32f, SbrAnalysisSpec_RToR_32f, AnalysisReal, kAnaReal)
ZAM_SBR_QMF_LIFECYCLE(SynthesisFilter, CToR_32f, SbrSynthesisSpec_CToR_32f, SynthesisComplex, kSynSplit)
ZAM_SBR_QMF_LIFECYCLE(SynthesisFilter, CToR_32fc32f, SbrSynthesisSpec_CToR_32fc32f, SynthesisComplex, kSynInter)
ZAM_SBR_QMF_LIFECYCLE(SynthesisFilter, RToR_32f, SbrSynthesisSpec_RToR_32f, SynthesisReal, kSynReal)
ZAM_SBR_QMF_LIFECYCLE(SynthesisDownFilter, CToR_32f, SbrSynthesisDownSpec_CToR_32f, DownComplex, kDownSplit)
ZAM_SBR_QMF_LIFECYCLE(SynthesisDownFilter, CToR_32fc32f, SbrSynthesisDownSpec_CToR_32fc32f, DownComplex,
                      kDownInter)
ZAM_SBR_QMF_LIFECYCLE(SynthesisDownFilter, RToR_32f, SbrSynthesisDownSpec_RToR_32f, DownReal, kDownReal)

ZAM_API ZamStatus zamsAnalysisFilterGetSize_SBR_RToC_32f(int* pSize) { return sizeOf(pSize, QmfKind::AnalysisComplex); }
ZAM_ALIAS(ZamStatus, zamsAnalysisFilterGetSize_SBR_RToC_32f32fc, zamsAnalysisFilterGetSize_SBR_RToC_32f,
          (int* pSize));
ZAM_API ZamStatus zamsAnalysisFilterGetSize_SBR_RToR_32f(int* pSize) { return sizeOf(pSize, QmfKind::AnalysisReal); }

ZAM_API ZamStatus zamsSynthesisFilterGetSize_SBR_CToR_32f(int* pSize)
{
    return sizeOf(pSize, QmfKind::SynthesisComplex);
}
ZAM_ALIAS(ZamStatus, zamsSynthesisFilterGetSize_SBR_CToR_32fc32f, zamsSynthesisFilterGetSize_SBR_CToR_32f,
          (int* pSize));
ZAM_API ZamStatus zamsSynthesisFilterGetSize_SBR_RToR_32f(int* pSize) { return sizeOf(pSize, QmfKind::SynthesisReal); }

ZAM_API ZamStatus zamsSynthesisDownFilterGetSize_SBR_CToR_32f(int* pSize)
{
    return sizeOf(pSize, QmfKind::DownComplex);
}
ZAM_ALIAS(ZamStatus, zamsSynthesisDownFilterGetSize_SBR_CToR_32fc32f, zamsSynthesisDownFilterGetSize_SBR_CToR_32f,
          (int* pSize));
ZAM_API ZamStatus zamsSynthesisDownFilterGetSize_SBR_RToR_32f(int* pSize) { return sizeOf(pSize, QmfKind::DownReal); }

// ------------------------------------------------------------------ analysis

ZAM_API ZamStatus zamsAnalysisFilter_SBR_RToC_32f_D2L(const float* pSrc, float* const* ppDstRe,
                                                      float* const* ppDstIm, int numSlots, int numBands,
                                                      SbrAnalysisSpec_RToC_32f* pSpec)
{
    if (!pSrc || !ppDstRe || !ppDstIm || !pSpec) return zamStsNullPtr;
    QmfState* st = nullptr;
    if (ZamStatus sts = checkState(pSpec, kAnaSplit, numSlots, numBands, st)) return sts;
    if (!rowsPresent(ppDstRe, numSlots) || !rowsPresent(ppDstIm, numSlots)) return zamStsNullPtr;
    return analyse(st, pSrc, numSlots, [&](int s, const AnalysisSlot& v) {
        for (int k = 0; k < 32; ++k) {
            ppDstRe[s][k] = k < numBands ? v.re[k] : 0.0f;
            ppDstIm[s][k] = k < numBands ? v.im[k] : 0.0f;
        }
    });
}

ZAM_API ZamStatus zamsAnalysisFilter_SBR_RToC_32f32fc_D2L(const float* pSrc, float* const* ppDst, int numSlots,
                                                          int numBands, SbrAnalysisSpec_RToC_32f32fc* pSpec)
{
    if (!pSrc || !ppDst || !pSpec) return zamStsNullPtr;
    QmfState* st = nullptr;
    if (ZamStatus sts = checkState(pSpec, kAnaInter, numSlots, numBands, st)) return sts;
    if (!rowsPresent(ppDst, numSlots)) return zamStsNullPtr;
    return analyse(st, pSrc, numSlots, [&](int s, const AnalysisSlot& v) {
        for (int k = 0; k < 32; ++k) {
            ppDst[s][2 * k] = k < numBands ? v.re[k] : 0.0f;
            ppDst[s][2 * k + 1] = k < numBands ? v.im[k] : 0.0f;
        }
    });
}

ZAM_API ZamStatus zamsAnalysisFilter_SBR_RToR_32f_D2L(const float* pSrc, float* const* ppDst, int numSlots,
                                                      int numBands, SbrAnalysisSpec_RToR_32f* pSpec)
{
    if (!pSrc || !ppDst || !pSpec) return zamStsNullPtr;
    QmfState* st = nullptr;
    if (ZamStatus sts = checkState(pSpec, kAnaReal, numSlots, numBands, st)) return sts;
    if (!rowsPresent(ppDst, numSlots)) return zamStsNullPtr;
    return analyse(st, pSrc, numSlots, [&](int s, const AnalysisSlot& v) {
        for (int k = 0; k < 32; ++k) ppDst[s][k] = k < numBands ? v.re[k] : 0.0f;
    });
}

// ------------------------------------------------------------------ synthesis

namespace {

// The three input layouts of one synthesis family, for the object kind `letter`.
ZamStatus synthSplit(const float* const* re, const float* const* im, float* pDst, int numSlots, void* pSpec,
                     char letter)
{
    if (!re || !im || !pDst || !pSpec) return zamStsNullPtr;
    QmfState* st = nullptr;
    if (ZamStatus sts = checkState(pSpec, letter, numSlots, 1, st)) return sts;
    if (!rowsPresent(re, numSlots) || !rowsPresent(im, numSlots)) return zamStsNullPtr;
    return synthesise(st, pDst, numSlots,
                      [&](int s, float* out) { qmfSynthesisSlot(st, re[s], im[s], 1, out, Kernels::Avx2); });
}

ZamStatus synthInterleaved(const float* const* rows, float* pDst, int numSlots, void* pSpec, char letter)
{
    if (!rows || !pDst || !pSpec) return zamStsNullPtr;
    QmfState* st = nullptr;
    if (ZamStatus sts = checkState(pSpec, letter, numSlots, 1, st)) return sts;
    if (!rowsPresent(rows, numSlots)) return zamStsNullPtr;
    return synthesise(st, pDst, numSlots,
                      [&](int s, float* out) { qmfSynthesisSlot(st, rows[s], rows[s] + 1, 2, out, Kernels::Avx2); });
}

ZamStatus synthReal(const float* const* rows, float* pDst, int numSlots, void* pSpec, char letter)
{
    if (!rows || !pDst || !pSpec) return zamStsNullPtr;
    QmfState* st = nullptr;
    if (ZamStatus sts = checkState(pSpec, letter, numSlots, 1, st)) return sts;
    if (!rowsPresent(rows, numSlots)) return zamStsNullPtr;
    return synthesise(st, pDst, numSlots,
                      [&](int s, float* out) { qmfSynthesisSlot(st, rows[s], nullptr, 1, out, Kernels::Avx2); });
}

}  // namespace

ZAM_API ZamStatus zamsSynthesisFilter_SBR_CToR_32f_D2L(const float* const* ppSrcRe, const float* const* ppSrcIm,
                                                       float* pDst, int numSlots, SbrSynthesisSpec_CToR_32f* pSpec)
{
    return synthSplit(ppSrcRe, ppSrcIm, pDst, numSlots, pSpec, kSynSplit);
}

ZAM_API ZamStatus zamsSynthesisFilter_SBR_CToR_32fc32f_D2L(const float* const* ppSrc, float* pDst, int numSlots,
                                                           SbrSynthesisSpec_CToR_32fc32f* pSpec)
{
    return synthInterleaved(ppSrc, pDst, numSlots, pSpec, kSynInter);
}

ZAM_API ZamStatus zamsSynthesisFilter_SBR_RToR_32f_D2L(const float* const* ppSrc, float* pDst, int numSlots,
                                                       SbrSynthesisSpec_RToR_32f* pSpec)
{
    return synthReal(ppSrc, pDst, numSlots, pSpec, kSynReal);
}

ZAM_API ZamStatus zamsSynthesisDownFilter_SBR_CToR_32f_D2L(const float* const* ppSrcRe,
                                                           const float* const* ppSrcIm, float* pDst, int numSlots,
                                                           SbrSynthesisDownSpec_CToR_32f* pSpec)
{
    return synthSplit(ppSrcRe, ppSrcIm, pDst, numSlots, pSpec, kDownSplit);
}

ZAM_API ZamStatus zamsSynthesisDownFilter_SBR_CToR_32fc32f_D2L(const float* const* ppSrc, float* pDst,
                                                               int numSlots, SbrSynthesisDownSpec_CToR_32fc32f* pSpec)
{
    return synthInterleaved(ppSrc, pDst, numSlots, pSpec, kDownInter);
}

ZAM_API ZamStatus zamsSynthesisDownFilter_SBR_RToR_32f_D2L(const float* const* ppSrc, float* pDst, int numSlots,
                                                           SbrSynthesisDownSpec_RToR_32f* pSpec)
{
    return synthReal(ppSrc, pDst, numSlots, pSpec, kDownReal);
}
