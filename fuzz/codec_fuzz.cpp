// Codes a row in memory. The first bytes of the input choose the row; the others are its packets.
#include "fuzz/harness.h"
#include "tests/packets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Input input(data, size);
    CodedRow row = {number(&input, 1) % 2 ? 1 : 3, static_cast<int32_t>(number(&input, 2) % 1024)};
    row.room += number(&input, 2) % 2048;
    row.cut = number(&input, 1);
    row.packets.assign(input.begin(), input.end());
    assert(codec_agrees(row));
    return 0;
}
