// The descriptor: the data symbols that the host reads when it has loaded the module, under the
// exact names that it looks up. Every format module exports the same names, so the module is linked
// to bind its own.
#include "module/descriptor.h"

#include "host/messages.h"

#pragma GCC visibility push(default)
extern "C" {

// In the masks of sample widths bit (w - 1) stands for samples of w bits.
extern const int32_t imageAccess = 0x4C; // the host's access flags
extern const int32_t imageNumberOfChannels = 3;
extern const int32_t imageBitsPerChannel = 1 << 7;
extern const int32_t imageNumberOfMattes = 1;
extern const int32_t imageBitsPerMatte = 1 << 7;
extern const int32_t imageNumberOfZChannels = 1;
extern const int32_t imageBitsPerZChannel = 1 << 30;
extern const int32_t imageOrientation = PIX_ORIENTATION;
extern const int32_t imageUsage = PIX_USAGE;
extern const int32_t imageMultiFrame = 0;
extern const int32_t imageSupportsActiveWindow = 0;
extern const int32_t imageAddExtension = 0;

extern const char *const imageFormatString = "%s.%d%s"; // name, number, extension
extern const char *const imageKey = "vrl";
extern const char *const type = "image";
extern const char *const version = PIX_VERSION;
extern const char *const program = "Kelvane";

// Null until imageInit.
const char *imageName;
const char *imageExtension;
const char *imageNameSyntax;
}
#pragma GCC visibility pop

int32_t imageInit()
{
    imageName = STR_define(pix_label(PIX_LABEL_NAME));
    imageExtension = imageName ? STR_define(pix_label(PIX_LABEL_EXTENSION)) : nullptr;
    imageNameSyntax = imageExtension ? STR_save(pix_label(PIX_LABEL_NAME_SYNTAX)) : nullptr;
    return imageNameSyntax != nullptr;
}
