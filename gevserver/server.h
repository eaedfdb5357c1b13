#pragma once

/// Servers of the library.

#include <cstdint>
#include <memory>

#include "core/handle_guard.h"
#include "gevserver/server_base.h"

namespace Tarn::GevServer {

class Stream;

/// A camera in software, owned through its library handle.
///
/// Made by one of the three factories, in state Configuration; its nodes are set up, it is started, and
/// images go to its stream.
/// Threads: as ServerBase.
class Server final : public ServerBase {
 public:
  /// A device with features and no stream.
  static std::shared_ptr<Server> CreateNonStreaming();

  /// A camera whose images have one size.
  /// \param width,height  pixels, at least 1;
  /// \param pixel_format  PFNC value;
  /// \param driver_type GSDriverType
  /// Throws: std::runtime_error "Width must be larger or equal to 1", "Height must be larger or equal to 1",
  /// "Invalid pixel format", checked in this order; the texts of PfncName; library failures.
  static std::shared_ptr<Server> CreateConstantSize(std::int32_t width, std::int32_t height,
                                                    std::uint32_t pixel_format, std::int32_t driver_type);

  /// A camera whose width, height and offsets the client sets, up to the size given. Otherwise as above.
  static std::shared_ptr<Server> CreateVariableSize(std::int32_t width, std::int32_t height,
                                                    std::uint32_t pixel_format, std::int32_t driver_type);

  TR_HANDLE Handle() const noexcept override { return handle_.Get(); }

  /// A stream bound to this server, which it keeps alive; null for a server without one.
  /// Throws: std::bad_weak_ptr when nobody shares the server any more.
  std::shared_ptr<GevServer::Stream> Stream();

 private:
  enum class Streaming { No, Yes };

  Server(HandleGuard<Server> handle, Streaming streaming);
  static std::shared_ptr<Server> Adopt(TR_HANDLE handle, Streaming streaming);
  static std::shared_ptr<Server> CreateStreaming(std::int32_t init_type, std::int32_t width,
                                                 std::int32_t height, std::uint32_t pixel_format,
                                                 std::int32_t driver_type);

  // Constant after construction.
  HandleGuard<Server> handle_;
  const Streaming streaming_;
};

}  // namespace Tarn::GevServer
