#pragma once

#include "platform/coreimage/engine/color_conversion.h"
#include "platform/coreimage/engine/renderer.h"
#include "platform/coreimage/engine/span.h"

namespace brenvia::ci {

// Converts working-space spans to the target's space and layout.
class OutputWriter {
 public:
  OutputWriter(const RenderTarget& target, const RenderEnv& env);
  // Writes the span to `dst` (the address of its first pixel in the target). The span is changed.
  void write(Span& s, uint8_t* dst) const;

 private:
  void convertColor(Span& s) const;

  RenderTarget target_;
  ColorConversion conversion_;
  bool linearToSRGB_ = false;
};

}  // namespace brenvia::ci
