#include "gevserver/server.h"

#include <cstddef>
#include <string>
#include <utility>

#include "core/library_call.h"
#include "gevserver/buffer_description.h"
#include "gevserver/library/tr_gev_server.h"
#include "gevserver/pixel_format.h"
#include "gevserver/server_call.h"
#include "gevserver/stream.h"

namespace Tarn::GevServer {

Server::Server(HandleGuard<Server> handle, Streaming streaming)
    : handle_(std::move(handle)), streaming_(streaming) {}

std::shared_ptr<Server> Server::Adopt(TR_HANDLE handle, Streaming streaming) {
  // At once, as the next call of the library would replace its reason.
  if (!handle) CheckServerCall(kServerPrefix, LastErrorCode(TR_E_FAILED));
  std::shared_ptr<Server> server(new Server(HandleGuard<Server>(handle), streaming));
  server->RegisterEvents();
  return server;
}

// The record as the library reads it, wherever this was compiled.
static_assert(offsetof(GSCreationRecord, init_type) == 0 && offsetof(GSCreationRecord, pixel_format) == 4 &&
              offsetof(GSCreationRecord, pixel_format_name) == 8 && offsetof(GSCreationRecord, width) == 16 &&
              offsetof(GSCreationRecord, height) == 20 && offsetof(GSCreationRecord, reserved) == 24 &&
              offsetof(GSCreationRecord, max_width) == 32 && offsetof(GSCreationRecord, max_height) == 36 &&
              sizeof(GSCreationRecord) == 40);

std::shared_ptr<Server> Server::CreateNonStreaming() { return Adopt(CreateGevServer(), Streaming::No); }

std::shared_ptr<Server> Server::CreateConstantSize(std::int32_t width, std::int32_t height,
                                                   std::uint32_t pixel_format, std::int32_t driver_type) {
  return CreateStreaming(GS_INIT_FIXED_SIZE, width, height, pixel_format, driver_type);
}

std::shared_ptr<Server> Server::CreateVariableSize(std::int32_t width, std::int32_t height,
                                                   std::uint32_t pixel_format, std::int32_t driver_type) {
  return CreateStreaming(GS_INIT_DYNAMIC_SIZE, width, height, pixel_format, driver_type);
}

std::shared_ptr<Server> Server::CreateStreaming(std::int32_t init_type, std::int32_t width,
                                                std::int32_t height, std::uint32_t pixel_format,
                                                std::int32_t driver_type) {
  RequireImageSize(width, height);
  RequirePixelFormat(pixel_format);
  const std::string name = PfncName(pixel_format);
  GSCreationRecord record{};
  record.init_type = init_type;
  record.pixel_format = pixel_format;
  record.pixel_format_name = name.c_str();
  record.width = width;
  record.height = height;
  if (init_type == GS_INIT_DYNAMIC_SIZE) {
    record.max_width = width;
    record.max_height = height;
  }
  return Adopt(CreateGevServer2(driver_type, &record), Streaming::Yes);
}

std::shared_ptr<Stream> Server::Stream() {
  if (streaming_ == Streaming::No) return nullptr;
  return std::make_shared<GevServer::Stream>(shared_from_this());
}

}  // namespace Tarn::GevServer
