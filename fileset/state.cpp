// Making the state, giving it streams, and finding what it holds by kind and by row.
#include "fileset/state.h"

#include "host/capabilities.h"
#include "host/messages.h"

#include <stdio_ext.h>
#include <stdlib.h>
#include <sys/stat.h>

PixState *pix_attach_state(ImageHandle *handle)
{
    handle->priv = static_cast<PixPrivate *>(ERR_malloc(sizeof(PixPrivate)));
    if (!handle->priv) {
        vyn__err = PIX_NO_MEMORY;
        return nullptr;
    }
    handle->priv->state = nullptr;
    PixState *state = static_cast<PixState *>(ERR_malloc(sizeof(PixState)));
    handle->priv->state = state;
    if (!state) {
        vyn__err = PIX_NO_MEMORY;
        return nullptr;
    }
    *state = {};
    state->mode = 'r';
    state->channel_choice = PIX_CHANNELS_UNDECIDED;
    return state;
}

// Bytes of a stream's buffer. System calls may be dear, so writing gets a large one, and so does a
// file that fits into it whole. Rows of a longer one that are read out of order fill a whole buffer
// each, and in reverse order two where they lie across its edge: the small size serves both.
constexpr size_t PIX_SMALL_BUFFER = 8192;
constexpr size_t PIX_LARGE_BUFFER = 65536;

static size_t pix_buffer_size(FILE *fp, const char *mode)
{
    struct stat file;
    const bool large = mode[0] == 'w' ||
                       (fstat(fileno(fp), &file) == 0 && file.st_size <= off_t{PIX_LARGE_BUFFER});
    return large ? PIX_LARGE_BUFFER : PIX_SMALL_BUFFER;
}

FILE *pix_open_stream(PixState *state, const char *name, const char *mode)
{
    FILE *fp = fopen(name, mode);
    if (!fp || __fbufsize(fp) != 0) {
        return fp;
    }
    const int kept = errno;
    const size_t size = pix_buffer_size(fp, mode);
    for (char *&buffer : state->buffers) {
        if (!buffer) {
            buffer = static_cast<char *>(malloc(size));
            if (buffer) {
                (void)setvbuf(fp, buffer, _IOFBF, size);
            }
            break;
        }
    }
    errno = kept;
    return fp;
}

PixKindSlots pix_kind_slots(PixState *state, PixKind kind)
{
    PixFieldFiles *field = state->field;
    switch (kind) {
    case PIX_KIND_COLOUR:
        return {{&state->colour_fp, &field[0].colour_fp, &field[1].colour_fp},
                &state->colour_name,
                &state->has_colour};
    case PIX_KIND_MATTE:
        return {{&state->matte_fp, &field[0].matte_fp, &field[1].matte_fp},
                &state->matte_name,
                &state->has_matte};
    case PIX_KIND_DEPTH:
        break;
    }
    return {{&state->depth_fp, &field[0].depth_fp, &field[1].depth_fp},
            &state->depth_name,
            &state->has_depth};
}

PixRowFiles pix_row_files(const PixState *state, uint32_t row)
{
    if (!state->fields) {
        return {state->colour_fp, state->matte_fp, state->depth_fp};
    }
    const PixFieldFiles *field = &state->field[row & 1];
    return {field->colour_fp, field->matte_fp, field->depth_fp};
}

const char *pix_shown_name(const ImageHandle *handle, const PixState *state)
{
    return state->colour_name ? state->colour_name : handle->file_name;
}

void *pix_matte_buffer(const PixState *state, void *const *rows)
{
    return rows[state->has_colour ? 3 : 0];
}

int32_t *pix_depth_buffer(const PixState *state, void *const *rows)
{
    return static_cast<int32_t *>(rows[(state->has_colour ? 3 : 0) + (state->has_matte ? 1 : 0)]);
}

bool pix_is_standard_stream(const FILE *fp)
{
    return fp == stdin || fp == stdout;
}
