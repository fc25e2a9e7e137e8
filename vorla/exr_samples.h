// Rows of the fractions that OpenEXR files hold, how they become bytes, and words about numbers and
// windows.
#pragma once

#include "vorla/exr_stream.h"
#include "vorla/report.h"

#include <ImathBox.h>
#include <half.h>

#include <algorithm>
#include <array>
#include <vector>

// Fractions to bytes, rounded and clamped, by tables.
class ByteScale {
  public:
    explicit ByteScale(bool linear)
    {
        for (size_t byte = 0; byte < steps.size(); ++byte) {
            const double value = (static_cast<double>(byte) + 0.5) / 255;
            steps[byte] = static_cast<float>(linear ? to_linear(value) : value);
        }
        for (uint32_t bits = 0; bits < of_half.size(); ++bits) {
            half sample;
            sample.setBits(static_cast<uint16_t>(bits));
            of_half[bits] = convert(static_cast<float>(sample));
        }
    }
    uint8_t convert(float sample) const
    {
        const auto *step = std::upper_bound(steps.begin(), steps.end(), sample);
        return sample > 0 ? static_cast<uint8_t>(step - steps.begin()) : uint8_t{0}; // NaN too
    }
    uint8_t convert(half sample) const
    {
        return of_half[sample.bits()];
    }

  private:
    std::array<float, 255> steps; // from steps[b] on, a sample is b + 1
    std::array<uint8_t, 65536> of_half;
};

// A row of fractions, in the one or the other vector.
struct Fractions {
    std::vector<half> halves;
    std::vector<float> floats;

    void convert(const ByteScale &scale, void *bytes) const
    {
        auto *into = static_cast<uint8_t *>(bytes);
        const auto step = [&](auto sample) { return scale.convert(sample); };
        std::transform(halves.begin(), halves.end(), into, step);
        std::transform(floats.begin(), floats.end(), into, step);
    }
    int64_t outside() const
    {
        const auto is_outside = [](float sample) { return !(sample >= 0 && sample <= 1); };
        return std::count_if(halves.begin(), halves.end(), is_outside) +
               std::count_if(floats.begin(), floats.end(), is_outside);
    }
};

// With commas between the thousands.
inline std::string grouped(int64_t number)
{
    std::string digits = std::to_string(number);
    for (size_t at = digits.size(); at > 3;) {
        digits.insert(at -= 3, 1, ',');
    }
    return digits;
}

// Width, height and place.
inline std::string size_of(const Imath::Box2i &window)
{
    return text_of(int64_t{window.max.x} - window.min.x + 1, " x ",
                   int64_t{window.max.y} - window.min.y + 1, " at ", window.min.x, ", ",
                   window.min.y);
}
