/* zamac-info: prints the library's version record, the processor features zamcore
 * sees and the size of the largest data cache.
 *
 *   zamac-info [--help] [--version]
 */
#include <getopt.h>
#include <stdio.h>

#include "zamac.h"
#include "tool_cli.h"
#include "zamcore.h"

static const struct { unsigned long long bit; const char* name; } kFeatures[] = {
    {ZAM_CPU_MMX, "MMX"},         {ZAM_CPU_SSE, "SSE"},           {ZAM_CPU_SSE2, "SSE2"},
    {ZAM_CPU_SSE3, "SSE3"},       {ZAM_CPU_SSSE3, "SSSE3"},       {ZAM_CPU_SSE41, "SSE4.1"},
    {ZAM_CPU_SSE42, "SSE4.2"},    {ZAM_CPU_POPCNT, "POPCNT"},     {ZAM_CPU_AVX, "AVX"},
    {ZAM_CPU_F16C, "F16C"},       {ZAM_CPU_FMA, "FMA"},           {ZAM_CPU_AVX2, "AVX2"},
    {ZAM_CPU_BMI1, "BMI1"},       {ZAM_CPU_BMI2, "BMI2"},         {ZAM_CPU_LZCNT, "LZCNT"},
    {ZAM_CPU_MOVBE, "MOVBE"},     {ZAM_CPU_AES, "AES"},           {ZAM_CPU_PCLMUL, "PCLMUL"},
    {ZAM_CPU_AVX512F, "AVX-512F"}, {ZAM_CPU_AVX512DQ, "AVX-512DQ"}, {ZAM_CPU_AVX512BW, "AVX-512BW"},
    {ZAM_CPU_AVX512VL, "AVX-512VL"}, {ZAM_CPU_AVX512CD, "AVX-512CD"},
};

static void usage(FILE* out)
{
    fprintf(out, "Usage: zamac-info [OPTION]\n"
                 "Show the zamac library's version, the processor features it sees and the\n"
                 "size of the largest data cache.\n"
                 "\n"
                 "  -h, --help     show this help and exit\n"
                 "  -V, --version  show the version and exit\n");
}

int main(int argc, char** argv)
{
    tool_set_name("zamac-info");
    static const struct option kOptions[] = {
        {"help", no_argument, NULL, 'h'}, {"version", no_argument, NULL, 'V'}, {NULL, 0, NULL, 0}};
    int c;
    opterr = 0;
    while ((c = getopt_long(argc, argv, "hV", kOptions, NULL)) != -1) {
        if (c == 'h') {
            usage(stdout);
            return TOOL_EXIT_OK;
        }
        if (c == 'V') {
            tool_print_version(stdout);
            return TOOL_EXIT_OK;
        }
        if (optopt) tool_error("unknown option '-%c'", optopt);
        else tool_error("unknown option '%s'", argv[optind - 1]);
        fprintf(stderr, "Try 'zamac-info --help' for more information.\n");
        return TOOL_EXIT_USAGE;
    }
    if (optind < argc) {
        tool_error("unexpected argument '%s'", argv[optind]);
        return TOOL_EXIT_USAGE;
    }
    /* No processor check first: telling what the processor has is this tool's job.
     * The library itself (built for AVX2) is called only when the processor has it. */
    unsigned long long features = zamGetEnabledCpuFeatures();
    printf("cpu features");
    for (size_t i = 0; i < sizeof kFeatures / sizeof kFeatures[0]; ++i)
        if (features & kFeatures[i].bit) printf(" %s", kFeatures[i].name);
    printf("\n");
    if (!(features & ZAM_CPU_AVX2) || !(features & ZAM_CPU_FMA)) {
        printf("warning      this processor lacks AVX2 or FMA, which zamac requires\n");
        return TOOL_EXIT_FAILURE;
    }
    const ZamLibVersion* v = zamacGetLibVersion();
    printf("library      %s\n", v->libraryName);
    printf("version      %s (%d.%d.%d build %d, cpu code %.4s)\n", v->versionText, v->majorVersion,
           v->minorVersion, v->updateNumber, v->buildNumber, v->cpuCode);
    printf("build date   %s\n", v->buildDate);

    int cache = 0;
    if (zamGetMaxCacheSizeB(&cache) == ZAMCORE_STS_OK)
        printf("largest data cache %d bytes (%d KiB)\n", cache, cache / 1024);
    else
        printf("largest data cache unknown\n");
    return 0;
}
