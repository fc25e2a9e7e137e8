// What reading and writing OpenEXR files share: streams of the C library under the C++ library,
// and the sRGB curve.
#pragma once

#include <ImfIO.h>

#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <stdexcept>

constexpr int NO_THREADS = 0; // all work is done in the calling thread
constexpr const char *COLOURS[] = {"R", "G", "B"};

// A sample of the linear scale for one of the sRGB curve, both 0 to 1.
inline double to_linear(double value)
{
    return value <= 0.04045 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
}

[[noreturn]] inline void throw_errno()
{
    throw std::runtime_error(strerror(errno));
}

// Position in bytes.
inline uint64_t tell(FILE *file)
{
    const off_t at = ftello(file);
    if (at < 0) {
        throw_errno();
    }
    return static_cast<uint64_t>(at);
}

inline void seek(FILE *file, uint64_t position)
{
    if (fseeko(file, static_cast<off_t>(position), SEEK_SET) != 0) {
        throw_errno();
    }
}

struct InputStream final : Imf::IStream {
    FILE *file;

    InputStream(FILE *stream, const char *name) : Imf::IStream(name), file(stream) {}
    bool read(char bytes[], int size) override
    {
        if (fread(bytes, 1, static_cast<size_t>(size), file) != static_cast<size_t>(size)) {
            throw std::runtime_error(ferror(file) ? strerror(errno) : "The file ends early.");
        }
        return true;
    }
    uint64_t tellg() override
    {
        return tell(file);
    }
    void seekg(uint64_t position) override
    {
        seek(file, position);
    }
    void clear() override
    {
        clearerr(file);
    }
};
