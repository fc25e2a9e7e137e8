// What an input of any fuzz target is made of, and checks that stop the process, which is how a
// fuzzer learns of a finding.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>

#define CHECK(condition)                                                                           \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            fprintf(stderr, "%s:%d: not true: %s\n", __FILE__, __LINE__, #condition);              \
            abort();                                                                               \
        }                                                                                          \
    } while (0)

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

// An input, taken byte by byte or in parts. Past its end there are zeros.
struct Input {
    const uint8_t *data;
    size_t left;

    uint32_t number(int bytes) // the highest first
    {
        uint32_t value = 0;
        for (; bytes > 0; --bytes, left -= left > 0) {
            value = value << 8 | (left > 0 ? *data++ : 0U);
        }
        return value;
    }
    Input take(size_t size)
    {
        const Input taken = {data, std::min(size, left)};
        data += taken.left;
        left -= taken.left;
        return taken;
    }
};
