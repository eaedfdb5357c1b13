#include "camera/net/datagram_output.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace Tarn {
namespace {

using std::chrono::microseconds;

/// Waits one after the other, for as long as something moves now and then.
class Patience {
 public:
  explicit Patience(DatagramOutput& output) noexcept : output_(output) {}

  void Renew() noexcept {
    left_ = kAll;
    pause_ = kFirstPause;
  }

  /// False when it is at its end.
  bool ForSocket() noexcept {
    if (!Spend(kLongest)) return false;
    output_.WaitWritable(kLongest);
    return true;
  }
  bool ForQueue() noexcept {
    const microseconds pause = std::exchange(pause_, std::min(2 * pause_, kLongest));
    if (!Spend(pause)) return false;
    output_.Pause(pause);
    return true;
  }

 private:
  static constexpr microseconds kAll{100'000};
  static constexpr microseconds kLongest{5'000};
  static constexpr microseconds kFirstPause{50};  // a few packets at 1 Gbit/s

  bool Spend(microseconds time) noexcept {
    left_ -= time;
    return left_ >= microseconds(0);
  }

  DatagramOutput& output_;
  microseconds left_ = kAll;
  microseconds pause_ = kFirstPause;
};

/// Whether an earlier datagram may be the reason.
/// Source: Linux, icmp_err_convert.
bool MayBeLeftBehind(int error) noexcept {
  switch (error) {
    case ECONNREFUSED:
    case EHOSTUNREACH:
    case ENETUNREACH:
    case EHOSTDOWN:
    case ENONET:
    case ENOPROTOOPT:
    case EOPNOTSUPP:
    case EPROTO:
    case EMSGSIZE:
    case EINTR:
      return true;
    default:
      return false;
  }
}

/// What a kernel, driver or route answers that cannot segment.
/// Source: Linux, udp_send_skb.
bool RefusesTrains(int error) noexcept {
  return error == EIO || error == EINVAL || error == EOPNOTSUPP || error == EMSGSIZE;
}

enum class Reaction { Retry, Wait, RefuseTrain, Lose };

Reaction ReactionTo(int error, const Train& train, bool may_retry) noexcept {
  if (error == EAGAIN || error == ENOBUFS) return Reaction::Wait;
  if (MayBeLeftBehind(error) && may_retry) return Reaction::Retry;
  return train.segments > 1 && RefusesTrains(error) ? Reaction::RefuseTrain : Reaction::Lose;
}

void CountSent(BatchResult& result, const Train& train) noexcept {
  result.sent += train.segments;
  result.sent_bytes += train.bytes;
}

void CountFailed(BatchResult& result, const Train& train, int error) noexcept {
  result.failed += train.segments;
  result.failed_bytes += train.bytes;
  if (error == EPERM || error == EACCES) ++result.refused;
  if (error == EMSGSIZE) ++result.too_large;
  if (error == ENETUNREACH || error == EHOSTUNREACH) ++result.unreachable;
}

}  // namespace

BatchResult SendBatch(DatagramOutput& output, DatagramBatch& batch, const std::atomic<bool>& stop) noexcept {
  // Each takes a report that came in between; there are hardly ever two in a row.
  constexpr int kMaxRetries = 4;
  BatchResult result;
  Patience patience(output);
  mmsghdr* const messages = batch.Seal();
  int retries = 0;
  for (std::size_t next = 0; next < batch.MessageCount() && !stop.load();) {
    const std::size_t left = batch.MessageCount() - next;
    const int taken = output.SendMessages(messages + next, static_cast<unsigned>(left));
    const int error = taken < 0 ? errno : EAGAIN;
    // A report that stopped the sending behind the first message would not be told by the next try.
    const bool reported = taken < static_cast<int>(left) && output.DrainErrors(result);
    if (taken > 0) {
      for (int i = 0; i < taken; ++i) CountSent(result, batch.TrainAt(next++));
      patience.Renew();
      retries = 0;
      continue;
    }
    const Train& train = batch.TrainAt(next);
    switch (ReactionTo(error, train, retries == 0 || (reported && retries < kMaxRetries))) {
      case Reaction::Retry:
        ++retries;
        break;
      case Reaction::Wait:
        if (error == ENOBUFS) ++result.queue_full;
        if (error == ENOBUFS && train.segments > 1) return result;
        if (error == ENOBUFS ? patience.ForQueue() : patience.ForSocket()) break;
        while (next < batch.MessageCount()) CountFailed(result, batch.TrainAt(next++), error);
        break;
      case Reaction::RefuseTrain:
        result.train_refused = true;
        return result;
      case Reaction::Lose:
        CountFailed(result, train, error);
        ++next;
        retries = 0;
        break;
    }
  }
  return result;
}

}  // namespace Tarn
