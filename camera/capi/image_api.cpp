#include <memory>
#include <utility>
#include <vector>

#include "camera/capi/entry.h"
#include "camera/capi/pinned.h"
#include "camera/image/image_buffer.h"
#include "camera/image/packing.h"
#include "gevserver/library/tr_img.h"

namespace {

using Tarn::EngineError;
using Tarn::Entry;
using Tarn::Failure;
using Tarn::ImageBuffer;
using Tarn::ImagePlane;
using Tarn::Output;

/// Tells the owner of caller memory that it is free again.
class CallerMemory {
 public:
  CallerMemory() = default;
  CallerMemory(const CallerMemory&) = delete;
  CallerMemory& operator=(const CallerMemory&) = delete;
  ~CallerMemory() {
    if (released_ != nullptr) released_(context_);
  }

  /// Takes over the duty to call `released`. Until then a failed creation calls nothing.
  void Adopt(TRImageReleased released, void* context) noexcept {
    released_ = released;
    context_ = context;
  }

 private:
  TRImageReleased released_ = nullptr;
  void* context_ = nullptr;
};

/// What a function without a status returns: `ask(image)`, or `failure` with the last error set.
template <class Result, class Ask>
Result Answer(TR_HANDLE image, Result failure, Ask ask) noexcept {
  Result result = failure;
  Entry([&] { result = ask(*Tarn::Pinned<ImageBuffer>(image)); });
  return result;
}

}  // namespace

TR_STATUS CreateImage(int64_t width, int64_t height, int64_t planes, uint32_t data_type, TR_HANDLE* image) {
  return Entry([&] {
    TR_HANDLE& made = Output(image, "image");
    made = Tarn::MakeHandle(ImageBuffer::CreateFilled(width, height, planes, data_type));
  });
}

TR_STATUS CreateImageFromPointer(int64_t width, int64_t height, int64_t planes, uint32_t data_type,
                                 const TRPlaneLayout* layouts, TRImageReleased released, void* context,
                                 TR_HANDLE* image) {
  return Entry([&] {
    TR_HANDLE& made = Output(image, "image");
    Output(layouts, "layouts");
    std::vector<ImagePlane> described;
    ImageBuffer::RequireExtents(width, height, planes);
    for (int64_t i = 0; i < planes; ++i) {
      const TRPlaneLayout& layout = layouts[i];
      described.push_back(
          {static_cast<std::uint8_t*>(layout.base), layout.x_increment, layout.y_increment, data_type});
    }
    auto memory = std::make_shared<CallerMemory>();
    made = Tarn::MakeHandle(std::make_unique<ImageBuffer>(width, height, std::move(described), memory));
    memory->Adopt(released, context);
  });
}

TR_STATUS CreateConcatenatedImage(const TR_HANDLE* images, int64_t count, TR_HANDLE* image) {
  return Entry([&] {
    TR_HANDLE& made = Output(image, "image");
    Output(images, "images");
    if (count < 1) throw EngineError(Failure::kInvalidArgument, "count must be at least 1");
    auto sources = std::make_shared<std::vector<Tarn::Pinned<ImageBuffer>>>();
    std::vector<ImagePlane> planes;
    for (int64_t i = 0; i < count; ++i) {
      const ImageBuffer& source = *sources->emplace_back(images[i]);
      const ImageBuffer& first = *sources->front();
      if (source.Width() != first.Width() || source.Height() != first.Height()) {
        throw EngineError(Failure::kInvalidArgument,
                          "image " + std::to_string(i) + " measures " + std::to_string(source.Width()) +
                              " x " + std::to_string(source.Height()) + " pixels, the first " +
                              std::to_string(first.Width()) + " x " + std::to_string(first.Height()));
      }
      planes.insert(planes.end(), source.Planes().begin(), source.Planes().end());
    }
    const ImageBuffer& first = *sources->front();
    made = Tarn::MakeHandle(
        std::make_unique<ImageBuffer>(first.Width(), first.Height(), std::move(planes), sources));
  });
}

TR_STATUS CreatePackedImage(TR_HANDLE image, uint32_t pixel_format, TR_HANDLE* packed) {
  return Entry([&] {
    TR_HANDLE& made = Output(packed, "packed");
    made = Tarn::MakeHandle(Tarn::PackImage(*Tarn::Pinned<ImageBuffer>(image), pixel_format));
  });
}

int64_t ImageWidth(TR_HANDLE image) {
  return Answer<int64_t>(image, 0, [](const ImageBuffer& it) { return it.Width(); });
}

int64_t ImageHeight(TR_HANDLE image) {
  return Answer<int64_t>(image, 0, [](const ImageBuffer& it) { return it.Height(); });
}

int64_t ImageDimension(TR_HANDLE image) {
  return Answer<int64_t>(image, 0,
                         [](const ImageBuffer& it) { return static_cast<int64_t>(it.Planes().size()); });
}

uint32_t ImageDatatype(TR_HANDLE image, int64_t plane) {
  return Answer<uint32_t>(image, 0, [=](const ImageBuffer& it) { return it.Plane(plane).data_type; });
}

bool GetLinearAccess(TR_HANDLE image, int64_t plane, void** base, ptrdiff_t* x_increment,
                     ptrdiff_t* y_increment) {
  return Answer(image, false, [=](const ImageBuffer& it) {
    const ImagePlane& layout = it.Plane(plane);
    void*& base_out = Output(base, "base");
    ptrdiff_t& x_out = Output(x_increment, "x_increment");
    Output(y_increment, "y_increment") = layout.y_increment;
    base_out = layout.base;
    x_out = layout.x_increment;
    return true;
  });
}

TR_STATUS GetImageVPA(TR_HANDLE image, int64_t plane, void** base, const TRVpaEntry** table) {
  static_assert(sizeof(TRVpaEntry) == sizeof(Tarn::VpaEntry) &&
                    offsetof(TRVpaEntry, x_offset) == offsetof(Tarn::VpaEntry, x_offset) &&
                    offsetof(TRVpaEntry, y_offset) == offsetof(Tarn::VpaEntry, y_offset),
                "the table crosses the line as it lies in memory");
  return Entry([&] {
    const Tarn::Pinned<ImageBuffer> pinned(image);
    void*& base_out = Output(base, "base");
    const TRVpaEntry*& table_out = Output(table, "table");
    table_out = reinterpret_cast<const TRVpaEntry*>(pinned->VpaTable(plane));
    base_out = pinned->Plane(plane).base;
  });
}
