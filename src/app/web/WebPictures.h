// Pictures the web application draws itself, as SVG: the picture of a built-in template made
// from the template (the shape of its output frame, its method and the mark of its platform),
// the sample picture that stands in where a list item has none, and the stand-in for a file
// that can't be drawn. Used by the template and thumbnail routes.
#pragma once

#include <string>

#include "templates/VXTemplate.h"

namespace app::web {

// The picture named `pictureName` ("tpl-fb-cover": its platform is the part after "tpl-") of
// `tpl`: the output frame of its photo size (else its video size) in the platform's colour
// with its initials, the frame filled as the method fills it (covering for clip, inside bars
// for fit, distorted for stretch), a relative size beside the source it scales, and a mark
// for Smart size.
std::string templatePictureSVG(const VXTemplate& tpl, const std::string& pictureName);

// The sample picture, landscape or square, for an item without a picture of its own.
std::string samplePictureSVG(bool square);

// A square stand-in, `side` pixels, for a photo or movie that could not be drawn.
std::string unreadablePictureSVG(int side);

}  // namespace app::web
