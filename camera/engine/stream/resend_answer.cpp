#include "camera/engine/stream/resend_answer.h"

#include <algorithm>
#include <limits>

namespace Tarn {
namespace {

/// Success when at least the first packet asked for can be sent again.
std::uint16_t RefusalFor(const ResendRequest& request, const RequestedBlock& requested,
                         const ResendStore& store, std::uint64_t newest) {
  const CutBlock* const block = requested.block;
  if (!block) return store.RefusalFor(request.block_id, newest, request.extended);
  if (request.first > block->packets.TrailerId() || block->resend_budget == 0) return StreamStatus::kGone;
  return request.first < requested.sent ? StreamStatus::kSuccess : StreamStatus::kNotYetAvailable;
}

}  // namespace

std::optional<ResendAnswer> AnswerTo(const ResendRequest& request, const RequestedBlock& requested,
                                     const ResendStore& store, std::uint64_t newest,
                                     const StreamConfig& config) noexcept {
  // Ids of the other width name no block of this stream.
  if (request.extended != config.extended_ids || request.first > request.last) return std::nullopt;
  const std::uint16_t refusal = RefusalFor(request, requested, store, newest);
  if (refusal != StreamStatus::kSuccess) {
    if (config.extended_status) return ResendAnswer{refusal, 0, request.first, request.first};
    // Without the newer codes a refusal means for good, and makes clients give the block up.
    if (requested.block && refusal == StreamStatus::kNotYetAvailable) return std::nullopt;
    return ResendAnswer{StreamStatus::kUnavailable, 0, request.first, request.first};
  }
  const CutBlock& block = *requested.block;
  const std::uint32_t trailer = block.packets.TrailerId();
  // The largest id is not beyond the block: it asks for all the rest.
  const bool beyond = request.last > trailer && request.last != std::numeric_limits<std::uint32_t>::max();
  ResendAnswer answer;
  answer.flags = static_cast<std::uint16_t>(block.flags | StreamHeader::kResendFlag |
                                            (beyond ? StreamHeader::kBeyondBlockFlag : 0));
  answer.first = request.first;
  // What was not sent yet is on its way anyhow.
  answer.end = std::min(std::min(request.last, trailer) + 1, requested.sent);
  const std::uint64_t within_budget = std::min<std::uint64_t>(answer.end - answer.first, block.resend_budget);
  answer.end = answer.first + static_cast<std::uint32_t>(within_budget);
  return answer;
}

}  // namespace Tarn
