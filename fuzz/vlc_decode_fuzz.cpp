// Random code tables and level widths into the decode-spec builder, then random
// streams into every VLC decoder. The decode spec lives in a buffer of exactly the
// GetSize bytes, and the stream has the documented slack: the aligned word before
// the cursor and enough bytes after it for the longest codes the call may read.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "zamac.h"


namespace {

constexpr int kMaxValues = 64;
// The most one code can take: a 32-bit code, then two 32-bit MP3 escapes.
constexpr size_t kMaxBytesPerCode = 12;

std::vector<VlcEntry> randomTable(FuzzedDataProvider& in)
{
    std::vector<VlcEntry> table(in.ConsumeIntegralInRange<int>(0, 48));
    const bool shortCodes = in.ConsumeBool();
    for (auto& e : table) {
        e.value = in.ConsumeBool() ? in.ConsumeIntegral<int32_t>() : in.ConsumeIntegralInRange<int32_t>(-300, 300);
        e.length = shortCodes ? in.ConsumeIntegralInRange<int32_t>(1, 12) : in.ConsumeIntegralInRange<int32_t>(-1, 33);
        e.code = in.ConsumeIntegral<int32_t>();
    }
    return table;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzedDataProvider in(data, size);
    const std::vector<VlcEntry> table = randomTable(in);
    std::vector<int> widths(in.ConsumeIntegralInRange<int>(0, 6));
    for (auto& w : widths) w = in.ConsumeIntegralInRange<int>(-1, 14);
    const bool tuple = in.ConsumeBool();
    const int elements = in.ConsumeIntegralInRange<int>(0, 4);
    const int valueBits = in.ConsumeIntegralInRange<int>(0, 9);
    const int linbits = in.ConsumeIntegralInRange<int>(-1, 32);
    const int dstLen = in.ConsumeIntegralInRange<int>(-2, kMaxValues);
    const int startByte = in.ConsumeIntegralInRange<int>(0, 3);
    const int startOffset = in.ConsumeIntegralInRange<int>(0, 7);

    int specSize = 0;
    const int n = static_cast<int>(table.size());
    ZamStatus st = tuple ? zamsVLCDecodeUTupleGetSize_32s(table.data(), n, widths.data(), static_cast<int>(widths.size()),
                                                          elements, valueBits, &specSize)
                         : zamsVLCDecodeGetSize_32s(table.data(), n, widths.data(), static_cast<int>(widths.size()),
                                                    &specSize);
    if (st != zamStsOk || specSize > (1 << 22)) return 0;
    std::vector<uint8_t> specMemory(static_cast<size_t>(specSize));
    auto* spec = reinterpret_cast<VlcDecodeSpec*>(specMemory.data());
    st = tuple ? zamsVLCDecodeUTupleInit_32s(table.data(), n, widths.data(), static_cast<int>(widths.size()), elements,
                                             valueBits, spec)
               : zamsVLCDecodeInit_32s(table.data(), n, widths.data(), static_cast<int>(widths.size()), spec);
    if (st != zamStsOk) return 0;

    const std::vector<uint8_t> payload = in.ConsumeRemainingBytes<uint8_t>();
    const size_t slackAfter = kMaxBytesPerCode * kMaxValues + 8;
    std::vector<uint8_t> buffer(4 + payload.size() + slackAfter + 64, 0);
    // A 4-byte-aligned start so that the aligned word before the cursor is inside.
    uint8_t* const base = buffer.data() + ((4 - reinterpret_cast<uintptr_t>(buffer.data()) % 4) % 4);
    if (!payload.empty()) std::memcpy(base + startByte, payload.data(), payload.size());

    std::vector<int16_t> out(kMaxValues + 4);
    for (int op = 0; op < 8; ++op) {
        uint8_t* p = base + startByte;
        int offset = startOffset;
        switch (op) {
        case 0: zamsVLCDecodeOne_1u16s(&p, &offset, out.data(), spec); break;
        case 1: zamsVLCDecodeBlock_1u16s(&p, &offset, out.data(), dstLen, spec); break;
        case 2: zamsVLCDecodeEscBlock_AAC_1u16s(&p, &offset, out.data(), dstLen, spec); break;
        case 3: zamsVLCDecodeEscBlock_MP3_1u16s(&p, &offset, linbits, out.data(), dstLen, spec); break;
        case 4: zamsVLCDecodeUTupleOne_1u16s(&p, &offset, out.data(), spec); break;
        case 5: zamsVLCDecodeUTupleBlock_1u16s(&p, &offset, out.data(), dstLen, spec); break;
        case 6: zamsVLCDecodeUTupleEscBlock_AAC_1u16s(&p, &offset, out.data(), dstLen, spec); break;
        default: zamsVLCDecodeUTupleEscBlock_MP3_1u16s(&p, &offset, linbits, out.data(), dstLen, spec); break;
        }
        if (offset < 0 || offset > 7 || p < base || p > base + 4 + payload.size() + slackAfter) __builtin_trap();
    }
    zamsVLCDecodeFree_32s(spec);
    return 0;
}
