// Appending scanlines: one row to every file of the image.
#include "format/depth.h"
#include "format/rows.h"
#include "host/messages.h"
#include "write/write.h"

static int pix_encode_row(const PixState *state, void *const *rows)
{
    const PixRowFiles files = pix_row_files(state, state->row);
    int failure = PIX_OK;
    if (state->has_colour) {
        failure = pix_write_colour_row(files.colour, state->width, rows);
    }
    if (!failure && state->has_matte) {
        failure = pix_write_matte_row(files.matte, state->width, pix_matte_buffer(state, rows));
    }
    if (!failure && state->has_depth) {
        failure = pix_write_depth_row(files.depth, state->width, pix_depth_buffer(state, rows));
    }
    return failure;
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
    if (pix_encode_row(state, static_cast<void *const *>(buffers)) != 0) {
        PIX_FAIL(PIX_WRITE_FAILED, PIX_MSG_CANNOT_WRITE, y, strerror(errno));
        return PIX_WRITE_FAILED;
    }
    state->row += 1;
    vyn__err = PIX_OK;
    return PIX_OK;
}
