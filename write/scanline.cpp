// Appending scanlines: one row to every file of the image.
#include "fileset/stream.h"
#include "host/messages.h"
#include "write/write.h"

// Appends a row, one packet for each run of equal pixels. Packets go to standard output one by one,
// because the host may have made it line-buffered.
static int pix_write_packets(FILE *fp, PixRow row)
{
    while (row.done < row.width) {
        uint8_t block[4096]; // packets that are handed to the stream at once
        const size_t size = pix_encode(&row, block, sizeof block, pix_can_shuffle);
        const size_t step =
            pix_is_standard_stream(fp) ? 1 + static_cast<size_t>(row.channels) : size;
        for (size_t at = 0; at < size; at += step) {
            if (fwrite(block + at, step, 1, fp) != 1) {
                return PIX_WRITE_FAILED;
            }
        }
    }
    return PIX_OK;
}

// Appends a row of integer samples. Converts the host's buffer in place for the write and always
// back again.
static int pix_write_depth_row(FILE *fp, const PixRow &row)
{
    auto *buffer = static_cast<int32_t *>(row.buffers[0]);
    const auto count = static_cast<size_t>(row.width);
    pix_swap_samples(buffer, count);
    const size_t written = fwrite(buffer, PIX_DEPTH_SAMPLE_SIZE, count, fp);
    pix_swap_samples(buffer, count);
    return written == count ? PIX_OK : PIX_WRITE_FAILED;
}

static int pix_append_row(const PixState *state, void *const *rows)
{
    for (const PixKind kind : PIX_KINDS) {
        const PixPlane *plane = &state->plane[kind];
        if (!plane->present) {
            continue;
        }
        FILE *fp = plane->file[0].fp;
        const PixRow row = {rows, PIX_FACTS[kind].buffers, state->width, 0};
        const int failure =
            kind == PIX_DEPTH ? pix_write_depth_row(fp, row) : pix_write_packets(fp, row);
        if (failure) {
            return failure;
        }
        rows += row.channels;
    }
    return PIX_OK;
}

int32_t pix_write_scanline(PixState *state, int32_t y, void *buffers)
{
    if (!state) {
        vyn__err = PIX_BAD_SCANLINE;
        return PIX_BAD_SCANLINE;
    }
    const int64_t next = int64_t{state->height} - state->row - 1;
    if (next < 0 || y != next) {
        PIX_FAIL(PIX_BAD_SCANLINE, PIX_MSG_BAD_SCANLINE, y);
        return PIX_BAD_SCANLINE;
    }
    if (pix_append_row(state, static_cast<void *const *>(buffers))) {
        PIX_FAIL(PIX_WRITE_FAILED, PIX_MSG_CANNOT_WRITE, y, strerror(errno));
        return PIX_WRITE_FAILED;
    }
    state->row += 1;
    vyn__err = PIX_OK;
    return PIX_OK;
}
