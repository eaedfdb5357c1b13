#pragma once

/// PFNC pixel formats: their names, and which one fits an image.

#include <cstdint>
#include <string>

#include "core/color_model.h"
#include "core/data_type.h"

namespace Tarn::GevServer {

/// PFNC name of a pixel format value, for example "Mono8".
/// Throws: the kind of the library's code, with "Unknown PfncFormat." or "Could not get Pfnc value by name.".
std::string PfncName(std::uint32_t pixel_format);

/// PFNC value of images with this colour model and sample type; 0 when there is none.
/// \param color_model  code of a ColorModel; any other number has no format
/// Source of the values: PFNC.
std::uint32_t PfncFormatOf(std::int64_t color_model, DataType type) noexcept;

}  // namespace Tarn::GevServer
