// What the host reads of the module without calling it, under the exact names that it looks up, and
// the names that imageInit makes.
#include "module/descriptor.h"

#include "host/messages.h"

// Masks of sample widths: bit (w - 1) stands for samples of w bits.
constexpr int32_t PIX_BITS_8 = 1 << 7;
constexpr int32_t PIX_BITS_31 = 1 << 30;

const int32_t imageAccess = 0x4C;
const int32_t imageNumberOfChannels = 3;
const int32_t imageBitsPerChannel = PIX_BITS_8;
const int32_t imageNumberOfMattes = 1;
const int32_t imageBitsPerMatte = PIX_BITS_8;
const int32_t imageNumberOfZChannels = 1;
const int32_t imageBitsPerZChannel = PIX_BITS_31;
const int32_t imageOrientation = 2;
const int32_t imageUsage = 1;
const int32_t imageMultiFrame = 0;
const int32_t imageSupportsActiveWindow = 0;
const int32_t imageAddExtension = 0;

const char *const imageFormatString = "%s.%d%s"; // name, number, extension
const char *const imageKey = "vrl";
const char *const type = "image";
const char *const version = "3.2";
const char *const program = "Kelvane";

const char *imageName = nullptr;
const char *imageExtension = nullptr;
const char *imageNameSyntax = nullptr;

int32_t imageInit()
{
    imageName = STR_define(pix_label(PIX_LABEL_NAME));
    if (!imageName) {
        return 0;
    }
    imageExtension = STR_define(pix_label(PIX_LABEL_EXTENSION));
    if (!imageExtension) {
        return 0;
    }
    imageNameSyntax = STR_save(pix_label(PIX_LABEL_NAME_SYNTAX));
    return imageNameSyntax != nullptr;
}
