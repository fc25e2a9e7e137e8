// What the host gets of each message: its severity, 2 or 3, and its words. Every message that is
// issued in a test is held against this table. A path stands before a reason, which begins with a
// capital letter.
#pragma once

#include "standin/standin.h"

#include <fnmatch.h>

#include <algorithm>
#include <iterator>

struct KnownMessage {
    int number, severity;
    const char *words; // a pattern as of file names
};

constexpr KnownMessage KNOWN_MESSAGES[] = {
    {25, 3, "Cannot open [!/]* file `*/*'; *(header is corrupt)"},
    {42, 2,
     "Cannot open mask file */*; [A-Z]* (vorla images need a special directory for mask files)"},
    {43, 3, "Vorla mask file's size must be the same size as the size of the image"},
    {52, 3, "Cannot open file *; [A-Z]*"},
    {53, 3, "Bad scanline: [-0-9]* (out of range, or not in sequence if a sequential file)"},
    {55, 3, "Cannot read scanline [0-9]*; [A-Z]*"},
    {56, 3, "Cannot write to */*; [A-Z]*"},
    {57, 3, "Cannot write scanline [0-9]*; [A-Z]*"},
    {59, 3, "Cannot decode scanline [0-9]*"},
    {60, 3, "Cannot read file */*; Invalid header"},
    {61, 3, "Vorla cannot store multiple images"},
    {69, 3, "Vorla cannot handle multiple auxiliary channels"},
    {71, 3, "Vorla cannot handle auxiliary channel width"},
    {72, 3, "Vorla cannot handle image channel type"},
    {73, 3, "Vorla cannot handle image channel width"},
    {75, 3, "Vorla cannot handle image channel format, \"?GB\""},
    {78, 3, "Vorla cannot handle multiple matte channels"},
    {79, 3, "Vorla cannot handle matte channel type"},
    {80, 3, "Vorla cannot handle matte channel width"},
    {92, 2,
     "Unknown type-specific capability code ([0-9]*) specified when trying to open image file"},
    {94, 3, "No more internal memory"},
    {257, 3, "Vorla depth file's size must be the same size as the size of the image"},
    {258, 2,
     "Cannot open depth file */*; [A-Z]* (vorla images need a special directory for depth files)"},
    {259, 3, "The odd and even fields Vorla image file `*/*' don't match"},
};

inline bool is_known(const StandinMessage &message)
{
    return std::any_of(
        std::begin(KNOWN_MESSAGES), std::end(KNOWN_MESSAGES), [&](const KnownMessage &known) {
            return known.number == message.number && known.severity == message.severity &&
                   fnmatch(known.words, message.text, 0) == 0;
        });
}
