// The rows of an open picture as export writes them: reduced in size, and black where a row cannot
// be read, when the options ask for that.
#pragma once

#include "vorla/source.h"

class ExportRows {
  public:
    PictureShape shape; // of the rows that come out
    int32_t lost = 0;   // rows of the picture that were black since row 0 was read
    std::string first;  // why the first of them

    explicit ExportRows(Source *picture);

    // Reads row `row` of the shape. Rows are read in increasing order; row 0 starts again. Throws a
    // Failure.
    [[nodiscard]] void *const *read(int32_t row);

  private:
    [[nodiscard]] bool find(int32_t row);

    Source *source;
    RowBuffers made;   // a black row, or the mean of several
    int32_t good = -1; // the last row of the picture that was read
};
