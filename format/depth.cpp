// Depth samples to the host's integers and back.
#include "format/depth.h"

#include "format/stream.h"
#include "host/messages.h"

#include <stdlib.h>

constexpr uint32_t PIX_FLOAT_1E8 = 0x4CBEBC20; // the only bits that mean 1e8

static size_t pix_samples(int32_t width)
{
    return width > 0 ? static_cast<size_t>(width) : 0;
}

static void pix_swap_samples(int32_t *buffer, size_t count)
{
    for (size_t i = 0; i < count; ++i) {
        buffer[i] = static_cast<int32_t>(__builtin_bswap32(static_cast<uint32_t>(buffer[i])));
    }
}

static int pix_read_int_samples(FILE *fp, size_t count, int32_t *buffer)
{
    if (fread(buffer, PIX_DEPTH_SAMPLE_SIZE, count, fp) != count) {
        return PIX_READ_FAILED;
    }
    pix_swap_samples(buffer, count);
    return PIX_OK;
}

static int pix_read_float_samples(FILE *fp, size_t count, int32_t *buffer)
{
    for (size_t i = 0; i < count; ++i) {
        uint8_t bytes[PIX_DEPTH_SAMPLE_SIZE];
        if (!pix_read_bytes<PIX_DEPTH_SAMPLE_SIZE>(fp, bytes)) {
            return PIX_READ_FAILED;
        }
        buffer[i] = pix_long(bytes) == PIX_FLOAT_1E8 ? 0 : PIX_DEPTH_LIMIT;
    }
    return PIX_OK;
}

int32_t pix_read_depth_row(FILE *fp, int32_t width, int32_t kind, int32_t *buffer)
{
    switch (kind) {
    case PIX_DEPTH_INT:
        vyn__err = pix_read_int_samples(fp, pix_samples(width), buffer);
        break;
    case PIX_DEPTH_FLOAT:
        vyn__err = pix_read_float_samples(fp, pix_samples(width), buffer);
        break;
    default:
        abort();
    }
    return vyn__err;
}

int pix_skip_depth_row(FILE *fp, int32_t width)
{
    return fseek(fp, long{width} * PIX_DEPTH_SAMPLE_SIZE, SEEK_CUR) != 0 ? PIX_READ_FAILED : PIX_OK;
}

int pix_write_depth_row(FILE *fp, int32_t width, int32_t *buffer)
{
    const size_t count = pix_samples(width);
    pix_swap_samples(buffer, count);
    const size_t written = fwrite(buffer, PIX_DEPTH_SAMPLE_SIZE, count, fp);
    pix_swap_samples(buffer, count);
    return written == count ? PIX_OK : PIX_WRITE_FAILED;
}
