#pragma once

/// The channel of a server that carries images to the client.

#include <cstdint>
#include <functional>
#include <memory>

#include "core/image.h"
#include "gevserver/library/tr_types.h"
#include "gevserver/server_base.h"

namespace Tarn::GevServer {

/// Hands images to the library. Keeps its server alive.
/// Threads: any thread.
class StreamBase {
 public:
  /// Called once, on a thread of the library or inside the send, when an image's memory is needed no more.
  using Released = std::function<void(const std::shared_ptr<Image>&)>;

  /// Throws: std::runtime_error "Server for stream creation must not be null".
  explicit StreamBase(std::shared_ptr<ServerBase> server);
  virtual ~StreamBase() = default;
  StreamBase(const StreamBase&) = delete;
  StreamBase& operator=(const StreamBase&) = delete;

  /// True while the client has started acquisition.
  virtual bool IsRunning() const;

  /// Number of images that are kept for packet resend; 0 when the library does not tell.
  virtual std::int64_t ResendBuffersCount() const;

  /// The library's status; it refuses any change of a started server.
  /// Throws: std::out_of_range when the number does not fit 32 bits.
  [[nodiscard]] virtual TR_STATUS SetResendBuffersCount(std::int64_t count);

  /// Sends, and calls `released` when the image's memory is needed no more. The image is kept alive until
  /// then, and its pixels must not change.
  /// \param released  may be empty; an exception from it is dropped
  /// \return the library's status; `released` is never called after a failure
  [[nodiscard]] TR_STATUS InnerSend(std::shared_ptr<Image> image, Released released);

  /// Whether a send would find a place at once; else it waits some milliseconds and then fails. True where the library
  /// does not tell.
  bool HasPlace() const;

  /// Sends without a callback, possible while packet resend is off.
  /// \return the library's status
  /// Throws: std::runtime_error "Packet resend must be disabled for send without callback".
  [[nodiscard]] TR_STATUS TrySend(const std::shared_ptr<Image>& image);

  /// As TrySend.
  /// Throws: as TrySend, and when that fails, as RequireSent.
  void Send(const std::shared_ptr<Image>& image);

  /// Throws: ReasonedError "Could not send image" for the status of a send that failed just now on this
  /// thread.
  static void RequireSent(TR_STATUS status);

  const std::shared_ptr<ServerBase>& Server() const noexcept { return server_; }

 private:
  void RequireNoResend() const;

  const std::shared_ptr<ServerBase> server_;
};

}  // namespace Tarn::GevServer
