// What reading and writing OpenEXR files share: streams of the C library under the C++ library.
// Failures are thrown, as the library expects; they end where its calls are made.
#pragma once

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <stdexcept>

constexpr int NO_THREADS = 0; // all work is done in the calling thread
constexpr const char *COLOURS[] = {"R", "G", "B"};

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
