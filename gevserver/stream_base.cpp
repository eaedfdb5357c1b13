#include "gevserver/stream_base.h"

#include <limits>
#include <stdexcept>
#include <utility>

#include "core/tarn_exception.h"
#include "gevserver/callback_scope.h"
#include "gevserver/library/tr_gev_server.h"
#include "gevserver/server_call.h"

// An extension that other libraries need not have.
#pragma weak GSHasImagePlace

namespace Tarn::GevServer {

namespace {

// What the library holds for an image that it still reads.
struct PendingRelease {
  std::shared_ptr<Image> image;
  StreamBase::Released released;
};

void OnReleased(void* context) {
  const Private::CallbackScope scope;
  const std::unique_ptr<PendingRelease> pending(static_cast<PendingRelease*>(context));
  if (!pending || !pending->released) return;
  try {
    pending->released(pending->image);
  } catch (...) {
    // No exception may enter the library, and nobody waits for this one.
  }
}

}  // namespace

StreamBase::StreamBase(std::shared_ptr<ServerBase> server) : server_(std::move(server)) {
  if (!server_) throw std::runtime_error("Server for stream creation must not be null");
}

bool StreamBase::IsRunning() const { return server_->State() == State::AcquisitionEnabled; }

std::int64_t StreamBase::ResendBuffersCount() const {
  std::int32_t count = 0;
  static_cast<void>(GSGetPacketResendBuffers(server_->Handle(), &count));
  return count;
}

TR_STATUS StreamBase::SetResendBuffersCount(std::int64_t count) {
  using Limits = std::numeric_limits<std::int32_t>;
  if (count < Limits::min() || count > Limits::max()) {
    throw std::out_of_range("number of resend buffers does not fit into 32 bits");
  }
  return GSSetPacketResendBuffers(server_->Handle(), static_cast<std::int32_t>(count));
}

bool StreamBase::HasPlace() const {
  bool has_place = true;
  if (&GSHasImagePlace != nullptr) static_cast<void>(GSHasImagePlace(server_->Handle(), &has_place));
  return has_place;
}

TR_STATUS StreamBase::InnerSend(std::shared_ptr<Image> image, Released released) {
  const TR_HANDLE handle = image->Handle();
  auto pending = std::make_unique<PendingRelease>(PendingRelease{std::move(image), std::move(released)});
  const TR_STATUS status = GSSendImageCB(server_->Handle(), handle, OnReleased, pending.get());
  // On success it is the library's, and may be gone already.
  if (status >= 0) static_cast<void>(pending.release());
  return status;
}

void StreamBase::RequireNoResend() const {
  if (ResendBuffersCount() > 0) {
    throw std::runtime_error("Packet resend must be disabled for send without callback");
  }
}

TR_STATUS StreamBase::TrySend(const std::shared_ptr<Image>& image) {
  RequireNoResend();
  return HasPlace() ? GSSendImage(server_->Handle(), image->Handle()) : TR_E_BUSY;
}

void StreamBase::Send(const std::shared_ptr<Image>& image) {
  RequireNoResend();
  RequireSent(GSSendImage(server_->Handle(), image->Handle()));
}

void StreamBase::RequireSent(TR_STATUS status) {
  if (status < 0) throw ReasonedError("Could not send image", LastErrorText());
}

}  // namespace Tarn::GevServer
