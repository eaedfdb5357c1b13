#include "core/module/image_buffer.h"

#include <bit>
#include <cstring>
#include <memory>
#include <stdexcept>

#include "binding/buffer_view.h"
#include "binding/convert.h"
#include "binding/core_values.h"
#include "binding/errors.h"
#include "binding/type_definition.h"
#include "core/image.h"

namespace tarn {

using namespace Tarn::Binding;

namespace {

struct SampleFormat {
  char code;
  std::uint32_t descriptor;
};

// Integers of 10, 12 and 14 bits lie in 16-bit samples.
constexpr SampleFormat kFormats[] = {{'B', 0x008}, {'b', 0x108}, {'H', 0x010}, {'h', 0x110},
                                     {'I', 0x020}, {'i', 0x120}, {'f', 0x320}, {'d', 0x340}};

/// One character as a text without end for Py_buffer, which wants it mutable.
char* FormatOf(Tarn::DataType type) {
  static char texts[][2] = {"B", "b", "H", "h", "I", "i", "f", "d"};
  for (std::size_t i = 0; i < std::size(kFormats); ++i) {
    const Tarn::DataType candidate(kFormats[i].descriptor);
    if (candidate.BytesPerPixel() == type.BytesPerPixel() && candidate.IsSigned() == type.IsSigned() &&
        candidate.IsFloat() == type.IsFloat()) {
      return texts[i];
    }
  }
  return nullptr;
}

[[noreturn]] void ThrowBufferError(const char* text) {
  PyErr_SetString(PyExc_BufferError, text);
  throw PresetError();
}

std::ptrdiff_t Distance(const TRPlaneLayout& from, const TRPlaneLayout& to) {
  return static_cast<const char*>(to.base) - static_cast<const char*>(from.base);
}

/// Bytes from a plane to the next.
/// Throws: PresetError when they differ.
std::ptrdiff_t PlaneIncrement(const Tarn::Image& image) {
  const TRPlaneLayout first = image.LinearAccess(0);
  const std::ptrdiff_t increment = Distance(first, image.LinearAccess(1));
  for (std::int64_t plane = 1; plane < image.Planes(); ++plane) {
    const TRPlaneLayout layout = image.LinearAccess(plane);
    if (layout.x_increment != first.x_increment || layout.y_increment != first.y_increment ||
        Distance(first, layout) != plane * increment) {
      ThrowBufferError("the planes of the image do not lie at equal distances");
    }
  }
  return increment;
}

std::unique_ptr<BufferView> LayoutOf(const Tarn::Image& image) {
  const TRPlaneLayout first = image.LinearAccess(0);
  auto layout = std::make_unique<BufferView>();
  layout->shape = {image.Height(), image.Width()};
  layout->strides = {first.y_increment, first.x_increment};
  if (image.Planes() > 1) {
    layout->shape.push_back(image.Planes());
    layout->strides.push_back(PlaneIncrement(image));
  }
  return layout;
}

void FillView(Py_buffer& view, const Tarn::Image& image, std::unique_ptr<BufferView> layout, bool read_only) {
  view.buf = image.LinearAccess(0).base;
  view.itemsize = static_cast<Py_ssize_t>(image.Type().BytesPerPixel());
  view.len = view.itemsize;
  for (const Py_ssize_t extent : layout->shape) view.len *= extent;
  view.readonly = read_only ? 1 : 0;
  view.ndim = static_cast<int>(layout->shape.size());
  view.format = FormatOf(image.Type());
  view.shape = layout->shape.data();
  view.strides = layout->strides.data();
  view.suboffsets = nullptr;
  view.internal = layout.release();
  if (!view.format) ThrowBufferError("samples of this data type have no buffer format");
}

void RequireWhatWasAsked(const Py_buffer& view, int flags) {
  const auto asks = [flags](int what) { return (flags & what) == what; };
  if (asks(PyBUF_WRITABLE) && view.readonly) ThrowBufferError("the memory of the image is read only");
  const bool c_order = PyBuffer_IsContiguous(&view, 'C') != 0;
  const bool fortran_order = PyBuffer_IsContiguous(&view, 'F') != 0;
  if ((asks(PyBUF_C_CONTIGUOUS) || !asks(PyBUF_STRIDES)) && !c_order) {
    ThrowBufferError("the image is not contiguous");
  }
  if (asks(PyBUF_F_CONTIGUOUS) && !fortran_order)
    ThrowBufferError("the image is not contiguous in that order");
  if (asks(PyBUF_ANY_CONTIGUOUS) && !c_order && !fortran_order)
    ThrowBufferError("the image is not contiguous");
}

/// What was not asked for is null in a view.
void DropWhatWasNotAsked(Py_buffer& view, int flags) {
  if ((flags & PyBUF_FORMAT) == 0) view.format = nullptr;
  if ((flags & PyBUF_STRIDES) != PyBUF_STRIDES) view.strides = nullptr;
  if ((flags & PyBUF_ND) == 0) {
    view.shape = nullptr;
    view.ndim = 1;
  }
}

}  // namespace

int GetImageBuffer(PyObject* self, Py_buffer* view, int flags) {
  std::memset(view, 0, sizeof *view);
  return Guarded(-1, [&] {
    const auto image = FromPython<std::shared_ptr<Tarn::Image>>(self);
    const bool read_only = FindMeta<ReadOnlyMemory>(self) != nullptr;
    try {
      FillView(*view, *image, LayoutOf(*image), read_only);
      RequireWhatWasAsked(*view, flags);
    } catch (const std::exception&) {
      ReleaseBufferView(self, view);
      throw;
    }
    DropWhatWasNotAsked(*view, flags);
    view->obj = PyRef::Share(self).Release();
    return 0;
  });
}

std::optional<Tarn::DataType> DataTypeOfFormat(const char* format, Py_ssize_t item_size) noexcept {
  if (!format) return Tarn::DataTypes::kInt8BppUnsigned;
  static_assert(std::endian::native == std::endian::little);
  if (std::strchr("@=<", *format) && *format != '\0') ++format;
  if (std::strlen(format) != 1) return std::nullopt;
  // The size of a long depends on the platform and the prefix.
  const char code = *format == 'L' ? 'I' : *format == 'l' ? 'i' : *format;
  for (const SampleFormat& candidate : kFormats) {
    const Tarn::DataType type(candidate.descriptor);
    if (candidate.code == code && type.BytesPerPixel() == static_cast<std::uint32_t>(item_size)) return type;
  }
  return std::nullopt;
}

std::optional<Tarn::ColorModel> ColorModelFrom(PyObject* object) {
  if (Py_IsNone(object)) return std::nullopt;
  const auto code = FromPython<std::int64_t>(object);
  if (!Tarn::IsColorModel(code)) throw std::invalid_argument("color model must be one of tarn.ColorModel");
  return static_cast<Tarn::ColorModel>(code);
}

}  // namespace tarn
