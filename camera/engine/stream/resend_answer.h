#pragma once

/// What a request for packets is answered with.

#include <cstdint>
#include <optional>

#include "camera/engine/stream/resend_store.h"
#include "camera/engine/stream/stream_config.h"

namespace Tarn {

/// What is known of the block that a request names.
struct RequestedBlock {
  const CutBlock* block = nullptr;  ///< null when it is not kept
  std::uint32_t sent = 0;           ///< packets that have left so far, from the first on
};

struct ResendAnswer {
  std::uint16_t status = 0;  ///< success: the packets leave; else a header alone that says why not
  std::uint16_t flags = 0;   ///< of the packets
  std::uint32_t first = 0;
  std::uint32_t end = 0;  ///< not included

  bool IsRefusal() const noexcept { return status != StreamStatus::kSuccess; }
};

/// Empty when nothing is answered: the request names no packets of this stream, or they come anyhow.
/// \param newest  id of the latest block that was begun
std::optional<ResendAnswer> AnswerTo(const ResendRequest& request, const RequestedBlock& requested,
                                     const ResendStore& store, std::uint64_t newest,
                                     const StreamConfig& config) noexcept;

}  // namespace Tarn
