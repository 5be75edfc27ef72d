#pragma once

// CPU pixel routines over plain buffers, in the shape of the platform's vImage calls. Buffers of
// four 8-bit channels are called ARGB8888 whatever the order of their channels.

#include "platform/graphics/cg_context.h"
#include "platform/graphics/cg_image.h"

#include <cstddef>
#include <cstdint>
#include <sys/types.h>

namespace brenvia {

struct vImage_Buffer {
  void* data = nullptr;
  size_t height = 0;
  size_t width = 0;
  size_t rowBytes = 0;
};

using vImage_Error = ssize_t;
using vImage_Flags = uint32_t;
using Pixel_8 = uint8_t;

inline constexpr vImage_Error kvImageNoError = 0;
inline constexpr vImage_Error kvImageInvalidKernelSize = -21767;
inline constexpr vImage_Error kvImageInvalidEdgeStyle = -21768;
inline constexpr vImage_Error kvImageMemoryAllocationError = -21771;
inline constexpr vImage_Error kvImageNullPointerArgument = -21772;
inline constexpr vImage_Error kvImageInvalidParameter = -21773;
inline constexpr vImage_Error kvImageBufferSizeMismatch = -21774;
inline constexpr vImage_Flags kvImageNoFlags = 0;
inline constexpr vImage_Flags kvImageLeaveAlphaUnchanged = 1;
inline constexpr vImage_Flags kvImageEdgeExtend = 8;
inline constexpr vImage_Flags kvImageNoAllocate = 0x200;

struct vImage_CGImageFormat {
  uint32_t bitsPerComponent = 8;
  uint32_t bitsPerPixel = 32;
  CGColorSpaceRef colorSpace;
  CGBitmapInfo bitmapInfo = 0;
  uint32_t version = 0;
  const double* decode = nullptr;
  int32_t renderingIntent = 0;
};

// The bitmap info of the 32-bit layout nearest to the image's own: its layout when it is one,
// else alpha last, premultiplied when the image has alpha.
CGBitmapInfo CGImageGetBitmapInfo(const CGImageRef& image);

// Allocates `buffer` (malloc; the caller frees it) and fills it with the image in the format's
// layout: 8-bit components, 32 bits a pixel, any bitmap info a bitmap context takes.
vImage_Error vImageBuffer_InitWithCGImage(vImage_Buffer* buffer, const vImage_CGImageFormat& format,
                                          const double* backgroundColor, const CGImageRef& image, vImage_Flags flags);
// An image of the buffer in the format's layout. With kvImageNoAllocate the image takes over the
// buffer's memory (which must come from malloc) without copying; otherwise it copies.
CGImageRef vImageCreateCGImageFromBuffer(const vImage_Buffer& buffer, const vImage_CGImageFormat& format,
                                         vImage_Flags flags, vImage_Error* error = nullptr);
// Each of the four bytes of every pixel through its 256-entry table, in memory order; a null
// table copies its byte. Source and destination may be the same buffer.
vImage_Error vImageTableLookUp_ARGB8888(const vImage_Buffer& source, const vImage_Buffer& destination,
                                        const Pixel_8* alphaTable, const Pixel_8* redTable,
                                        const Pixel_8* greenTable, const Pixel_8* blueTable, vImage_Flags flags);

// Blurs every byte with a k by k triangle (tent) filter: 1-D weights r + 1 − |i| for |i| ≤ r,
// r = (k − 1) / 2, rounded to nearest. Reads beyond the edges take the nearest edge pixel
// (kvImageEdgeExtend is the only edge style). The cost does not grow with the kernel. Kernel sizes
// must be odd; the offsets must be 0.
vImage_Error vImageTentConvolve_ARGB8888(const vImage_Buffer& source, const vImage_Buffer& destination,
                                         void* tempBuffer, size_t offsetX, size_t offsetY, uint32_t kernelHeight,
                                         uint32_t kernelWidth, const uint8_t* backgroundColor, vImage_Flags flags);
// out = clamp(round((Σ kernel[i][j]·src[y + i − kh/2][x + j − kw/2] + bias) / divisor), 0, 255) for
// each byte, with rows top down. kvImageLeaveAlphaUnchanged copies byte 0 instead; reads beyond the
// edges take the nearest edge pixel (kvImageEdgeExtend, required). A divisor of 0 counts as 1.
vImage_Error vImageConvolveWithBias_ARGB8888(const vImage_Buffer& source, const vImage_Buffer& destination,
                                             void* tempBuffer, size_t offsetX, size_t offsetY, const int16_t* kernel,
                                             uint32_t kernelHeight, uint32_t kernelWidth, int32_t divisor,
                                             int32_t bias, const uint8_t* backgroundColor, vImage_Flags flags);

}  // namespace brenvia
