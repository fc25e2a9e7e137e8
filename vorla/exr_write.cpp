// Writing OpenEXR files through the C++ library, whose exceptions end here. One row at a time goes
// through a buffer that every scan line shares (a stride of 0 from line to line); the library keeps
// the block of lines that it compresses.
#include "vorla/exr_file.h"
#include "vorla/exr_stream.h"

#include <ImfChannelList.h>
#include <ImfFrameBuffer.h>
#include <ImfHeader.h>
#include <ImfIO.h>
#include <ImfOutputFile.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <vector>

namespace {

// The library drops what is thrown while it completes a file, so the stream keeps it.
struct OutputStream final : Imf::OStream {
    FILE *file;
    std::string problem;

    OutputStream(FILE *stream, const char *name) : Imf::OStream(name), file(stream) {}
    void write(const char bytes[], int size) override
    {
        if (fwrite(bytes, 1, static_cast<size_t>(size), file) != static_cast<size_t>(size)) {
            problem = strerror(errno);
            throw std::runtime_error(problem);
        }
    }
    uint64_t tellp() override
    {
        return tell(file);
    }
    void seekp(uint64_t position) override
    {
        if (fseeko(file, static_cast<off_t>(position), SEEK_SET) != 0) {
            problem = strerror(errno);
            throw std::runtime_error(problem);
        }
    }
};

// --- Samples --------------------------------------------------------------------------------

double to_linear(double value)
{
    return value <= 0.04045 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
}

using ByteTable = std::array<half, 256>;

ByteTable make_table(bool linear)
{
    ByteTable table;
    for (size_t byte = 0; byte < table.size(); ++byte) {
        const double value = static_cast<double>(byte) / 255;
        table[byte] = half(static_cast<float>(linear ? to_linear(value) : value));
    }
    return table;
}

// --- Writing --------------------------------------------------------------------------------

struct ExrWriter final : RowWriter {
    std::string name;
    OutputStream stream;
    PictureShape shape;
    ByteTable colour_table;
    ByteTable matte_table;
    std::vector<half> fractions[4];
    std::vector<uint32_t> whole; // Z, one or the other
    std::vector<float> floats;
    std::optional<Imf::OutputFile> file;

    ExrWriter(FILE *output, std::string shown)
        : name(std::move(shown)), stream(output, name.c_str())
    {
    }
    ExitCode write_row(void *const *rows) override;
    ExitCode finish() override;
};

ExitCode fail_writing(const std::string &name, const std::string &why)
{
    complain(name, "cannot write: " + why);
    return EXIT_IO;
}

// Makes the channel, with a buffer of one row.
template <class Sample>
void add_channel(Imf::Header *header, Imf::FrameBuffer *frame, const char *channel,
                 Imf::PixelType type, std::vector<Sample> *row, int32_t width)
{
    row->resize(static_cast<size_t>(width));
    header->channels().insert(channel, Imf::Channel(type));
    frame->insert(channel, Imf::Slice(type, reinterpret_cast<char *>(row->data()), sizeof(Sample)));
}

// May throw.
void begin_writing(ExrWriter *writer, bool depth_float)
{
    const PictureShape &shape = writer->shape;
    Imf::Header header(shape.width, shape.height, shape.pixel_aspect);
    header.compression() = Imf::ZIP_COMPRESSION;
    Imf::FrameBuffer frame;
    for (int channel = 0; shape.colour && channel < 3; ++channel) {
        add_channel(&header, &frame, COLOURS[channel], Imf::HALF, &writer->fractions[channel],
                    shape.width);
    }
    if (shape.matte) {
        add_channel(&header, &frame, "A", Imf::HALF, &writer->fractions[3], shape.width);
    }
    if (shape.depth && depth_float) {
        add_channel(&header, &frame, "Z", Imf::FLOAT, &writer->floats, shape.width);
    } else if (shape.depth) {
        add_channel(&header, &frame, "Z", Imf::UINT, &writer->whole, shape.width);
    }
    writer->file.emplace(writer->stream, header, NO_THREADS);
    writer->file->setFrameBuffer(frame);
}

void convert_bytes(const void *bytes, const ByteTable &table, std::vector<half> *fractions)
{
    const uint8_t *samples = static_cast<const uint8_t *>(bytes);
    for (half &fraction : *fractions) {
        fraction = table[*samples++];
    }
}

ExitCode ExrWriter::write_row(void *const *rows)
{
    for (int channel = 0; shape.colour && channel < 3; ++channel) {
        convert_bytes(rows[channel], colour_table, &fractions[channel]);
    }
    if (shape.matte) {
        convert_bytes(rows[matte_index(shape)], matte_table, &fractions[3]);
    }
    if (shape.depth) {
        const int32_t *samples = static_cast<const int32_t *>(rows[depth_index(shape)]);
        std::transform(samples, samples + whole.size(), whole.begin(),
                       [](int32_t depth) { return static_cast<uint32_t>(depth); });
        std::transform(samples, samples + floats.size(), floats.begin(),
                       [](int32_t depth) { return static_cast<float>(depth); });
    }
    try {
        file->writePixels(1);
    } catch (const std::exception &problem) {
        return fail_writing(name, stream.problem.empty() ? problem.what() : stream.problem);
    }
    return EXIT_FINE;
}

ExitCode ExrWriter::finish()
{
    file.reset();
    return stream.problem.empty() ? EXIT_FINE : fail_writing(name, stream.problem);
}

} // namespace

std::unique_ptr<RowWriter> start_exr(FILE *stream, const std::string &name,
                                     const PictureShape &shape, const ExrOptions &options)
{
    auto writer = std::make_unique<ExrWriter>(stream, name);
    writer->shape = shape;
    writer->colour_table = make_table(options.linear);
    writer->matte_table = make_table(false);
    try {
        begin_writing(writer.get(), options.depth_float);
    } catch (const std::exception &problem) {
        const std::string &kept = writer->stream.problem;
        (void)fail_writing(name, kept.empty() ? problem.what() : kept);
        return nullptr;
    }
    return writer;
}
