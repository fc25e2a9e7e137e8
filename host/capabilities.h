// The capability table as the host reads it: codes and values of requests, and the records. The
// host owns the layouts, pinned like those of host/vyn.h.
#pragma once

#include <stddef.h>
#include <stdint.h>

// Capability codes.
constexpr uint16_t PIX_CAP_INPUT_CHANNELS = 0;
constexpr uint16_t PIX_CAP_OUTPUT_CHANNELS = 1;

// Channel choices, the values of requests. Undecided means all; a value that is not listed asks for
// no companion.
constexpr int32_t PIX_CHANNELS_UNDECIDED = -1;
constexpr int32_t PIX_CHANNELS_RGB = 0;
constexpr int32_t PIX_CHANNELS_RGB_MATTE = 1;
constexpr int32_t PIX_CHANNELS_RGB_MATTE_Z = 2;

struct CapabilityChoice {
    int32_t value; // that a request carries to make this choice
    uint8_t reserved_4[12];
    int32_t label_set; // 0 in the row that ends a list
    int32_t label_number;
    const char *label;
};

struct CapabilityChoiceList {
    int32_t kind;
    uint8_t reserved_4[4];
    const CapabilityChoice *rows;
};

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

static_assert(sizeof(CapabilityChoice) == 32);
static_assert(offsetof(CapabilityChoice, value) == 0);
static_assert(offsetof(CapabilityChoice, label_set) == 16);
static_assert(offsetof(CapabilityChoice, label_number) == 20);
static_assert(offsetof(CapabilityChoice, label) == 24);
static_assert(sizeof(CapabilityChoiceList) == 16);
static_assert(offsetof(CapabilityChoiceList, kind) == 0);
static_assert(offsetof(CapabilityChoiceList, rows) == 8);
static_assert(sizeof(CapabilityEntry) == 56);
static_assert(offsetof(CapabilityEntry, code) == 0);
static_assert(offsetof(CapabilityEntry, label_set) == 16);
static_assert(offsetof(CapabilityEntry, label_number) == 20);
static_assert(offsetof(CapabilityEntry, label) == 24);
static_assert(offsetof(CapabilityEntry, choices) == 40);
static_assert(offsetof(CapabilityEntry, flags) == 48);
