// Linkage of the public entry points.
#pragma once

#include "zamac.h"

// Every public function is defined with ZAM_API: C linkage, default visibility.
// The linker version script keeps everything else local.
#define ZAM_API extern "C" __attribute__((visibility("default")))

// Second public name for an existing public function: both names have one address.
//   ZAM_ALIAS(ZamStatus, zamsSynthesisFilterGetSize_PQMF_MP3_32f,
//             zamsAnalysisFilterGetSize_PQMF_MP3_32f, (int* pSize));
#define ZAM_ALIAS(ret, alias_name, target_name, params) \
    ZAM_API ret alias_name params __attribute__((alias(#target_name)))
