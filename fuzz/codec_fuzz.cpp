// Codes rows in memory both ways, which must come to the same. The first bytes of the input choose
// the row; the others are packets. They are decoded and passed over, and what they are decoded to
// is encoded, and decoded again.
#include "format/packets.h"
#include "fuzz/input.h"

#include <string.h>

#include <utility>
#include <vector>

namespace {

constexpr size_t MAX_SIZE = 4096; // of an input, and of a row's packets
constexpr size_t MAX_WIDTH = MAX_SIZE / PIX_MAX_PACKET;

using Bytes = std::vector<uint8_t>; // just as long as they are used, for AddressSanitizer

// A row of zeros, with its memory.
struct Row {
    Row(int32_t channels, size_t width)
        : planes(3, Bytes(width)), row{buffers, channels, static_cast<int32_t>(width), 0}
    {
    }
    std::vector<Bytes> planes;
    void *buffers[3] = {planes[0].data(), planes[1].data(), planes[2].data()};
    PixRow row;
};

// As far as both are decoded.
void check_same(const PixRow &row, const PixRow &other)
{
    CHECK(row.done == other.done);
    for (int channel = 0; row.buffers && channel < row.channels; ++channel) {
        const auto *pixels = static_cast<const uint8_t *>(row.buffers[channel]);
        const auto *same = static_cast<const uint8_t *>(other.buffers[channel]);
        CHECK(std::equal(pixels, pixels + row.done, same));
    }
}

// Decodes both ways, in spans as long as the cuts say, and one of what is left. Returns why that
// stopped, and behind how many bytes.
std::pair<PixStop, size_t> decode(Input bytes, Input cuts, PixRow *row)
{
    Row again(row->channels, static_cast<size_t>(row->width));
    PixRow &other = again.row;
    other.buffers = row->buffers ? other.buffers : nullptr;
    PixStop stop = PIX_STOP_SPAN;
    size_t taken = 0;
    size_t end = 0;
    do {
        end = cuts.left > 0 ? std::min(bytes.left, end + cuts.number(1)) : bytes.left;
        const Bytes block(bytes.data + taken, bytes.data + end);
        PixSpan span = {block.data(), block.data() + block.size()};
        PixSpan same = span;
        stop = pix_decode(&span, row, false);
        CHECK(pix_decode(&same, &other, pix_can_shuffle) == stop);
        CHECK(span.at == same.at && span.at <= span.end);
        check_same(*row, other);
        taken = end - static_cast<size_t>(span.end - span.at);
    } while (stop == PIX_STOP_SPAN && end < bytes.left);
    return {stop, taken};
}

// Encodes both ways, in calls with this room.
Bytes encode(PixRow row, size_t room)
{
    Bytes packets;
    PixRow other = row;
    while (row.done < row.width) {
        Bytes bytes(room);
        Bytes same(room);
        const size_t size = pix_encode(&row, bytes.data(), room, false);
        CHECK(size > 0 && size <= room);
        CHECK(row.done == row.width || room - size < PIX_ENCODE_ROOM);
        CHECK(pix_encode(&other, same.data(), room, pix_can_shuffle) == size);
        CHECK(other.done == row.done && memcmp(bytes.data(), same.data(), size) == 0);
        packets.insert(packets.end(), bytes.data(), bytes.data() + size);
    }
    return packets;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Input input = {data, std::min(size, MAX_SIZE)};
    const uint32_t options = input.number(1);
    const int32_t channels = options & 1 ? PIX_MATTE_CHANNELS : PIX_COLOUR_CHANNELS;
    const size_t width = input.number(2) % MAX_WIDTH;
    const size_t room = PIX_ENCODE_ROOM + input.number(2) % 2048;
    const Input cuts = input.take(options >> 5);

    Row pixels(channels, width);
    PixRow &row = pixels.row;
    auto decoded = decode(input, cuts, &row);
    if (decoded.first == PIX_STOP_WIDTH) {
        decoded.first = PIX_STOP_ROW; // when it is passed over
    }
    PixRow passed = {nullptr, channels, row.width, 0};
    CHECK(decode(input, cuts, &passed) == decoded);

    const Bytes packets = encode({row.buffers, channels, row.done, 0}, room);
    Row again(channels, static_cast<size_t>(row.done));
    decoded = {PIX_STOP_ROW, packets.size()};
    CHECK(decode({packets.data(), packets.size()}, cuts, &again.row) == decoded);
    check_same(row, again.row);
    return 0;
}
