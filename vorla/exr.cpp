// Reading and writing OpenEXR files through the C++ library. One row at a time goes through buffers
// that every scan line shares; when it writes, the library keeps the block of lines that it
// compresses.
#include "format/depth.h"
#include "vorla/exr_stream.h"
#include "vorla/formats.h"

#include <ImfChannelList.h>
#include <ImfFrameBuffer.h>
#include <ImfHeader.h>
#include <ImfInputPart.h>
#include <ImfMultiPartInputFile.h>
#include <ImfOutputFile.h>
#include <ImfPartType.h>
#include <half.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <optional>

namespace {

constexpr int NO_THREADS = 0; // all work is done in the calling thread

// --- Samples --------------------------------------------------------------------------------

// The channel of each row of a picture, "" where the file has none. With `grey`, Y is the colour,
// read into its first row, or the matte if there is no colour.
Names channels_of(const PictureShape &shape, bool grey)
{
    Names channels;
    if (shape.colour) {
        channels = grey ? Names{"Y", "", ""} : Names{"R", "G", "B"};
    }
    if (shape.matte) {
        channels.emplace_back(grey && !shape.colour ? "Y" : "A");
    }
    if (shape.depth) {
        channels.emplace_back("Z");
    }
    return channels;
}

// Returns (byte + `more`) / 255 for every byte; with `linear`, converted from sRGB to linear light.
std::vector<float> fractions_of_bytes(double more, bool linear)
{
    std::vector<float> fractions;
    for (int byte = 0; byte < 256; ++byte) {
        const double value = (byte + more) / 255;
        const double light =
            value <= 0.04045 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
        fractions.push_back(static_cast<float>(linear ? light : value));
    }
    return fractions;
}

// Fractions to bytes, rounded and clamped.
struct ByteScale {
    std::vector<float> steps;     // from steps[b] on, a sample is b + 1
    std::vector<uint8_t> guesses; // for each 4096th, within which there is one step at most

    explicit ByteScale(bool linear) : steps(fractions_of_bytes(0.5, linear))
    {
        for (int part = 0; part <= 4096; ++part) {
            const float sample = static_cast<float>(part) / 4096;
            const auto step = std::upper_bound(steps.begin(), steps.end(), sample);
            guesses.push_back(static_cast<uint8_t>(step - steps.begin()));
        }
    }
    // Returns how many of the samples were clamped. The local pointers let the compiler keep the
    // vectors' addresses in registers: a written byte could alias them.
    int64_t convert(const std::vector<int32_t> &words, uint8_t *bytes) const
    {
        const float *step = steps.data();
        const uint8_t *guess = guesses.data();
        int64_t clamped = 0;
        for (const int32_t word : words) {
            const auto sample = std::bit_cast<float>(word);
            const float inside = sample > 0 ? std::min(sample, 1.0F) : 0; // 0 for NaN too
            const uint8_t byte = guess[static_cast<size_t>(inside * 4096)];
            *bytes++ = static_cast<uint8_t>(byte + (inside >= step[byte] ? 1 : 0));
            clamped += inside == sample ? 0 : 1;
        }
        return clamped;
    }
};

// --- Reading --------------------------------------------------------------------------------

// With commas between the thousands.
std::string grouped(int64_t number)
{
    std::string digits = std::to_string(number);
    for (size_t at = digits.size(); at > 3;) {
        digits.insert(at -= 3, 1, ',');
    }
    return digits;
}

// Width, height and place. The library refuses windows of which an int does not hold the size.
std::string size_of(const Imath::Box2i &window)
{
    return text_of(window.size().x + 1, " x ", window.size().y + 1, " at ", window.min.x, ", ",
                   window.min.y);
}

// The first part of a file; its data window is the picture. Y is read as grey when there is no R, G
// or B. Fractions are rounded to bytes and clamped. Depths are rounded and clamped to whole numbers
// of 31 bits; infinity and NaN become PIX_DEPTH_LIMIT.
struct ExrReader final : RowReader {
    ExrStream stream;
    const Options &options;
    std::optional<Imf::MultiPartInputFile> parts;
    std::optional<Imf::InputPart> file;
    int line = 0; // next
    bool grey = false;
    bool whole_depth = false;         // Z is UINT; all else is read as FLOAT
    RowBuffers words{PictureShape()}; // a row of the file's samples; zeros without a channel
    std::vector<ByteScale> scales;    // of the rows; the last is not used for depths
    int64_t samples = 0;              // of the file, without depths
    int64_t clamped = 0;              // samples that were outside 0 to 1
    int64_t rounded = 0;              // depths that were no whole numbers
    int64_t limited = 0;              // depths that were outside the range
    int64_t endless = 0;              // depths that were infinite or NaN

