#define _GNU_SOURCE
#include "zamcore.h"

#include <cpuid.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define ZAMCORE_EXPORT __attribute__((visibility("default")))

ZAMCORE_EXPORT void* zamMalloc(int64_t size)
{
    if (size < 1) return NULL;
    /* aligned_alloc wants a multiple of the alignment. */
    uint64_t rounded = ((uint64_t)size + 63u) & ~(uint64_t)63u;
    if (rounded < (uint64_t)size) return NULL;
    return aligned_alloc(64, (size_t)rounded);
}

ZAMCORE_EXPORT void zamFree(void* ptr)
{
    free(ptr);
}

static uint64_t xgetbv0(void)
{
    uint32_t lo, hi;
    __asm__ volatile("xgetbv" : "=a"(lo), "=d"(hi) : "c"(0));
    return ((uint64_t)hi << 32) | lo;
}

static uint64_t detect_features(void)
{
    unsigned a, b, c, d;
    uint64_t f = 0;
    if (!__get_cpuid(1, &a, &b, &c, &d)) return 0;
    if (d & (1u << 23)) f |= ZAM_CPU_MMX;
    if (d & (1u << 25)) f |= ZAM_CPU_SSE;
    if (d & (1u << 26)) f |= ZAM_CPU_SSE2;
    if (c & (1u << 0)) f |= ZAM_CPU_SSE3;
    if (c & (1u << 9)) f |= ZAM_CPU_SSSE3;
    if (c & (1u << 19)) f |= ZAM_CPU_SSE41;
    if (c & (1u << 20)) f |= ZAM_CPU_SSE42;
    if (c & (1u << 22)) f |= ZAM_CPU_MOVBE;
    if (c & (1u << 23)) f |= ZAM_CPU_POPCNT;
    if (c & (1u << 25)) f |= ZAM_CPU_AES;
    if (c & (1u << 1)) f |= ZAM_CPU_PCLMUL;

    int osxsave = (c >> 27) & 1;
    uint64_t xcr0 = osxsave ? xgetbv0() : 0;
    int ymm_ok = (xcr0 & 0x6) == 0x6;
    int zmm_ok = ymm_ok && (xcr0 & 0xE0) == 0xE0;
    if (ymm_ok && (c & (1u << 28))) f |= ZAM_CPU_AVX;
    if (ymm_ok && (c & (1u << 29))) f |= ZAM_CPU_F16C;
    if (ymm_ok && (c & (1u << 12))) f |= ZAM_CPU_FMA;

    unsigned max_leaf = __get_cpuid_max(0, NULL);
    if (max_leaf >= 7) {
        __cpuid_count(7, 0, a, b, c, d);
        if (b & (1u << 3)) f |= ZAM_CPU_BMI1;
        if (b & (1u << 8)) f |= ZAM_CPU_BMI2;
        if (ymm_ok && (b & (1u << 5))) f |= ZAM_CPU_AVX2;
        if (zmm_ok && (b & (1u << 16))) f |= ZAM_CPU_AVX512F;
        if (zmm_ok && (b & (1u << 17))) f |= ZAM_CPU_AVX512DQ;
        if (zmm_ok && (b & (1u << 28))) f |= ZAM_CPU_AVX512CD;
        if (zmm_ok && (b & (1u << 30))) f |= ZAM_CPU_AVX512BW;
        if (zmm_ok && (b & (1u << 31))) f |= ZAM_CPU_AVX512VL;
    }
    if (__get_cpuid(0x80000001u, &a, &b, &c, &d)) {
        if (c & (1u << 5)) f |= ZAM_CPU_LZCNT;
    }
    return f;
}

ZAMCORE_EXPORT uint64_t zamGetEnabledCpuFeatures(void)
{
    /* Detection is idempotent, so a race between two first calls is harmless. */
    static volatile uint64_t cached;
    static volatile int known;
    if (!known) {
        cached = detect_features();
        known = 1;
    }
    return cached;
}

/* Walks a deterministic cache-parameters leaf (4 on Intel, 0x8000001D on AMD). */
static long largest_from_leaf(unsigned leaf)
{
    long best = 0;
    for (unsigned sub = 0; sub < 32; ++sub) {
        unsigned a, b, c, d;
        __cpuid_count(leaf, sub, a, b, c, d);
        unsigned type = a & 0x1F; /* 0 none, 1 data, 2 instruction, 3 unified */
        if (type == 0) break;
        if (type == 2) continue;
        long ways = ((b >> 22) & 0x3FF) + 1;
        long parts = ((b >> 12) & 0x3FF) + 1;
        long line = (b & 0xFFF) + 1;
        long sets = (long)c + 1;
        long size = ways * parts * line * sets;
        if (size > best) best = size;
    }
    return best;
}

static long largest_from_sysfs(void)
{
    long best = 0;
    char path[128];
    for (int idx = 0; idx < 16; ++idx) {
        snprintf(path, sizeof path, "/sys/devices/system/cpu/cpu0/cache/index%d/type", idx);
        FILE* ft = fopen(path, "r");
        if (!ft) break;
        char type[32] = {0};
        int ok = fscanf(ft, "%31s", type) == 1;
        fclose(ft);
        if (!ok || strcmp(type, "Instruction") == 0) continue;
        snprintf(path, sizeof path, "/sys/devices/system/cpu/cpu0/cache/index%d/size", idx);
        FILE* fs = fopen(path, "r");
        if (!fs) continue;
        long value = 0;
        char unit = 0;
        if (fscanf(fs, "%ld%c", &value, &unit) >= 1) {
            if (unit == 'K') value *= 1024;
            else if (unit == 'M') value *= 1024 * 1024;
            if (value > best) best = value;
        }
        fclose(fs);
    }
    return best;
}

ZAMCORE_EXPORT int zamGetMaxCacheSizeB(int* pSizeBytes)
{
    if (!pSizeBytes) return ZAMCORE_STS_NULL_PTR;
    long best = 0;
    unsigned a, b, c, d;
    unsigned max_leaf = __get_cpuid_max(0, NULL);
    unsigned max_ext = __get_cpuid_max(0x80000000u, NULL);
    if (max_leaf >= 4) best = largest_from_leaf(4);
    if (best == 0 && max_ext >= 0x8000001Du) {
        __cpuid(0x80000001u, a, b, c, d);
        if (c & (1u << 22)) best = largest_from_leaf(0x8000001Du); /* topology extensions */
    }
    if (best == 0) best = largest_from_sysfs();
    if (best > 0x7FFFFFFFL) best = 0x7FFFFFFFL;
    *pSizeBytes = (int)best;
    return best > 0 ? ZAMCORE_STS_OK : ZAMCORE_STS_NOT_SUPPORTED;
}
