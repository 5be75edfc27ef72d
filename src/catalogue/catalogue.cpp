#include "catalogue/adjustment_filter.h"
#include "catalogue/color_filter.h"
#include "catalogue/curves_filter.h"
#include "catalogue/fade_filter.h"
#include "catalogue/gradient_filter.h"
#include "catalogue/image_filter.h"
#include "catalogue/levels_filter.h"
#include "catalogue/selective_color_filter.h"
#include "catalogue/sharpen_filter.h"
#include "catalogue/unsharp_mask_filter.h"
#include "catalogue/vignette_filter.h"
#include "filter/filter_registry.h"
#include "masks/recipe_mask.h"
#include "operators/library_operators.h"

namespace brenvia {
namespace {

template <class T>
void add(std::string_view type, std::string_view doc) {
  BVRegisterFilterClass({type, T::kClassName, doc, [] { return BVFilterRef(std::make_shared<T>()); }});
}

}  // namespace

void BVRegisterCatalogue() {
  BVRegisterLibraryOperators();
  BVMask::setMaker([](const Value& dictionary) { return BVRecipeMask::initWithDictionary(dictionary); });
  add<BVAdjustmentFilter>(kBVFilterTypeAdjustment, "exposure, contrast, saturation, hue, white balance and more");
  add<BVCurvesFilter>(kBVFilterTypeCurves, "tone curves from points, an ACV file or a lookup table");
  add<BVImageFilter>(kBVFilterTypeImage, "a picture laid over: frame, texture, light leak, grain");
  add<BVRandomImageFilter>(kBVFilterTypeRandomImage, "one of several pictures, chosen at random");
  add<BVImageSequenceFilter>(kBVFilterTypeImageSequence, "several pictures, one after another");
  add<BVColorFilter>(kBVFilterTypeColor, "a flat colour laid over");
  add<BVLevelsFilter>(kBVFilterTypeLevels, "black and white points of input and output");
  add<BVGradientFilter>(kBVFilterTypeGradient, "a linear or radial gradient laid over");
  add<BVFadeFilter>(kBVFilterTypeFade, "colours pulled towards mid grey");
  add<BVSelectiveColorFilter>(kBVFilterTypeSelectiveColor, "weights of six colours folded into the channels");
  add<BVSharpenFilter>(kBVFilterTypeSharpen, "luminance sharpening");
  add<BVUnsharpMaskFilter>(kBVFilterTypeUnsharpMask, "unsharp masking, radius relative to the picture");
  add<BVVignetteFilter>(kBVFilterTypeVignette, "darkened corners around a centred circle");
}

}  // namespace brenvia
