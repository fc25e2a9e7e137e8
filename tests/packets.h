// Compares the codec, with and without byte shuffles, with plain loops over packets and pixels. The
// codec reads from heap blocks without spare bytes, so that AddressSanitizer finds a read beyond
// their end. Guard bytes behind the blocks for its output find a write beyond the end, in every
// build.
#pragma once

#include "format/packets.h"

#include <algorithm>
#include <vector>

using Bytes = std::vector<uint8_t>;

constexpr int GUARD = 32; // bytes
constexpr uint8_t UNTOUCHED = 0xEE;

struct CodedRow {
    int32_t channels;
    int32_t width;
    Bytes packets = {};
    size_t cut = 0;                // the bytes of the first of two spans
    size_t room = PIX_ENCODE_ROOM; // of each call that encodes
};

// What comes of a row.
struct Coded {
    PixStop stop = PIX_STOP_SPAN;
    size_t taken = 0;               // bytes
    int32_t done = 0;               // pixels; those passed over may be more than the width
    std::vector<Bytes> planes = {}; // the same pixels, unless they were passed over
    Bytes packets = {};             // what these are encoded to
    bool operator==(const Coded &) const = default;
};

inline Coded code_literally(const CodedRow &row, bool stored)
{
    Coded coded = {row.width > 0 ? PIX_STOP_SPAN : PIX_STOP_ROW};
    coded.planes.resize(stored ? static_cast<size_t>(row.channels) : 0);
    const ptrdiff_t size = 1 + row.channels; // of a packet
    const uint8_t *const end = row.packets.data() + row.packets.size();
    for (const uint8_t *packet = row.packets.data();
         coded.stop == PIX_STOP_SPAN && end - packet >= size; packet += size) {
        const int32_t left = row.width - coded.done - packet[0];
        coded.stop = left > 0 ? PIX_STOP_SPAN : left < 0 && stored ? PIX_STOP_WIDTH : PIX_STOP_ROW;
        coded.taken += static_cast<size_t>(size);
        coded.done += coded.stop == PIX_STOP_WIDTH ? 0 : packet[0];
        for (int pixel = 0; stored && left >= 0 && pixel < packet[0]; ++pixel) {
            const uint8_t *value = packet + row.channels;
            for (Bytes &plane : coded.planes) {
                plane.push_back(*value--);
            }
            Bytes &to = coded.packets;
            if (to.empty() || *(to.end() - size) == PIX_MAX_RUN ||
                !std::equal(packet + 1, packet + size, to.end() - row.channels)) {
                to.insert(to.end(), packet, packet + size);
                *(to.end() - size) = 0;
            }
            ++*(to.end() - size);
        }
    }
    return coded;
}

// Cuts a block to the bytes that are used. A block whose guard was overwritten keeps its full size,
// so that a comparison fails.
inline void trim(Bytes *block, size_t used)
{
    const bool intact = std::count(block->end() - GUARD, block->end(), UNTOUCHED) == GUARD;
    block->resize(intact ? used : block->size());
    block->shrink_to_fit();
}

inline Coded code(const CodedRow &row, bool stored, bool shuffle)
{
    Coded coded;
    std::vector<void *> buffers;
    for (int channel = 0; stored && channel < row.channels; ++channel) {
        coded.planes.emplace_back(row.width + GUARD, UNTOUCHED);
        buffers.push_back(coded.planes.back().data());
    }
    PixRow pixels = {stored ? buffers.data() : nullptr, row.channels, row.width, 0};
    const size_t ends[] = {std::min(row.cut, row.packets.size()), row.packets.size()};
    for (int span = 0; span < 2 && coded.stop == PIX_STOP_SPAN; ++span) {
        const Bytes block(row.packets.data() + coded.taken, row.packets.data() + ends[span]);
        PixSpan left = {block.data(), block.data() + block.size()};
        coded.stop = pix_decode(&left, &pixels, shuffle);
        coded.taken += static_cast<size_t>(left.at - block.data());
    }
    coded.done = pixels.done;
    buffers.clear();
    for (Bytes &plane : coded.planes) {
        trim(&plane, static_cast<size_t>(coded.done));
        buffers.push_back(plane.data());
    }
    pixels = {buffers.data(), row.channels, stored ? coded.done : 0, 0};
    // While pixels are left, pix_encode may stop only when less than PIX_ENCODE_ROOM is free.
    // Otherwise the loop ends, and the empty result below differs from that of the plain loops.
    for (size_t size = row.room; pixels.done < pixels.width && row.room - size < PIX_ENCODE_ROOM;) {
        Bytes block(row.room + GUARD, UNTOUCHED);
        size = pix_encode(&pixels, block.data(), row.room, shuffle);
        trim(&block, size);
        coded.packets.insert(coded.packets.end(), block.begin(), block.end());
    }
    return pixels.done == pixels.width ? coded : Coded();
}

inline bool codec_agrees(const CodedRow &row)
{
    const auto agree = [&](bool stored, bool shuffle) {
        return code(row, stored, shuffle) == code_literally(row, stored);
    };
    return agree(false, false) && agree(true, false) && agree(true, pix_can_shuffle);
}
