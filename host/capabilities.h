// The capability table as the host reads it: codes and values of requests, and the records. The
// host owns the layouts, pinned like those of host/vyn.h. imageCapability hands out the table; a
// CapabilityRequest carries an entry's code and the value of one of its choices.
//
// Labels are default words; the host's catalogue may have others, under their set and number. Bytes
// called `reserved_*` are 0.
#pragma once

#include "host/vyn.h"

// Capability codes. An open for reading accepts requests with the first code, an open for writing
// with the second; the last request counts. A request with any other code gives a warning,
// PIX_UNSUPPORTED, and the requests after it are ignored.
enum { PIX_CAP_INPUT_CHANNELS = 0, PIX_CAP_OUTPUT_CHANNELS = 1 };

// Channel choices, the values of requests. Undecided, or no request at all, means all; a value that
// is not listed asks for no companion.
enum {
    PIX_CHANNELS_UNDECIDED = -1,
    PIX_CHANNELS_RGB = 0,
    PIX_CHANNELS_RGB_MATTE = 1,
    PIX_CHANNELS_RGB_MATTE_Z = 2
};

typedef struct CapabilityChoice {
    int32_t value; // that a request carries to make this choice
    uint8_t reserved_4[12];
    int32_t label_set; // 0 in the row that ends a list
    int32_t label_number;
    const char *label;
} CapabilityChoice;
static_assert(sizeof(CapabilityChoice) == 32 && PIX_AT(CapabilityChoice, value, 0) &&
                  PIX_AT(CapabilityChoice, label_set, 16) &&
                  PIX_AT(CapabilityChoice, label_number, 20) && PIX_AT(CapabilityChoice, label, 24),
              "the host's layout");

typedef struct CapabilityChoiceList {
    int32_t kind; // 1; the meaning is the host's
    uint8_t reserved_4[4];
    const CapabilityChoice *rows;
} CapabilityChoiceList;
static_assert(sizeof(CapabilityChoiceList) == 16 && PIX_AT(CapabilityChoiceList, kind, 0) &&
                  PIX_AT(CapabilityChoiceList, rows, 8),
              "the host's layout");

struct CapabilityEntry {
    uint16_t code;
    uint8_t reserved_2[14];
    int32_t label_set; // 0 in the entry that ends the table
    int32_t label_number;
    const char *label;
    uint8_t reserved_32[8];
    const CapabilityChoiceList *choices;
    uint32_t flags; // 1: applies to reading; 2: to writing
    uint8_t reserved_52[4];
};
static_assert(sizeof(CapabilityEntry) == 56 && PIX_AT(CapabilityEntry, code, 0) &&
                  PIX_AT(CapabilityEntry, label_set, 16) &&
                  PIX_AT(CapabilityEntry, label_number, 20) && PIX_AT(CapabilityEntry, label, 24) &&
                  PIX_AT(CapabilityEntry, choices, 40) && PIX_AT(CapabilityEntry, flags, 48),
              "the host's layout");