    ExrReader(FILE *input, const std::string &name, const Options &chosen)
        : stream(input, name), options(chosen)
    {
        guarded(stream, "cannot read", EXIT_DAMAGED, [this] { open(); });
    }

    void open()
    {
        // Far larger pictures are refused before the library has buffers for them.
        Imf::Header::setMaxImageSize(4 * PIX_MAX_SIZE, 4 * PIX_MAX_SIZE);
        Imf::Header::setMaxTileSize(4 * PIX_MAX_SIZE, 4 * PIX_MAX_SIZE);
        parts.emplace(stream, NO_THREADS);
        file.emplace(*parts, 0);
        const Imf::Header &header = file->header();
        const Imath::Box2i &window = header.dataWindow();
        set_size(stream.name, window.size().x + 1, window.size().y + 1);
        line = window.min.y;
        note_if(parts->parts() > 1, "only the first of ", parts->parts(), " parts is taken");
        choose_channels(header.channels());
        const bool deep = Imf::isDeepData(header.type());
        note_if(deep, "deep samples are flattened");
        shape.depth = shape.depth && !deep; // the library would add up the depths of a pixel
        take_channels(header.channels(), window.min.x);
        note_if(window != header.displayWindow(), "the data window, ", size_of(window),
                ", is taken, not the display window, ", size_of(header.displayWindow()));
    }

    void refuse_if(bool refused, const std::string &why) const
    {
        if (refused) {
            throw Failure(options.matte_only ? EXIT_USAGE : EXIT_DAMAGED, stream.name,
                          "cannot import: ", why);
        }
    }

    // Decides what the channels of the file are to be.
    void choose_channels(const Imf::ChannelList &channels)
    {
        const auto has = [&](const char *channel) {
            return channels.findChannel(channel) != nullptr;
        };
        const bool colour = has("R") || has("G") || has("B");
        grey = !colour && has("Y");
        const bool grey_matte = grey && options.matte_only && !has("A");
        shape.colour = colour || (grey && !grey_matte);
        shape.matte = has("A") || grey_matte;
        shape.depth = has("Z");
        refuse_if(grey && (has("RY") || has("BY")), "the colour is stored as luminance and chroma");
        refuse_if(!shape.colour && !shape.matte,
                  shape.depth ? "a PIX picture of depth alone could not be read again"
                              : "there is no channel R, G, B, Y or A");
        refuse_if(options.matte_only && shape.colour, "the picture is not plain grey");
    }

    // Has the channels read into `words`. The library counts columns from 0, wherever the data
    // window begins (`left`); the address of its column 0 may lie outside the row.
    void take_channels(const Imf::ChannelList &channels, int64_t left)
    {
        const Names taken = channels_of(shape, grey);
        std::string others;
        for (auto at = channels.begin(); at != channels.end(); ++at) {
            if (std::find(taken.begin(), taken.end(), at.name()) == taken.end()) {
                others += (others.empty() ? "" : ", ") + std::string(at.name());
            }
        }
        note_if(!others.empty(), "left out: ", others);
        words = RowBuffers(shape);
        Imf::FrameBuffer frame;
        for (size_t row = 0; row < taken.size(); ++row) {
            const std::string &name = taken[row];
            const Imf::Channel *found = channels.findChannel(name);
            scales.emplace_back(options.linear && row < matte_index(shape));
            note_if(!found && !name.empty(), "there is no channel ", name, "; it is black");
            if (found) {
                refuse_if(found->xSampling != 1 || found->ySampling != 1,
                          "channel " + name + " does not have a sample for every pixel");
                whole_depth = name == "Z" && found->type == Imf::UINT;
                samples += name == "Z" ? 0 : int64_t{shape.width} * shape.height;
                char *base = static_cast<char *>(words.array[row]) - left * 4;
                frame.insert(name, {whole_depth ? Imf::UINT : Imf::FLOAT, base, 4});
            }
        }
        file->setFrameBuffer(frame);
    }

    int32_t to_depth(int32_t word)
    {
        const double sample =
            whole_depth ? static_cast<uint32_t>(word) : double{std::bit_cast<float>(word)};
        if (!std::isfinite(sample)) {
            endless += 1;
            return PIX_DEPTH_LIMIT;
        }
        const double scaled = sample * options.depth_scale;
        const double whole = std::round(scaled);
        const double nearest = std::clamp(whole, 0.0, double{INT32_MAX});
        limited += nearest != whole ? 1 : 0;
        rounded += nearest == whole && whole != scaled ? 1 : 0;
        return static_cast<int32_t>(nearest);
    }

