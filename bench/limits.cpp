// The least that reading and writing a picture takes.
#include "bench/bench.h"

#include "format/header.h"
#include "format/packets.h"

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <string.h>
#include <unistd.h>

constexpr size_t CHUNK = 65536; // bytes of one call

static PixRow pix_row(void *const *rows, size_t channels)
{
    return {rows, static_cast<int32_t>(channels), WIDTH, 0};
}

// --- Reading --------------------------------------------------------------------------------

// Decodes what is in the span, from the middle of a row on; returns how many rows it completes.
static int32_t decode_rows(PixSpan *span, PixRow *row)
{
    int32_t rows = 0;
    while (pix_decode(span, row, pix_can_shuffle) == PIX_STOP_ROW) {
        row->done = 0;
        ++rows;
    }
    return rows;
}

int32_t decode_packets(const Bytes &packets, const std::vector<void *> &rows)
{
    PixSpan span = {packets.data(), packets.data() + packets.size()};
    PixRow row = pix_row(rows.data(), rows.size());
    return decode_rows(&span, &row);
}

int32_t decode_file(const std::string &path, const std::vector<void *> &rows)
{
    uint8_t bytes[PIX_MAX_PACKET + CHUNK];
    uint8_t *const chunk = bytes + PIX_MAX_PACKET; // the start of a packet goes before it
    const uint8_t *start = chunk + sizeof(PixHeader);
    PixRow row = pix_row(rows.data(), rows.size());
    int32_t count = 0;
    const int file = open(path.c_str(), O_RDONLY);
    for (ssize_t got = 0; (got = read(file, chunk, CHUNK)) > 0;) {
        PixSpan span = {start, chunk + got};
        count += decode_rows(&span, &row);
        const auto left = static_cast<size_t>(span.end - span.at);
        if (left >= PIX_MAX_PACKET) {
            fail(path, "cannot decode");
        }
        start = static_cast<uint8_t *>(memcpy(chunk - left, span.at, left));
    }
    close(file);
    return count;
}

void copy_rows(const Picture &picture, const std::vector<void *> &rows)
{
    void *from[PIX_COLOUR_CHANNELS];
    for (int32_t y = 0; y < HEIGHT; ++y) {
        point_at_row(picture, y, from);
        for (size_t plane = 0; plane < rows.size(); ++plane) {
            memcpy(rows[plane], from[plane], WIDTH);
            benchmark::DoNotOptimize(rows[plane]);
        }
        benchmark::ClobberMemory();
    }
}

void swap_file(const std::string &path)
{
    uint32_t samples[CHUNK / sizeof(uint32_t)];
    const int file = open(path.c_str(), O_RDONLY);
    while (read(file, samples, sizeof samples) > 0) {
        for (uint32_t &sample : samples) {
            sample = __builtin_bswap32(sample);
        }
        benchmark::DoNotOptimize(samples);
    }
    close(file);
}

// --- Writing --------------------------------------------------------------------------------

void encode_picture(const Picture &picture, const Take &take)
{
    uint8_t bytes[CHUNK + PIX_ENCODE_ROOM];
    size_t used = 0;
    void *rows[PIX_COLOUR_CHANNELS];
    for (int32_t y = 0; y < HEIGHT; ++y) {
        point_at_row(picture, y, rows);
        PixRow row = pix_row(rows, picture.planes.size());
        for (;;) {
            used += pix_encode(&row, bytes + used, sizeof bytes - used, pix_can_shuffle);
            if (row.done == WIDTH) {
                break;
            }
            take(bytes, CHUNK); // there is no room: that is more than a chunk
            used -= CHUNK;
            memmove(bytes, bytes + CHUNK, used);
        }
    }
    take(bytes, used);
}

void encode_file(const std::string &path, const Picture &picture)
{
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
    encode_picture(picture, [&](const uint8_t *bytes, size_t size) {
        if (write(file, bytes, size) != static_cast<ssize_t>(size)) {
            fail(path, "cannot write");
        }
    });
    close(file);
}
