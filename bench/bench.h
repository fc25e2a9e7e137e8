// The pictures that are timed, what is timed on them beside the module, and the tables.
#pragma once

#include "standin/standin.h"

#include <stdint.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

constexpr int32_t WIDTH = 2048;
constexpr int32_t HEIGHT = 1556;

using Bytes = std::vector<uint8_t>;

// --- Pictures -------------------------------------------------------------------------------

// One byte a pixel, the top row first: red, green and blue, or a matte alone.
struct Picture {
    std::vector<Bytes> planes;
};

// "flat": one colour. "short": runs of 1 to 16 pixels. "render": three in ten runs are 40 to 340
// pixels long, the others 1 to 3. "photo": runs as they were counted in photographs and gradients.
// "real": a photograph. "noise": no two neighbours are equal. "matte": a matte with the runs of
// "render".
constexpr const char *PICTURES[] = {"flat", "short", "render", "photo", "real", "noise", "matte"};

// Where the package lomiri-wallpapers-16.04 puts the photograph.
constexpr char PHOTOGRAPH[] = "/usr/share/backgrounds/picosdeeuropa_by_Aitzol_Berasategi.jpg";

// Without planes when the photograph is not there.
Picture make_picture(const std::string &name);

// Leaves pointers to one row of every plane in `rows`.
void point_at_row(const Picture &picture, int32_t row, void **rows);

// --- The module -----------------------------------------------------------------------------

// Ends the process.
[[noreturn]] void fail(const std::string &what, const std::string &why);

void load(const char *path, StandinModule *loaded);

ImageHandle *open_pix(const StandinModule &by, const std::string &path);

// `depth` is a row of samples, or null.
void write_pix(const StandinModule &by, const std::string &path, const Picture &picture,
               int32_t *depth);

using Order = std::vector<int32_t>; // of scanlines

// Reads the scanlines in `order`; compares them with `picture` unless that is null.
void read_pix(const StandinModule &by, const std::string &path, const Order &order,
              const Picture *picture);

// --- Limits ---------------------------------------------------------------------------------
// The work that no program can avoid: the module's own codec between memory and `rows`, one buffer
// for each channel, and the same bytes read or written with large calls.

// Decode a whole picture, and return how many rows it has.
int32_t decode_packets(const Bytes &packets, const std::vector<void *> &rows);
int32_t decode_file(const std::string &path, const std::vector<void *> &rows);

// Encode a whole picture; the first gives `take` the packets a chunk at a time.
using Take = std::function<void(const uint8_t *bytes, size_t size)>;
void encode_picture(const Picture &picture, const Take &take);
void encode_file(const std::string &path, const Picture &picture);

void copy_rows(const Picture &picture, const std::vector<void *> &rows);

// Reads a file of four-byte samples and swaps their bytes.
void swap_file(const std::string &path);

// --- Peers ----------------------------------------------------------------------------------
// Row by row, from and into row buffers, like the module. Pixels are interleaved for PNG
// (compression level 1) and in planes for TIFF (PackBits).

void write_png(const std::string &path, const Bytes &interleaved);
void read_png(const std::string &path, Bytes *row);
void write_tiff(const std::string &path, const Picture &picture);
void read_tiff(const std::string &path, const std::vector<void *> &rows);

// --- Tables ---------------------------------------------------------------------------------

// The milliseconds of each benchmark by its name, "PICTURE/WORK". A name that ends in " before" is
// for the older module, with which the built one is compared.
using Times = std::map<std::string, double>;

// Prints the tables, without what was not timed, and writes the data of scripts/speed.gnuplot to
// `path`. False when a target is missed.
bool print_tables(const Times &times, const std::string &path);
