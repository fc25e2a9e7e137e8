// Making the state of an open image.
#include "fileset/state.h"

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
    state->fields = 1;
    state->channel_choice = PIX_CHANNELS_UNDECIDED;
    return state;
}

void pix_move_main_file(PixState *state, PixKind kind)
{
    for (int field = 0; field < 2; ++field) {
        state->plane[kind].file[field] = state->plane[PIX_COLOUR].file[field];
        state->plane[PIX_COLOUR].file[field] = {};
    }
    state->plane[kind].present = true;
}

const char *pix_shown_name(const ImageHandle *handle, const PixState *state)
{
    const char *name = state->plane[PIX_COLOUR].name;
    return name ? name : handle->file_name;
}
