#ifndef TESTS_TOOLS_PIXELS_H
#define TESTS_TOOLS_PIXELS_H

#include <cmath>
#include <cstdint>
#include <cstring>

#include "tools/shared/Drawing.h"

/// A pixel of a flushed image surface of 24 bits, as 0xRRGGBB.
inline uint32_t pixelAt(cairo_surface_t* image, int x, int y)
{
    uint32_t pixel = 0;
    std::memcpy(&pixel, cairo_image_surface_get_data(image) + y * cairo_image_surface_get_stride(image) + x * 4, 4);
    return pixel & 0xffffffU;
}

/// What a colour becomes on such a surface.
inline uint32_t rgb(const shared::Colour& colour)
{
    const auto byte = [](double part) { return static_cast<uint32_t>(std::lround(part * 65535)) >> 8U; };
    return byte(colour.red) << 16 | byte(colour.green) << 8 | byte(colour.blue);
}

/// How many pixels between the rows `top` and `bottom` have this colour.
inline int countPixels(cairo_surface_t* image, const shared::Colour& colour, int top, int bottom)
{
    int result = 0;
    for (int y = top; y < bottom; ++y)
        for (int x = 0; x < cairo_image_surface_get_width(image); ++x)
            result += pixelAt(image, x, y) == rgb(colour);
    return result;
}

#endif
