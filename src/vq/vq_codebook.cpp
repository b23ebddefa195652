#include "vq/vq_codebook.h"

#include <climits>
#include <cstring>

#include "core/export.h"
#include "core/memory.h"

namespace zam::vq {

Layout layoutAt(uintptr_t base, int length, int height)
{
    Layout l{};
    l.rowTable = static_cast<int64_t>(((base + kRecordBytes + kRowAlign - 1) & ~uintptr_t{kRowAlign - 1}) - base);
    l.firstRow = l.rowTable + roundUp(int64_t{height} * 8, kRowAlign);
    l.rowStride = roundUp(int64_t{length} * 4, kRowAlign);
    l.scratch = l.firstRow + l.rowStride * height;
    l.scratchStride = roundUp(int64_t{height} * 4, kRowAlign);
    l.end = l.scratch + 4 * l.scratchStride;
    return l;
}

}  // namespace zam::vq

using namespace zam;
using namespace zam::vq;

ZAM_API ZamStatus zamsVQCodeBookGetSize_32f(int length, int height, int* pSize)
{
    if (!pSize) return zamStsNullPtr;
    if (length < 1 || height < 1) return zamStsSize;
    const int64_t size = codeBookSize(length, height);
    if (size > INT_MAX) return zamStsSize;
    *pSize = static_cast<int>(size);
    return zamStsOk;
}

ZAM_API ZamStatus zamsVQCodeBookInit_32f(const float* pInput, VqCodeBook** ppCodeBook, int length, int height,
                                         uint8_t* pMem)
{
    if (!pInput || !ppCodeBook || !pMem) return zamStsNullPtr;
    if (length < 1 || height < 1) return zamStsSize;

    const Layout l = layoutAt(reinterpret_cast<uintptr_t>(pMem), length, height);
    auto* cb = reinterpret_cast<CodeBookRecord*>(pMem);
    std::memset(cb, 0, kRecordBytes);
    cb->height = height;
    cb->length = length;
    cb->valid = 1;
    cb->ownsMemory = kCallerMemory;
    cb->rows = reinterpret_cast<float**>(pMem + l.rowTable);
    cb->rowStrideFloats = static_cast<int32_t>(l.rowStride / 4);

    const size_t rowBytes = static_cast<size_t>(length) * 4;
    for (int k = 0; k < height; ++k) {
        uint8_t* row = pMem + l.firstRow + l.rowStride * k;
        std::memcpy(row, pInput + static_cast<int64_t>(k) * length, rowBytes);
        std::memset(row + rowBytes, 0, static_cast<size_t>(l.rowStride) - rowBytes);
        cb->rows[k] = reinterpret_cast<float*>(row);
    }
    uint8_t* scratch = pMem + l.scratch;
    cb->distances = reinterpret_cast<float*>(scratch);
    cb->signs = reinterpret_cast<int32_t*>(scratch + l.scratchStride);
    cb->sortedDistances = reinterpret_cast<float*>(scratch + 2 * l.scratchStride);
    cb->sortedIndices = reinterpret_cast<int32_t*>(scratch + 3 * l.scratchStride);
    std::memset(scratch, 0, static_cast<size_t>(4 * l.scratchStride));

    *ppCodeBook = reinterpret_cast<VqCodeBook*>(pMem);
    return zamStsOk;
}

ZAM_API ZamStatus zamsVQCodeBookInitAlloc_32f(const float* pInput, VqCodeBook** ppCodeBook, int length, int height)
{
    if (!pInput || !ppCodeBook) return zamStsNullPtr;
    int size = 0;
    if (ZamStatus st = zamsVQCodeBookGetSize_32f(length, height, &size); st != zamStsOk) return st;
    auto* mem = static_cast<uint8_t*>(allocBytes(size));
    if (!mem) return zamStsMemAlloc;
    VqCodeBook* cb = nullptr;
    if (ZamStatus st = zamsVQCodeBookInit_32f(pInput, &cb, length, height, mem); st != zamStsOk) {
        release(mem);
        return st;
    }
    record(cb)->ownsMemory = kOwnedByLibrary;
    *ppCodeBook = cb;
    return zamStsOk;
}

ZAM_API ZamStatus zamsVQCodeBookFree_32f(VqCodeBook* pCodeBook)
{
    if (!pCodeBook) return zamStsNullPtr;
    CodeBookRecord* cb = record(pCodeBook);
    cb->valid = 0;
    if (cb->ownsMemory != 0) release(pCodeBook);
    return zamStsOk;
}
