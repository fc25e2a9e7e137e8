// Writing OpenEXR files through the C++ library: R, G, B and A as HALF fractions, ZIP-compressed, a
// matte alone as A, Z as UINT or FLOAT. One row at a time goes
// through a buffer that every scan line shares (a stride of 0 from line to line); the library keeps
// the block of lines that it compresses.
#include "vorla/exr_stream.h"
#include "vorla/formats.h"

#include <ImfChannelList.h>
#include <ImfFrameBuffer.h>
#include <ImfHeader.h>
#include <ImfIO.h>
#include <ImfOutputFile.h>

#include <algorithm>
#include <array>
#include <optional>

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
    void begin(bool depth_float);
    void write_row(void *const *rows) override;
    void finish() override;

  private:
    // Runs what may throw, and gives the exception the name of the file.
    template <class Step>
    void guarded(const Step &step)
    {
        try {
            step();
        } catch (const std::exception &thrown) {
            stream.problem = stream.problem.empty() ? thrown.what() : stream.problem;
        }
        if (!stream.problem.empty()) {
            throw Failure(EXIT_IO, name, "cannot write: " + stream.problem);
        }
    }
};

// Makes the channel, with a buffer of one row.
template <class Sample>
void add_channel(Imf::Header *header, Imf::FrameBuffer *frame, const char *channel,
                 Imf::PixelType type, std::vector<Sample> *row, int32_t width)
{
    row->resize(static_cast<size_t>(width));
    header->channels().insert(channel, Imf::Channel(type));
    frame->insert(channel, Imf::Slice(type, reinterpret_cast<char *>(row->data()), sizeof(Sample)));
}

void ExrWriter::begin(bool depth_float)
{
    Imf::Header header(shape.width, shape.height, shape.pixel_aspect);
    header.compression() = Imf::ZIP_COMPRESSION;
    Imf::FrameBuffer frame;
    for (int channel = 0; shape.colour && channel < 3; ++channel) {
        add_channel(&header, &frame, COLOURS[channel], Imf::HALF, &fractions[channel], shape.width);
    }
    if (shape.matte) {
        add_channel(&header, &frame, "A", Imf::HALF, &fractions[3], shape.width);
    }
    if (shape.depth && depth_float) {
        add_channel(&header, &frame, "Z", Imf::FLOAT, &floats, shape.width);
    } else if (shape.depth) {
        add_channel(&header, &frame, "Z", Imf::UINT, &whole, shape.width);
    }
    guarded([&] {
        file.emplace(stream, header, NO_THREADS);
        file->setFrameBuffer(frame);
    });
}

void convert_bytes(const void *bytes, const ByteTable &table, std::vector<half> *fractions)
{
    const auto *samples = static_cast<const uint8_t *>(bytes);
    for (half &fraction : *fractions) {
        fraction = table[*samples++];
    }
}

void ExrWriter::write_row(void *const *rows)
{
    for (int channel = 0; shape.colour && channel < 3; ++channel) {
        convert_bytes(rows[channel], colour_table, &fractions[channel]);
    }
    if (shape.matte) {
        convert_bytes(rows[matte_index(shape)], matte_table, &fractions[3]);
    }
    if (shape.depth) {
        const auto *samples = static_cast<const int32_t *>(rows[depth_index(shape)]);
        std::transform(samples, samples + whole.size(), whole.begin(),
                       [](int32_t depth) { return static_cast<uint32_t>(depth); });
        std::transform(samples, samples + floats.size(), floats.begin(),
                       [](int32_t depth) { return static_cast<float>(depth); });
    }
    guarded([this] { file->writePixels(1); });
}

void ExrWriter::finish()
{
    guarded([this] { file.reset(); });
}

} // namespace

std::unique_ptr<RowWriter> start_exr(FILE *stream, const std::string &name,
                                     const PictureShape &shape, const Options &options)
{
    auto writer = std::make_unique<ExrWriter>(stream, name);
    writer->shape = shape;
    writer->colour_table = make_table(options.linear);
    writer->matte_table = make_table(false);
    writer->begin(options.depth_samples == "float");
    return writer;
}
