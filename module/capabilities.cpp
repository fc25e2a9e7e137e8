// The capability table, its export, and the resolution of requests that both opens share.
#include "module/capabilities.h"

#include "host/messages.h"

constexpr uint32_t PIX_CAP_READING = 1;
constexpr uint32_t PIX_CAP_WRITING = 2;
constexpr uint16_t PIX_CAP_END = 65535;

static constexpr CapabilityChoice pix_choice(int32_t value, PixLabel label)
{
    return {value, {}, PIX_LABEL_SET, label.number, label.text};
}

static constexpr CapabilityEntry pix_capability(uint16_t code, PixLabel label,
                                                const CapabilityChoiceList *choices, uint32_t flags)
{
    return {code, {}, PIX_LABEL_SET, label.number, label.text, {}, choices, flags, {}};
}

static const CapabilityChoice PIX_INPUT_ROWS[] = {
    pix_choice(PIX_CHANNELS_RGB, PIX_LABEL_INPUT_RGB),
    pix_choice(PIX_CHANNELS_RGB_MATTE, PIX_LABEL_INPUT_MATTE),
    pix_choice(PIX_CHANNELS_RGB_MATTE_Z, PIX_LABEL_INPUT_DEPTH),
    {1, {}, 0, 0, nullptr},
};

static const CapabilityChoice PIX_OUTPUT_ROWS[] = {
    pix_choice(PIX_CHANNELS_RGB, PIX_LABEL_OUTPUT_RGB),
    pix_choice(PIX_CHANNELS_RGB_MATTE, PIX_LABEL_OUTPUT_MATTE),
    pix_choice(PIX_CHANNELS_RGB_MATTE_Z, PIX_LABEL_OUTPUT_DEPTH),
    {1, {}, 0, 0, nullptr},
};

static const CapabilityChoiceList PIX_INPUT_CHOICES = {1, {}, PIX_INPUT_ROWS};
static const CapabilityChoiceList PIX_OUTPUT_CHOICES = {1, {}, PIX_OUTPUT_ROWS};

static const CapabilityEntry PIX_CAPABILITIES[] = {
    pix_capability(PIX_CAP_INPUT_CHANNELS, PIX_LABEL_INPUT, &PIX_INPUT_CHOICES, PIX_CAP_READING),
    pix_capability(PIX_CAP_OUTPUT_CHANNELS, PIX_LABEL_OUTPUT, &PIX_OUTPUT_CHOICES, PIX_CAP_WRITING),
    {PIX_CAP_END, {}, 0, 0, nullptr, {}, nullptr, 0, {}},
};

void imageCapability(const CapabilityEntry **table, int32_t *input_count, int32_t *output_count,
                     int32_t *entry_count)
{
    *table = PIX_CAPABILITIES;
    *input_count = 0;
    *output_count = 0;
    *entry_count = 0;
    for (const CapabilityEntry *entry = PIX_CAPABILITIES; entry->label_set != 0; ++entry) {
        *entry_count += 1;
        *input_count += (entry->flags & PIX_CAP_READING) != 0;
        *output_count += (entry->flags & PIX_CAP_WRITING) != 0;
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
