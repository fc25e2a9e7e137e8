// Bytes to header fields and back, the only place where that happens, and the rule by which the
// headers of two fields make one. What a header's values mean for an image is left to the opens.
#include "format/header.h"

void pix_parse_header(const uint8_t bytes[sizeof(PixHeader)], PixHeader *header)
{
    *header = {pix_word(bytes), pix_word(bytes + 2), pix_word(bytes + 4), pix_word(bytes + 6),
               pix_word(bytes + 8)};
}

void pix_parse_header(const uint8_t bytes[sizeof(PixDepthHeader)], PixDepthHeader *header)
{
    *header = {pix_long(bytes), pix_word(bytes + 4), pix_word(bytes + 6)};
}

static void pix_put_word(uint8_t *bytes, uint32_t value)
{
    bytes[0] = static_cast<uint8_t>(value >> 8);
    bytes[1] = static_cast<uint8_t>(value);
}

void pix_format_header(const PixHeader &header, uint8_t bytes[sizeof(PixHeader)])
{
    pix_put_word(bytes, header.width);
    pix_put_word(bytes + 2, header.height);
    pix_put_word(bytes + 4, header.x_offset);
    pix_put_word(bytes + 6, header.y_offset);
    pix_put_word(bytes + 8, header.bits);
}

void pix_format_header(const PixDepthHeader &header, uint8_t bytes[sizeof(PixDepthHeader)])
{
    pix_put_word(bytes, header.magic >> 16);
    pix_put_word(bytes + 2, header.magic);
    pix_put_word(bytes + 4, header.width);
    pix_put_word(bytes + 6, header.height);
}

// The even height counts as signed where it is compared, and the sum is kept in 16 bits: a sum that
// wraps is judged, like any other height, by its value.
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
