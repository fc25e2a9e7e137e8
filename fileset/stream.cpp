// Streams and their buffers. Standard C has no way to look into a stream's buffer, and a call of
// the library for each packet or a seek for each row, which is always a system call, takes longer
// than the row itself. So two functions here use the fields of glibc's streams, as the inlined
// getc_unlocked does. With PIX_OPAQUE_STREAMS, and with any other C library, they do not.
#include "fileset/stream.h"

#include "host/messages.h"

#include <stdio_ext.h>
#include <stdlib.h>
#include <sys/stat.h>

#if defined(__GLIBC__) && !defined(PIX_OPAQUE_STREAMS)

PixSpan pix_look(FILE *fp)
{
    return {reinterpret_cast<const uint8_t *>(fp->_IO_read_ptr),
            reinterpret_cast<const uint8_t *>(fp->_IO_read_end)};
}

bool pix_consume(FILE *fp, long bytes)
{
    const bool inside = bytes >= fp->_IO_read_base - fp->_IO_read_ptr &&
                        bytes <= fp->_IO_read_end - fp->_IO_read_ptr;
    fp->_IO_read_ptr += inside ? bytes : 0;
    return inside;
}

#else

PixSpan pix_look(FILE *)
{
    return {};
}

bool pix_consume(FILE *, long)
{
    return false;
}

#endif

// The size of a stream's buffer in bytes. System calls may take long, so a file that is written, or
// that fits into a large buffer, gets a large one. In a longer file each row that is read out of
// order fills the buffer once, or twice when the row crosses an edge: a thousandth of the file is a
// size that serves rows in order and out of order.
constexpr size_t PIX_LEAST_BUFFER = 4096;
constexpr size_t PIX_LARGE_BUFFER = 65536;
constexpr size_t PIX_BUFFERS_A_FILE = 1024;

static size_t pix_buffer_size(FILE *fp, const char *mode)
{
    struct stat entry;
    const bool whole = mode[0] == 'w' || fstat(fileno(fp), &entry) != 0 ||
                       entry.st_size <= off_t{PIX_LARGE_BUFFER};
    size_t size = whole ? PIX_LARGE_BUFFER : PIX_LEAST_BUFFER;
    while (size < PIX_LARGE_BUFFER &&
           size * PIX_BUFFERS_A_FILE < static_cast<size_t>(entry.st_size)) {
        size *= 2;
    }
    return size;
}

bool pix_open_file(PixFile *file, const char *name, const char *mode)
{
    file->fp = fopen(name, mode);
    if (file->fp && __fbufsize(file->fp) == 0) {
        const int kept = errno;
        const size_t size = pix_buffer_size(file->fp, mode);
        file->buffer = static_cast<char *>(malloc(size));
        if (file->buffer) {
            (void)setvbuf(file->fp, file->buffer, _IOFBF, size);
        }
        errno = kept;
    }
    return file->fp != nullptr;
}

bool pix_close_file(PixFile *file)
{
    const PixFile closed = *file;
    *file = {};
    const bool open = closed.fp && !pix_is_standard_stream(closed.fp);
    const bool well = !open || fclose(closed.fp) == 0;
    const int reason = errno;
    free(closed.buffer);
    errno = reason;
    return well;
}

bool pix_is_standard_stream(const FILE *fp)
{
    return fp == stdin || fp == stdout;
}
