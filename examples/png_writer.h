// Pictures as PNG files, for people to look at.
#pragma once

#include "examples/scene.h"

#include <string>

// Writes a picture that has all channels to three files in `directory`, replacing what is there:
// colour.png, 8 bits a sample; matte.png, 8-bit grey; and depth.png, 16-bit grey. In depth.png the
// nearest sample is white, a sample at twice its depth is half as bright, and a pixel where nothing
// is seen is black. Throws std::runtime_error with the file's name and the reason for a failure.
void write_pngs(const std::string &directory, const Picture &picture);
