// Another format module's face, to be loaded globally before the real one: every definition that
// the module failed to bind to itself would end up here.
#include <stdint.h>

#pragma GCC visibility push(default)
extern "C" {
const char *imageName = "decoy";
const char *imageExtension = "decoy";
const char *imageNameSyntax = "decoy";
int32_t imageUsage = 77;
int32_t imageOrientation = 77;
const char *type = "decoy";

int32_t imageInit()
{
    return 0;
}
}
