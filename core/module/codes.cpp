#include "binding/enumeration.h"
#include "core/module/type_def.h"

namespace tarn {

using Tarn::Binding::EnumerationBuilder;

template <>
void TypeDef<AccessMode>::Init() {
  EnumerationBuilder(Get(), "tarn.AccessMode", "What can be done with the value of a node.")
      .Member("NotImplemented", 0, "The node is not implemented.")
      .Member("NotAvailable", 1, "The node is not available at present.")
      .Member("ReadOnly", 2, "The value can be read.")
      .Member("WriteOnly", 3, "The value can be written.")
      .Member("ReadWrite", 4, "The value can be read and written.");
}

template <>
void TypeDef<CacheMode>::Init() {
  EnumerationBuilder(Get(), "tarn.CacheMode", "How clients may cache the value of a node.")
      .Member("NoCache", 0, "The value is not cached.")
      .Member("WriteThrough", 1, "A written value goes to the device and into the cache.")
      .Member("WriteAround", 2, "A written value goes to the device; reading fills the cache.");
}

template <>
void TypeDef<Visibility>::Init() {
  EnumerationBuilder(Get(), "tarn.Visibility", "For whom a feature is meant.")
      .Member("Beginner", 0, "For everybody.")
      .Member("Expert", 1, "For experts.")
      .Member("Guru", 2, "For those who know what it does to the device.")
      .Member("Invisible", 3, "Not shown in user interfaces.");
}

template <>
void TypeDef<NumberRepresentation>::Init() {
  EnumerationBuilder(Get(), "tarn.NumberRepresentation", "How a number is to be shown.")
      .Member("Linear", 0, "Slider with linear behavior.")
      .Member("Logarithmic", 1, "Slider with logarithmic behavior.")
      .Member("Boolean", 2, "Check box.")
      .Member("PureNumber", 3, "Decimal number.")
      .Member("HexNumber", 4, "Hexadecimal number.")
      .Member("IPV4Address", 5, "IP address version 4.")
      .Member("MACAddress", 6, "Hardware address of a network interface.");
}

template <>
void TypeDef<ColorModel>::Init() {
  EnumerationBuilder(Get(), "tarn.ColorModel", "How the planes of an image make a color.")
      .Member("RGBGuess", -2, "Probably red, green and blue planes.")
      .Member("MonoGuess", -1, "Probably one gray plane.")
      .Member("Unknown", 0, "Not known.")
      .Member("Mono", 1, "One gray plane.")
      .Member("RGB", 2, "Red, green and blue planes.")
      .Member("YUV", 3, "Brightness and two color differences.")
      .Member("HSV", 4, "Hue, saturation and value.")
      .Member("YCbCr", 5, "Digital brightness and two color differences.");
}

template <>
void TypeDef<PfncFormat>::Init() {
  EnumerationBuilder formats(Get(), "tarn.PfncFormat", "Pixel formats of the GenICam naming convention.");
#define TARN_PFNC(value, name, components, family) formats.Member(#name, value, "Pixel format " #name ".");
#include "core/module/pfnc_names.inc"
#undef TARN_PFNC
}

}  // namespace tarn
