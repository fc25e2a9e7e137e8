// Writing PNG files through libpng: pictures, and views of a depth. What belongs in which channel
// is settled here; names and streams are the callers'.
#include "vorla/png_file.h"
#include "vorla/png_stream.h"

#include "format/depth.h"

#include <cstring>

namespace {

void write_bytes(png_structp png, png_bytep bytes, size_t size)
{
    FILE *file = static_cast<PngStream *>(png_get_io_ptr(png))->file;
    if (fwrite(bytes, 1, size, file) != size) {
        png_error(png, strerror(errno));
    }
}

void flush_bytes(png_structp) {}

struct PngWriter : RowWriter {
    PngStream stream;
    png_structp png = nullptr;
    png_infop info = nullptr;
    PictureShape shape;
    std::vector<uint8_t> packed; // a row as the file has it

    ~PngWriter() override
    {
        png_destroy_write_struct(&png, &info);
    }
    virtual void pack(void *const *rows);
    ExitCode write_row(void *const *rows) override;
    ExitCode finish() override;
};

// Interleaves the bytes of the channels that the file takes.
void PngWriter::pack(void *const *rows)
{
    const size_t channels = packed.size() / static_cast<size_t>(shape.width);
    for (size_t channel = 0; channel < channels; ++channel) {
        const uint8_t *samples = static_cast<const uint8_t *>(rows[channel]);
        for (size_t at = channel; at < packed.size(); at += channels) {
            packed[at] = *samples++;
        }
    }
}

ExitCode PngWriter::write_row(void *const *rows)
{
    pack(rows);
    const bool good = guarded(png, [this] { png_write_row(png, packed.data()); });
    return good ? EXIT_FINE : fail_png(stream, "cannot write", EXIT_IO);
}

ExitCode PngWriter::finish()
{
    const bool good = guarded(png, [this] { png_write_end(png, nullptr); });
    return good ? EXIT_FINE : fail_png(stream, "cannot write", EXIT_IO);
}

// A picture of the depth alone.
struct DepthViewWriter final : PngWriter {
    DepthRange range;

    void pack(void *const *rows) override;
};

void DepthViewWriter::pack(void *const *rows)
{
    const int32_t *samples = static_cast<const int32_t *>(rows[depth_index(shape)]);
    const int64_t span = int64_t{range.farthest} - range.nearest;
    for (size_t at = 0; at < packed.size(); at += 2) {
        const int64_t depth = *samples++;
        int64_t grey = 0;
        if (depth < PIX_DEPTH_LIMIT) {
            grey = span > 0 ? 65535 * (range.farthest - depth) / span : 65535;
        }
        packed[at] = static_cast<uint8_t>(grey >> 8);
        packed[at + 1] = static_cast<uint8_t>(grey & 255);
    }
}

// What begins a file, after its stream, name and shape have been set.
struct PngStart {
    int colour_type;
    size_t channels;
    int bits; // a sample
    std::string comment;
};

void write_beginning(PngWriter *writer, const PngStart &start)
{
    png_set_write_fn(writer->png, &writer->stream, write_bytes, flush_bytes);
    png_set_IHDR(writer->png, writer->info, static_cast<uint32_t>(writer->shape.width),
                 static_cast<uint32_t>(writer->shape.height), start.bits, start.colour_type,
                 PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_text text = {};
    char key[] = "Comment";
    if (!start.comment.empty()) {
        text.compression = PNG_TEXT_COMPRESSION_NONE;
        text.key = key;
        text.text = const_cast<char *>(start.comment.c_str()); // is only read
        text.text_length = start.comment.size();
        png_set_text(writer->png, writer->info, &text, 1);
    }
    png_write_info(writer->png, writer->info);
}

std::unique_ptr<RowWriter> start_writer(std::unique_ptr<PngWriter> writer, const PngStart &start)
{
    PngWriter *raw = writer.get();
    raw->packed.resize(static_cast<size_t>(raw->shape.width) * start.channels *
                       static_cast<size_t>(start.bits / 8));
    raw->png =
        png_create_write_struct(PNG_LIBPNG_VER_STRING, &raw->stream, keep_error, drop_warning);
    raw->info = raw->png ? png_create_info_struct(raw->png) : nullptr;
    if (!raw->info) {
        complain(raw->stream.name, "cannot write: libpng does not start");
        return nullptr;
    }
    if (!guarded(raw->png, [raw, &start] { write_beginning(raw, start); })) {
        (void)fail_png(raw->stream, "cannot write", EXIT_IO);
        return nullptr;
    }
    return writer;
}

} // namespace

std::unique_ptr<RowWriter> start_png(FILE *stream, const std::string &name,
                                     const PictureShape &shape)
{
    auto writer = std::make_unique<PngWriter>();
    writer->stream.file = stream;
    writer->stream.name = name;
    writer->shape = shape;
    if (!shape.colour) {
        return start_writer(std::move(writer), {PNG_COLOR_TYPE_GRAY, 1, 8, ""});
    }
    return start_writer(std::move(writer), shape.matte
                                               ? PngStart{PNG_COLOR_TYPE_RGB_ALPHA, 4, 8, ""}
                                               : PngStart{PNG_COLOR_TYPE_RGB, 3, 8, ""});
}

std::unique_ptr<RowWriter> start_depth_view(FILE *stream, const std::string &name,
                                            const PictureShape &shape, const DepthRange &range,
                                            const std::string &comment)
{
    auto writer = std::make_unique<DepthViewWriter>();
    writer->stream.file = stream;
    writer->stream.name = name;
    writer->shape = shape;
    writer->range = range;
    return start_writer(std::move(writer), {PNG_COLOR_TYPE_GRAY, 1, 16, comment});
}
