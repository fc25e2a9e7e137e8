// A host in C, as small as one can be: what host/ declares must serve it as it serves C++.
#include "host/capabilities.h"

typedef int32_t (*Open)(ImageHandle *handle);

// Copies colour and matte of an image, and closes both. Returns 0 when all went well.
int copy_in_c(const CapabilityEntry *table, Open read_open, ImageHandle *from, Open write_open,
              ImageHandle *to)
{
    CapabilityRequest input = {
        PIX_CAP_INPUT_CHANNELS, {0}, table->choices->rows[PIX_CHANNELS_RGB_MATTE].value};
    CapabilityRequest output = {PIX_CAP_OUTPUT_CHANNELS, {0}, PIX_CHANNELS_UNDECIDED};
    CapabilityRequest *requests[] = {&input, NULL, &output, NULL};
    from->capability_requests = requests;
    to->capability_requests = requests + 2;
    int failed = read_open(from) != 1;
    to->info->data_window = from->info->data_window;
    to->info->channel_count = from->info->channel_count;
    to->info->matte_count = from->info->matte_count;
    to->info->aux_count = from->info->aux_count;
    failed |= write_open(to) != 1;
    for (int32_t y = from->info->height; !failed && y-- > 0;) {
        void **rows = NULL;
        failed = from->scanline_proc(from->priv->state, y, &rows) ||
                 to->scanline_proc(to->priv->state, y, rows);
    }
    return from->close_proc(from) || to->close_proc(to) || failed;
}
