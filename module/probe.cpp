// Decides whether a file is a PIX file by its first 12 bytes, which are a header and the two bytes
// behind it, and by its name where the bytes leave a doubt.
#include "format/header.h"
#include "host/vyn.h"

#include <stdint.h>

constexpr size_t PIX_PROBE_SIZE = 12;

static bool pix_has_sgi_extension(const char *name)
{
    const char *extension = STR_extension(name);
    return extension &&
           (STR_compare(extension, ".bw") == 0 || STR_compare(extension, ".rgb") == 0 ||
            STR_compare(extension, ".sgi") == 0);
}

static bool pix_is_pix(const char *name, const uint8_t bytes[PIX_PROBE_SIZE])
{
    PixHeader header;
    pix_parse_header(bytes, &header);
    const uint16_t behind = pix_word(bytes + sizeof(PixHeader));
    if (static_cast<int16_t>(header.width) <= 0 || static_cast<int16_t>(header.height) <= 0 ||
        (header.bits != PIX_MATTE_BITS && header.bits != PIX_COLOUR_BITS)) {
        return false;
    }
    // The y offset is compared with the width less one, although writers store the height less one.
    if ((header.x_offset == 0 && header.y_offset == header.width - 1) ||
        header.width != PIX_SGI_MAGIC) {
        return true;
    }
    // An SGI image has its dimensions (1 to 3) where PIX has the x offset, and its channels (1 to
    // 4) where the pixels of PIX begin.
    const bool sgi_dimensions = header.x_offset >= 1 && header.x_offset <= 3;
    const bool sgi_channels = behind >= 1 && behind <= 4;
    return !pix_has_sgi_extension(name) && !(sgi_dimensions && sgi_channels);
}

uint8_t imageIsFile(const char *name, FILE *stream)
{
    FILE *fp = stream ? stream : fopen(name, "r");
    if (!fp) {
        return 0;
    }
    uint8_t bytes[PIX_PROBE_SIZE];
    bool whole = true;
    (void)fseek(fp, 0, SEEK_SET); // a stream that cannot seek is read where it stands
    for (size_t at = 0; whole && at < sizeof bytes; at += 2) {
        whole = fread(bytes + at, 2, 1, fp) == 1;
    }
    if (!stream) {
        (void)fclose(fp);
    }
    return whole && pix_is_pix(name, bytes);
}
