#include "gevserver/buffer_description.h"

#include <stdexcept>

namespace Tarn::GevServer {

void RequireImageSize(std::int32_t width, std::int32_t height) {
  if (width < 1) throw std::runtime_error("Width must be larger or equal to 1");
  if (height < 1) throw std::runtime_error("Height must be larger or equal to 1");
}

void RequirePixelFormat(std::uint32_t pixel_format) {
  if (pixel_format == 0) throw std::runtime_error("Invalid pixel format");
}

ImageBufferDescription::ImageBufferDescription(std::int32_t width, std::int32_t height,
                                               std::uint32_t pixel_format)
    : pixel_format_(pixel_format), width_(width), height_(height) {
  RequireImageSize(width, height);
  RequirePixelFormat(pixel_format);
}

void ImageBufferDescription::SetPixelFormat(std::uint32_t pixel_format) {
  RequirePixelFormat(pixel_format);
  pixel_format_ = pixel_format;
}

void ImageBufferDescription::SetSize(std::int32_t width, std::int32_t height) {
  RequireImageSize(width, height);
  width_ = width;
  height_ = height;
}

void ImageBufferDescription::SetOffset(std::int32_t x, std::int32_t y) {
  if (x < 0) throw std::runtime_error("X must be larger or equal to 0");
  if (y < 0) throw std::runtime_error("Y must be larger or equal to 0");
  offset_x_ = x;
  offset_y_ = y;
}

ChunkImageBufferDescription::ChunkImageBufferDescription(std::int32_t width, std::int32_t height,
                                                         std::uint32_t pixel_format,
                                                         std::int32_t total_payload_size)
    : ImageBufferDescription(width, height, pixel_format) {
  SetTotalPayloadSize(total_payload_size);
}

void ChunkImageBufferDescription::SetTotalPayloadSize(std::int32_t bytes) {
  constexpr std::int32_t kChunkTrailer = 4;
  if (bytes < kChunkTrailer) {
    throw std::runtime_error("Total payload size must at least be large enough to hold a chunk");
  }
  total_payload_size_ = bytes;
}

void ChunkImageBufferDescription::SetLayoutId(std::int32_t id) {
  if (id < 0) throw std::runtime_error("Layout identifier must be larger or equal to 0");
  layout_id_ = id;
}

}  // namespace Tarn::GevServer
