#include "gevserver/pixel_format.h"

#include <array>
#include <cstddef>

#include "core/tarn_exception.h"
#include "core/two_call_text.h"
#include "gevserver/library/tr_utilities.h"

namespace Tarn::GevServer {

namespace {

// Formats for up to 8, 10, 12, 14 and 16 bits per sample.
using FormatsByDepth = std::array<std::uint32_t, 5>;
constexpr FormatsByDepth kMono = {0x01080001, 0x01100003, 0x01100005, 0x01100025, 0x01100007};
constexpr FormatsByDepth kRgb = {0x02180014, 0x02300018, 0x0230001A, 0x0230005E, 0x02300033};
constexpr std::uint32_t kMono8s = 0x01080002;
constexpr std::uint32_t kYuv8 = 0x02180020;
constexpr std::uint32_t kYCbCr8 = 0x0218005B;
constexpr std::uint32_t kNone = 0;
constexpr std::uint32_t kMaxBits = 16;

std::uint32_t ByDepth(const FormatsByDepth& formats, std::uint32_t bits) {
  return formats[bits <= 8 ? std::size_t{0} : (bits - 7) / 2];
}

}  // namespace

std::string PfncName(std::uint32_t pixel_format) {
  const auto fail_with = [](const char* text) {
    return [text](TR_STATUS status) {
      if (status < 0) ThrowStatus(status, text);
    };
  };
  return ReadTwoCallText(
      [pixel_format](char* name, std::size_t* size) { return TRCGetPFNCValueName(pixel_format, name, size); },
      fail_with("Unknown PfncFormat."), fail_with("Could not get Pfnc value by name."));
}

std::uint32_t PfncFormatOf(std::int64_t color_model, DataType type) noexcept {
  const std::uint32_t bits = type.BitsPerPixel();
  if (type.IsFloat() || bits > kMaxBits || !IsColorModel(color_model)) return kNone;
  switch (static_cast<ColorModel>(color_model)) {
    case ColorModel::MonoGuess:
    case ColorModel::Mono:
      if (type.IsPlain()) return ByDepth(kMono, bits);
      return bits <= 8 ? kMono8s : kNone;
    case ColorModel::RGBGuess:
    case ColorModel::RGB:
      return type.IsPlain() ? ByDepth(kRgb, bits) : kNone;
    case ColorModel::YUV:
      return type.IsPlain() && bits == 8 ? kYuv8 : kNone;
    case ColorModel::YCbCr:
      return type.IsPlain() && bits == 8 ? kYCbCr8 : kNone;
    case ColorModel::Unknown:
    case ColorModel::HSV:
      break;
  }
  return kNone;
}

}  // namespace Tarn::GevServer
