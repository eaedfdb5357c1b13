#pragma once

/// Parameters that several functions have in common: what the images to be sent are.

#include "binding/type_builder.h"

namespace _tarn::gevserver {

inline const Tarn::Binding::ParamDoc kSize{"size", "tarn.Size2D", "Width and height in pixels."};
inline const Tarn::Binding::ParamDoc kPixelFormat{"pixel_format", "int",
                                                  "GenICam PFNC format value (see tarn.PfncFormat)."};
inline const Tarn::Binding::ParamDoc kColorModel{"color_model", "int",
                                                 "Color model of the image to send (see tarn.ColorModel)."};

}  // namespace _tarn::gevserver
