// What the host framework gives the module and asks of it: the records of an open image, the
// services, and the two procedures that an open installs. The host owns every layout here; the
// assertions hold each field at the offset where the host looks for it. Bytes called `host_*`
// belong to the host alone.
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

typedef struct ImageHandle ImageHandle;
typedef struct PixState PixState; // the module's own record of an open image; opaque to the host

// The private block on a handle. The module allocates it and never releases it.
typedef struct PixPrivate {
    PixState *state;
} PixPrivate;
static_assert(sizeof(PixPrivate) == 8 && PIX_AT(PixPrivate, state, 0), "the host's layout");

// A choice that the host makes for one open, by a code of the capability table.
typedef struct CapabilityRequest {
    uint16_t code;
    uint8_t host_2[2];
    int32_t value;
} CapabilityRequest;
static_assert(sizeof(CapabilityRequest) == 8 && PIX_AT(CapabilityRequest, code, 0) &&
                  PIX_AT(CapabilityRequest, value, 4),
              "the host's layout");

// Bounds of a picture in pixels, all four inclusive.
typedef struct ImageWindow {
    int32_t x_min, x_max, y_min, y_max;
} ImageWindow;
static_assert(sizeof(ImageWindow) == 16 && PIX_AT(ImageWindow, x_min, 0) &&
                  PIX_AT(ImageWindow, x_max, 4) && PIX_AT(ImageWindow, y_min, 8) &&
                  PIX_AT(ImageWindow, y_max, 12),
              "the host's layout");

// The description of an image: made and filled by the module on read, given by the host on write.
typedef struct ImageInfo {
    uint8_t host_0[8];
    int32_t usage;
    float gamma;
    uint8_t host_16[32];
    char *format_label; // name of the matching standard format
    int32_t width;      // pixels
    int32_t height;     // rows
    float aspect;       // of the picture: width to height as shown
    uint8_t host_68[4];
    ImageWindow data_window;
    ImageWindow display_window;
    uint8_t host_104[4];
    int32_t orientation;
    char *channel_format;
    int32_t channel_count; // 3: colour; 0: none
    int32_t channel_type;
    int32_t channel_width; // bits per sample
    uint8_t host_132[12];
    int32_t matte_count;
    int32_t matte_type;
    int32_t matte_width; // bits per sample
    uint8_t host_156[12];
    int32_t aux_count; // auxiliary channels: depth
    uint8_t host_172[4];
    int32_t aux_width; // bits per sample
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

// Moves one row. `state` is PixPrivate::state and `y` the host's scanline number, counted from the
// last row in file order. On read `rows` points to a `void **` that receives the row-buffer array;
// on write it is that array, a `void **`. Array order: red, green, blue, matte, depth, absent kinds
// left out; one byte a pixel, for depth one int32_t. Result: 0, or the code left in vyn__err.
typedef int32_t (*ScanlineProc)(PixState *state, int32_t y, void *rows);

// Ends an image and destroys the handle. Result: vyn__err.
typedef int32_t (*CloseProc)(ImageHandle *handle);

// One image being read or written. The host makes it before an open; vyn__free_obj destroys it.
struct ImageHandle {
    PixPrivate *priv;
    const char *format_name;
    const char *file_name;
    uint8_t name_is_exact; // 0: search the directories of KV_IMG_DIR too
    uint8_t host_25[23];
    char *description[7];
    char *compression;
    CapabilityRequest **capability_requests; // ended by a null pointer; may itself be null
    uint8_t host_120[32];
    float red_primary[3];
    float green_primary[3];
    float blue_primary[3];
    float white_point[3];
    int32_t image_count;
    uint8_t host_204[4];
    ImageInfo *info;
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

// --- Services -------------------------------------------------------------------------------
// Any of them may change errno.

extern int vyn__err;         // the host's error code: 0 or one of the codes of host/messages.h
extern nl_catd vyn__msg_cat; // open message catalogue, or null
extern const char VYN_LITERAL_HARD_FORMAT_TYPE_RGB[]; // the host's name of the RGB channel format

// Issues message `number` of catalogue set `set`, in the catalogue's words or else in `format`'s.
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

// Fills the handle's new ImageInfo with the host's defaults.
void vyn__init_ifd(ImageHandle *handle);

// Returns one row buffer per channel of `info`, `width` pixels each, or null.
void **vyn__chan_alloc(ImageInfo *info, int32_t width, const char *format_name);

// Releases what vyn__chan_alloc returned; null does nothing.
void vyn__chan_free(void **rows);

// Returns the path of `name` + `suffix`, looked for in the directories of `search_list` unless that
// is null. May return `name` itself or null; valid until the next call.
const char *vyn__build_handle(const char *search_list, const char *name, const char *suffix);

// Destroys the handle.
void vyn__free_obj(ImageHandle *handle);

// Restarts the table of standard formats.
void FMT_init(nl_catd catalogue);

// Returns the next standard format, or null after the last.
const FormatEntry *FMT_info(void);

float FMT_def_input_gamma(void);

// Each returns three floats, the host's.
const float *CLR_def_red_primary(void);
const float *CLR_def_green_primary(void);
const float *CLR_def_blue_primary(void);
const float *CLR_def_white_point(void);

// --- What the module exports ----------------------------------------------------------------
// The descriptor's words and strings are in module/descriptor.h, the capability table's layout in
// host/capabilities.h.

#pragma GCC visibility push(default)

typedef struct CapabilityEntry CapabilityEntry;

// Makes imageName, imageExtension and imageNameSyntax. Returns 1, or 0 when memory is exhausted.
int32_t imageInit(void);

// Hands out the capability table and counts its entries, those for reading and those for writing.
void imageCapability(const CapabilityEntry **table, int32_t *input_count, int32_t *output_count,
                     int32_t *entry_count);

// Returns 1 when the first 12 bytes of the file, and in doubt its name, are those of a PIX file,
// else 0. Opens `name` unless `stream` is given; a given stream stays open and stands after the
// last byte read.
uint8_t imageIsFile(const char *name, FILE *stream);

// Opens an image for reading. Returns 1; 0 with the reason in vyn__err; or -1 when all is open but
// the host had no row buffers.
int32_t imageReadOpen(ImageHandle *handle);

// Opens an image for writing as `info` describes it. Returns 1, or 0 with the reason in vyn__err. A
// companion of a colour image that is not asked for or cannot be made is left out: its count in
// `info` is then 0, and its buffer is not among the rows. An image without colour is written as its
// matte alone, or without one as its depth. Sizes are not checked: the header keeps their low 16
// bits, and no reader takes a picture of more than PIX_MAX_SIZE pixels either way.
int32_t imageWriteOpen(ImageHandle *handle);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif
