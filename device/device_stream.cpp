// The device's side of the stream: acquisition, settings, and images on their way out.

#include "base/engine_error.h"
#include "device/device.h"
#include "engine/features/event_numbers.h"
#include "engine/nodes/node_values.h"
#include "engine/registers/own_registers.h"
#include "wire/bootstrap.h"

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

}  // namespace

void Device::StartAcquisition() {
  if (acquiring_ || !stream_ || !channel_.Privilege().Held()) return;
  const std::uint32_t mode = tree_.Memory().Load32(OwnRegisters::kAcquisitionMode);
  const std::int64_t count = tree_.Memory().Load32(OwnRegisters::kAcquisitionFrameCount);
  frames_left_ = mode == kContinuous ? -1 : mode == kSingleFrame ? 1 : count;
  acquiring_ = true;
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

void Device::UpdatePayloadSize() {
  if (!format_ || payload_size_given_) return;
  const SparseMemory& memory = tree_.Memory();
  const ImageFormat format{format_->pixel_format, memory.Load32(OwnRegisters::kWidth),
                           memory.Load32(OwnRegisters::kHeight)};
  tree_.Memory().Store32(OwnRegisters::kPayloadSize, static_cast<std::uint32_t>(format.PayloadBytes()));
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
  config.extended_status = ControlConfiguration::ExtendedStatus::Get(control) != 0;
  config.resend_client = channel_.Privilege().Holder().address;
  config.packet_delay = Nanoseconds(memory.Load32(Bootstrap::kStreamPacketDelay));  // a tick is a nanosecond
  if (memory.Load32(OwnRegisters::kThroughputLimitMode) != 0) {
    config.bytes_per_second = std::uint64_t{memory.Load32(OwnRegisters::kThroughputLimit)} << 32 |
                              memory.Load32(OwnRegisters::kThroughputLimit + 4);
  }
  return config;
}

void Device::Send(const ImageMemory& image, BlockOwner owner) {
  std::shared_ptr<StreamChannel> stream;
  ImageFormat format;
  std::size_t payload_size = 0;
  bool limited = false;
  ImageBlock block;
  {
    const MutexLock lock(TreeLock());
    if (!format_) throw EngineError(Failure::kNoStream, "the server has no stream");
    if (!acquiring_ || !stream_) ThrowRefusal(SendResult::NotRunning);
    stream = stream_;
    const SparseMemory& memory = tree_.Memory();
    format = {format_->pixel_format, memory.Load32(OwnRegisters::kWidth),
              memory.Load32(OwnRegisters::kHeight)};
    payload_size = memory.Load32(OwnRegisters::kPayloadSize);
    block.image.offset_x = memory.Load32(OwnRegisters::kOffsetX);
    block.image.offset_y = memory.Load32(OwnRegisters::kOffsetY);
    limited = frames_left_ >= 0;
  }
  LayOutImage(image, format, block);
  if (block.payload.Size() > payload_size) {
    throw EngineError(Failure::kInvalidArgument, "the image has " + std::to_string(block.payload.Size()) +
                                                     " bytes, the payload size is " +
                                                     std::to_string(payload_size));
  }
  block.image.timestamp = clock_->Ticks();
  block.image.pixel_format = format.pixel_format;
  block.image.size_x = static_cast<std::uint32_t>(format.width);
  block.image.size_y = static_cast<std::uint32_t>(format.height);
  block.owner = std::move(owner);
  const SendResult result = stream->Send(std::move(block));
  if (result != SendResult::Accepted) ThrowRefusal(result);
  if (limited) CountFrame();
}

void Device::CountFrame() {
  {
    const MutexLock lock(TreeLock());
    if (frames_left_ <= 0 || --frames_left_ > 0) return;
    StopAcquisition(Unsent::Send);
  }
  actions_.Drain();
}

}  // namespace Tarn
