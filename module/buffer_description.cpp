#include "gevserver/buffer_description.h"

#include <cstdint>
#include <memory>

#include "binding/type_builder.h"
#include "core/size_and_point.h"
#include "gevserver/pixel_format.h"
#include "module/image_params.h"
#include "module/native_types.h"
#include "module/type_def.h"

namespace _tarn::gevserver {

using namespace Tarn::Binding;
namespace Native = Tarn::GevServer;

namespace {

PyRef DescribePfnc(Tarn::Size2D size, std::uint32_t pixel_format) {
  return Bind(TypeObject__ImageBufferDescription__(),
              std::make_shared<Native::ImageBufferDescription>(
                  Tarn::RoundToInt32(size.width), Tarn::RoundToInt32(size.height), pixel_format));
}

PyRef Create(Tarn::Size2D size, std::int64_t color_model, Tarn::DataType data_type) {
  return DescribePfnc(size, Native::PfncFormatOf(color_model, data_type));
}

PyRef CreateChunkPfnc(Tarn::Size2D size, std::uint32_t pixel_format, std::int32_t total_payload_size) {
  return Bind(
      TypeObject__ChunkImageBufferDescription__(),
      std::make_shared<Native::ChunkImageBufferDescription>(
          Tarn::RoundToInt32(size.width), Tarn::RoundToInt32(size.height), pixel_format, total_payload_size));
}

PyRef CreateChunk(Tarn::Size2D size, std::int64_t color_model, Tarn::DataType data_type,
                  std::int32_t total_payload_size) {
  return CreateChunkPfnc(size, Native::PfncFormatOf(color_model, data_type), total_payload_size);
}

Tarn::Size2D Size(const Native::ImageBufferDescription& description) {
  return {static_cast<double>(description.Width()), static_cast<double>(description.Height())};
}

void SetSize(Native::ImageBufferDescription& description, Tarn::Size2D size) {
  description.SetSize(Tarn::RoundToInt32(size.width), Tarn::RoundToInt32(size.height));
}

Tarn::Point2D Offset(const Native::ImageBufferDescription& description) {
  return {static_cast<double>(description.OffsetX()), static_cast<double>(description.OffsetY())};
}

void SetOffset(Native::ImageBufferDescription& description, Tarn::Point2D offset) {
  description.SetOffset(Tarn::RoundToInt32(offset.x), Tarn::RoundToInt32(offset.y));
}

constexpr const char* kMaps = "Tries to map the given color_model and data_type to a PfncFormat.";
const ParamDoc kDataType{"data_type", "tarn.DataType", "TARN data type of the image to send."};
const ParamDoc kTotalPayloadSize{"total_payload_size", "int",
                                 "Size of the valid payload over all chunks (including the image)."};

CallDoc ImageDoc(std::vector<ParamDoc> params) {
  return {.summary = "Creates a default image buffer description.",
          .description = kMaps,
          .params = std::move(params),
          .returns = {"tarn.gevserver.ImageBufferDescription", "The default image buffer description."}};
}

CallDoc ChunkDoc(std::string description, std::vector<ParamDoc> params) {
  return {.summary = "Creates a default chunk image buffer description.",
          .description = std::move(description),
          .params = std::move(params),
          .returns = {"tarn.gevserver.ChunkImageBufferDescription",
                      "Its default chunk image buffer description."}};
}

}  // namespace

template <>
void TypeDef<ImageBufferDescription>::Init() {
  TypeBuilder(Get(), "tarn.gevserver.ImageBufferDescription",
              "Describes a GenICam Pixel Format Naming Convention (PFNC) compatible image memory buffer.",
              "This buffer needn't be TARN Image compatible. You can use all PFNC values even packed ones.")
      .Static<Signature<&Create, "size", "color_model", "data_type">>(
          "create_image_buffer_description", {ImageDoc({kSize, kColorModel, kDataType})})
      // The published texts of the two parameters are each other's neighbours; documentation is kept as it
      // stands.
      .Static<Signature<&DescribePfnc, "size", "pixel_format">>(
          "create_image_buffer_description_pfnc",
          {ImageDoc({{"size", "tarn.Size2D", "GenICam PFNC format value."},
                     {"pixel_format", "int", "TARN data type of the image to send."}})})
      .ReadWrite<&Native::ImageBufferDescription::PixelFormat,
                 &Native::ImageBufferDescription::SetPixelFormat>(
          "pixel_format", "Gets or sets the image pixel format (see tarn.PfncFormat).")
      .ReadWrite<&Size, &SetSize>("size", "Gets or sets the image size.")
      .ReadWrite<&Offset, &SetOffset>(
          "offset", "Gets or sets the image's offset on the sensor.",
          "The server always sends an image with the given Size. The offset is only for information.")
      .ReadWrite<&Native::ImageBufferDescription::LinePadding,
                 &Native::ImageBufferDescription::SetLinePadding>(
          "line_padding", "Gets or sets the line padding.",
          "Line padding is a contiguous block at the end of each line that holds no meaningful data. This is "
          "normally "
          "used to align lines.");
}

template <>
void TypeDef<ChunkImageBufferDescription>::Init() {
  using Native::ChunkImageBufferDescription;
  TypeBuilder(
      Get(), "tarn.gevserver.ChunkImageBufferDescription",
      "Describes a GenICam Pixel Format Naming Convention (PFNC) compatible image memory buffer with "
      "possibly "
      "additional data.",
      "This buffer does not need to be TARN Image compatible. You can use all PFNC values, even packed ones.")
      .Base(TypeObject__ImageBufferDescription__())
      // The published text lists a pixel_format that this form does not take.
      .Static<Signature<&CreateChunk, "size", "color_model", "data_type", "total_payload_size">>(
          "create_chunk_image_buffer_description",
          {ChunkDoc(kMaps, {kSize, kColorModel, kDataType, kPixelFormat, kTotalPayloadSize})})
      .Static<Signature<&CreateChunkPfnc, "size", "pixel_format", "total_payload_size">>(
          "create_chunk_image_buffer_description_pfnc",
          {ChunkDoc("", {kSize, kPixelFormat, kTotalPayloadSize})})
      .ReadWrite<&ChunkImageBufferDescription::TotalPayloadSize,
                 &ChunkImageBufferDescription::SetTotalPayloadSize>(
          "total_payload_size",
          "Gets or sets a valid payload size over all chunks including the image chunk.")
      .ReadWrite<&ChunkImageBufferDescription::LayoutId, &ChunkImageBufferDescription::SetLayoutId>(
          "layout_id", "Gets or sets the layout identifier for the chunks.",
          "Change the identifier if the layout size of the chunks you send changes. This is to reduce parse "
          "time on "
          "the client side. An easy way to define such an identifier is to use a bit field for all supported "
          "chunks. "
          "A value of 0 means that the layout mechanism is not used and the client must parse the chunk "
          "layout for "
          "each buffer.");
}

}  // namespace _tarn::gevserver
