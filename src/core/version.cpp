#include "core/export.h"

namespace {

constexpr ZamLibVersion kVersion = {
    7,      // majorVersion
    1,      // minorVersion
    0,      // updateNumber
    36264,  // buildNumber
    {'k', '4', '\0', '\0'},
    "zamAC AVX2 (k4)",
    "7.1.0 (r36264)",
    "Jul 23 2012",
};

}  // namespace

ZAM_API const ZamLibVersion* zamacGetLibVersion(void) { return &kVersion; }
