// Converts bytes to header fields and back (no other file does that), and joins the headers of two
// fields. What a header's values mean for an image is left to the opens.
#include "format/header.h"

#include <initializer_list>

void pix_parse_header(const uint8_t bytes[sizeof(PixHeader)], PixHeader *header)
{
    *header = {pix_word(bytes), pix_word(bytes + 2), pix_word(bytes + 4), pix_word(bytes + 6),
               pix_word(bytes + 8)};
}

void pix_parse_header(const uint8_t bytes[sizeof(PixDepthHeader)], PixDepthHeader *header)
{
    *header = {pix_long(bytes), pix_word(bytes + 4), pix_word(bytes + 6)};
}

static void pix_put_words(uint8_t *bytes, std::initializer_list<uint32_t> words)
{
    for (const uint32_t word : words) {
        *bytes++ = static_cast<uint8_t>(word >> 8);
        *bytes++ = static_cast<uint8_t>(word);
    }
}

void pix_format_header(const PixHeader &header, uint8_t bytes[sizeof(PixHeader)])
{
    pix_put_words(bytes,
                  {header.width, header.height, header.x_offset, header.y_offset, header.bits});
}

void pix_format_header(const PixDepthHeader &header, uint8_t bytes[sizeof(PixDepthHeader)])
{
    pix_put_words(bytes, {header.magic >> 16, header.magic, header.width, header.height});
}

// The test for one row more takes the even height as signed. The sum is kept in 16 bits; a sum that
// has wrapped is checked later like any other height.
template <class Header>
static bool pix_join_sizes(const Header &even, const Header &odd, Header *whole)
{
    if (even.width != odd.width ||
        (even.height != odd.height && static_cast<int16_t>(even.height) - 1 != odd.height)) {
        return false;
    }
    *whole = even;
    whole->height = static_cast<uint16_t>(even.height + odd.height);
    return true;
}

bool pix_join_headers(const PixHeader &even, const PixHeader &odd, PixHeader *whole)
{
    return even.bits == odd.bits && pix_join_sizes(even, odd, whole);
}

bool pix_join_headers(const PixDepthHeader &even, const PixDepthHeader &odd, PixDepthHeader *whole)
{
    return even.magic == odd.magic && pix_join_sizes(even, odd, whole);
}
