// OpenEXR's stream interface on a stream of the C library, and the conversion of OpenEXR's
// exceptions to Failures.
#pragma once

#include "vorla/report.h"

#include <ImfIO.h>

#include <cstdio>
#include <cstring>

// A stream of the C library under those of the C++ library.
struct ExrStream final : Imf::IStream, Imf::OStream {
    FILE *file;
    const std::string name;
    std::string problem; // the last; kept because the library drops some of what is thrown

    ExrStream(FILE *stream, const std::string &shown)
        : Imf::IStream(shown.c_str()), Imf::OStream(shown.c_str()), file(stream), name(shown)
    {
    }
    void check(bool good)
    {
        if (!good) {
            problem = feof(file) ? "The file ends early." : strerror(errno);
            throw std::runtime_error(problem);
        }
    }
    bool read(char bytes[], int size) override
    {
        const auto count = static_cast<size_t>(size);
        check(fread(bytes, 1, count, file) == count);
        return true;
    }
    void write(const char bytes[], int size) override
    {
        const auto count = static_cast<size_t>(size);
        check(fwrite(bytes, 1, count, file) == count);
    }
    uint64_t tellp() override
    {
        const off_t at = ftello(file);
        check(at >= 0);
        return static_cast<uint64_t>(at);
    }
    void seekp(uint64_t position) override
    {
        check(fseeko(file, static_cast<off_t>(position), SEEK_SET) == 0);
    }
    uint64_t tellg() override
    {
        return tellp();
    }
    void seekg(uint64_t position) override
    {
        seekp(position);
    }
};

// Runs a step that uses the stream, and makes a Failure of what the library throws: `code`, or
// EXIT_IO when the stream has failed.
template <class Step>
void guarded(const ExrStream &stream, const char *what, ExitCode code, const Step &step)
{
    try {
        step();
    } catch (const Failure &) {
        throw;
    } catch (const std::bad_alloc &) {
        fail_system(stream.name, what, ENOMEM);
    } catch (const std::exception &thrown) {
        throw Failure(ferror(stream.file) ? EXIT_IO : code, stream.name, what, ": ", thrown.what());
    }
}
