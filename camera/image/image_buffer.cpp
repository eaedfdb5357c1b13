#include "camera/image/image_buffer.h"

#include <algorithm>
#include <cstdlib>
#include <new>
#include <string>
#include <utility>

#include "camera/base/engine_error.h"

namespace Tarn {
namespace {

constexpr std::size_t kAlignment = 64;  // a cache line, and the widest vector register

void RequireWithin(const char* name, std::int64_t value, std::int64_t most) {
  if (value >= 1 && value <= most) return;
  throw EngineError(Failure::kInvalidArgument, std::string(name) + " must lie within 1 and " +
                                                   std::to_string(most) + ", not " + std::to_string(value));
}

void RequireSample(std::uint32_t data_type) {
  if (const unsigned bits = SampleBits(data_type); bits < 1 || bits > 64) {
    throw EngineError(Failure::kInvalidArgument,
                      "data type must have 1 to 64 bits per sample, not " + std::to_string(bits));
  }
}

/// Bytes of an image without gaps.
/// Requires: each factor within its bounds.
std::size_t TotalBytes(std::int64_t width, std::int64_t height, std::int64_t planes,
                       std::uint32_t data_type) {
  std::ptrdiff_t total = 0;
  if (__builtin_mul_overflow(width, height, &total) || __builtin_mul_overflow(total, planes, &total) ||
      __builtin_mul_overflow(total, SampleBytes(data_type), &total)) {
    throw EngineError(Failure::kNoMemory, "an image of " + std::to_string(width) + " x " +
                                              std::to_string(height) + " pixels with " +
                                              std::to_string(planes) + " planes exceeds the address space");
  }
  return static_cast<std::size_t>(total);
}

/// Zeroed memory on a boundary of kAlignment. calloc gets large areas as fresh pages, which are zero without
/// being touched; an aligned allocation would have to be filled.
std::shared_ptr<void> ZeroedMemory(std::size_t size, std::uint8_t*& aligned) {
  std::size_t room = 0;
  void* memory = __builtin_add_overflow(size, kAlignment, &room) ? nullptr : std::calloc(room, 1);
  if (memory == nullptr) {
    throw EngineError(Failure::kNoMemory, "no memory for an image of " + std::to_string(size) + " bytes");
  }
  std::shared_ptr<void> owner(memory, std::free);
  aligned = static_cast<std::uint8_t*>(std::align(kAlignment, size, memory, room));
  return owner;
}

/// Every sample's offset must be a number that pointer arithmetic can work with.
void RequireReachable(const ImagePlane& plane, std::int64_t width, std::int64_t height,
                      const std::string& name) {
  if (plane.base == nullptr) throw EngineError(Failure::kInvalidArgument, name + " has no base address");
  std::ptrdiff_t x = 0;
  std::ptrdiff_t y = 0;
  std::ptrdiff_t corner = 0;
  if (__builtin_mul_overflow(width - 1, plane.x_increment, &x) ||
      __builtin_mul_overflow(height - 1, plane.y_increment, &y) || __builtin_add_overflow(x, y, &corner)) {
    throw EngineError(Failure::kInvalidArgument, name + " has increments that lead out of the address space");
  }
}

}  // namespace

void ImageBuffer::RequireExtents(std::int64_t width, std::int64_t height, std::int64_t planes) {
  RequireWithin("width", width, kMaxExtent);
  RequireWithin("height", height, kMaxExtent);
  RequireWithin("planes", planes, kMaxPlanes);
}

std::unique_ptr<ImageBuffer> ImageBuffer::CreateFilled(std::int64_t width, std::int64_t height,
                                                       std::int64_t planes, std::uint32_t data_type) {
  // All bounds come before the first allocation that depends on them.
  RequireExtents(width, height, planes);
  RequireSample(data_type);
  std::uint8_t* base = nullptr;
  std::shared_ptr<void> owner = ZeroedMemory(TotalBytes(width, height, planes, data_type), base);

  const std::ptrdiff_t sample = SampleBytes(data_type);
  std::vector<ImagePlane> layout;
  for (std::int64_t i = 0; i < planes; ++i) {
    layout.push_back({base + i * sample, planes * sample, width * planes * sample, data_type});
  }
  return std::make_unique<ImageBuffer>(width, height, std::move(layout), std::move(owner));
}

ImageBuffer::ImageBuffer(std::int64_t width, std::int64_t height, std::vector<ImagePlane> planes,
                         std::shared_ptr<void> owner)
    : width_(width),
      height_(height),
      planes_(std::move(planes)),
      owner_(std::move(owner)),
      tables_(planes_.size()) {
  RequireExtents(width, height, static_cast<std::int64_t>(planes_.size()));
  for (std::size_t i = 0; i < planes_.size(); ++i) {
    RequireSample(planes_[i].data_type);
    RequireReachable(planes_[i], width, height, "plane " + std::to_string(i));
  }
}

const ImagePlane& ImageBuffer::Plane(std::int64_t index) const {
  if (index < 0 || std::cmp_greater_equal(index, planes_.size())) {
    throw EngineError(Failure::kOutOfRange, "there is no plane " + std::to_string(index) +
                                                " in an image of " + std::to_string(planes_.size()));
  }
  return planes_[static_cast<std::size_t>(index)];
}

const VpaEntry* ImageBuffer::VpaTable(std::int64_t plane) const {
  const ImagePlane& layout = Plane(plane);
  LazyTable& table = tables_[static_cast<std::size_t>(plane)];
  std::call_once(table.once, [&] {
    const std::int64_t rows = std::max(width_, height_);
    auto entries = std::make_unique<VpaEntry[]>(static_cast<std::size_t>(rows));
    // Only offsets that belong to a sample are formed: the others may not exist as numbers.
    for (std::int64_t x = 0; x < width_; ++x)
      entries[static_cast<std::size_t>(x)].x_offset = x * layout.x_increment;
    for (std::int64_t y = 0; y < height_; ++y)
      entries[static_cast<std::size_t>(y)].y_offset = y * layout.y_increment;
    table.entries = std::move(entries);
  });
  return table.entries.get();
}

}  // namespace Tarn
