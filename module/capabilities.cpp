// The capability table, its export, and the resolution of requests that both opens share.
#include "module/capabilities.h"

#include "host/messages.h"

constexpr uint32_t PIX_READS = 1;
constexpr uint32_t PIX_WRITES = 2;

static const CapabilityChoice PIX_INPUT_ROWS[] = {
    {PIX_CHANNELS_RGB, {}, PIX_LABEL_SET, 368, "RGB only"},
    {PIX_CHANNELS_RGB_MATTE, {}, PIX_LABEL_SET, 369, "RGB and matte"},
    {PIX_CHANNELS_RGB_MATTE_Z, {}, PIX_LABEL_SET, 370, "RGB, matte and Z-depth"},
    {1, {}, 0, 0, nullptr},
};
static const CapabilityChoice PIX_OUTPUT_ROWS[] = {
    {PIX_CHANNELS_RGB, {}, PIX_LABEL_SET, 372, "RGB only"},
    {PIX_CHANNELS_RGB_MATTE, {}, PIX_LABEL_SET, 373, "RGB and matte"},
    {PIX_CHANNELS_RGB_MATTE_Z, {}, PIX_LABEL_SET, 374, "RGB, matte and Z-depth"},
    {1, {}, 0, 0, nullptr},
};

static const CapabilityChoiceList PIX_INPUTS = {1, {}, PIX_INPUT_ROWS};
static const CapabilityChoiceList PIX_OUTPUTS = {1, {}, PIX_OUTPUT_ROWS};

static constexpr CapabilityEntry pix_entry(uint16_t code, int32_t label, const char *text,
                                           const CapabilityChoiceList *choices, uint32_t flags)
{
    return {code, {}, PIX_LABEL_SET, label, text, {}, choices, flags, {}};
}

static const CapabilityEntry PIX_CAPABILITIES[] = {
    pix_entry(PIX_CAP_INPUT_CHANNELS, 367, "Input Channels", &PIX_INPUTS, PIX_READS),
    pix_entry(PIX_CAP_OUTPUT_CHANNELS, 371, "Output Channels", &PIX_OUTPUTS, PIX_WRITES),
    {65535, {}, 0, 0, nullptr, {}, nullptr, 0, {}},
};

void imageCapability(const CapabilityEntry **table, int32_t *input_count, int32_t *output_count,
                     int32_t *entry_count)
{
    *table = PIX_CAPABILITIES;
    *input_count = *output_count = *entry_count = 0;
    for (const CapabilityEntry *entry = PIX_CAPABILITIES; entry->label_set != 0; ++entry) {
        *entry_count += 1;
        *input_count += (entry->flags & PIX_READS) != 0;
        *output_count += (entry->flags & PIX_WRITES) != 0;
    }
}

int32_t pix_choose_channels(const ImageHandle *handle, uint16_t accepted)
{
    int32_t choice = PIX_CHANNELS_UNDECIDED;
    CapabilityRequest *const *requests = handle->capability_requests;
    for (; requests && *requests; ++requests) {
        const CapabilityRequest *request = *requests;
        if (request->code != accepted) {
            PIX_FAIL(PIX_UNSUPPORTED, PIX_MSG_UNKNOWN_CAPABILITY, request->code);
            break;
        }
        choice = request->value;
    }
    return choice == PIX_CHANNELS_UNDECIDED ? PIX_CHANNELS_RGB_MATTE_Z : choice;
}
