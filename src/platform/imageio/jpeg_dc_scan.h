#pragma once

// The 1/8-scale picture of a sequential JPEG from the DC coefficients alone.

#include "platform/imageio/codec_internal.h"

#include <jpeglib.h>

namespace brenvia::imageio::detail {

// Decodes the one interleaved scan whose header `c` has just read (the entropy-coded data start at
// `data`) into `pixels`, allocated at 1/8 of the picture's size in `format` (Gray8 or RGB8). Each
// 8x8 block becomes one pixel, its DC value, as libjpeg's 1/8-scale decode gives it; the AC
// coefficients are read past without being stored, which is cheaper than libjpeg's decode of
// them. Gives false for layouts it does not take (progressive, arithmetic, several scans, 12-bit,
// subsampled chroma, whose 1/8 scale libjpeg draws on AC coefficients too, colour transforms other
// than YCbCr) and for data it cannot follow to the end, leaving `c` untouched, so that libjpeg can
// decode the picture instead.
bool decodeDCScan(const jpeg_decompress_struct& c, const uint8_t* data, size_t size, CGPixelFormat format,
                  PixelBuffer& pixels);

}  // namespace brenvia::imageio::detail