    void read_row(void *const *rows) override
    {
        check_interrupt();
        guarded(stream, "cannot read", EXIT_DAMAGED, [this] { file->readPixels(line++); });
        for (size_t row = 0; row < words.buffers.size(); ++row) {
            const std::vector<int32_t> &from = words.buffers[row];
            if (row < depth_index(shape)) {
                clamped += scales[row].convert(from, static_cast<uint8_t *>(rows[row]));
            } else {
                std::transform(from.begin(), from.end(), static_cast<int32_t *>(rows[row]),
                               [this](int32_t word) { return to_depth(word); });
            }
        }
        for (size_t row = 1; grey && shape.colour && row < 3; ++row) {
            memcpy(rows[row], rows[0], static_cast<size_t>(shape.width));
        }
    }

    void finish() override
    {
        const std::string pixels = grouped(int64_t{shape.width} * shape.height);
        note_if(clamped > 0, grouped(clamped), " of ", grouped(samples),
                " samples outside 0 to 1 clamped");
        note_if(rounded > 0, grouped(rounded), " of ", pixels,
                " depths rounded to whole numbers; --depth-scale multiplies them first");
        note_if(limited > 0, grouped(limited), " of ", pixels,
                " depths outside 0 to 2147483647 clamped");
        note_if(endless > 0, grouped(endless), " of ", pixels,
                " depths that are infinite or no numbers made ", PIX_DEPTH_LIMIT);
    }
};

// --- Writing --------------------------------------------------------------------------------

// R, G, B and A as HALF fractions, ZIP-compressed, a matte alone as A, Z as UINT or FLOAT.
struct ExrWriter final : RowWriter {
    ExrStream stream;
    const PictureShape shape;
    const bool float_depth;
    std::vector<std::vector<float>> fractions; // of the bytes in the rows
    RowBuffers words; // a row of samples, each in the lower half if it is HALF
    std::optional<Imf::OutputFile> file;

    ExrWriter(FILE *output, const std::string &name, const PictureShape &picture,
              const Options &options)
        : stream(output, name), shape(picture), float_depth(options.depth_samples == "float"),
          words(picture)
    {
        Imf::Header header(shape.width, shape.height, shape.pixel_aspect);
        header.compression() = Imf::ZIP_COMPRESSION;
        Imf::FrameBuffer frame;
        for (size_t row = 0; const std::string &channel : channels_of(shape, false)) {
            const Imf::PixelType type = channel != "Z" ? Imf::HALF
                                        : float_depth  ? Imf::FLOAT
                                                       : Imf::UINT;
            fractions.push_back(fractions_of_bytes(0, options.linear && row < matte_index(shape)));
            header.channels().insert(channel, Imf::Channel(type));
            frame.insert(channel, {type, static_cast<char *>(words.array[row++]), 4});
        }
        guarded(stream, "cannot write", EXIT_IO, [&] {
            file.emplace(stream, header, NO_THREADS);
            file->setFrameBuffer(frame);
        });
    }
    void write_row(void *const *rows) override
    {
        for (size_t row = 0; row < words.buffers.size(); ++row) {
            const auto *bytes = static_cast<const uint8_t *>(rows[row]);
            const auto *depths = static_cast<const int32_t *>(rows[row]);
            for (int32_t &word : words.buffers[row]) {
                if (row < depth_index(shape)) {
                    word = half(fractions[row][*bytes++]).bits();
                } else if (float_depth) {
                    word = std::bit_cast<int32_t>(static_cast<float>(*depths++));
                } else {
                    word = *depths++;
                }
            }
        }
        guarded(stream, "cannot write", EXIT_IO, [this] { file->writePixels(1); });
    }
    void finish() override
    {
        file.reset(); // drops what the stream throws
        if (!stream.problem.empty()) {
            throw Failure(EXIT_IO, stream.name, "cannot write: ", stream.problem);
        }
    }
};

} // namespace

std::unique_ptr<RowReader> open_exr(FILE *stream, const std::string &name, const Options &options)
{
    return std::make_unique<ExrReader>(stream, name, options);
}

std::unique_ptr<RowWriter> start_exr(FILE *stream, const std::string &name,
                                     const PictureShape &shape, const Options &options)
{
    return std::make_unique<ExrWriter>(stream, name, shape, options);
}
