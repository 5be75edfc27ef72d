#pragma once

// Bitmap drawing contexts in the shape of the platform's 2D drawing API, drawn by Cairo. Contexts
// are y-up: the origin is the bottom-left corner of the bitmap, as on the original platform.

#include "platform/geometry/geometry.h"
#include "platform/graphics/cg_color.h"
#include "platform/graphics/cg_image.h"

#include <cstdint>
#include <memory>

namespace brenvia {

// Blend modes by the drawing API's numbers.
enum CGBlendMode : int32_t {
  kCGBlendModeNormal = 0,
  kCGBlendModeMultiply,
  kCGBlendModeScreen,
  kCGBlendModeOverlay,
  kCGBlendModeDarken,
  kCGBlendModeLighten,
  kCGBlendModeColorDodge,
  kCGBlendModeColorBurn,
  kCGBlendModeSoftLight,
  kCGBlendModeHardLight,
  kCGBlendModeDifference,
  kCGBlendModeExclusion,
  kCGBlendModeHue,
  kCGBlendModeSaturation,
  kCGBlendModeColor,
  kCGBlendModeLuminosity,
  kCGBlendModeClear,
  kCGBlendModeCopy,
  kCGBlendModeSourceIn,
  kCGBlendModeSourceOut,
  kCGBlendModeSourceAtop,
  kCGBlendModeDestinationOver,
  kCGBlendModeDestinationIn,
  kCGBlendModeDestinationOut,
  kCGBlendModeDestinationAtop,
  kCGBlendModeXOR,
  kCGBlendModePlusDarker,
  kCGBlendModePlusLighter,
};

// Bitmap info: the alpha position in the low bits, the byte order of 32-bit pixels above them.
using CGBitmapInfo = uint32_t;
inline constexpr CGBitmapInfo kCGImageAlphaNone = 0;
inline constexpr CGBitmapInfo kCGImageAlphaPremultipliedLast = 1;
inline constexpr CGBitmapInfo kCGImageAlphaPremultipliedFirst = 2;
inline constexpr CGBitmapInfo kCGImageAlphaNoneSkipLast = 5;
inline constexpr CGBitmapInfo kCGImageAlphaNoneSkipFirst = 6;
inline constexpr CGBitmapInfo kCGBitmapAlphaInfoMask = 0x1F;
inline constexpr CGBitmapInfo kCGBitmapFloatComponents = 0x100;
inline constexpr CGBitmapInfo kCGBitmapByteOrder16Little = 0x1000;
inline constexpr CGBitmapInfo kCGBitmapByteOrder32Little = 0x2000;
inline constexpr CGBitmapInfo kCGBitmapByteOrder32Big = 0x4000;
inline constexpr CGBitmapInfo kCGBitmapByteOrderMask = 0x7000;

enum CGLineJoin : int32_t { kCGLineJoinMiter = 0, kCGLineJoinRound, kCGLineJoinBevel };
enum CGLineCap : int32_t { kCGLineCapButt = 0, kCGLineCapRound, kCGLineCapSquare };
enum CGPathDrawingMode : int32_t {
  kCGPathFill = 0,
  kCGPathEOFill,
  kCGPathStroke,
  kCGPathFillStroke,
  kCGPathEOFillStroke,
};

enum CGInterpolationQuality : int32_t {
  kCGInterpolationDefault = 0,
  kCGInterpolationNone = 1,
  kCGInterpolationLow = 2,
  kCGInterpolationHigh = 3,
  kCGInterpolationMedium = 4,
};

class CGContext;
using CGContextRef = std::shared_ptr<CGContext>;

// A context over `data` (rows of `bytesPerRow`), or over memory it allocates itself when `data`
// is null (bytesPerRow 0 lets it choose). An RGB space takes 8-bit four-byte pixels in any of the
// alpha and byte-order layouts above, or half (16-bit) or single (32-bit) float R,G,B,A in host
// order with premultiplied or skipped alpha last; a grey space takes one byte a pixel without
// alpha. Null for other layouts, bad sizes or a missing colour space. The caller's memory must
// outlive the context and holds the drawing after every drawing call. Drawing itself keeps 8 bits
// a channel: float values are clamped to 0-1, and grey contexts keep the luma of what is drawn.
CGContextRef CGBitmapContextCreate(void* data, size_t width, size_t height, size_t bitsPerComponent,
                                   size_t bytesPerRow, const CGColorSpaceRef& space, CGBitmapInfo bitmapInfo);
void* CGBitmapContextGetData(const CGContextRef& c);
size_t CGBitmapContextGetWidth(const CGContextRef& c);
size_t CGBitmapContextGetHeight(const CGContextRef& c);
size_t CGBitmapContextGetBytesPerRow(const CGContextRef& c);
size_t CGBitmapContextGetBitsPerPixel(const CGContextRef& c);
CGBitmapInfo CGBitmapContextGetBitmapInfo(const CGContextRef& c);
CGColorSpaceRef CGBitmapContextGetColorSpace(const CGContextRef& c);
// A copy of the pixels, top row first: grey bytes for a grey context, else premultiplied B,G,R,A
// bytes; null without a context.
CGImageRef CGBitmapContextCreateImage(const CGContextRef& c);

// The graphics state: transform, alpha, blend mode, clip mask, fill colour, interpolation.
void CGContextSaveGState(const CGContextRef& c);
void CGContextRestoreGState(const CGContextRef& c);
void CGContextSetAlpha(const CGContextRef& c, double alpha);
void CGContextSetBlendMode(const CGContextRef& c, CGBlendMode mode);
void CGContextSetInterpolationQuality(const CGContextRef& c, CGInterpolationQuality quality);
void CGContextSetAllowsAntialiasing(const CGContextRef& c, bool allows);
void CGContextSetRGBFillColor(const CGContextRef& c, double red, double green, double blue, double alpha);
void CGContextSetFillColorWithColor(const CGContextRef& c, const CGColorRef& color);
// Later drawing is limited to `rect`, weighted by the mask's coverage: its alpha when it has one,
// else its grey level. Clips accumulate until the state is restored.
void CGContextClipToMask(const CGContextRef& c, const CGRect& rect, const CGImageRef& mask);

void CGContextTranslateCTM(const CGContextRef& c, double tx, double ty);
void CGContextScaleCTM(const CGContextRef& c, double sx, double sy);
void CGContextRotateCTM(const CGContextRef& c, double angle);
void CGContextConcatCTM(const CGContextRef& c, const CGAffineTransform& t);
CGAffineTransform CGContextGetCTM(const CGContextRef& c);
// The user-space bounds of the drawable area: the bitmap, cut to the rectangles of the masks
// clipped to (not to their covered pixels); CGRectNull when nothing can be drawn.
CGRect CGContextGetClipBoundingBox(const CGContextRef& c);

void CGContextFillRect(const CGContextRef& c, const CGRect& rect);
// Makes the rectangle transparent whatever the state's blend mode.
void CGContextClearRect(const CGContextRef& c, const CGRect& rect);
// Draws the image upright, stretched to fill `rect`.
void CGContextDrawImage(const CGContextRef& c, const CGRect& rect, const CGImageRef& image);

// The current path. Points are taken through the transform in force when they are added; the
// line width and dashes are measured through the transform in force when the path is stroked. The
// path is no part of the graphics state: saving and restoring leave it alone, and painting it
// (fill, stroke, draw) empties it. Lines and curves without a current point are ignored, as are
// non-finite points.
void CGContextBeginPath(const CGContextRef& c);
void CGContextMoveToPoint(const CGContextRef& c, double x, double y);
void CGContextAddLineToPoint(const CGContextRef& c, double x, double y);
void CGContextAddCurveToPoint(const CGContextRef& c, double cp1x, double cp1y, double cp2x, double cp2y, double x,
                              double y);
void CGContextAddQuadCurveToPoint(const CGContextRef& c, double cpx, double cpy, double x, double y);
void CGContextClosePath(const CGContextRef& c);
// A closed subpath each; the ellipse is four Bezier quarters.
void CGContextAddRect(const CGContextRef& c, const CGRect& rect);
void CGContextAddEllipseInRect(const CGContextRef& c, const CGRect& rect);
// An arc of the circle around (x, y) from one angle to the other (radians, counter-clockwise from
// the x axis in y-up space), going clockwise when `clockwise` is non-zero, at most one full turn.
// It starts with a line from the current point when there is one, else with a move.
void CGContextAddArc(const CGContextRef& c, double x, double y, double radius, double startAngle, double endAngle,
                     int clockwise);
// A move to the first point and lines through the others.
void CGContextAddLines(const CGContextRef& c, const CGPoint* points, size_t count);
bool CGContextIsPathEmpty(const CGContextRef& c);
// In the current user space; CGPointZero without a current point.
CGPoint CGContextGetPathCurrentPoint(const CGContextRef& c);

// Stroke parameters, part of the graphics state. Width 0 strokes one device pixel wide. Widths
// below zero, miter limits below one and dash patterns with a negative or no positive length are
// ignored; no lengths clears the dashes.
void CGContextSetRGBStrokeColor(const CGContextRef& c, double red, double green, double blue, double alpha);
void CGContextSetStrokeColorWithColor(const CGContextRef& c, const CGColorRef& color);
void CGContextSetLineWidth(const CGContextRef& c, double width);
void CGContextSetLineJoin(const CGContextRef& c, CGLineJoin join);
void CGContextSetLineCap(const CGContextRef& c, CGLineCap cap);
void CGContextSetMiterLimit(const CGContextRef& c, double limit);
void CGContextSetLineDash(const CGContextRef& c, double phase, const double* lengths, size_t count);

// Paint the current path through the state's alpha, clip and blend mode, then empty it. The modes
// that fill and stroke fill first and composite the stroke over the result. Unknown modes paint
// nothing and keep the path.
void CGContextDrawPath(const CGContextRef& c, CGPathDrawingMode mode);
void CGContextFillPath(const CGContextRef& c);
void CGContextEOFillPath(const CGContextRef& c);
void CGContextStrokePath(const CGContextRef& c);
// Shorthands that replace the current path with the shape and paint it.
void CGContextStrokeRect(const CGContextRef& c, const CGRect& rect);
void CGContextStrokeRectWithWidth(const CGContextRef& c, const CGRect& rect, double width);
void CGContextFillEllipseInRect(const CGContextRef& c, const CGRect& rect);
void CGContextStrokeEllipseInRect(const CGContextRef& c, const CGRect& rect);
// Strokes separate segments between points 0-1, 2-3 and so on.
void CGContextStrokeLineSegments(const CGContextRef& c, const CGPoint* points, size_t count);

}  // namespace brenvia
