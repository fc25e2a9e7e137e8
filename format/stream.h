// Reading and writing a few bytes at a time: a packet, a sample. A call of the C library for each
// takes longer than its coding, so the bytes move straight from and to the stream's buffer, as the
// library's own getc_unlocked and putc_unlocked move one where they are inlined. At the edges of
// the buffer the library does it. The caller has locked the stream, or is alone with it.
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
    return fread_unlocked(bytes, Size, 1, fp) == 1;
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
    return fwrite_unlocked(bytes, Size, 1, fp) == 1;
}
