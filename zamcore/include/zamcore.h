/*
 * zamcore: the companion library of zamac.
 *
 * Memory, CPU-feature and cache-size queries shared by the zamac family. zamac
 * allocates every byte it uses through zamMalloc and returns it through zamFree;
 * nothing else in the family calls the C allocator directly.
 */
#ifndef ZAMCORE_H
#define ZAMCORE_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Status values of zamGetMaxCacheSizeB. They match zamac's ZamStatus values of
 * the same meaning. */
#define ZAMCORE_STS_OK 0
#define ZAMCORE_STS_NULL_PTR (-8)
/* The processor reports no data cache and the system exposes none either. */
#define ZAMCORE_STS_NOT_SUPPORTED (-3)

/* Bits of zamGetEnabledCpuFeatures(). A bit is set when the processor has the
 * feature and, for the vector extensions, the operating system saves the
 * corresponding register state (XGETBV). */
#define ZAM_CPU_MMX       (1ull << 0)
#define ZAM_CPU_SSE       (1ull << 1)
#define ZAM_CPU_SSE2      (1ull << 2)
#define ZAM_CPU_SSE3      (1ull << 3)
#define ZAM_CPU_SSSE3     (1ull << 4)
#define ZAM_CPU_SSE41     (1ull << 5)
#define ZAM_CPU_SSE42     (1ull << 6)
#define ZAM_CPU_POPCNT    (1ull << 7)
#define ZAM_CPU_AVX       (1ull << 8)
#define ZAM_CPU_F16C      (1ull << 9)
#define ZAM_CPU_FMA       (1ull << 10)
#define ZAM_CPU_AVX2      (1ull << 11)
#define ZAM_CPU_BMI1      (1ull << 12)
#define ZAM_CPU_BMI2      (1ull << 13)
#define ZAM_CPU_LZCNT     (1ull << 14)
#define ZAM_CPU_MOVBE     (1ull << 15)
#define ZAM_CPU_AES       (1ull << 16)
#define ZAM_CPU_PCLMUL    (1ull << 17)
#define ZAM_CPU_AVX512F   (1ull << 18)
#define ZAM_CPU_AVX512DQ  (1ull << 19)
#define ZAM_CPU_AVX512BW  (1ull << 20)
#define ZAM_CPU_AVX512VL  (1ull << 21)
#define ZAM_CPU_AVX512CD  (1ull << 22)

/* Allocates `size` bytes aligned to 64 bytes. Returns null when `size` is below 1
 * or the memory is not available. The block is uninitialised. */
void* zamMalloc(int64_t size);

/* Releases a block from zamMalloc. A null pointer is ignored. */
void zamFree(void* ptr);

/* The ZAM_CPU_* features of the processor running the caller, as a bit mask.
 * The answer is computed on the first call and is the same afterwards. */
uint64_t zamGetEnabledCpuFeatures(void);

/* Writes to *pSizeBytes the size in bytes of the largest data (or unified) cache
 * of the processor, from CPUID leaf 4 (Intel) or 0x8000001D (AMD), falling back
 * to /sys/devices/system/cpu/cpu0/cache. Returns ZAMCORE_STS_OK; ZAMCORE_STS_NULL_PTR
 * for a null pointer (nothing written); ZAMCORE_STS_NOT_SUPPORTED when no cache
 * could be found (0 is written). */
int zamGetMaxCacheSizeB(int* pSizeBytes);

#ifdef __cplusplus
}
#endif

#endif /* ZAMCORE_H */
