#include "camera/engine/control/stream_control.h"

#include <algorithm>
#include <array>

#include "camera/engine/nodes/node_values.h"
#include "camera/engine/registers/register_table.h"
#include "camera/engine/stream/gather.h"
#include "camera/wire/bootstrap.h"

namespace Tarn {
namespace {

/// The program can store any number behind the feature.
PayloadType PayloadTypeOf(std::uint32_t number) {
  const PayloadType type{static_cast<std::uint16_t>(number)};
  return type == PayloadType::RawData || type == PayloadType::File ? type : PayloadType::Image;
}

ImageFormat FormatOf(const ImageLeader& image) { return {image.pixel_format, image.size_x, image.size_y}; }

}  // namespace

void LayOut(const ImageMemory& image, ImageBlock& block, const BufferSource& buffers) {
  const bool is_image = WithoutChunks(block.image.type) == PayloadType::Image;
  const ImageFormat format = FormatOf(block.image);
  if (const auto view = is_image ? ViewImage(image, format) : ViewBytes(image)) {
    block.payload = *view;
  } else {
    const std::size_t bytes = SampleBytesOf(image);
    block.staging = buffers(bytes);
    const auto out = MutableByteView(block.staging).first(bytes);
    GatherImage(image, is_image ? format.Order() : SampleOrder::kInterleaved, out);
    block.payload = PayloadLayout::Contiguous(out);
  }
  const ByteView tail = block.tail.Bytes();
  if (!tail.empty()) block.payload.Append({tail.data(), tail.size(), 0, 1});
}

void StreamControl::Publish() {
  chunks_.Collect(tree_);
  OnPayloadWritten();
}

void StreamControl::Open(std::uint16_t source_port) {
  source_port_ = source_port;
  OnChannelWritten(0);
}

void StreamControl::OnChannelWritten(std::uint32_t primary) {
  if (IsOpen()) effects_.channels.emplace_back(ReadConfig(primary));
}

bool StreamControl::PortIsOpen() const {
  return StreamPort::HostPort::Get(tree_.Memory().Load32(Bootstrap::kStreamPort)) != 0;
}

void StreamControl::OnPortWritten(std::uint32_t primary) {
  const bool open = PortIsOpen() && IsOpen();
  tree_.Memory().Store32(Bootstrap::kStreamSourcePort, open ? source_port_ : 0);
  OnChannelWritten(primary);
  if (open) effects_.channels.emplace_back(StreamOpened{});
}

void StreamControl::OnPacketSizeWritten(std::uint32_t primary) {
  SparseMemory& memory = tree_.Memory();
  const std::uint32_t value = memory.Load32(Bootstrap::kStreamPacketSize);
  if (StreamPacketSize::FireTest::Get(value) != 0 && IsOpen()) effects_.test_packet = true;
  memory.Store32(Bootstrap::kStreamPacketSize, StreamPacketSize::FireTest::With(value, 0));
  OnChannelWritten(primary);
}

StreamConfig StreamControl::ReadConfig(std::uint32_t primary) const {
  const SparseMemory& memory = tree_.Memory();
  const std::uint32_t size = memory.Load32(Bootstrap::kStreamPacketSize);
  const std::uint32_t control = memory.Load32(Bootstrap::kControlConfiguration);
  StreamConfig config;
  config.destination = {
      memory.Load32(Bootstrap::kStreamDestination),
      static_cast<std::uint16_t>(StreamPort::HostPort::Get(memory.Load32(Bootstrap::kStreamPort)))};
  config.packet_size = static_cast<std::uint16_t>(StreamPacketSize::Bytes::Get(size));
  config.dont_fragment = StreamPacketSize::DoNotFragment::Get(size) != 0;
  config.extended_ids =
      StreamConfiguration::ExtendedIds::Get(memory.Load32(Bootstrap::kStreamConfiguration)) != 0;
  config.extended_status = ControlConfiguration::ExtendedStatus::Get(control) != 0 ||
                           ControlConfiguration::ExtendedStatus2::Get(control) != 0;
  config.resend_to_requester =
      StreamChannelBits::ResendDestination::Get(memory.Load32(Bootstrap::kStreamChannelConfiguration)) != 0;
  config.resend_client = primary;
  config.pace.packet_delay =
      Nanoseconds(memory.Load32(Bootstrap::kStreamPacketDelay));  // a tick is a nanosecond
  if (memory.Load32(ManufacturerRegister::kThroughputLimitMode) != 0) {
    config.pace.bytes_per_second = memory.Load64(ManufacturerRegister::kThroughputLimit);
  }
  config.schedule = {memory.Load32(ManufacturerRegister::kStreamThreadPriority),
                     memory.Load64(ManufacturerRegister::kStreamThreadProcessors)};
  config.adaptive_rate = memory.Load32(ManufacturerRegister::kStreamRateMode) != 0;
  return config;
}

ImageFormat StreamControl::PresentFormat() const {
  const SparseMemory& memory = tree_.Memory();
  return {memory.Load32(ManufacturerRegister::kPixelFormat), memory.Load32(ManufacturerRegister::kWidth),
          memory.Load32(ManufacturerRegister::kHeight)};
}

std::uint32_t StreamControl::ImagePayloadSize() const {
  return given_payload_size_ ? *given_payload_size_
                             : static_cast<std::uint32_t>(PresentFormat().PayloadBytes());
}

void StreamControl::OnPixelFormatWritten() {
  if (const NodePtr width = tree_.Find("Width")) MoveInside(*width);
  OnPayloadWritten();
}

void StreamControl::OnPayloadSizeWritten() {
  given_payload_size_ = PayloadSize();
  OnPayloadWritten();
}

void StreamControl::OnPayloadWritten() {
  if (!format_) return;
  // Clients that switch off all chunks before they choose some would lose the image, so it stays.
  tree_.Memory().Store32(ManufacturerRegister::kChunkEnable, 1);
  std::uint32_t size = ImagePayloadSize();
  if (chunks_.Active(tree_)) size += static_cast<std::uint32_t>(chunks_.TailBytes(tree_, size));
  tree_.Memory().Store32(ManufacturerRegister::kPayloadSize, size);
}

std::uint32_t StreamControl::PayloadSize() const {
  return tree_.Memory().Load32(ManufacturerRegister::kPayloadSize);
}

void StreamControl::DescribeBlock(ImageBlock& block, std::size_t sample_bytes, Instant now) {
  const SparseMemory& memory = tree_.Memory();
  ImageLeader& image = block.image;
  image.type = PayloadTypeOf(memory.Load32(ManufacturerRegister::kPayloadType));
  image.timestamp = clock_.TicksAt(now);
  const ImageFormat format = PresentFormat();
  image.pixel_format = format.pixel_format;
  image.size_x = static_cast<std::uint32_t>(format.width);
  image.size_y = static_cast<std::uint32_t>(format.height);
  image.offset_x = memory.Load32(ManufacturerRegister::kOffsetX);
  image.offset_y = memory.Load32(ManufacturerRegister::kOffsetY);
  if (image.type == PayloadType::Image) sample_bytes = format.PayloadBytes();
  if (image.type == PayloadType::File) {
    std::array<std::uint8_t, kPayloadFileNameLength> name;
    memory.Read(ManufacturerRegister::kPayloadFileName, name);
    std::copy_n(name.begin(), block.file_name.size() - 1, block.file_name.begin());
  }
  if (!chunks_.Active(tree_)) return;
  block.tail = chunks_.Compose(tree_, image, sample_bytes);
  block.chunk_layout_id = block.tail.LayoutId();
  // Types with chunks are sent whether or not the client enabled them in the channel's configuration: the
  // only other chunk type tells nothing of the image's geometry, so that clients show it as 0x0 pixels.
  image.type = Chunked(image.type);
}

}  // namespace Tarn
