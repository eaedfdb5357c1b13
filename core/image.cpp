#include "core/image.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <new>
#include <stdexcept>
#include <utility>
#include <vector>

#include "core/library_call.h"
#include "core/tarn_exception.h"

namespace Tarn {

namespace {

using Released = std::function<void()>;

// The image library calls this once, on whatever thread drops the last reference.
void CallReleased(void* context) {
  const std::unique_ptr<Released> released(static_cast<Released*>(context));
  try {
    if (*released) (*released)();
  } catch (...) {
    // No exception may enter the library.
  }
}

/// Memory of as many bytes as the product of the factors. Zero pages cost nothing until they are touched.
/// Throws: std::bad_alloc, also for a product that is no size.
std::shared_ptr<void> ZeroFilled(std::initializer_list<std::int64_t> factors) {
  std::int64_t bytes = 1;
  for (const std::int64_t factor : factors) {
    if (factor < 1 || __builtin_mul_overflow(bytes, factor, &bytes)) throw std::bad_alloc();
  }
  std::shared_ptr<void> memory(std::calloc(static_cast<std::size_t>(bytes), 1), &std::free);
  if (!memory) throw std::bad_alloc();
  return memory;
}

void CopyPlane(const TRPlaneLayout& from, const TRPlaneLayout& to, std::int64_t width, std::int64_t height,
               std::size_t sample_size) {
  const bool packed =
      from.x_increment == to.x_increment && from.x_increment == static_cast<std::ptrdiff_t>(sample_size);
  for (std::int64_t y = 0; y < height; ++y) {
    const auto* source = static_cast<const std::byte*>(from.base) + y * from.y_increment;
    auto* target = static_cast<std::byte*>(to.base) + y * to.y_increment;
    if (packed) {
      std::memcpy(target, source, static_cast<std::size_t>(width) * sample_size);
      continue;
    }
    for (std::int64_t x = 0; x < width; ++x) {
      std::memcpy(target + x * to.x_increment, source + x * from.x_increment, sample_size);
    }
  }
}

}  // namespace

std::shared_ptr<Image> Image::Create(std::int64_t width, std::int64_t height, std::int64_t planes,
                                     DataType type, std::optional<ColorModel> color_model) {
  constexpr std::int64_t kMaxPlanes = 65536;  // what can be listed; libraries take fewer or as many
  if (planes > kMaxPlanes) throw std::invalid_argument("Planes must be smaller or equal to 65536");
  // At least a byte, so that a type without bits gets as far as the library, which says what is wrong with
  // it.
  const auto sample = std::max(std::int64_t{type.BytesPerPixel()}, std::int64_t{1});
  const std::shared_ptr<void> memory = ZeroFilled({width, height, planes, sample});
  std::vector<TRPlaneLayout> layouts;
  for (std::int64_t plane = 0; plane < planes; ++plane) {
    layouts.push_back(
        {static_cast<std::byte*>(memory.get()) + plane * sample, planes * sample, width * planes * sample});
  }
  return FromPointer(
      width, height, type, layouts, [memory] {}, color_model);
}

std::shared_ptr<Image> Image::FromPointer(std::int64_t width, std::int64_t height, DataType type,
                                          std::span<const TRPlaneLayout> layouts,
                                          std::function<void()> released,
                                          std::optional<ColorModel> color_model) {
  const auto planes = static_cast<std::int64_t>(layouts.size());
  auto context = std::make_unique<Released>(std::move(released));
  TR_HANDLE handle = nullptr;
  CheckImageCall(CreateImageFromPointer(width, height, planes, type.Descriptor(), layouts.data(),
                                        CallReleased, context.get(), &handle),
                 "_ppCreateImageFromPointer");
  context.release();  // belongs to the library from here on
  return std::make_shared<Image>(Guard(handle), color_model.value_or(ColorModelOfPlanes(planes)));
}

Image::Image(Guard handle, ColorModel color_model) : handle_(std::move(handle)), color_model_(color_model) {}

std::shared_ptr<Image> Image::Copy() const {
  auto copy = Create(Width(), Height(), Planes(), Type(), color_model_);
  for (std::int64_t plane = 0; plane < Planes(); ++plane) {
    CopyPlane(LinearAccess(plane), copy->LinearAccess(plane), Width(), Height(), Type().BytesPerPixel());
  }
  return copy;
}

std::shared_ptr<Image> Image::Packed(std::uint32_t pixel_format) const {
  TR_HANDLE handle = nullptr;
  CheckImageCall(CreatePackedImage(Handle(), pixel_format, &handle), "_ppCreatePackedImage");
  return std::make_shared<Image>(Guard(handle), ColorModelOfPlanes(1));
}

std::int64_t Image::Width() const noexcept { return ImageWidth(Handle()); }
std::int64_t Image::Height() const noexcept { return ImageHeight(Handle()); }
std::int64_t Image::Planes() const noexcept { return ImageDimension(Handle()); }
DataType Image::Type() const noexcept { return DataType(ImageDatatype(Handle(), 0)); }

TRPlaneLayout Image::LinearAccess(std::int64_t index) const {
  TRPlaneLayout layout{};
  CheckImageCall(
      StatusOf(GetLinearAccess(Handle(), index, &layout.base, &layout.x_increment, &layout.y_increment)),
      "_ppGetLinearAccess");
  return layout;
}

}  // namespace Tarn
