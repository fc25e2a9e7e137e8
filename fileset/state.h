// The record of an open image: the files of its set, what it holds, and how far it has been read or
// written. Plain data; the opens fill it, the scanline procedures advance it, and fileset/close
// empties it.
//
// A set has a plane for each kind of file. A plane is one file, or, in a set that is stored as two
// fields, a file with the even file rows and one with the odd rows: file row r lies in
// file[r % fields] of each plane.
#pragma once

#include "fileset/names.h"
#include "format/depth.h"
#include "format/header.h"
#include "format/packets.h"
#include "host/capabilities.h"
#include "host/vyn.h"

// The kinds of file, in the order in which planes are opened, read, written and closed.
enum PixKind { PIX_COLOUR, PIX_MATTE, PIX_DEPTH };
constexpr PixKind PIX_KINDS[] = {PIX_COLOUR, PIX_MATTE, PIX_DEPTH};

// What tells one kind from another.
struct PixKindFacts {
    int32_t buffers;           // row buffers of the host, in the order of the kinds
    long header_size;          // bytes before the first row
    int32_t ImageInfo::*count; // where a description counts its channels
    int companion;             // its PixCompanion; -1 for colour
    int32_t least_choice;      // the lowest channel choice that includes this kind
};
constexpr PixKindFacts PIX_FACTS[] = {
    {PIX_COLOUR_CHANNELS, sizeof(PixHeader), &ImageInfo::channel_count, -1, PIX_CHANNELS_RGB},
    {PIX_MATTE_CHANNELS, sizeof(PixHeader), &ImageInfo::matte_count, PIX_COMPANION_MATTE,
     PIX_CHANNELS_RGB_MATTE},
    {1, sizeof(PixDepthHeader), &ImageInfo::aux_count, PIX_COMPANION_DEPTH,
     PIX_CHANNELS_RGB_MATTE_Z},
};

// A stream, and the buffer that the module gave it: the file's, released after the stream.
struct PixFile {
    FILE *fp; // null: not open
    char *buffer;
};

struct PixPlane {
    PixFile file[2]; // the second is open only in a set that is stored as fields
    char *name;      // owned; the image's name for colour, a companion's path, without field suffix
    bool present;    // the image has it: its rows are read or written
    long *starts;    // where rows begin, in the state's table; null: not remembered
};

// Where the files of an image that is read stand.
enum PixPlace {
    PIX_AT_ROW, // all at `row`
    PIX_ASTRAY, // where a row that could not be read left them; reading may go on from there
    PIX_LOST,   // at different rows, since a seek failed: they must be brought to a known row
};

struct PixState {
    char mode;              // 'r' or 'w'
    int32_t channel_choice; // PIX_CHANNELS_..., or what a request asked for
    uint32_t fields;        // files of each plane: 1 or 2
    PixPlane plane[3];      // by PixKind
    PixDepthKind depth_kind;
    int32_t width;  // pixels
    int32_t height; // rows, those of both fields together
    uint32_t row;   // the next file row; also the number of rows read or written so far
    void **chan;    // row buffers of an image that is read; the host's

    // For read/position.
    PixPlace place;
    bool seekable;       // every stream has made a seek without an error
    uint32_t known_rows; // rows passed without a failure; the starts of rows 0 to this are known
    long *table;         // owned: the starts of all planes; null: not remembered
};

// Returns a block of the host's memory; or null, with vyn__err set and no message.
[[nodiscard]] void *pix_allocate(size_t size);

// Stores a copy of `text`, made by STR_save, in `slot`. Returns 0, or PIX_NO_MEMORY, which it has
// reported.
[[nodiscard]] int pix_save_text(char **slot, const char *text);

// Gives the handle a private block and a new state, empty but for mode 'r', one file a plane and an
// undecided channel choice. Returns the state, or null as pix_allocate does.
[[nodiscard]] PixState *pix_attach_state(ImageHandle *handle);

// Moves the main file from the colour plane to the plane of `kind`. The name stays with the colour
// plane.
void pix_move_main_file(PixState *state, PixKind kind);

// The name of the image that messages show: as it was found, or else as the host gave it.
[[nodiscard]] const char *pix_shown_name(const ImageHandle *handle, const PixState *state);
