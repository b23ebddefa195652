/* A C99 program that uses the installed library: the header compiles as C and the
 * library links and answers. */
#include <stdio.h>
#include <string.h>

#include "zamac.h"

int main(void)
{
    const ZamLibVersion* v = zamacGetLibVersion();
    const int16_t left[3] = {1, 2, 3}, right[3] = {4, 5, 6};
    const int16_t* channels[2] = {left, right};
    int16_t mixed[6];
    if (zamsInterleave_16s(channels, 2, 3, mixed) < 0 || mixed[1] != 4) return 1;
    printf("%s\n", v->versionText);
    return strcmp(v->versionText, "7.1.0 (r36264)") != 0;
}
