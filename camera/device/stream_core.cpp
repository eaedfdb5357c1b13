#include "camera/device/stream_core.h"

#include <chrono>
#include <thread>
#include <utility>

namespace Tarn {
namespace {

/// Blocks that may wait behind the current one. More would only add delay and hold memory.
constexpr std::size_t kMaxWaiting = 2;
/// Test packets that may wait; clients fire them one at a time.
constexpr std::size_t kMaxTests = 8;
/// Shorter waits are spun through: a sleep takes about as long as this to come back.
constexpr Nanoseconds kSpinLimit{100'000};
/// Longer waits listen for orders meanwhile.
constexpr Nanoseconds kSleepLimit{2'000'000};
/// A caller who sends within this time tells the owners itself, on its way out.
constexpr std::chrono::milliseconds kCallerGrace{2};

}  // namespace

std::optional<SendResult> StreamCore::Refusal(const ImageBlock& block) const {
  if (closing_) return SendResult::Closed;
  if (!running_) return SendResult::NotRunning;
  if (!config_.HasDestination()) return SendResult::NoDestination;
  if (!StreamTransmitter::CanSend(block.payload, config_)) return SendResult::TooLarge;
  return std::nullopt;
}

SendResult StreamCore::Send(ImageBlock&& block) {
  MutexLock lock(mutex_);
  ++send_calls_;
  const bool keeps = depth_ != 0;
  for (;;) {
    if (const auto refusal = Refusal(block)) return *refusal;
    // Without a store the block must be on the wire on return, so the baton has to be this thread's.
    const bool must_wait = keeps ? waiting_.size() >= kMaxWaiting : baton_held_;
    if (!must_wait) break;
    if (baton_held_) {
      WaitForChange(lock);
    } else {
      TakeBaton();
      lock.unlock();
      Work(Patience::UntilRoom, nullptr);
      lock.lock();
    }
  }
  waiting_.push_back({std::move(block), ids_.Take(config_.extended_ids)});
  std::vector<ImageBlock> own;
  if (!baton_held_) {
    TakeBaton();
    lock.unlock();
    Work(keeps ? Patience::UntilLate : Patience::UntilDone, keeps ? nullptr : &own);
  } else {
    lock.unlock();
  }
  for (ImageBlock& sent : own) ReleaseQueue::Tell(sent);
  while (releases_.TellNext()) {
  }
  return SendResult::Accepted;
}

/// Requires: the baton. Gives it back.
/// \param own  receives blocks that are needed no more; null: they are queued for release
void StreamCore::Work(Patience patience, std::vector<ImageBlock>* own) {
  Orders orders;
  while (TakeOrders(patience, orders, own)) {
    Execute(orders);
    if (!transmitter_.Sending() && !transmitter_.Serving()) continue;
    if (!AwaitTurn(patience)) {
      CollectGone(own);
      const MutexLock lock(mutex_);
      HandOver();
      return;
    }
    transmitter_.Step(stop_, gone_);
  }
}

/// False when the baton was given back.
bool StreamCore::TakeOrders(Patience patience, Orders& orders, std::vector<ImageBlock>* own) {
  CollectGone(own);
  const MutexLock lock(mutex_);
  const bool busy = transmitter_.Sending() || transmitter_.Serving();
  if (closing_) {
    DropUnsent();
    CollectGone(own);
  }
  if (closing_ || (!busy && !HasOrders())) {
    GiveBaton();
    return false;
  }
  if (patience == Patience::UntilRoom && waiting_.size() < kMaxWaiting) {
    HandOver();
    return false;
  }
  orders = {};
  if (drop_current_) stop_ = false;
  orders.drop_current = std::exchange(drop_current_, false);
  orders.drop_kept = std::exchange(drop_kept_, false);
  for (; drop_waiting_ != 0; --drop_waiting_) {
    orders.dropped.push_back(std::move(waiting_.front()));
    waiting_.pop_front();
  }
  if (!tests_.empty()) {
    orders.test = tests_.front();
    tests_.pop_front();
  }
  if (orders.drop_current || !transmitter_.Sending()) {
    if (std::exchange(config_changed_, false)) orders.config = config_;
    if (!waiting_.empty()) {
      orders.begin = std::move(waiting_.front());
      waiting_.pop_front();
      if (watchers_ != 0) changed_.notify_all();
    }
  }
  if (!transmitter_.Serving()) orders.resend = requests_.Pop();
  return true;
}

void StreamCore::Execute(Orders& orders) {
  if (orders.drop_current) transmitter_.DropCurrent(gone_);
  for (Waiting& waiting : orders.dropped) DropWaiting(waiting);
  if (orders.drop_kept) transmitter_.DropKept(gone_);
  if (orders.config) transmitter_.Apply(*orders.config, gone_);
  if (orders.test) transmitter_.SendTestPacket(orders.test->destination, orders.test->packet_size);
  if (orders.begin) transmitter_.Begin(std::move(orders.begin->block), orders.begin->id, gone_);
  if (orders.resend) transmitter_.Serve(*orders.resend);
}

/// True when the next group may go. False when the holder should not wait for that.
bool StreamCore::AwaitTurn(Patience patience) {
  for (;;) {
    const std::optional<Instant> due = transmitter_.Due();
    if (!due) return true;
    const Nanoseconds left = *due - Now();
    if (left.count() <= 0) return true;
    if (patience == Patience::UntilLate) return false;
    if (left > kSleepLimit) {
      MutexLock lock(mutex_);
      if (closing_ || stop_) return true;
      ++watchers_;
      changed_.wait_until(lock, *due - kSpinLimit);
      --watchers_;
      if (closing_ || stop_) return true;
    } else if (left > kSpinLimit) {
      std::this_thread::sleep_for(left);
    }
  }
}

/// Gives the baton back with work left, for the loop to go on.
void StreamCore::HandOver() {
  GiveBaton();
  loop_wake_.notify_one();
}

void StreamCore::GiveBaton() {
  baton_held_ = false;
  if (watchers_ != 0) changed_.notify_all();
}

void StreamCore::CollectGone(std::vector<ImageBlock>* own) {
  for (ImageBlock& block : gone_) {
    if (own) {
      own->push_back(std::move(block));
    } else {
      releases_.Push(std::move(block));
    }
  }
  gone_.clear();
}

bool StreamCore::HasOrders() const {
  return config_changed_ || drop_current_ || drop_waiting_ != 0 || drop_kept_ || !tests_.empty() ||
         !waiting_.empty() || !requests_.Empty();
}

void StreamCore::Run() {
  {
    MutexLock lock(mutex_);
    std::uint64_t calls_seen = 0;
    while (!closing_) {
      if (!baton_held_ && (HasOrders() || transmitter_.Sending() || transmitter_.Serving())) {
        TakeBaton();
        lock.unlock();
        Work(Patience::UntilDone, nullptr);
        lock.lock();
      } else if (releases_.Empty()) {
        loop_wake_.wait(lock);
      } else if (calls_seen != send_calls_) {
        // An owner's function may have to wait for a lock that a busy caller keeps taking; the caller itself
        // does not have to.
        calls_seen = send_calls_;
        loop_wake_.wait_for(lock, kCallerGrace);
      } else {
        lock.unlock();
        const bool told = releases_.TellNext();
        lock.lock();
        if (!told && !closing_ && !HasOrders()) loop_wake_.wait_for(lock, kCallerGrace);
      }
    }
  }
  Finish();
}

void StreamCore::Finish() {
  {
    MutexLock lock(mutex_);
    while (baton_held_) WaitForChange(lock);
    TakeBaton();  // for good
    DropUnsent();
  }
  transmitter_.DropKept(gone_);
  CollectGone(nullptr);
  releases_.Finish();
}

/// Requires: the baton.
void StreamCore::DropUnsent() {
  transmitter_.DropCurrent(gone_);
  for (Waiting& waiting : waiting_) DropWaiting(waiting);
  waiting_.clear();
}

/// Requires: the baton, and no current block.
void StreamCore::DropWaiting(Waiting& waiting) {
  transmitter_.Begin(std::move(waiting.block), waiting.id, gone_);
  transmitter_.DropCurrent(gone_);
}

void StreamCore::WaitForChange(MutexLock& lock) {
  ++watchers_;
  changed_.wait(lock);
  --watchers_;
}

void StreamCore::Wake() {
  loop_wake_.notify_one();
  changed_.notify_all();
}

void StreamCore::DropAll() {
  drop_current_ = true;
  drop_waiting_ = waiting_.size();
  stop_ = true;
}

void StreamCore::RequestClose() {
  const MutexLock lock(mutex_);
  closing_ = true;
  running_ = false;
  stop_ = true;
  Wake();
}

void StreamCore::Configure(const StreamConfig& config) {
  const MutexLock lock(mutex_);
  if (config == config_) return;
  config_ = config;
  config_changed_ = true;
  if (!config.HasDestination()) DropAll();
  Wake();
}

void StreamCore::ChannelOpened() {
  const MutexLock lock(mutex_);
  ids_.Restart();
  requests_.Clear();
  drop_kept_ = true;
  DropAll();
  Wake();
}

void StreamCore::FireTestPacket() {
  const MutexLock lock(mutex_);
  if (!config_.HasDestination() || tests_.size() == kMaxTests) return;
  tests_.push_back({config_.destination, config_.packet_size});
  Wake();
}

void StreamCore::SetRunning(bool running) {
  const MutexLock lock(mutex_);
  if (!running) DropAll();
  running_ = running;
  Wake();
}

void StreamCore::EndRunning() {
  const MutexLock lock(mutex_);
  running_ = false;
  Wake();  // callers that wait for a place are refused
}

void StreamCore::Resend(const ResendRequest& request) {
  const MutexLock lock(mutex_);
  if (depth_ == 0 || !config_.HasDestination() || request.requester.address != config_.resend_client) return;
  if (requests_.Push(request, Now())) Wake();
}

}  // namespace Tarn
