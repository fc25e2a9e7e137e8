// A ray caster just large enough for its scene. The eye looks along z, y is up, and every ray has a
// z of 1, so that the distance to a hit in lengths of the ray is its depth.
#include "examples/scene.h"

#include "format/depth.h"

#include <math.h>

#include <algorithm>
#include <iterator>

namespace {

// A place, a direction, or a colour (red, green, blue, 0 to 1).
struct Vector {
    double x, y, z;
};

struct Sphere {
    Vector centre;
    double radius;
    Vector colour;
};

// Where a ray ends: on a sphere, on the ground, or, at GROUND_END, nowhere.
struct Hit {
    const Sphere *sphere;
    double distance; // in lengths of the ray
};

constexpr double SUBSAMPLES[] = {0.125, 0.375, 0.625, 0.875}; // of a pixel, in each direction
constexpr double HORIZON = 0.36;       // of the picture's height, from the top
constexpr double VIEW_HEIGHT = 0.80;   // of the picture, at a distance of 1
constexpr double GROUND_END = 48;      // distance at which the ground stops
constexpr double DEPTH_PER_UNIT = 1e6; // depth samples count in these
constexpr double SHADES = 40;          // steps of light and of haze: flat areas make long runs
constexpr double SKY_BANDS = 14;
constexpr Vector EYE = {0, 1.9, 0};          // the ground is at y = 0
constexpr Vector SUN = {-0.58, 0.66, -0.48}; // unit vector towards it
constexpr Vector SKY_LOW = {0.98, 0.82, 0.66};
constexpr Vector SKY_HIGH = {0.24, 0.42, 0.70};

constexpr Sphere SPHERES[] = {
    {{-2.15, 1.10, 8.4}, 1.10, {0.86, 0.25, 0.20}},  {{0.55, 1.55, 10.6}, 1.55, {0.95, 0.70, 0.22}},
    {{2.55, 0.80, 7.6}, 0.80, {0.18, 0.52, 0.72}},   {{-0.45, 0.48, 6.3}, 0.48, {0.40, 0.66, 0.30}},
    {{-5.60, 1.30, 15.5}, 1.30, {0.58, 0.38, 0.66}}, {{6.10, 1.70, 17.0}, 1.70, {0.88, 0.86, 0.82}},
};

Vector operator+(Vector a, Vector b)
{
    return {a.x + b.x, a.y + b.y, a.z + b.z};
}

Vector operator*(Vector a, double factor)
{
    return {a.x * factor, a.y * factor, a.z * factor};
}

double dot(Vector a, Vector b)
{
    return a.x * b.x + a.y * b.y + a.z * b.z;
}

Vector mix(Vector a, Vector b, double part_of_b)
{
    return a * (1 - part_of_b) + b * part_of_b;
}

double in_steps(double value, double steps)
{
    return round(value * steps) / steps;
}

// Where the ray first meets the sphere, in lengths of the ray; 0 when it does not.
double meet_sphere(const Sphere &sphere, Vector from, Vector ray)
{
    const Vector offset = from + sphere.centre * -1;
    const double a = dot(ray, ray);
    const double b = dot(ray, offset);
    const double root = b * b - a * (dot(offset, offset) - sphere.radius * sphere.radius);
    return root > 0 ? std::max(0.0, (-b - sqrt(root)) / a) : 0;
}

bool is_in_shadow(Vector place)
{
    return std::any_of(std::begin(SPHERES), std::end(SPHERES), [place](const Sphere &sphere) {
        return meet_sphere(sphere, place, SUN) > 1e-6; // not the sphere that the place is on
    });
}

Hit find_hit(Vector ray)
{
    Hit hit = {nullptr, ray.y < 0 ? std::min(-EYE.y / ray.y, GROUND_END) : GROUND_END};
    for (const Sphere &sphere : SPHERES) {
        const double distance = meet_sphere(sphere, EYE, ray);
        if (distance > 0 && distance < hit.distance) {
            hit = {&sphere, distance};
        }
    }
    return hit;
}

Vector ground_colour(Vector place)
{
    const bool dark = fmod(floor(place.x / 1.6) + floor(place.z / 1.6), 2) != 0;
    const Vector tile = dark ? Vector{0.42, 0.40, 0.38} : Vector{0.76, 0.70, 0.60};
    const double haze = in_steps(place.z / GROUND_END, SHADES);
    return mix(tile * (is_in_shadow(place) ? 0.45 : 1), SKY_LOW, haze * haze);
}

Vector sphere_colour(const Sphere &sphere, Vector place, Vector ray)
{
    const Vector normal = (place + sphere.centre * -1) * (1 / sphere.radius);
    const double from_sky = 0.26 + 0.16 * normal.y;
    const double from_sun = is_in_shadow(place) ? 0 : std::max(0.0, dot(normal, SUN));
    const Vector halfway = SUN + ray * (-1 / sqrt(dot(ray, ray)));
    const double facing = dot(normal, halfway) / sqrt(dot(halfway, halfway));
    const double gloss = from_sun > 0 ? 0.6 * pow(std::max(0.0, facing), 60) : 0;
    const Vector lit = sphere.colour * in_steps(from_sky + 0.72 * from_sun, SHADES);
    return mix(lit, {1, 1, 1}, in_steps(gloss, SHADES));
}

Vector colour_of(const Hit &hit, Vector ray)
{
    const Vector place = EYE + ray * hit.distance;
    if (hit.sphere) {
        return sphere_colour(*hit.sphere, place, ray);
    }
    if (hit.distance < GROUND_END) {
        return ground_colour(place);
    }
    const double elevation = std::max(0.0, ray.y / (VIEW_HEIGHT * HORIZON));
    return mix(SKY_LOW, SKY_HIGH, in_steps(elevation, SKY_BANDS));
}

// The ray through a point of the picture, in pixels from its top left corner.
Vector ray_through(const Picture &picture, double x, double y)
{
    const double pixel = VIEW_HEIGHT / picture.height;
    return {(x - picture.width / 2.0) * pixel, (HORIZON * picture.height - y) * pixel, 1};
}

void render_pixel(Picture *picture, int32_t x, int32_t y)
{
    double sums[4] = {}; // red, green, blue, matte
    for (const double row : SUBSAMPLES) {
        for (const double column : SUBSAMPLES) {
            const Vector ray = ray_through(*picture, x + column, y + row);
            const Hit hit = find_hit(ray);
            const Vector colour = colour_of(hit, ray);
            sums[0] += colour.x;
            sums[1] += colour.y;
            sums[2] += colour.z;
            sums[3] += hit.sphere ? 1 : 0;
        }
    }
    const size_t at = picture->row_start(y) + static_cast<size_t>(x);
    for (size_t channel = 0; channel < std::size(sums); ++channel) {
        const double mean =
            sums[channel] / static_cast<double>(std::size(SUBSAMPLES) * std::size(SUBSAMPLES));
        picture->bytes[channel][at] = static_cast<uint8_t>(lround(255 * std::min(mean, 1.0)));
    }
    const double distance = find_hit(ray_through(*picture, x + 0.5, y + 0.5)).distance;
    if (distance < GROUND_END) {
        picture->depth[at] = static_cast<int32_t>(distance * DEPTH_PER_UNIT);
    }
}

} // namespace

Picture::Picture(int32_t columns, int32_t rows, bool has_colour, bool has_matte, bool has_depth)
    : width(columns), height(rows)
{
    for (const size_t channel : {RED, GREEN, BLUE}) {
        bytes[channel].resize(has_colour ? row_start(height) : 0);
    }
    bytes[MATTE].resize(has_matte ? row_start(height) : 0);
    depth.resize(has_depth ? row_start(height) : 0, PIX_DEPTH_LIMIT);
}

Picture render_scene(int32_t width, int32_t height)
{
    Picture picture(width, height, true, true, true);
    for (int32_t y = 0; y < height; ++y) {
        for (int32_t x = 0; x < width; ++x) {
            render_pixel(&picture, x, y);
        }
    }
    return picture;
}
