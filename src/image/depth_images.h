#pragma once

#include "platform/coreimage/ci_image.h"

namespace brenvia {

// The disparity map stretched so that its values span 0 to 1, as an untagged grey picture; the
// scan starts from the range 0 to 1, so a map that lies wholly above 1 keeps 1 as its low end. A
// flat map becomes 0 everywhere. Null for a null or unrenderable map.
CIImageRef BVNormalizedDisparityImage(const CIImageRef& disparity);

// `map` (an untagged grey picture) brought to the extent of `guide`: each pixel mixes the map's
// nearest 4 x 4 samples by distance and by how close the guide's brightness there is to its own,
// so that edges of the map follow the edges of the picture. The mixing runs at up to twice the
// map's size and is scaled from there to the guide's extent. A map of the guide's size comes back
// as it is. Null for a null map or guide.
CIImageRef BVEdgePreservingUpsampledImage(const CIImageRef& map, const CIImageRef& guide);
// The same onto `extent`, with a guide of the same picture at any size (a reduced decode is enough).
CIImageRef BVEdgePreservingUpsampledImage(const CIImageRef& map, const CIImageRef& guide, const CGRect& extent);

}  // namespace brenvia
