#include "device/stream_channel.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "base/mutex.h"
#include "device/release_queue.h"
#include "device/stream_transmitter.h"
#include "engine/stream/block_ids.h"
#include "engine/stream/resend_queue.h"

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

/// What the channel and its loop share.
///
/// The baton: while `baton_held_`, the thread that set it, and no other, touches transmitter_ and gone_,
/// without a lock. Everybody else leaves orders under the mutex; the holder looks for them before each group
/// of packets and does not give the baton back while there are any.
class StreamChannel::Core {
 public:
  explicit Core(const StreamOptions& options) : depth_(options.resend_depth), transmitter_(options) {}

  /// Body of the stream loop; returns when the channel was closed and all owners have been told.
  void Run();

  void RequestClose();
  void Configure(const StreamConfig& config);
  void ChannelOpened();
  void FireTestPacket();
  void SetRunning(bool running);
  void EndRunning();
  void Resend(const ResendRequest& request);
  SendResult Send(ImageBlock&& block);

  const StreamTransmitter& Transmitter() const noexcept { return transmitter_; }

 private:
  /// How long a holder of the baton goes on.
  enum class Patience {
    UntilDone,  ///< until nothing is left
    UntilRoom,  ///< until another block may wait
    UntilLate,  ///< until it would have to wait for the pacer
  };

  struct Waiting {
    ImageBlock block;
    std::uint64_t id;
  };
  struct Test {
    Endpoint destination;
    std::size_t packet_size;
  };
  /// What the holder of the baton is to do next.
  struct Orders {
    std::vector<Waiting> dropped;
    bool drop_current = false;
    bool drop_kept = false;
    std::optional<StreamConfig> config;
    std::optional<Test> test;
    std::optional<Waiting> begin;
    std::optional<ResendRequest> resend;
  };

  std::optional<SendResult> Refusal(const ImageBlock& block) const TARN_REQUIRES(mutex_);
  bool HasOrders() const TARN_REQUIRES(mutex_);
  void DropAll() TARN_REQUIRES(mutex_);
  void DropUnsent() TARN_REQUIRES(mutex_);
  void DropWaiting(Waiting& waiting);
  void Wake() TARN_REQUIRES(mutex_);
  void WaitForChange(MutexLock& lock) TARN_REQUIRES(mutex_);
  void TakeBaton() TARN_REQUIRES(mutex_) { baton_held_ = true; }
  void GiveBaton() TARN_REQUIRES(mutex_);

  void Work(Patience patience, std::vector<ImageBlock>* own) TARN_EXCLUDES(mutex_);
  bool TakeOrders(Patience patience, Orders& orders, std::vector<ImageBlock>* own) TARN_EXCLUDES(mutex_);
  void Execute(Orders& orders);
  bool AwaitTurn(Patience patience) TARN_EXCLUDES(mutex_);
  void HandOver() TARN_REQUIRES(mutex_);
  void CollectGone(std::vector<ImageBlock>* own);
  void Finish() TARN_EXCLUDES(mutex_);

  const std::size_t depth_;

  mutable Mutex mutex_;
  std::condition_variable_any loop_wake_;     // orders, or work that a caller left
  std::condition_variable_any changed_;       // orders, the baton is free, a place for a waiting block
  int watchers_ TARN_GUARDED_BY(mutex_) = 0;  // threads that wait for changed_
  bool closing_ TARN_GUARDED_BY(mutex_) = false;
  bool running_ TARN_GUARDED_BY(mutex_) = false;
  bool baton_held_ TARN_GUARDED_BY(mutex_) = false;
  std::uint64_t send_calls_ TARN_GUARDED_BY(mutex_) = 0;
  BlockIds ids_ TARN_GUARDED_BY(mutex_);
  StreamConfig config_ TARN_GUARDED_BY(mutex_);
  std::deque<Waiting> waiting_ TARN_GUARDED_BY(mutex_);

  // Orders for the holder of the baton.
  bool config_changed_ TARN_GUARDED_BY(mutex_) = true;
  bool drop_current_ TARN_GUARDED_BY(mutex_) = false;
  std::size_t drop_waiting_ TARN_GUARDED_BY(mutex_) = 0;  // from the front
  bool drop_kept_ TARN_GUARDED_BY(mutex_) = false;
  std::deque<Test> tests_ TARN_GUARDED_BY(mutex_);
  ResendQueue requests_ TARN_GUARDED_BY(mutex_);

  /// Set with drop_current_, cleared when that order is taken; read between the system calls of sending.
  std::atomic<bool> stop_{false};

  // The holder of the baton only.
  StreamTransmitter transmitter_;
  std::vector<ImageBlock> gone_;

  ReleaseQueue releases_;
};

std::optional<SendResult> StreamChannel::Core::Refusal(const ImageBlock& block) const {
  if (closing_) return SendResult::Closed;
  if (!running_) return SendResult::NotRunning;
  if (!config_.HasDestination()) return SendResult::NoDestination;
  if (!StreamTransmitter::CanSend(block.payload, config_)) return SendResult::TooLarge;
  return std::nullopt;
}

