#include "core/image.h"

#include <cstdint>
#include <optional>

#include "binding/convert.h"
#include "binding/core_values.h"
#include "binding/type_builder.h"
#include "core/module/image_buffer.h"
#include "core/module/no_instances.h"
#include "core/module/type_def.h"

namespace tarn {

using namespace Tarn::Binding;

namespace {

/// A Size2D, or a pair of numbers.
Tarn::Size2D SizeFrom(PyObject* object) {
  if (!PyTuple_Check(object) && !PyList_Check(object)) return FromPython<Tarn::Size2D>(object);
  if (PySequence_Size(object) != 2) throw std::invalid_argument("a size is a pair (width, height)");
  const PyRef width = Checked(PySequence_GetItem(object, 0));
  const PyRef height = Checked(PySequence_GetItem(object, 1));
  return {FromPython<double>(width.Get()), FromPython<double>(height.Get())};
}

PyRef NewImage(NewType type, PyObject* size, std::optional<std::int64_t> planes,
               std::optional<Tarn::DataType> data_type, std::optional<PyObject*> color_model) {
  const Tarn::Size2D pixels = SizeFrom(size);
  const std::int32_t width = Tarn::RoundToInt32(pixels.width);
  const std::int32_t height = Tarn::RoundToInt32(pixels.height);
  if (width < 1) throw std::invalid_argument("Width must be larger or equal to 1");
  if (height < 1) throw std::invalid_argument("Height must be larger or equal to 1");
  if (planes.value_or(1) < 1) throw std::invalid_argument("Planes must be larger or equal to 1");
  return Construct(type.type, Tarn::Image::Create(width, height, planes.value_or(1),
                                                  data_type.value_or(Tarn::DataTypes::kInt8BppUnsigned),
                                                  ColorModelFrom(color_model.value_or(Py_None))));
}

Tarn::Size2D Size(const Tarn::Image& image) {
  return {static_cast<double>(image.Width()), static_cast<double>(image.Height())};
}

PyObject* Represent(PyObject* self) {
  return Guarded<PyObject*>(nullptr, [self] {
    const auto image = FromPython<std::shared_ptr<Tarn::Image>>(self);
    const PyRef name = Checked(PyType_GetName(Py_TYPE(self)));
    return Checked(PyUnicode_FromFormat("<tarn.%U %lldx%lld, planes: %lld, data type: 0x%x>", name.Get(),
                                        static_cast<long long>(image->Width()),
                                        static_cast<long long>(image->Height()),
                                        static_cast<long long>(image->Planes()), image->Type().Descriptor()))
        .Release();
  });
}

/// Kinds of images that other sources would hand out.
void DescribeKind(TypeDefinition& definition, const char* name, const char* summary) {
  TypeBuilder(definition, name, summary).Base(TypeObject__Image__());
  definition.construct = &RefuseNew;
}

}  // namespace

template <>
void TypeDef<Image>::Init() {
  TypeDefinition& type =
      TypeBuilder(Get(), "tarn.Image", "Pixels in one or more planes.",
                  "Supports the buffer protocol: numpy.asarray(image) is a view without a copy, of shape "
                  "(height, width) for one plane, else (height, width, planes).")
          .Constructor<Signature<&NewImage, "size", "planes", "data_type", "color_model">>(
              {{.summary = "Instantiates a zero-filled image, samples of a pixel side by side.",
                .params =
                    {{"size", "Union[tarn.Size2D, Tuple[float, float]]", "Width and height in pixels."},
                     {"planes", "int", "Number of planes.", "1"},
                     {"data_type", "tarn.DataType", "What one sample is.", "tarn.DataType.Int8BppUnsigned"},
                     {"color_model", "Optional[int]",
                      "How the planes make a color (see tarn.ColorModel); by the number of planes if None.",
                      "None"}}}})
          .ReadOnly<&Tarn::Image::Width>("width", "Gets the width in pixels.")
          .ReadOnly<&Tarn::Image::Height>("height", "Gets the height in lines.")
          .ReadOnly<&Size>("size", "Gets width and height in pixels.")
          .ReadOnly<&Tarn::Image::Planes>("planes", "Gets the number of planes.")
          .ReadOnly<&Tarn::Image::Type>("data_type", "Gets what one sample is.")
          .ReadOnly<&Tarn::Image::Model>("color_model",
                                         "Gets how the planes make a color (see tarn.ColorModel).")
          .Method<Signature<&Tarn::Image::Copy>>("copy", {{.summary = "Makes a copy that owns its memory.",
                                                           .returns = {"tarn.Image", "The copy."}}})
          .Method<Signature<&Tarn::Image::Packed, "pixel_format">>(
              "packed",
              {{.summary = "Packs the samples as a pixel format has them.",
                .description =
                    "The result is what a stream of that format sends: bytes in one plane, a row for "
                    "each line, or all in one row where lines end inside a byte.",
                .params =
                    {{"pixel_format", "int",
                      "A tarn.PfncFormat whose name ends in p, p32 or Packed. The image has unsigned "
                      "integers of 8 or 16 bits and as many planes as a pixel has samples; bits above those "
                      "that the format takes are left out."}},
                .returns = {"tarn.Image", "The payload."}}})
          .Definition();
  type.represent = &Represent;
  type.get_buffer = &GetImageBuffer;
}

#define TARN_IMAGE_KIND(X, summary)           \
  template <>                                 \
  void TypeDef<X>::Init() {                   \
    DescribeKind(Get(), "tarn." #X, summary); \
  }
TARN_IMAGE_KIND(DeviceImage, "Image of a device.")
TARN_IMAGE_KIND(VinImage, "Image of a driver.")
TARN_IMAGE_KIND(VideoImage, "Image of a video.")
TARN_IMAGE_KIND(EmuImage, "Image of an emulated device.")
TARN_IMAGE_KIND(StreamImage, "Image of a stream.")
TARN_IMAGE_KIND(MultiPartImage, "Part of a multi-part buffer.")
TARN_IMAGE_KIND(RingBufferImage, "Image in a ring buffer.")
TARN_IMAGE_KIND(BufferImage, "Image in a buffer.")
#undef TARN_IMAGE_KIND

template <>
void TypeDef<Stream>::Init() {
  TypeBuilder(Get(), "tarn.Stream", "Source of images.");
  Get().construct = &RefuseNew;
}

template <>
void TypeDef<IndexedStream>::Init() {
  TypeBuilder(Get(), "tarn.IndexedStream", "Source of images with a position.");
  Get().construct = &RefuseNew;
}

}  // namespace tarn
