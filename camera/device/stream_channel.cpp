#include "camera/device/stream_channel.h"

#include <utility>

#include "camera/device/stream_core.h"

namespace Tarn {

StreamChannel::StreamChannel(const StreamOptions& options)
    : core_(std::make_shared<StreamCore>(options)), loop_([core = core_] { core->Run(); }) {}

StreamChannel::~StreamChannel() {
  core_->RequestClose();
  if (loop_.joinable()) loop_.detach();
}

void StreamChannel::Close() {
  core_->RequestClose();
  // An owner's function runs on the loop, or the loop waits for it to end.
  if (ReleaseQueue::IsTelling()) return;
  const MutexLock lock(closing_);
  if (loop_.joinable()) loop_.join();
}

std::uint16_t StreamChannel::SourcePort() const noexcept { return core_->Transmitter().LocalPort(); }
StreamDriver StreamChannel::Driver() const noexcept { return core_->Transmitter().Driver(); }
StreamCounters StreamChannel::Counters() const noexcept { return core_->Transmitter().Counters(); }
void StreamChannel::Configure(const StreamConfig& config) { core_->Configure(config); }
void StreamChannel::ChannelOpened() { core_->ChannelOpened(); }
void StreamChannel::FireTestPacket() { core_->FireTestPacket(); }
void StreamChannel::SetRunning(bool running) { core_->SetRunning(running); }
void StreamChannel::EndRunning() { core_->EndRunning(); }
void StreamChannel::Resend(const ResendRequest& request) { core_->Resend(request); }
SendResult StreamChannel::Send(ImageBlock&& block) { return core_->Send(std::move(block)); }

}  // namespace Tarn
