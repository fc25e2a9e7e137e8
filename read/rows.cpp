// Rows from streams: decoded from what lies in a stream's buffer, and packet by packet where the
// row goes beyond the buffer or the buffer is not accessible.
#include "read/read.h"

#include "fileset/stream.h"
#include "host/messages.h"

#include <stdlib.h>

// --- Spans ----------------------------------------------------------------------------------

// Returns what lies in the stream's buffer if that is `size` bytes or more; else the next `size`
// bytes, read into `item`; or a null span when the stream ends before them.
static PixSpan pix_lend(FILE *fp, uint8_t *item, size_t size)
{
    const PixSpan span = pix_look(fp);
    if (span.end - span.at >= static_cast<ptrdiff_t>(size)) {
        return span;
    }
    return fread(item, size, 1, fp) == 1 ? PixSpan{item, item + size} : PixSpan{};
}

// --- Rows of one file -----------------------------------------------------------------------

// Adds the bytes of the row to `size`.
static int pix_read_packets(FILE *fp, PixRow row, long *size)
{
    while (row.done < row.width) {
        uint8_t packet[PIX_MAX_PACKET];
        const PixSpan lent = pix_lend(fp, packet, 1 + static_cast<size_t>(row.channels));
        if (!lent.at) {
            return PIX_READ_FAILED;
        }
        PixSpan span = lent;
        const PixStop stop = pix_decode(&span, &row, pix_can_shuffle);
        if (lent.at != packet) {
            pix_consume(fp, span.at - lent.at);
        }
        *size += span.at - lent.at;
        if (stop == PIX_STOP_WIDTH) {
            return PIX_UNDECODABLE;
        }
    }
    return PIX_OK;
}

static int pix_read_floats(FILE *fp, size_t count, int32_t *buffer)
{
    while (count > 0) {
        uint8_t sample[PIX_DEPTH_SAMPLE_SIZE];
        const PixSpan lent = pix_lend(fp, sample, sizeof sample);
        if (!lent.at) {
            return PIX_READ_FAILED;
        }
        const size_t there = static_cast<size_t>(lent.end - lent.at) / sizeof sample;
        const size_t some = there < count ? there : count;
        pix_convert_floats(lent.at, some, buffer);
        if (lent.at != sample) {
            pix_consume(fp, static_cast<long>(some * sizeof sample));
        }
        buffer += some;
        count -= some;
    }
    return PIX_OK;
}

int32_t pix_read_depth_row(FILE *fp, int32_t width, int32_t kind, int32_t *buffer)
{
    if (kind != PIX_DEPTH_INT && kind != PIX_DEPTH_FLOAT) {
        abort(); // GCOV_EXCL_LINE: the process ends before coverage is recorded
    }
    const auto count = static_cast<size_t>(width);
    if (kind == PIX_DEPTH_FLOAT) {
        vyn__err = pix_read_floats(fp, count, buffer);
    } else if (fread(buffer, PIX_DEPTH_SAMPLE_SIZE, count, fp) == count) {
        pix_swap_samples(buffer, count);
        vyn__err = PIX_OK;
    } else {
        vyn__err = PIX_READ_FAILED;
    }
    return vyn__err;
}

// --- Rows of an image -----------------------------------------------------------------------

// Reads a row of one kind, or passes over it. A depth row is passed over by a seek, which, when it
// fails, leaves the files at different rows.
static int pix_take_row(PixState *state, PixKind kind, FILE *fp, void *const *rows, long *size)
{
    if (kind != PIX_DEPTH) {
        return pix_read_packets(fp, {rows, PIX_FACTS[kind].buffers, state->width, 0}, size);
    }
    if (rows) {
        auto *buffer = static_cast<int32_t *>(rows[0]);
        return pix_read_depth_row(fp, state->width, state->depth_kind, buffer);
    }
    if (fseek(fp, long{state->width} * long{PIX_DEPTH_SAMPLE_SIZE}, SEEK_CUR) == 0) {
        return PIX_OK;
    }
    state->place = PIX_LOST;
    return PIX_READ_FAILED;
}

int pix_next_row(PixState *state, void *const *rows)
{
    for (const PixKind kind : PIX_KINDS) {
        const PixPlane *plane = &state->plane[kind];
        if (!plane->present) {
            continue;
        }
        // A standard stream may be in the hands of the host's other threads too.
        FILE *fp = plane->file[state->row % state->fields].fp;
        long size = 0;
        flockfile(fp);
        const int failure = pix_take_row(state, kind, fp, rows, &size);
        funlockfile(fp);
        if (failure) {
            state->place = state->place == PIX_LOST ? PIX_LOST : PIX_ASTRAY;
            return failure;
        }
        if (plane->starts && state->place == PIX_AT_ROW) {
            plane->starts[state->row + state->fields] = plane->starts[state->row] + size;
        }
        rows = rows ? rows + PIX_FACTS[kind].buffers : nullptr;
    }
    state->row += 1;
    if (state->table && state->place == PIX_AT_ROW && state->row > state->known_rows) {
        state->known_rows = state->row;
    }
    return PIX_OK;
}
