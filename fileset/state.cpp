// Making the state, and finding what it holds by kind and by row.
#include "fileset/state.h"

#include "host/capabilities.h"
#include "host/messages.h"

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
