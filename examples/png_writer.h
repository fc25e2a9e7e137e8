// Pictures as PNG files, for people to look at.
#pragma once

#include "examples/scene.h"

#include <string>

// Writes a picture that has all channels to three files in `directory`, replacing what is there:
// colour.png, 8 bits a sample; matte.png, 8-bit grey; and depth.png, 16-bit grey, where the nearest
// sample is white, one twice as far half as bright, and nothing black. Throws std::runtime_error
// with the name of the file and the reason when one cannot be written.
void write_pngs(const std::string &directory, const Picture &picture);
