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

// For three channels of each row, for a span, and for what each way encodes.
enum Block { ROW = 0, ROW_AGAIN = 3, OTHER_ROW = 6, SPAN = 9, PACKETS, OTHER_PACKETS };

// Memory that ends with its heap block, so that AddressSanitizer sees every access behind it. The
// blocks stay from input to input: to make them takes longer than to code a row.
uint8_t *get_memory(int block, size_t size)
{
    static std::vector<uint8_t> blocks[OTHER_PACKETS + 1];
    blocks[block].resize(MAX_SIZE);
    return blocks[block].data() + MAX_SIZE - size;
}

PixRow make_row(Block block, int32_t channels, size_t width)
{
    static void *buffers[SPAN];
    for (int i = block; i < block + 3; ++i) {
        buffers[i] = memset(get_memory(i, width), 0, width);
    }
    return {buffers + block, channels, static_cast<int32_t>(width), 0};
}

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
    PixRow other = make_row(OTHER_ROW, row->channels, static_cast<size_t>(row->width));
    other.buffers = row->buffers ? other.buffers : nullptr;
    PixStop stop = PIX_STOP_SPAN;
    size_t taken = 0;
    size_t end = 0;
    do {
        end = cuts.left > 0 ? std::min(bytes.left, end + cuts.number(1)) : bytes.left;
        uint8_t *const block = get_memory(SPAN, end - taken);
        std::copy(bytes.data + taken, bytes.data + end, block);
        PixSpan span = {block, block + (end - taken)};
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
std::vector<uint8_t> encode(PixRow row, size_t room)
{
    std::vector<uint8_t> packets;
    PixRow other = row;
    while (row.done < row.width) {
        uint8_t *const bytes = get_memory(PACKETS, room);
        const size_t size = pix_encode(&row, bytes, room, false);
        CHECK(size > 0 && size <= room);
        CHECK(row.done == row.width || room - size < PIX_ENCODE_ROOM);
        uint8_t *const same = get_memory(OTHER_PACKETS, room);
        CHECK(pix_encode(&other, same, room, pix_can_shuffle) == size && other.done == row.done);
        CHECK(std::equal(bytes, bytes + size, same));
        packets.insert(packets.end(), bytes, bytes + size);
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

    PixRow row = make_row(ROW, channels, width);
    auto decoded = decode(input, cuts, &row);
    if (decoded.first == PIX_STOP_WIDTH) {
        decoded.first = PIX_STOP_ROW; // when it is passed over
    }
    PixRow passed = {nullptr, channels, row.width, 0};
    CHECK(decode(input, cuts, &passed) == decoded);

    const std::vector<uint8_t> packets = encode({row.buffers, channels, row.done, 0}, room);
    PixRow again = make_row(ROW_AGAIN, channels, static_cast<size_t>(row.done));
    decoded = {PIX_STOP_ROW, packets.size()};
    CHECK(decode({packets.data(), packets.size()}, cuts, &again) == decoded);
    check_same(row, again);
    return 0;
}
