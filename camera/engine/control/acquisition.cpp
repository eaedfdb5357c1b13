#include "camera/engine/control/acquisition.h"

#include "camera/engine/features/event_features.h"
#include "camera/engine/nodes/node_values.h"
#include "camera/engine/registers/register_table.h"

namespace Tarn {
namespace {

/// Numbers of the entries of AcquisitionMode; MultiFrame is the third.
enum AcquisitionMode : std::uint32_t { kContinuous = 0, kSingleFrame = 1 };

}  // namespace

void Acquisition::Start(Instant now) {
  if (active_) return;
  const std::uint32_t mode = tree_.Memory().Load32(ManufacturerRegister::kAcquisitionMode);
  const std::int64_t count = tree_.Memory().Load32(ManufacturerRegister::kAcquisitionFrameCount);
  frames_left_ = mode == kContinuous ? -1 : mode == kSingleFrame ? 1 : count;
  active_ = true;
  ++number_;
  LockParameters(true);
  events_.Report(EventNumber::kAcquisitionStart, now);  // before the first frame is told
  effects_.channels.emplace_back(StreamBegins{});
  effects_.server_events.push_back(ServerEvent::AcquisitionStart);
}

void Acquisition::Stop(bool send_accepted, Instant now) {
  if (!active_) return;
  active_ = false;
  LockParameters(false);
  effects_.channels.emplace_back(StreamEnds{send_accepted});
  events_.Report(EventNumber::kAcquisitionEnd, now);
  effects_.server_events.push_back(ServerEvent::AcquisitionStop);
}

std::optional<std::uint64_t> Acquisition::Limited() const {
  return frames_left_ < 0 ? std::nullopt : std::optional(number_);
}

void Acquisition::CountFrame(std::uint64_t acquisition, Instant now) {
  if (acquisition != number_ || frames_left_ <= 0 || --frames_left_ > 0) return;
  Stop(true, now);
}

void Acquisition::LockParameters(bool locked) {
  if (const NodePtr node = tree_.Find("TLParamsLocked")) WriteInteger(*node, locked ? 1 : 0);
}

}  // namespace Tarn
