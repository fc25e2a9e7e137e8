// Every text that the module shows: error codes, messages and labels with their catalogue numbers
// and default words, and the one way to issue a message and to fetch a label.
//
// errno carries the reason from the call that failed to the message that shows it, so both ways
// leave errno as they found it. A file that ends too early sets no errno: the reason in its message
// is then that of an earlier call.
#pragma once

#include "host/vyn.h"

#include <errno.h>
#include <string.h>

// Codes left in vyn__err, also by an open that reports something and then succeeds.
enum : int {
    PIX_OK = 0,

    // The scanline number is out of range or, in writing, not the next one. Also a null state,
    // without a message.
    PIX_BAD_SCANLINE = -2,

    // A file cannot be opened or made, its name is too long, or its bits a pixel cannot be read;
    // or a companion's header is cut short or not valid, or its two fields do not match. With an
    // open that succeeds: a companion cannot be made, or does not fit the image, and is left out.
    PIX_CANNOT_OPEN = -5,

    // A row's packets pass the end of the row. PIX_READ_FAILED follows in the same call, so that
    // only the services that the module calls in between find this code.
    PIX_UNDECODABLE = -7,

    // The header of the main file is cut short, has a size or bits a pixel that are not supported,
    // or is an SGI image's; or the two fields do not match.
    PIX_BAD_HEADER = -8,

    // Memory is exhausted. Without a message when it was ERR_malloc that failed.
    PIX_NO_MEMORY = -10,

    // The format cannot store the image described. With an open that succeeds: a capability
    // request has an unknown code, or the code of the other kind of open.
    PIX_UNSUPPORTED = -16,

    // A row cannot be read: the file ends too early, a read or a seek failed, the row cannot be
    // decoded, or the image was opened without row buffers.
    PIX_READ_FAILED = -18,

    // A header or a row cannot be written, or a file cannot be closed.
    PIX_WRITE_FAILED = -20,
};

constexpr int PIX_MESSAGE_SET = 902;

// Issues a message: PIX_REPORT(PIX_MSG_..., arguments).
#define PIX_REPORT(...)                                                                            \
    do {                                                                                           \
        const int pix_reason = errno;                                                              \
        ERR_report_cat(vyn__msg_cat, PIX_MESSAGE_SET, __VA_ARGS__);                                \
        errno = pix_reason;                                                                        \
    } while (0)

// The same for a failure: leaves its code in vyn__err.
#define PIX_FAIL(code, ...)                                                                        \
    do {                                                                                           \
        PIX_REPORT(__VA_ARGS__);                                                                   \
        vyn__err = (code);                                                                         \
    } while (0)

// Messages: number, severity (2 warning, 3 error), default text. They are macros, so that the
// compiler checks the arguments against the text where a message is issued.
// clang-format off
#define PIX_MSG_CORRUPT_COMPANION  25, 3, "Cannot open %s file `%s'; %s (header is corrupt)"
#define PIX_MSG_NO_MATTE_FILE      42, 2, "Cannot open mask file %s; %s (vorla images need a special directory for mask files)"
#define PIX_MSG_MATTE_SIZE         43, 3, "Vorla mask file's size must be the same size as the size of the image"
#define PIX_MSG_CANNOT_OPEN        52, 3, "Cannot open file %s; %s"
#define PIX_MSG_BAD_SCANLINE       53, 3, "Bad scanline: %d (out of range, or not in sequence if a sequential file)"
#define PIX_MSG_CANNOT_READ        55, 3, "Cannot read scanline %d; %s"
#define PIX_MSG_CANNOT_WRITE_FILE  56, 3, "Cannot write to %s; %s"
#define PIX_MSG_CANNOT_WRITE       57, 3, "Cannot write scanline %d; %s"
#define PIX_MSG_CORRUPT_UNNAMED    58, 3, "Cannot open %s file; %s (header is corrupt)"
#define PIX_MSG_CANNOT_DECODE      59, 3, "Cannot decode scanline %d"
#define PIX_MSG_INVALID_HEADER     60, 3, "Cannot read file %s; Invalid header"
#define PIX_MSG_MULTIPLE_IMAGES    61, 3, "%s cannot store multiple images"
#define PIX_MSG_MULTIPLE_AUX       69, 3, "%s cannot handle multiple auxiliary channels"
#define PIX_MSG_AUX_WIDTH          71, 3, "%s cannot handle auxiliary channel width"
#define PIX_MSG_CHANNEL_TYPE       72, 3, "%s cannot handle image channel type"
#define PIX_MSG_CHANNEL_WIDTH      73, 3, "%s cannot handle image channel width"
#define PIX_MSG_CHANNEL_FORMAT     75, 3, "%s cannot handle image channel format, \"%s\""
#define PIX_MSG_MULTIPLE_MATTES    78, 3, "%s cannot handle multiple matte channels"
#define PIX_MSG_MATTE_TYPE         79, 3, "%s cannot handle matte channel type"
#define PIX_MSG_MATTE_WIDTH        80, 3, "%s cannot handle matte channel width"
#define PIX_MSG_UNKNOWN_CAPABILITY 92, 2, "Unknown type-specific capability code (%d) specified when trying to open image file"
#define PIX_MSG_NO_MEMORY          94, 3, "No more internal memory"
#define PIX_MSG_DEPTH_SIZE        257, 3, "Vorla depth file's size must be the same size as the size of the image"
#define PIX_MSG_NO_DEPTH_FILE     258, 2, "Cannot open depth file %s; %s (vorla images need a special directory for depth files)"
#define PIX_MSG_FIELDS_DIFFER     259, 3, "The odd and even fields Vorla image file `%s' don't match"
// clang-format on

constexpr int32_t PIX_LABEL_SET = 901;

struct PixLabel {
    int32_t number;
    const char *text; // default, in English
};

constexpr PixLabel PIX_LABEL_COMPRESSION = {4, "run length encoded"};
constexpr PixLabel PIX_LABEL_DESCRIPTION[7] = {{32, "unknown"},  {145, "unknown"}, {141, "unknown"},
                                               {149, "unknown"}, {129, "unknown"}, {147, "unknown"},
                                               {137, "unknown"}};
constexpr PixLabel PIX_LABEL_EXTENSION = {100, ".pix"};
constexpr PixLabel PIX_LABEL_FORMAT = {133, "unknown"};
constexpr PixLabel PIX_LABEL_NAME_SYNTAX = {210, "Name.#"};
constexpr PixLabel PIX_LABEL_NAME = {254, "Vorla"};
constexpr PixLabel PIX_LABEL_DEPTH = {343, "depth"};
constexpr PixLabel PIX_LABEL_MATTE = {344, "mask"};

// Returns the label in the words of the host's catalogue, or the default text without one. The
// string is the catalogue's: copy it to keep it.
[[nodiscard]] inline const char *pix_label(PixLabel label)
{
    const int reason = errno;
    const char *text =
        vyn__msg_cat ? catgets(vyn__msg_cat, PIX_LABEL_SET, label.number, label.text) : label.text;
    errno = reason;
    return text;
}
