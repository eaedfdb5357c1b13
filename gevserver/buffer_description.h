#pragma once

/// What one buffer of a stream holds: an image, or an image and chunks.

#include <cstdint>

namespace Tarn::GevServer {

/// Throw what a size or a pixel format that no image can have deserves: std::runtime_error with
/// "Width must be larger or equal to 1", "Height must be larger or equal to 1", "Invalid pixel format".
void RequireImageSize(std::int32_t width, std::int32_t height);
void RequirePixelFormat(std::uint32_t pixel_format);

/// An image in memory. Setters throw std::runtime_error and then change nothing.
class ImageBufferDescription {
 public:
  /// \param width,height  pixels, at least 1;
  /// \param pixel_format  PFNC value, not 0. Checked in this order.
  ImageBufferDescription(std::int32_t width, std::int32_t height, std::uint32_t pixel_format);
  virtual ~ImageBufferDescription() = default;
  ImageBufferDescription(const ImageBufferDescription&) = default;
  ImageBufferDescription& operator=(const ImageBufferDescription&) = default;

  std::uint32_t PixelFormat() const noexcept { return pixel_format_; }
  void SetPixelFormat(std::uint32_t pixel_format);

  std::int32_t Width() const noexcept { return width_; }
  std::int32_t Height() const noexcept { return height_; }
  void SetSize(std::int32_t width, std::int32_t height);

  /// Position on the sensor, for information; "X must be larger or equal to 0", "Y must be larger or equal to
  /// 0".
  std::int32_t OffsetX() const noexcept { return offset_x_; }
  std::int32_t OffsetY() const noexcept { return offset_y_; }
  void SetOffset(std::int32_t x, std::int32_t y);

  /// Bytes at the end of each line that mean nothing.
  std::int64_t LinePadding() const noexcept { return line_padding_; }
  void SetLinePadding(std::int64_t bytes) noexcept { line_padding_ = bytes; }

 private:
  std::uint32_t pixel_format_;
  std::int32_t width_;
  std::int32_t height_;
  std::int32_t offset_x_ = 0;
  std::int32_t offset_y_ = 0;
  std::int64_t line_padding_ = 0;
};

/// An image with chunks behind it.
class ChunkImageBufferDescription : public ImageBufferDescription {
 public:
  /// \param total_payload_size  bytes over all chunks, the image among them; at least 4. Checked last.
  ChunkImageBufferDescription(std::int32_t width, std::int32_t height, std::uint32_t pixel_format,
                              std::int32_t total_payload_size);

  std::int32_t TotalPayloadSize() const noexcept { return total_payload_size_; }
  /// "Total payload size must at least be large enough to hold a chunk"
  void SetTotalPayloadSize(std::int32_t bytes);

  /// Changes when the sizes of the chunks do; 0 when unused. "Layout identifier must be larger or equal to 0"
  std::int32_t LayoutId() const noexcept { return layout_id_; }
  void SetLayoutId(std::int32_t id);

 private:
  std::int32_t total_payload_size_ = 0;
  std::int32_t layout_id_ = 0;
};

}  // namespace Tarn::GevServer
