// What the host framework gives the module and asks of it, for hosts in C11 and C++20: the records
// of an image, the procedures that an open installs, what the module exports, and the services. The
// host owns every layout here; the assertions hold each field at the offset where the host looks
// for it. Bytes called `host_*` belong to the host alone.
//
// Order: imageInit once, after loading; then imageCapability and imageIsFile at any time, and for
// each image a new handle, one open, its scanlines and one close. Several images may be open.
// Threads: any thread may call. Only one call may run at a time, whatever its image, except that
// imageIsFile may run at the same time as any other call.
// Failures: a code in vyn__err, which host/messages.h (for C++ only) explains, and a message.
#pragma once

#include <assert.h>
#include <nl_types.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

// For assertions: the field stands at the offset. When one does not, g++ says which.
#define PIX_AT(record, field, offset) (offsetof(record, field) == (offset))

#ifdef __cplusplus
extern "C" {
#endif

// --- The description of an image ------------------------------------------------------------

// Bounds of a picture in pixels, all four inclusive.
typedef struct ImageWindow {
    int32_t x_min, x_max, y_min, y_max;
} ImageWindow;
static_assert(sizeof(ImageWindow) == 16 && PIX_AT(ImageWindow, x_min, 0) &&
                  PIX_AT(ImageWindow, x_max, 4) && PIX_AT(ImageWindow, y_min, 8) &&
                  PIX_AT(ImageWindow, y_max, 12),
              "the host's layout");

// Reading: the open makes the record with ERR_malloc, has vyn__init_ifd fill it, and sets every
// field that is not called `host_*`, except the types and widths: of these only aux_width, when
// there is depth. The module does not use the record after the open, and releases neither the
// record nor its strings, which are copies by STR_save.
//
// Writing: the host makes the record and fills data_window and the fields from channel_format on.
// The open may set matte_count and aux_count to 0. The record need not outlive the open.
typedef struct ImageInfo {
    uint8_t host_0[8];
    int32_t usage; // reading: that of the descriptor, imageUsage
    float gamma;   // reading: that of FMT_def_input_gamma
    uint8_t host_16[32];
    char *format_label; // name of the standard format of this size, or "unknown"
    int32_t width;      // pixels
    int32_t height;     // rows
    float aspect;       // of the picture: width to height as shown
    uint8_t host_68[4];
    ImageWindow data_window; // writing: its size is the size written, wherever it lies
    ImageWindow display_window;
    uint8_t host_104[4];
    int32_t orientation;   // reading: that of the descriptor, imageOrientation
    char *channel_format;  // equals VYN_LITERAL_HARD_FORMAT_TYPE_RGB
    int32_t channel_count; // 3: colour; 0: none
    int32_t channel_type;  // 1
    int32_t channel_width; // bits per sample: 8
    uint8_t host_132[12];
    int32_t matte_count; // 0 or 1
    int32_t matte_type;  // 1, if there is a matte
    int32_t matte_width; // bits per sample: 8, if there is a matte
    uint8_t host_156[12];
    int32_t aux_count; // auxiliary channels, which are depth: 0 or 1
    uint8_t host_172[4];
    int32_t aux_width; // bits per sample: 31, if there is depth
    uint8_t host_180[28];
} ImageInfo;
static_assert(sizeof(ImageInfo) == 208 && PIX_AT(ImageInfo, usage, 8) &&
                  PIX_AT(ImageInfo, gamma, 12) && PIX_AT(ImageInfo, format_label, 48) &&
                  PIX_AT(ImageInfo, width, 56) && PIX_AT(ImageInfo, height, 60) &&
                  PIX_AT(ImageInfo, aspect, 64) && PIX_AT(ImageInfo, data_window, 72) &&
                  PIX_AT(ImageInfo, display_window, 88) && PIX_AT(ImageInfo, orientation, 108) &&
                  PIX_AT(ImageInfo, channel_format, 112) && PIX_AT(ImageInfo, channel_count, 120) &&
                  PIX_AT(ImageInfo, channel_type, 124) && PIX_AT(ImageInfo, channel_width, 128) &&
                  PIX_AT(ImageInfo, matte_count, 144) && PIX_AT(ImageInfo, matte_type, 148) &&
                  PIX_AT(ImageInfo, matte_width, 152) && PIX_AT(ImageInfo, aux_count, 168) &&
                  PIX_AT(ImageInfo, aux_width, 176),
              "the host's layout");

// --- The procedures of an open image --------------------------------------------------------

typedef struct ImageHandle ImageHandle;
typedef struct PixState PixState; // the module's own record of an open image; opaque to the host

// Moves one row between the image and row buffers. `state` is PixPrivate::state. The files begin
// with scanline height - 1 and end with scanline 0. Row buffers are an array of rows in the order
// red, green, blue, matte, depth, without the channels that the image does not have; a row has one
// byte a pixel, for depth one int32_t. The result is left in vyn__err too: 0; -2, PIX_BAD_SCANLINE,
// when there is no scanline `y` or, in writing, `y` is not the next one; -18, PIX_READ_FAILED; -20,
// PIX_WRITE_FAILED. After -2 nothing was done, and other scanlines may follow. A null `state` gives
// -2 as well, without a message.
//
// Reading takes scanlines in any order. `rows` points to a `void **`, which receives the row
// buffers when the result is 0: the same array each time, valid until the close, whose rows hold
// this scanline until the next call. After -18 the rows may hold anything, and more scanlines may
// be asked for: those that the files hold before the damage are read correctly; from the damage on,
// a row may come from a wrong place, with result 0. After a seek that failed, the files may stand
// at different rows. Every later call then first seeks all files to a row that is known, or fails
// with -18 too, so that no result mixes channels of different rows.
//
// Writing takes scanlines from height - 1 down to 0. `rows` is the array itself, a `void **`. Array
// and rows are the host's and are used during the call alone. The depth row must be writable: its
// bytes are swapped during the call, and back before it returns, whatever the result. After -20 the
// files hold a part of the row; the image cannot be completed, and only the close may follow.
typedef int32_t (*ScanlineProc)(PixState *state, int32_t y, void *rows);

// Closes an image, once, whether or not all scanlines were read or written: closes the files, gives
// the row buffers of an image that was read to vyn__chan_free, and at last the handle to
// vyn__free_obj. It does so in any case. The result is vyn__err, which is 0 at the start of the
// close and becomes -20, PIX_WRITE_FAILED, when a file could not be closed and may be incomplete.
// Scanlines that were never written are no failure: the host counts them. After a failed open
// nothing is left to be closed, and with a null private block or state nothing was ever open: the
// close sets vyn__err to 0 and destroys the handle. A null handle gives 0 and changes nothing.
// Standard input and output are neither closed nor flushed.
typedef int32_t (*CloseProc)(ImageHandle *handle);

// --- The handle -----------------------------------------------------------------------------

// The private block on a handle. The open makes the block and the state with ERR_malloc. The module
// releases neither, and uses neither once vyn__free_obj has the handle.
typedef struct PixPrivate {
    PixState *state; // null when memory was exhausted
} PixPrivate;
static_assert(sizeof(PixPrivate) == 8 && PIX_AT(PixPrivate, state, 0), "the host's layout");

// A choice that the host makes for one open: a code and a value of the capability table.
typedef struct CapabilityRequest {
    uint16_t code;
    uint8_t host_2[2];
    int32_t value;
} CapabilityRequest;
static_assert(sizeof(CapabilityRequest) == 8 && PIX_AT(CapabilityRequest, code, 0) &&
                  PIX_AT(CapabilityRequest, value, 4),
              "the host's layout");

// One image being read or written. The host makes a handle for each open; vyn__free_obj destroys
// it. The host sets the fields that are marked "set by the host", and keeps what they point to:
// file_name until the close, the others until the open returns. A read open sets all fields that
// are not called `host_*`, with strings by STR_save; a write open sets priv and the procedures. The
// opens overwrite these fields without reading them: a host that sets the pointers to null before
// the open sees after a failure, by those that are not null, what the open has made. The module
// releases nothing of it; vyn__free_obj does.
struct ImageHandle {
    PixPrivate *priv;
    const char *format_name; // set by the host
    const char *file_name;   // set by the host: 1 to 1,023 bytes
    uint8_t name_is_exact;   // set by the host; 0: search the directories of KV_IMG_DIR
    uint8_t host_25[23];
    char *description[7];
    char *compression;
    CapabilityRequest **capability_requests; // set by the host: a list that a null ends, or null
    uint8_t host_120[32];
    float red_primary[3];
    float green_primary[3];
    float blue_primary[3];
    float white_point[3];
    int32_t image_count; // set by the host for writing: 1
    uint8_t host_204[4];
    ImageInfo *info; // set by the host for writing
    uint8_t host_216[80];
    ScanlineProc scanline_proc;
    CloseProc close_proc;
};
static_assert(sizeof(ImageHandle) == 312 && PIX_AT(ImageHandle, priv, 0) &&
                  PIX_AT(ImageHandle, format_name, 8) && PIX_AT(ImageHandle, file_name, 16) &&
                  PIX_AT(ImageHandle, name_is_exact, 24) && PIX_AT(ImageHandle, description, 48) &&
                  PIX_AT(ImageHandle, compression, 104) &&
                  PIX_AT(ImageHandle, capability_requests, 112) &&
                  PIX_AT(ImageHandle, red_primary, 152) &&
                  PIX_AT(ImageHandle, green_primary, 164) &&
                  PIX_AT(ImageHandle, blue_primary, 176) && PIX_AT(ImageHandle, white_point, 188) &&
                  PIX_AT(ImageHandle, image_count, 200) && PIX_AT(ImageHandle, info, 208) &&
                  PIX_AT(ImageHandle, scanline_proc, 296) && PIX_AT(ImageHandle, close_proc, 304),
              "the host's layout");

// --- What the module exports ----------------------------------------------------------------
// The values of the descriptor are in module/descriptor.cpp, the layout of the capability table in
// host/capabilities.h.

#pragma GCC visibility push(default)

typedef struct CapabilityEntry CapabilityEntry;

// The descriptor is a set of variables that the host looks up by name: numbers are
// `const int32_t`, texts `const char *`. imageInit makes its texts imageName and imageExtension
// with STR_define, and imageNameSyntax with STR_save, in the words of the catalogue that is open
// now. Returns 1; or 0, with neither code nor message, when memory is exhausted: the names that are
// not made are null. The module does not release the names.
int32_t imageInit(void);

// Hands out the capability table and counts its entries, those for reading and those for writing.
// No argument may be null. The table is constant and valid while the module is loaded.
void imageCapability(const CapabilityEntry **table, int32_t *input_count, int32_t *output_count,
                     int32_t *entry_count);

// Returns 1 when the first 12 bytes of the file are those of a PIX file; when the bytes leave a
// doubt, the name decides. Returns 0 otherwise, also when the bytes cannot be read. Opens `name`
// unless `stream` is given. A given stream is read from its start if it can seek, stays open and
// stands after the last byte read. Leaves neither code nor message.
uint8_t imageIsFile(const char *name, FILE *stream);

// Opens an image for reading, with the companions that are asked for and exist: those of
// "jobs/renders/shot.pix" are "jobs/mask/shot.pix" and "jobs/depth/shot.pix", and those of a name
// without a slash are in "../mask" and "../depth". The name may also be that of either file of a
// field pair, or the one that both share, as docs/format.md tells; both files must be there. A
// name that is searched for is tried as it is, then in each directory. "/dev/stdin" is standard
// input, which must be able to seek. Returns
//    1  The image is open and described. vyn__err is as it was, or has the code of a warning:
//       PIX_UNSUPPORTED, an unknown request; PIX_CANNOT_OPEN, a companion that does not fit.
//    0  The open failed and closed its files. vyn__err has the reason; so has a message, unless
//       ERR_malloc gave null. A companion whose header is cut short or not valid is such a failure.
//       The host reads vyn__err and then calls vyn__free_obj or, if it is set, close_proc, which
//       sets vyn__err to 0. A scanline call, if scanline_proc is set, does no harm and gives -2.
//   -1  The image is open, but vyn__chan_alloc gave null: neither code nor message. Scanlines are
//       refused with -18, and the host must call close_proc.
int32_t imageReadOpen(ImageHandle *handle);

// Opens an image for writing as `info` describes it, over what its files held before. Makes the
// directories of its companions where they are missing. A companion that an earlier image of the
// same name has left, and that this one does not have, stays, and a later read open takes it for
// this image's own: the host removes it before. "/dev/stdout" is standard output, which the host
// flushes after the close. Returns 1, or 0 as imageReadOpen
// does; a failed open removes the regular files that it made or emptied, but no links. vyn__err is
// 0 at the start, and with result 1 it may have the code of a warning: PIX_UNSUPPORTED, an unknown
// request; PIX_CANNOT_OPEN, a companion that cannot be made.
//
// A companion that is not asked for, or that cannot be made, is left out of a colour image: its
// count in `info` is then 0, and its buffer is not among the rows. An image without colour is
// written as its matte alone or, if it has no matte, as its depth. With a channel_count other than
// 3 and 0, the companions are written beside an empty main file. Sizes are not checked: the header
// keeps their low 16 bits, and no reader takes a picture wider or higher than 16,383 pixels.
int32_t imageWriteOpen(ImageHandle *handle);

#pragma GCC visibility pop

// --- Services -------------------------------------------------------------------------------
// The host defines all of these. The module calls them on the thread of the call that it serves.
// They must return to the module, and must not call it. Any of them may change errno.

// The host's error code: 0 or one of the codes of host/messages.h. Failures leave their code here;
// a scanline that succeeds, the start of a write open and the start of a close leave 0. A read open
// does not clear it: a host that wants to see its warnings sets it to 0 before.
extern int vyn__err;

extern nl_catd vyn__msg_cat; // open message catalogue, or null: the default words serve
extern const char VYN_LITERAL_HARD_FORMAT_TYPE_RGB[]; // the host's name of the RGB channel format

// Issues message `number` of catalogue set `set`, in the catalogue's words or else in `format`'s.
// Severity 2 is a warning, and the operation goes on; 3 is an error, which ends the operation or
// makes it go on without a companion. The code may reach vyn__err after the message. The arguments
// are valid during the call.
void ERR_report_cat(nl_catd catalogue, int set, int number, int severity, const char *format, ...)
    __attribute__((format(printf, 5, 6)));

// Reports the system error `errno_value` met on the file `name`.
void ERR_report_errno(int errno_value, const char *name);

// Returns `size` uninitialised bytes, or null. The module never releases them.
void *ERR_malloc(size_t size);

// Returns a copy of `s` for free(), or null.
char *STR_save(const char *s);

// Returns a string equal to `s` that lives as long as the module, or null.
const char *STR_define(const char *s);

// Returns 0 when the strings are equal.
int STR_compare(const char *a, const char *b);

// Returns the extension of a file name, its "." included, or null. Not the caller's.
const char *STR_extension(const char *name);

// Returns the length of `s` in bytes.
int STR_length(const char *s);

// Sets every field of the handle's new ImageInfo, whose bytes are not initialised, to the host's
// defaults: among them type 1 and width 8 of colour and matte. An open that fails early leaves
// these defaults, also those of the strings, which must then be null or the host's own.
void vyn__init_ifd(ImageHandle *handle);

// Returns row buffers for the channels of `info`, `width` pixels each, in the order in which a
// ScanlineProc takes them; or null. The module calls it for reading alone.
void **vyn__chan_alloc(ImageInfo *info, int32_t width, const char *format_name);

// Releases what vyn__chan_alloc returned; null does nothing.
void vyn__chan_free(void **rows);

// Returns the path of `name` + `suffix`, looked for in the directories of `search_list` unless that
// is null. May return `name` itself or null; valid until the next call.
const char *vyn__build_handle(const char *search_list, const char *name, const char *suffix);

// Destroys the handle. The module's last call for an image.
void vyn__free_obj(ImageHandle *handle);

// An entry of the host's table of standard formats.
typedef struct FormatEntry {
    const char *name;
    int32_t width;  // pixels
    int32_t height; // rows
    float aspect;   // of the picture
} FormatEntry;
static_assert(PIX_AT(FormatEntry, name, 0) && PIX_AT(FormatEntry, width, 8) &&
                  PIX_AT(FormatEntry, height, 12) && PIX_AT(FormatEntry, aspect, 16),
              "the host's layout");

// Restarts the table of standard formats.
void FMT_init(nl_catd catalogue);

// Returns the next standard format, or null after the last. Valid until the next call.
const FormatEntry *FMT_info(void);

// Returns the gamma that the host assumes for images.
float FMT_def_input_gamma(void);

// Each returns three floats, which stay the host's.
const float *CLR_def_red_primary(void);
const float *CLR_def_green_primary(void);
const float *CLR_def_blue_primary(void);
const float *CLR_def_white_point(void);

#ifdef __cplusplus
}
#endif
