// The device's side of the stream: acquisition, settings, and images on their way out.

#include <algorithm>
#include <array>

#include "camera/base/engine_error.h"
#include "camera/device/device.h"
#include "camera/engine/features/event_numbers.h"
#include "camera/engine/nodes/node_values.h"
#include "camera/engine/registers/own_registers.h"
#include "camera/wire/bootstrap.h"

namespace Tarn {
namespace {

enum AcquisitionMode : std::uint32_t { kContinuous = 0, kSingleFrame = 1, kMultiFrame = 2 };

[[noreturn]] void ThrowRefusal(SendResult result) {
  switch (result) {
    case SendResult::NotRunning:
    case SendResult::Closed:
      throw EngineError(Failure::kNoStream, "acquisition is not enabled");
    case SendResult::NoDestination:
      throw EngineError(Failure::kNoStream, "the client opened no stream channel");
    case SendResult::TooLarge:
      throw EngineError(Failure::kInvalidArgument, "the image has more packets than can be numbered");
    default:
      throw EngineError(Failure::kInternal, "the image was not sent");
  }
}

/// The program can store any number behind the feature.
PayloadType PayloadTypeOf(std::uint32_t number) {
  const PayloadType type{static_cast<std::uint16_t>(number)};
  return type == PayloadType::RawData || type == PayloadType::File ? type : PayloadType::Image;
}

ImageFormat FormatOf(const ImageLeader& image) { return {image.pixel_format, image.size_x, image.size_y}; }

/// The payload: the image as its leader says it is, and its chunks.
void LayOut(const ImageMemory& image, ImageBlock& block) {
  if (WithoutChunks(block.image.type) == PayloadType::Image) {
    LayOutImage(image, FormatOf(block.image), block);
  } else {
    LayOutBytes(image, block);
  }
  const ByteView tail = block.tail.Bytes();
  if (!tail.empty()) block.payload.Append({tail.data(), tail.size(), 0, 1});
}

}  // namespace

void Device::StartAcquisition() {
  if (acquiring_ || !stream_ || !channel_.Privilege().Held()) return;
  const std::uint32_t mode = tree_.Memory().Load32(OwnRegisters::kAcquisitionMode);
  const std::int64_t count = tree_.Memory().Load32(OwnRegisters::kAcquisitionFrameCount);
  frames_left_ = mode == kContinuous ? -1 : mode == kSingleFrame ? 1 : count;
  acquiring_ = true;
  ++acquisition_;
  LockParameters(true);
  TellEvent(EventNumber::kAcquisitionStart);  // before the first frame is told
  actions_.Post([stream = stream_] { stream->SetRunning(true); });
  Post(ServerEvent::AcquisitionStart);
}

void Device::StopAcquisition(Unsent unsent) {
  if (!acquiring_) return;
  acquiring_ = false;
  LockParameters(false);
  if (stream_ && unsent == Unsent::Send) actions_.Post([stream = stream_] { stream->EndRunning(); });
  if (stream_ && unsent == Unsent::Drop) actions_.Post([stream = stream_] { stream->SetRunning(false); });
  TellEvent(EventNumber::kAcquisitionEnd);
  Post(ServerEvent::AcquisitionStop);
}

void Device::LockParameters(bool locked) {
  if (const NodePtr node = tree_.Find("TLParamsLocked")) node->value = std::int64_t{locked};
}

std::uint32_t Device::ImagePayloadSize() const {
  if (given_payload_size_) return *given_payload_size_;
  const SparseMemory& memory = tree_.Memory();
  const ImageFormat format{format_->pixel_format, memory.Load32(OwnRegisters::kWidth),
                           memory.Load32(OwnRegisters::kHeight)};
  return static_cast<std::uint32_t>(format.PayloadBytes());
}

void Device::UpdatePayloadSize() {
  if (!format_) return;
  // Clients that switch off all chunks before they choose some would lose the image, so it stays.
  tree_.Memory().Store32(OwnRegisters::kChunkEnable, 1);
  std::uint32_t size = ImagePayloadSize();
  if (chunks_.Active(tree_)) size += static_cast<std::uint32_t>(chunks_.TailBytes(tree_, size));
  tree_.Memory().Store32(OwnRegisters::kPayloadSize, size);
}

void Device::PostStreamConfig() {
  if (stream_) actions_.Post([stream = stream_, config = ReadStreamConfig()] { stream->Configure(config); });
}

StreamConfig Device::ReadStreamConfig() const {
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
  config.resend_client = channel_.Privilege().Holder().address;
  config.packet_delay = Nanoseconds(memory.Load32(Bootstrap::kStreamPacketDelay));  // a tick is a nanosecond
  if (memory.Load32(OwnRegisters::kThroughputLimitMode) != 0) {
    config.bytes_per_second = memory.Load64(OwnRegisters::kThroughputLimit);
  }
  return config;
}

void Device::DescribeBlock(ImageBlock& block, std::size_t sample_bytes) {
  const SparseMemory& memory = tree_.Memory();
  ImageLeader& image = block.image;
  image.type = PayloadTypeOf(memory.Load32(OwnRegisters::kPayloadType));
  image.timestamp = clock_->Ticks();
  image.pixel_format = format_->pixel_format;
  image.size_x = memory.Load32(OwnRegisters::kWidth);
  image.size_y = memory.Load32(OwnRegisters::kHeight);
  image.offset_x = memory.Load32(OwnRegisters::kOffsetX);
  image.offset_y = memory.Load32(OwnRegisters::kOffsetY);
  if (image.type == PayloadType::Image) sample_bytes = FormatOf(image).PayloadBytes();
  if (image.type == PayloadType::File) {
    std::array<std::uint8_t, OwnRegisters::kPayloadFileNameLength> name;
    memory.Read(OwnRegisters::kPayloadFileName, name);
    std::copy_n(name.begin(), block.file_name.size() - 1, block.file_name.begin());
  }
  if (!chunks_.Active(tree_)) return;
  block.tail = chunks_.Compose(tree_, image, sample_bytes);
  block.chunk_layout_id = block.tail.LayoutId();
  // Types with chunks are sent whether or not the client enabled them in the channel's configuration: the
  // only other chunk type tells nothing of the image's geometry, so that clients show it as 0x0 pixels.
  image.type = Chunked(image.type);
}

void Device::Send(const ImageMemory& image, BlockOwner owner) {
  std::shared_ptr<StreamChannel> stream;
  std::size_t payload_size = 0;
  bool limited = false;
  std::uint64_t acquisition = 0;
  ImageBlock block;
  {
    const MutexLock lock(TreeLock());
    if (!format_) throw EngineError(Failure::kNoStream, "the server has no stream");
    if (Inherited()) throw EngineError(Failure::kNoStream, "the server belongs to the parent process");
    if (!acquiring_ || !stream_) ThrowRefusal(SendResult::NotRunning);
    stream = stream_;
    payload_size = tree_.Memory().Load32(OwnRegisters::kPayloadSize);
    limited = frames_left_ >= 0;
    acquisition = acquisition_;
    DescribeBlock(block, SampleBytesOf(image));
  }
  LayOut(image, block);
  if (block.payload.Size() > payload_size) {
    throw EngineError(Failure::kInvalidArgument, "the image has " + std::to_string(block.payload.Size()) +
                                                     " bytes, the payload size is " +
                                                     std::to_string(payload_size));
  }
  block.owner = std::move(owner);
  const SendResult result = stream->Send(std::move(block));
  if (result != SendResult::Accepted) ThrowRefusal(result);
  if (limited) CountFrame(acquisition);
}

void Device::CountFrame(std::uint64_t acquisition) {
  {
    const MutexLock lock(TreeLock());
    if (acquisition != acquisition_ || frames_left_ <= 0 || --frames_left_ > 0) return;
    StopAcquisition(Unsent::Send);
  }
  actions_.Drain();
}

}  // namespace Tarn
