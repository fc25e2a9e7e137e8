// The pictures that are timed, and the works that are timed on them: the module's, the least that
// any program could do, and those of other formats.
#pragma once

#include "standin/standin.h"

#include <string>
#include <vector>

constexpr int32_t WIDTH = 2048;
constexpr int32_t HEIGHT = 1556;

using Bytes = std::vector<uint8_t>;

// One byte a pixel and channel, the top row first. `planes` has three channels, or one in a matte.
struct Picture {
    std::string name;
    std::vector<Bytes> planes;
};

// "flat": one colour. "short": runs of 1 to 16 pixels. "render": three in ten runs are 40 to 340
// pixels long, the others 1 to 3. "noise": no two neighbours are equal.
Picture make_picture(const std::string &name, int channels);

// Pointers to one row of every plane.
std::vector<void *> row_pointers(const Picture &picture, int32_t row);

// --- The least ------------------------------------------------------------------------------
// In memory, with packets as the file has them, for any picture.

// Decodes the packets of a whole picture, row after row, into `rows` (one per channel).
void decode_packets(const Bytes &packets, int channels, void *const *rows);

// Encodes a whole picture; returns the bytes used of `packets`, which must have room for all.
size_t encode_packets(const Picture &picture, Bytes *packets);

// Reads, or writes, a file with 64 KiB calls.
void read_bytes(const std::string &path, Bytes *scratch);
void write_bytes(const std::string &path, const Bytes &bytes, size_t size);

// --- Peers ----------------------------------------------------------------------------------
// Row by row, from and into row buffers, like the module. Pixels are interleaved for PNG
// (compression level 1) and in planes for TIFF (PackBits).

void write_png(const std::string &path, const Bytes &interleaved);
void read_png(const std::string &path, Bytes *row);
void write_tiff(const std::string &path, const Picture &picture);
void read_tiff(const std::string &path, void *const *rows);
