#include <cstdint>

#include "zamcore.h"

namespace {

// The processor's features are queried once when the library loads. This build has
// a single AVX2 implementation per export, so no operation depends on the answer;
// it is kept for a loader that would choose among several.
uint64_t gCpuFeaturesAtLoad;

__attribute__((constructor)) void queryCpuFeaturesAtLoad() { gCpuFeaturesAtLoad = zamGetEnabledCpuFeatures(); }

}  // namespace
