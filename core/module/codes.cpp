#include "binding/enumeration.h"
#include "core/color_model.h"
#include "core/module/type_def.h"
#include "gevserver/library/tr_codes.h"

namespace tarn {

using Tarn::Binding::EnumerationBuilder;
using Tarn::Binding::Published;

template <>
void TypeDef<AccessMode>::Init() {
  EnumerationBuilder(Get(), "tarn.AccessMode", "What can be done with the value of a node.")
      .Member("NotImplemented", Published(0, GS_ACCESS_NOT_IMPLEMENTED), "The node is not implemented.")
      .Member("NotAvailable", Published(1, GS_ACCESS_NOT_AVAILABLE), "The node is not available at present.")
      .Member("ReadOnly", Published(2, GS_ACCESS_READ_ONLY), "The value can be read.")
      .Member("WriteOnly", Published(3, GS_ACCESS_WRITE_ONLY), "The value can be written.")
      .Member("ReadWrite", Published(4, GS_ACCESS_READ_WRITE), "The value can be read and written.");
}

template <>
void TypeDef<CacheMode>::Init() {
  EnumerationBuilder(Get(), "tarn.CacheMode", "How clients may cache the value of a node.")
      .Member("NoCache", Published(0, GS_CACHE_NO_CACHE), "The value is not cached.")
      .Member("WriteThrough", Published(1, GS_CACHE_WRITE_THROUGH),
              "A written value goes to the device and into the cache.")
      .Member("WriteAround", Published(2, GS_CACHE_WRITE_AROUND),
              "A written value goes to the device; reading fills the cache.");
}

template <>
void TypeDef<Visibility>::Init() {
  EnumerationBuilder(Get(), "tarn.Visibility", "For whom a feature is meant.")
      .Member("Beginner", Published(0, GS_VISIBILITY_BEGINNER), "For everybody.")
      .Member("Expert", Published(1, GS_VISIBILITY_EXPERT), "For experts.")
      .Member("Guru", Published(2, GS_VISIBILITY_GURU), "For those who know what it does to the device.")
      .Member("Invisible", Published(3, GS_VISIBILITY_INVISIBLE), "Not shown in user interfaces.");
}

template <>
void TypeDef<NumberRepresentation>::Init() {
  EnumerationBuilder(Get(), "tarn.NumberRepresentation", "How a number is to be shown.")
      .Member("Linear", Published(0, GS_REPRESENTATION_LINEAR), "Slider with linear behavior.")
      .Member("Logarithmic", Published(1, GS_REPRESENTATION_LOGARITHMIC), "Slider with logarithmic behavior.")
      .Member("Boolean", Published(2, GS_REPRESENTATION_BOOLEAN), "Check box.")
      .Member("PureNumber", Published(3, GS_REPRESENTATION_PURE_NUMBER), "Decimal number.")
      .Member("HexNumber", Published(4, GS_REPRESENTATION_HEX_NUMBER), "Hexadecimal number.")
      .Member("IPV4Address", Published(5, GS_REPRESENTATION_IPV4_ADDRESS), "IP address version 4.")
      .Member("MACAddress", Published(6, GS_REPRESENTATION_MAC_ADDRESS),
              "Hardware address of a network interface.");
}

template <>
void TypeDef<ColorModel>::Init() {
  EnumerationBuilder(Get(), "tarn.ColorModel", "How the planes of an image make a color.")
      .Member("RGBGuess", Published(-2, Tarn::ColorModel::RGBGuess), "Probably red, green and blue planes.")
      .Member("MonoGuess", Published(-1, Tarn::ColorModel::MonoGuess), "Probably one gray plane.")
      .Member("Unknown", Published(0, Tarn::ColorModel::Unknown), "Not known.")
      .Member("Mono", Published(1, Tarn::ColorModel::Mono), "One gray plane.")
      .Member("RGB", Published(2, Tarn::ColorModel::RGB), "Red, green and blue planes.")
      .Member("YUV", Published(3, Tarn::ColorModel::YUV), "Brightness and two color differences.")
      .Member("HSV", Published(4, Tarn::ColorModel::HSV), "Hue, saturation and value.")
      .Member("YCbCr", Published(5, Tarn::ColorModel::YCbCr),
              "Digital brightness and two color differences.");
}

template <>
void TypeDef<PfncFormat>::Init() {
  EnumerationBuilder formats(Get(), "tarn.PfncFormat", "Pixel formats of the GenICam naming convention.");
#define TARN_PFNC(value, name, components, family) formats.Member(#name, value, "Pixel format " #name ".");
#include "core/module/pfnc_names.inc"
#undef TARN_PFNC
}

}  // namespace tarn
