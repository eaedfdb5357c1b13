#pragma once

/// Images as the object model shares them.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>

#include "core/color_model.h"
#include "core/data_type.h"
#include "core/handle_guard.h"
#include "gevserver/library/tr_img.h"

namespace Tarn {

/// Pixel memory behind an image-library handle, with a colour model.
///
/// Made by one of the factories and always shared: whoever may still read the pixels holds the image.
/// Threads: any thread for the description; the pixels are the users' affair.
class Image {
 public:
  using Guard = HandleGuard<Image>;

  /// A new zero-filled image, samples interleaved, rows without padding.
  /// \param width,height,planes  at least 1
  /// \param color_model          none: by the number of planes
  /// Throws: std::bad_alloc; what the image library refuses (std::invalid_argument, TarnException).
  static std::shared_ptr<Image> Create(std::int64_t width, std::int64_t height, std::int64_t planes,
                                       DataType type, std::optional<ColorModel> color_model = {});

  /// An image over the caller's memory.
  /// \param layouts   one for each plane; their memory stays valid until `released` is called
  /// \param released  called once, on any thread, when the last user of the memory is gone; never when this throws.
  ///                  May be empty. An exception from it is dropped.
  /// Throws: as Create.
  static std::shared_ptr<Image> FromPointer(std::int64_t width, std::int64_t height, DataType type,
                                            std::span<const TRPlaneLayout> layouts,
                                            std::function<void()> released,
                                            std::optional<ColorModel> color_model = {});

  /// Takes over an image-library handle.
  Image(Guard handle, ColorModel color_model);
  virtual ~Image() = default;
  Image(const Image&) = delete;
  Image& operator=(const Image&) = delete;

  /// A new image of its own memory with the same pixels.
  /// Throws: as Create, and as LinearAccess.
  std::shared_ptr<Image> Copy() const;

  /// The payload of this image in a packed pixel format: bytes in one plane, a row for each line, or all in
  /// one row where lines end inside a byte.
  /// \param pixel_format  PFNC value
  /// Throws: what the image library refuses (std::invalid_argument, TarnException).
  std::shared_ptr<Image> Packed(std::uint32_t pixel_format) const;

  std::int64_t Width() const noexcept;   ///< pixels
  std::int64_t Height() const noexcept;  ///< lines
  std::int64_t Planes() const noexcept;
  /// Of the first plane; all planes of an image have one type.
  DataType Type() const noexcept;
  ColorModel Model() const noexcept { return color_model_; }

  /// Where plane `index` lies.
  /// Throws: TarnException when it is no plane or has no linear layout.
  TRPlaneLayout LinearAccess(std::int64_t index) const;

  TR_HANDLE Handle() const noexcept { return handle_.Get(); }

 private:
  // Constant after construction.
  Guard handle_;
  ColorModel color_model_;
};

}  // namespace Tarn
