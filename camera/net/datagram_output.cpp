#include "camera/net/datagram_output.h"

#include <cerrno>

namespace Tarn {
namespace {

/// Per batch, so that a socket that stays full costs a bounded time.
constexpr int kMaxWaits = 20;
constexpr std::chrono::milliseconds kWait{5};
/// Each try clears one error that is pending on the socket.
constexpr int kMaxRetries = 4;

enum class Reaction { Retry, Wait, RefuseTrain, Lose };

Reaction ReactionTo(int error, const Train& train) {
  switch (error) {
    case EINTR:
    case ECONNREFUSED:
      return Reaction::Retry;
    case EAGAIN:
    case ENOBUFS:
      return Reaction::Wait;
    // Source: Linux, udp_send_skb: what a kernel, driver or route that cannot segment answers.
    case EIO:
    case EINVAL:
    case EOPNOTSUPP:
    case EMSGSIZE:
      return train.segments > 1 ? Reaction::RefuseTrain : Reaction::Lose;
    default:
      return Reaction::Lose;
  }
}

}  // namespace

BatchResult SendBatch(DatagramOutput& output, DatagramBatch& batch, const std::atomic<bool>& stop) noexcept {
  BatchResult result;
  mmsghdr* const messages = batch.Seal();
  int waits = 0;
  int retries = 0;
  for (std::size_t next = 0; next < batch.MessageCount() && !stop.load();) {
    const int taken =
        output.SendMessages(messages + next, static_cast<unsigned>(batch.MessageCount() - next));
    if (taken > 0) {
      for (const std::size_t end = next + static_cast<std::size_t>(taken); next < end; ++next) {
        result.sent += batch.TrainAt(next).segments;
        result.sent_bytes += batch.TrainAt(next).bytes;
      }
      retries = 0;
      continue;
    }
    if (taken < 0 && errno == ECONNREFUSED) ++result.unreachable;
    const Train& train = batch.TrainAt(next);
    switch (ReactionTo(taken < 0 ? errno : EAGAIN, train)) {
      case Reaction::Retry:
        if (retries++ < kMaxRetries) continue;
        break;
      case Reaction::Wait:
        if (waits++ < kMaxWaits) {
          output.WaitWritable(kWait);
          continue;
        }
        break;
      case Reaction::RefuseTrain:
        result.train_refused = true;
        return result;
      case Reaction::Lose:
        break;
    }
    result.failed += train.segments;
    result.failed_bytes += train.bytes;
    ++next;
    retries = 0;
  }
  return result;
}

}  // namespace Tarn
