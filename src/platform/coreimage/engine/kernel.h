#pragma once

#include "platform/coreimage/engine/pixel_rect.h"
#include "platform/coreimage/engine/planar_buffer.h"
#include "platform/coreimage/engine/render_env.h"
#include "platform/coreimage/engine/span.h"

#include <array>
#include <functional>
#include <optional>
#include <span>
#include <string_view>

namespace brenvia::ci {

// The four kinds of pixel computation an operation can be built from. Kernels are immutable and
// shared between renders and threads; the renderer decides tiling, threads and fusion.

// A per-pixel function of its inputs at the same point. Runs of point kernels are fused: a span
// passes through all of them while it is in cache.
class PointKernel {
 public:
  virtual ~PointKernel() = default;
  virtual std::string_view name() const = 0;
  // `io` holds input 0 (uninitialised for kernels with no input, with x/y/n set) and receives
  // the result; `others` holds inputs 1.. at the same pixels.
  virtual void apply(Span& io, std::span<const Span* const> others, const RenderEnv& env) const = 0;
  // Kernels that are an affine map of premultiplied rgb, leaving alpha alone, give it here so that
  // neighbours fold into one matrix: rows r, g, b; columns r, g, b, a.
  virtual std::optional<std::array<float, 12>> premultipliedMatrix() const { return std::nullopt; }
  // Whether each pixel's result depends on that pixel alone, not on where it is: such kernels
  // over a flat colour are worked out once, when the render is planned.
  virtual bool isPerPixel() const { return premultipliedMatrix().has_value(); }
};

// Output point -> source point; the output is the bilinear sample of the input there.
class WarpKernel {
 public:
  virtual ~WarpKernel() = default;
  virtual std::string_view name() const = 0;
  // Source points of (x + i + at.x, y + at.y), i < n: `at` is a point inside the pixel, its centre
  // (0.5, 0.5) unless the pixel is supersampled. NaN marks a transparent pixel.
  virtual void map(int64_t x, int64_t y, int n, CGPoint at, float* sx, float* sy) const = 0;
  // Samples per axis that each output pixel averages: more than one where the map shrinks the
  // source, so that detail finer than an output pixel is averaged instead of aliased.
  virtual int samplesPerAxis() const { return 1; }
  // The input rectangle the given output rectangle reads (before the one-pixel bilinear margin).
  virtual CGRect roi(const CGRect& out) const = 0;
};

// Output pixels from a neighbourhood of the inputs, computed tile by tile.
class RegionKernel {
 public:
  virtual ~RegionKernel() = default;
  virtual std::string_view name() const = 0;
  // The pixels of input i that output `out` reads.
  virtual PixelRect roi(int input, const PixelRect& out) const = 0;
  // inputs[i] covers roi(i, out.rect); fill every pixel of out.
  virtual void apply(std::span<const PlanarView* const> inputs, const PlanarView& out, const RenderEnv& env) const = 0;
};

// Serves rows of a result computed once per render.
class RowSource {
 public:
  virtual ~RowSource() = default;
  // Fill the span (any pixels outside the computed rectangle read as transparent).
  virtual void read(Span& s) const = 0;
};

// Renders input `i` over a rectangle into a buffer; safe to call from several threads at once.
using BandRenderer = std::function<void(int input, const PixelRect& rect, const PlanarView& into)>;

// An operation whose neighbourhood is too large for tiles (wide blurs, reductions): it is
// computed once per render over everything the render needs, and may use its own parallelism.
class WholeImageKernel {
 public:
  virtual ~WholeImageKernel() = default;
  virtual std::string_view name() const = 0;
  virtual PixelRect roi(int input, const PixelRect& out) const = 0;
  virtual std::shared_ptr<const RowSource> compute(const BandRenderer& input, const PixelRect& out,
                                                   const RenderEnv& env) const = 0;
};

}  // namespace brenvia::ci
