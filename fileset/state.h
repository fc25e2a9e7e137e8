// The record of an open image: the streams and names of its file set, what it holds, and how far it
// has been read or written. Plain data; the opens fill it, the scanline procedures advance it, and
// fileset/close empties it.
//
// A file set holds up to three kinds of file: colour, matte and depth. Each kind is one file, or
// two field files: field 0 with the even file rows, field 1 with the odd ones.
#pragma once

#include "host/vyn.h"

// The files of one field, and the rows that it has.
struct PixFieldFiles {
    uint32_t rows; // consumed so far
    FILE *depth_fp;
    FILE *matte_fp;
    FILE *colour_fp;
    int32_t width;  // from this field's header
    int32_t height; // rows in this field's files
};

struct PixState {
    int32_t channel_choice; // PIX_CHANNELS_..., or what a request asked for
    void **chan;            // row buffers of an image that is read; the host's
    uint32_t row;           // file rows read or written, both fields together
    FILE *depth_fp;         // depth companion, or the main file of a depth-only image
    char *depth_name;       // owned
    int32_t depth_kind;     // PIX_DEPTH_FLOAT or PIX_DEPTH_INT
    int32_t depth_sample_size;
    PixFieldFiles field[2];
    uint8_t has_depth;
    uint8_t has_matte;
    uint8_t has_colour;
    uint8_t fields;    // the set is stored as field files; `*_fp` above and below are then null
    FILE *matte_fp;    // matte companion, or the main file of a matte-only image
    char *matte_name;  // owned
    char mode;         // 'r' or 'w'
    FILE *colour_fp;   // main file, until an open finds that it holds matte or depth
    char *colour_name; // owned: the image's name, without a field suffix
    int32_t width;     // pixels
    int32_t height;    // rows, both fields together

    // Where rows begin in the run-length files, for read/position.
    long *row_starts;    // owned; null: not remembered
    uint32_t known_rows; // rows passed, so that the next one's start is known
    uint8_t astray;      // the streams stand elsewhere than at `row`, since a failure
    uint8_t must_seek;   // and the next request is to seek, wherever it goes
    uint8_t seekable;    // every stream has been sought

    char *buffers[6]; // owned: of the streams, released after them
};

// The kinds of file, in the order in which a set is walked.
enum PixKind { PIX_KIND_COLOUR, PIX_KIND_MATTE, PIX_KIND_DEPTH };
constexpr PixKind PIX_KINDS[] = {PIX_KIND_COLOUR, PIX_KIND_MATTE, PIX_KIND_DEPTH};

// Where a state keeps one kind: its streams (the single file's, field 0's, field 1's; unused ones
// are null), the file's name, and whether the image has it.
struct PixKindSlots {
    FILE **streams[3];
    char **name;
    uint8_t *present;
};

// The streams that hold one file row; null for the kinds that the image has not.
struct PixRowFiles {
    FILE *colour;
    FILE *matte;
    FILE *depth;
};

// Gives the handle a private block and a new state, empty but for mode 'r' and an undecided channel
// choice. Returns the state; or null when memory is exhausted, with vyn__err set and no message.
[[nodiscard]] PixState *pix_attach_state(ImageHandle *handle);

// Opens a file with fopen and gives the stream a buffer of the state's, unless it comes with one or
// there is no memory. Null, with errno, when it cannot be opened. The caller keeps the stream in
// one of the state's slots.
[[nodiscard]] FILE *pix_open_stream(PixState *state, const char *name, const char *mode);

[[nodiscard]] PixKindSlots pix_kind_slots(PixState *state, PixKind kind);

// Which streams hold file row `row`: the one place that knows fields from single files.
[[nodiscard]] PixRowFiles pix_row_files(const PixState *state, uint32_t row);

// The name of the image that messages show: as it was found, or else as the host gave it.
[[nodiscard]] const char *pix_shown_name(const ImageHandle *handle, const PixState *state);

// The host's row buffers of a set: red, green and blue if it has colour, then matte, then depth.
[[nodiscard]] void *pix_matte_buffer(const PixState *state, void *const *rows);
[[nodiscard]] int32_t *pix_depth_buffer(const PixState *state, void *const *rows);

// True for the process's standard input and output, which the module never closes or removes.
[[nodiscard]] bool pix_is_standard_stream(const FILE *fp);
