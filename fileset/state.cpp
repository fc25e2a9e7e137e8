// Making the state of an open image.
#include "fileset/state.h"

#include "host/messages.h"

void *pix_allocate(size_t size)
{
    void *block = ERR_malloc(size);
    vyn__err = block ? vyn__err : PIX_NO_MEMORY;
    return block;
}

int pix_save_text(char **slot, const char *text)
{
    *slot = STR_save(text);
    if (*slot) {
        return PIX_OK;
    }
    PIX_FAIL(PIX_NO_MEMORY, PIX_MSG_NO_MEMORY);
    return PIX_NO_MEMORY;
}

PixState *pix_attach_state(ImageHandle *handle)
{
    handle->priv = static_cast<PixPrivate *>(pix_allocate(sizeof(PixPrivate)));
    if (!handle->priv) {
        return nullptr;
    }
    handle->priv->state = nullptr;
    PixState *state = static_cast<PixState *>(pix_allocate(sizeof(PixState)));
    handle->priv->state = state;
    if (state) {
        *state = {};
        state->mode = 'r';
        state->fields = 1;
        state->channel_choice = PIX_CHANNELS_UNDECIDED;
    }
    return state;
}

void pix_move_main_file(PixState *state, PixKind kind)
{
    for (int field = 0; field < 2; ++field) {
        state->plane[kind].file[field] = state->plane[PIX_COLOUR].file[field];
        state->plane[PIX_COLOUR].file[field] = {};
    }
    state->plane[PIX_COLOUR].present = false;
    state->plane[kind].present = true;
}

const char *pix_shown_name(const ImageHandle *handle, const PixState *state)
{
    const char *name = state->plane[PIX_COLOUR].name;
    return name ? name : handle->file_name;
}