SendResult StreamChannel::Core::Send(ImageBlock&& block) {
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
void StreamChannel::Core::Work(Patience patience, std::vector<ImageBlock>* own) {
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
bool StreamChannel::Core::TakeOrders(Patience patience, Orders& orders, std::vector<ImageBlock>* own) {
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

void StreamChannel::Core::Execute(Orders& orders) {
  if (orders.drop_current) transmitter_.DropCurrent(gone_);
  for (Waiting& waiting : orders.dropped) DropWaiting(waiting);
  if (orders.drop_kept) transmitter_.DropKept(gone_);
  if (orders.config) transmitter_.Apply(*orders.config, gone_);
  if (orders.test) transmitter_.SendTestPacket(orders.test->destination, orders.test->packet_size);
  if (orders.begin) transmitter_.Begin(std::move(orders.begin->block), orders.begin->id, gone_);
  if (orders.resend) transmitter_.Serve(*orders.resend);
}

/// True when the next group may go. False when the holder should not wait for that.
bool StreamChannel::Core::AwaitTurn(Patience patience) {
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
void StreamChannel::Core::HandOver() {
  GiveBaton();
  loop_wake_.notify_one();
}

void StreamChannel::Core::GiveBaton() {
  baton_held_ = false;
  if (watchers_ != 0) changed_.notify_all();
}

void StreamChannel::Core::CollectGone(std::vector<ImageBlock>* own) {
  for (ImageBlock& block : gone_) {
    if (own) {
      own->push_back(std::move(block));
    } else {
      releases_.Push(std::move(block));
    }
  }
  gone_.clear();
}

bool StreamChannel::Core::HasOrders() const {
  return config_changed_ || drop_current_ || drop_waiting_ != 0 || drop_kept_ || !tests_.empty() ||
         !waiting_.empty() || !requests_.Empty();
}

void StreamChannel::Core::Run() {
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

void StreamChannel::Core::Finish() {
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
void StreamChannel::Core::DropUnsent() {
  transmitter_.DropCurrent(gone_);
  for (Waiting& waiting : waiting_) DropWaiting(waiting);
  waiting_.clear();
}

/// Requires: the baton, and no current block.
void StreamChannel::Core::DropWaiting(Waiting& waiting) {
  transmitter_.Begin(std::move(waiting.block), waiting.id, gone_);
  transmitter_.DropCurrent(gone_);
}

void StreamChannel::Core::WaitForChange(MutexLock& lock) {
  ++watchers_;
  changed_.wait(lock);
  --watchers_;
}

void StreamChannel::Core::Wake() {
  loop_wake_.notify_one();
  changed_.notify_all();
}

void StreamChannel::Core::DropAll() {
  drop_current_ = true;
  drop_waiting_ = waiting_.size();
  stop_ = true;
}

void StreamChannel::Core::RequestClose() {
  const MutexLock lock(mutex_);
  closing_ = true;
  running_ = false;
  stop_ = true;
  Wake();
}

void StreamChannel::Core::Configure(const StreamConfig& config) {
  const MutexLock lock(mutex_);
  if (config == config_) return;
  config_ = config;
  config_changed_ = true;
  if (!config.HasDestination()) DropAll();
  Wake();
}

void StreamChannel::Core::ChannelOpened() {
  const MutexLock lock(mutex_);
  ids_.Restart();
  requests_.Clear();
  drop_kept_ = true;
  DropAll();
  Wake();
}

void StreamChannel::Core::FireTestPacket() {
  const MutexLock lock(mutex_);
  if (!config_.HasDestination() || tests_.size() == kMaxTests) return;
  tests_.push_back({config_.destination, config_.packet_size});
  Wake();
}

void StreamChannel::Core::SetRunning(bool running) {
  const MutexLock lock(mutex_);
  if (!running) DropAll();
  running_ = running;
  Wake();
}

void StreamChannel::Core::EndRunning() {
  const MutexLock lock(mutex_);
  running_ = false;
  Wake();  // callers that wait for a place are refused
}

void StreamChannel::Core::Resend(const ResendRequest& request) {
  const MutexLock lock(mutex_);
  if (depth_ == 0 || !config_.HasDestination() || request.requester.address != config_.resend_client) return;
  if (requests_.Push(request, Now())) Wake();
}

StreamChannel::StreamChannel(const StreamOptions& options)
    : core_(std::make_shared<Core>(options)), loop_([core = core_] { core->Run(); }) {}

StreamChannel::~StreamChannel() {
  core_->RequestClose();
  if (loop_.joinable()) loop_.detach();
}

void StreamChannel::Close() {
  core_->RequestClose();
  // An owner's function runs on the loop, or the loop waits for it to end.
  if (ReleaseQueue::IsTelling()) return;
  const MutexLock lock(closing_);
  if (loop_.joinable()) loop_.join();
}

std::uint16_t StreamChannel::SourcePort() const noexcept { return core_->Transmitter().LocalPort(); }
StreamDriver StreamChannel::Driver() const noexcept { return core_->Transmitter().Driver(); }
StreamCounters StreamChannel::Counters() const noexcept { return core_->Transmitter().Counters(); }
void StreamChannel::Configure(const StreamConfig& config) { core_->Configure(config); }
void StreamChannel::ChannelOpened() { core_->ChannelOpened(); }
void StreamChannel::FireTestPacket() { core_->FireTestPacket(); }
void StreamChannel::SetRunning(bool running) { core_->SetRunning(running); }
void StreamChannel::EndRunning() { core_->EndRunning(); }
void StreamChannel::Resend(const ResendRequest& request) { core_->Resend(request); }
SendResult StreamChannel::Send(ImageBlock&& block) { return core_->Send(std::move(block)); }

}  // namespace Tarn
