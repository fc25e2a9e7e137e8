// The headers at the start of every PIX file: constants, records, and their bytes on disk, which
// are big-endian.
#pragma once

#include <stddef.h>
#include <stdint.h>

constexpr uint16_t PIX_MAX_SIZE = 16383; // largest width or height that a reader accepts
constexpr uint16_t PIX_COLOUR_BITS = 24;
constexpr uint16_t PIX_MATTE_BITS = 8;
constexpr uint16_t PIX_SGI_MAGIC = 474; // an SGI image begins with it; so does a PIX file that wide
constexpr uint32_t PIX_MAGIC_DEPTH_FLOAT = 55655;
constexpr uint32_t PIX_MAGIC_DEPTH_INT = 56655;

// Of a colour or matte file.
struct PixHeader {
    uint16_t width;  // pixels per row
    uint16_t height; // rows in this file
    uint16_t x_offset;
    uint16_t y_offset;
    uint16_t bits; // per pixel: PIX_COLOUR_BITS or PIX_MATTE_BITS
};

// Of a depth file.
struct PixDepthHeader {
    uint32_t magic;
    uint16_t width;
    uint16_t height;
};

static_assert(sizeof(PixHeader) == 10);
static_assert(sizeof(PixDepthHeader) == 8);

// The 16-bit value of two bytes in a file.
[[nodiscard]] inline uint16_t pix_word(const uint8_t *bytes)
{
    return static_cast<uint16_t>(bytes[0] << 8 | bytes[1]);
}

// The 32-bit value of four bytes in a file.
[[nodiscard]] inline uint32_t pix_long(const uint8_t *bytes)
{
    return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
}

// Bytes to fields, and back.
void pix_parse_header(const uint8_t bytes[sizeof(PixHeader)], PixHeader *header);
void pix_parse_header(const uint8_t bytes[sizeof(PixDepthHeader)], PixDepthHeader *header);
void pix_format_header(const PixHeader &header, uint8_t bytes[sizeof(PixHeader)]);
void pix_format_header(const PixDepthHeader &header, uint8_t bytes[sizeof(PixDepthHeader)]);

// Joins the headers of the two fields of one kind: `whole` is the even field's header with the rows
// of both fields, added in 16 bits. False when the fields do not belong together: widths, bits or
// magic differ, or the even field has neither as many rows as the odd field nor one more.
[[nodiscard]] bool pix_join_headers(const PixHeader &even, const PixHeader &odd, PixHeader *whole);
[[nodiscard]] bool pix_join_headers(const PixDepthHeader &even, const PixDepthHeader &odd,
                                    PixDepthHeader *whole);
