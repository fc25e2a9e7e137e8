// Small steps in a stream: a packet, a sample, a row. A call of the C library for each takes longer
// than its coding, and a seek always makes a system call, so steps within the stream's buffer are
// made there, as the library's own getc_unlocked and putc_unlocked make theirs where they are
// inlined. At the edges of the buffer the library does it. The caller has locked the stream, or is
// alone with it.
#pragma once

#include <stddef.h>
#include <stdio.h>
#include <string.h>

// Reads `Size` bytes as one item. False when the stream does not have them all; those that it had
// are consumed.
template <size_t Size>
[[nodiscard]] inline bool pix_read_bytes(FILE *fp, void *bytes)
{
#ifdef __GLIBC__
    if (fp->_IO_read_end - fp->_IO_read_ptr >= static_cast<ptrdiff_t>(Size)) [[likely]] {
        memcpy(bytes, fp->_IO_read_ptr, Size);
        fp->_IO_read_ptr += Size;
        return true;
    }
#endif
    return fread(bytes, Size, 1, fp) == 1;
}

// Writes `Size` bytes as one item. False when the stream does not take them all.
template <size_t Size>
[[nodiscard]] inline bool pix_write_bytes(FILE *fp, const void *bytes)
{
#ifdef __GLIBC__
    if (fp->_IO_write_end - fp->_IO_write_ptr >= static_cast<ptrdiff_t>(Size)) [[likely]] {
        memcpy(fp->_IO_write_ptr, bytes, Size);
        fp->_IO_write_ptr += Size;
        return true;
    }
#endif
    return fwrite(bytes, Size, 1, fp) == 1;
}

// Moves a stream that is read by so many bytes, back or onward, if both places are in its buffer.
// False when nothing has been done. A stream that is to be moved must be one that can seek.
[[nodiscard]] inline bool pix_move_in_buffer(FILE *fp, long bytes)
{
#ifdef __GLIBC__
    if (bytes >= fp->_IO_read_base - fp->_IO_read_ptr &&
        bytes <= fp->_IO_read_end - fp->_IO_read_ptr) {
        fp->_IO_read_ptr += bytes;
        return true;
    }
#endif
    return false;
}
