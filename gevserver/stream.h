#pragma once

/// The stream of a Server.

#include <memory>

#include "gevserver/stream_base.h"

namespace Tarn::GevServer {

/// Adds nothing but its own identity to StreamBase. Made by Server::Stream.
class Stream final : public StreamBase, private std::enable_shared_from_this<Stream> {
 public:
  using StreamBase::StreamBase;
};

}  // namespace Tarn::GevServer
