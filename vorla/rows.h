// The rows of an open picture as export wants them: made smaller, and without those that cannot be
// read, when the options say so.
#pragma once

#include "vorla/source.h"

class ExportRows {
  public:
    PictureShape shape; // of the rows that come out
    int32_t lost = 0;   // rows of the picture that were black since row 0 was read
    std::string first;  // why the first of them

    explicit ExportRows(Source *picture);

    // Reads row `row` of the shape; in increasing order, and again from 0. Throws a Failure.
    [[nodiscard]] void *const *read(int32_t row);

  private:
    [[nodiscard]] void *const *read_whole(int32_t row);
    void add(void *const *rows);

    Source *source;
    const PictureShape whole; // of the picture itself
    RowBuffers black;
    RowBuffers small;
    int32_t good = -1;          // the last row that was read
    bool astray = false;        // the files stand within a damaged row
    std::vector<size_t> column; // that a pixel of the picture goes to
    std::vector<uint64_t> sums; // of the samples and, at the end of a channel's, of pixels
};
