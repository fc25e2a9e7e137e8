// A host in C, as small as one can be: what host/ declares must serve it as it serves C++.
#include "host/capabilities.h"

typedef int32_t (*Open)(ImageHandle *handle);

static int32_t end(ImageHandle *handle)
{
    if (handle->close_proc) {
        return handle->close_proc(handle);
    }
    vyn__free_obj(handle);
    return 0;
}

// Copies an image, with the channels of row `choice` of the table's first capability. Ends both
// handles. Returns 0 when all went well.
int copy_in_c(const CapabilityEntry *table, int choice, Open read_open, ImageHandle *from,
              Open write_open, ImageHandle *to)
{
    CapabilityRequest input = {PIX_CAP_INPUT_CHANNELS, {0}, table->choices->rows[choice].value};
    CapabilityRequest output = {PIX_CAP_OUTPUT_CHANNELS, {0}, PIX_CHANNELS_UNDECIDED};
    CapabilityRequest *requests[] = {&input, NULL, &output, NULL};
    from->capability_requests = requests;
    to->capability_requests = requests + 2;
    int failed = read_open(from) != 1;
    if (!failed) {
        to->info->data_window = from->info->data_window;
        to->info->channel_count = from->info->channel_count;
        to->info->matte_count = from->info->matte_count;
        to->info->aux_count = from->info->aux_count;
        failed = write_open(to) != 1;
    }
    for (int32_t y = failed ? 0 : from->info->height; !failed && y-- > 0;) {
        void **rows = NULL;
        failed = from->scanline_proc(from->priv->state, y, &rows) ||
                 to->scanline_proc(to->priv->state, y, rows);
    }
    return (end(from) | end(to)) != 0 || failed;
}
