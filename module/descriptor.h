// The descriptor: the data symbols that the host reads when it has loaded the module. Every format
// module exports the same names, so the module is linked to bind its own.
#pragma once

#include <stdint.h>

#pragma GCC visibility push(default)
extern "C" {

extern const int32_t imageAccess; // the host's access flags
extern const int32_t imageNumberOfChannels;
extern const int32_t imageBitsPerChannel; // mask of sample widths
extern const int32_t imageNumberOfMattes;
extern const int32_t imageBitsPerMatte; // mask of sample widths
extern const int32_t imageNumberOfZChannels;
extern const int32_t imageBitsPerZChannel; // mask of sample widths
extern const int32_t imageOrientation;     // also ImageInfo::orientation
extern const int32_t imageUsage;           // also ImageInfo::usage
extern const int32_t imageMultiFrame;
extern const int32_t imageSupportsActiveWindow;
extern const int32_t imageAddExtension;

extern const char *const imageFormatString; // printf format of a numbered file name
extern const char *const imageKey;
extern const char *const type;
extern const char *const version;
extern const char *const program;

// Null until imageInit.
extern const char *imageName;
extern const char *imageExtension;
extern const char *imageNameSyntax;
}
#pragma GCC visibility pop
