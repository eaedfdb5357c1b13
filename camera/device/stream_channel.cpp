#include "camera/device/stream_channel.h"

#include <cstring>
#include <new>
#include <utility>

#include "camera/base/thread_control.h"

namespace Tarn {
namespace {

/// Test packets that may wait; clients fire them one at a time.
constexpr std::size_t kMaxTests = 8;
/// Shorter waits are spun through: a sleep takes about as long as this to come back.
constexpr Nanoseconds kSpinLimit{15'000};
/// A paced image that is done within this time is sent by its caller.
constexpr Nanoseconds kMoment{1'000'000};
/// An image that is not paced is sent by its caller as long as the system takes it at this rate, bytes per second.
/// Source: measured, about what trains of 1500-byte packets make on the machines of the day.
constexpr std::uint64_t kCallerRate = 2'500'000'000;
/// But for so long in any case: beside that a change of threads and a copy of the rest cost too much.
constexpr Nanoseconds kLeastTurn{500'000};
/// Buffers for copies that are kept for the next images.
constexpr std::size_t kMaxSpare = StreamChannel::kStagingPlaces + 1;

/// Copies the payload of a block, without the first `from` bytes of it, and has it sent from there.
void CopyPayload(ImageBlock& block, std::size_t from, std::vector<std::uint8_t>&& buffer) {
  std::uint8_t* to = buffer.data() + from;
  const ByteView tail = block.tail.Bytes();  // has its block id later, and stays where it is
  const std::size_t size = block.payload.Size() - tail.size();
  if (from < size)
    block.payload.ForEachPiece(from, size - from, [&to](const std::uint8_t* bytes, std::size_t count) {
      std::memcpy(to, bytes, count);
      to += count;
    });
  block.staging = std::move(buffer);
  block.payload = PayloadLayout::Contiguous(ByteView(block.staging).first(size));
  if (!tail.empty()) block.payload.Append({tail.data(), tail.size(), 0, 1});
}

}  // namespace

StreamChannel::StreamChannel(const StreamOptions& options)
    : depth_(options.resend_depth), transmitter_(options) {
  gone_.reserve(depth_ + Places() + 2);
}

std::shared_ptr<StreamChannel> StreamChannel::Open(const StreamOptions& options) {
  const std::shared_ptr<StreamChannel> channel(new StreamChannel(options));
  try {
    channel->pump_ = std::thread([channel] { channel->Pump(); });
    channel->releaser_ = std::thread([channel] {
      ThisThread::Name("tarn-release");
      channel->releases_.Run();
    });
  } catch (...) {
    channel->Abandon();
    throw;
  }
  // The threads hold the channel too: when nobody else does any more they are told to end.
  return {channel.get(), [channel](StreamChannel*) { channel->Abandon(); }};
}

StreamChannel::~StreamChannel() {
  if (pump_.joinable()) pump_.detach();
  if (releaser_.joinable()) releaser_.detach();
}

void StreamChannel::RequestClose() noexcept {
  const MutexLock lock(mutex_);
  closing_ = true;
  running_ = false;
  stop_ = true;
  wake_.notify_all();
  place_free_.notify_all();
}

void StreamChannel::Abandon() noexcept {
  RequestClose();
  const MutexLock lock(joining_);
  if (pump_.joinable()) pump_.detach();
  if (releaser_.joinable()) releaser_.detach();
}

void StreamChannel::Close() {
  RequestClose();
  // The release thread waits for the owner's function that this is called from.
  if (ReleaseThread::IsTelling()) return;
  const MutexLock lock(joining_);
  if (pump_.joinable()) pump_.join();
  if (releaser_.joinable()) releaser_.join();
}

StreamCounters StreamChannel::Counters() const {
  StreamCounters counters = transmitter_.Counters();
  const MutexLock lock(mutex_);
  counters.refused_images = refused_images_;
  counters.dropped_requests = dropped_requests_;
  return counters;
}

std::uint64_t StreamChannel::Rate() const {
  const MutexLock lock(mutex_);
  return rate_.Rate();
}

// Taking images.

StreamChannel::Extent StreamChannel::ExtentOf(const ImageBlock& block) const {
  const PacketForm form{config_.packet_size, config_.extended_ids};
  const std::size_t bytes = block.payload.Size();
  const std::size_t packets = bytes / form.DataBytes() + 3;  // leader, trailer, and the last that is not full
  return {packets, bytes + packets * (kDatagramOverhead + form.HeaderSize() + kFrameOverhead)};
}

std::optional<SendResult> StreamChannel::Refusal(const ImageBlock& block) const {
  if (closing_) return SendResult::Closed;
  if (!running_) return SendResult::NotRunning;
  if (!config_.HasDestination()) return SendResult::NoDestination;
  if (!StreamTransmitter::CanSend(block.payload, config_)) return SendResult::TooLarge;
  return std::nullopt;
}

bool StreamChannel::HasPlaceFor(std::size_t bytes) const {
  if (Unsent() >= Places()) return false;
  return depth_ != 0 || Unsent() == 0 || staged_bytes_ + bytes <= kMaxStagedBytes;
}

bool StreamChannel::HasPlace() {
  const MutexLock lock(mutex_);
  const bool has = HasPlaceFor(0);
  waited_ = waited_ || !has;
  return has;
}

std::size_t StreamChannel::Kept() const { return std::min(depth_, Places() - std::min(Unsent(), Places())); }

/// Empty when there is one.
std::optional<SendResult> StreamChannel::AwaitPlace(MutexLock& lock, const ImageBlock& block) {
  std::optional<Instant> until;
  for (;;) {
    if (const auto refusal = Refusal(block)) return refusal;
    if (HasPlaceFor(block.payload.Size())) return std::nullopt;
    if (!until) until = Now() + kPatience;
    waited_ = true;
    if (place_free_.wait_until(lock, *until) == std::cv_status::no_timeout) continue;
    if (HasPlaceFor(block.payload.Size())) continue;
    ++refused_images_;
    return SendResult::NoPlace;
  }
}

StreamChannel::Way StreamChannel::WayOf(const ImageBlock& block, const Extent& extent) {
  const Way later = depth_ == 0 && block.staging.empty() ? Way::Copy : Way::Queue;
  if (held_ || HasWork() || reserved_ != 0) return later;
  const Pace pace = PaceNow();
  if (!pace.Limited()) return Way::Itself;
  const Nanoseconds wait = std::max(transmitter_.Due() - Now(), Nanoseconds{0});
  waited_ = waited_ || wait.count() != 0;
  return wait + DurationAt(pace, extent.packets, extent.wire_bytes) <= kMoment ? Way::Itself : later;
}

std::uint64_t StreamChannel::Number(const Extent& extent) {
  rate_.FrameAccepted(Now(), extent.wire_bytes, std::exchange(waited_, false));
  return newest_id_ = ids_.Take(config_.extended_ids);
}

void StreamChannel::Enqueue(ImageBlock&& block, const Extent& extent) {
  waiting_.push_back({std::move(block), 0});
  staged_bytes_ += waiting_.back().block.staging.size();
  waiting_.back().id = Number(extent);
  wake_.notify_one();
}

SendResult StreamChannel::Send(ImageBlock&& block) {
  Way way;
  Extent extent;
  Start start;
  BlockOwner told_at_once;
  {
    MutexLock lock(mutex_);
    if (const auto refusal = AwaitPlace(lock, block)) return *refusal;
    extent = ExtentOf(block);
    way = WayOf(block, extent);
    if (way == Way::Itself) {
      held_ = true;
      sending_ = true;
      staged_bytes_ += block.staging.size();
      start = {Number(extent), PaceNow(), Kept()};
    } else if (way == Way::Copy) {
      ++reserved_;
    } else {
      if (depth_ == 0) told_at_once = std::move(block.owner);
      Enqueue(std::move(block), extent);
    }
  }
  // NOLINTBEGIN(bugprone-use-after-move): it goes one way
  if (way == Way::Itself) SendItself(std::move(block), start);
  if (way == Way::Copy) SendCopy(std::move(block), extent);
  // NOLINTEND(bugprone-use-after-move)
  ReleaseThread::Tell(told_at_once);
  if (depth_ != 0) releases_.TellAll();
  return SendResult::Accepted;
}

std::vector<std::uint8_t> StreamChannel::Buffer(std::size_t bytes) {
  std::vector<std::uint8_t> buffer;
  {
    const MutexLock lock(mutex_);
    if (!spare_.empty()) {
      buffer = std::move(spare_.back());
      spare_.pop_back();
    }
  }
  if (buffer.size() < bytes) {
    buffer.clear();  // nothing is moved to the larger place
    buffer.resize(bytes);
  }
  return buffer;
}

void StreamChannel::Recycle(std::vector<std::uint8_t>&& buffer) {
  staged_bytes_ -= buffer.size();
  if (spare_.size() < kMaxSpare) spare_.push_back(std::move(buffer));
}

/// A place is reserved. What happens meanwhile to the stream, happens to the copy.
void StreamChannel::SendCopy(ImageBlock&& block, const Extent& extent) {
  std::vector<std::uint8_t> buffer;
  try {
    buffer = Buffer(block.payload.Size());
  } catch (const std::bad_alloc&) {
    const MutexLock lock(mutex_);
    --reserved_;
    place_free_.notify_one();
    throw;
  }
  CopyPayload(block, 0, std::move(buffer));
  BlockOwner owner = std::move(block.owner);
  {
    const MutexLock lock(mutex_);
    --reserved_;
    Enqueue(std::move(block), extent);
  }
  ReleaseThread::Tell(owner);
}

/// The transmitter is the caller's.
void StreamChannel::SendItself(ImageBlock&& block, const Start& start) {
  const Instant begin = Now();
  const std::uint64_t fair = block.payload.Size() * 1'000'000'000 / kCallerRate;
  const Instant until =
      begin + (start.pace.Limited() ? 2 * kMoment
                                    : std::max(Nanoseconds{static_cast<std::int64_t>(fair)}, kLeastTurn));
  transmitter_.KeepAtMost(start.kept, gone_);
  transmitter_.SetPace(start.pace);
  transmitter_.Start(begin);
  transmitter_.Begin(std::move(block), start.id, gone_);
  while (transmitter_.Sending() && !stop_.load()) {
    if (start.pace.Limited()) ThisThread::SleepUntil(transmitter_.Due());
    transmitter_.Step(stop_, gone_);
    if (Now() >= until) break;
  }
  BlockOwner owner = depth_ == 0 ? CopyRest() : BlockOwner();
  static_cast<void>(LetGo());  // the caller tells them
  {
    const MutexLock lock(mutex_);
    NoteProgress();
    held_ = false;
    if (closing_ || HasWork()) wake_.notify_one();
  }
  ReleaseThread::Tell(owner);
}

/// The caller's memory is its own again: what is left to send is copied. Without memory for that the block is dropped.
BlockOwner StreamChannel::CopyRest() {
  if (transmitter_.Sending() && transmitter_.Current().staging.empty()) {
    ImageBlock& block = transmitter_.Current();
    try {
      CopyPayload(block, transmitter_.PayloadSent(), Buffer(block.payload.Size()));
      const MutexLock lock(mutex_);
      staged_bytes_ += block.staging.size();
    } catch (const std::bad_alloc&) {
      transmitter_.DropCurrent(gone_);
    }
  }
  if (transmitter_.Sending()) return std::move(transmitter_.Current().owner);
  return gone_.empty() ? BlockOwner() : std::move(gone_.back().owner);
}

// Orders.

bool StreamChannel::HasOrders() const {
  return config_changed_ || drop_current_ || drop_waiting_ != 0 || forget_ || find_route_ || prepare_ != 0 ||
         !tests_.empty();
}

bool StreamChannel::HasWork() const {
  return HasOrders() || sending_ || !waiting_.empty() || !requests_.Empty();
}

void StreamChannel::DropUnsent() {
  drop_current_ = true;
  drop_waiting_ = waiting_.size();
  stop_ = true;
}

void StreamChannel::Configure(const StreamConfig& config) {
  const MutexLock lock(mutex_);
  if (config == config_) return;
  config_ = config;
  config_changed_ = true;
  rate_.SetLimit(config.pace.bytes_per_second, config.adaptive_rate);
  if (!config.HasDestination()) DropUnsent();
  wake_.notify_one();
  place_free_.notify_all();
}

void StreamChannel::ChannelOpened() {
  const MutexLock lock(mutex_);
  ids_.Restart();
  newest_id_ = 0;
  rate_.Restart();
  requests_.Clear();
  forget_ = true;
  DropUnsent();
  forget_waiting_ = waiting_.size();
  wake_.notify_one();
}

void StreamChannel::FireTestPacket() {
  const MutexLock lock(mutex_);
  if (!config_.HasDestination() || tests_.size() == kMaxTests) return;
  tests_.push_back({config_.destination, config_.packet_size});
  wake_.notify_one();
}

bool StreamChannel::SetSchedule(const ThreadSchedule& schedule) {
  const MutexLock lock(joining_);
  if (schedule == schedule_) return true;
  schedule_ = schedule.ApplyTo(pump_) ? schedule : ThreadSchedule();
  return schedule_ == schedule;
}

void StreamChannel::RouteChanged() {
  const MutexLock lock(mutex_);
  find_route_ = true;
  wake_.notify_one();
}

void StreamChannel::BeginRunning(std::size_t payload_bytes) {
  const MutexLock lock(mutex_);
  running_ = true;
  if (depth_ != 0 || payload_bytes > kMaxStagedBytes / kMaxSpare) return;
  prepare_ = payload_bytes;
  wake_.notify_one();
}

void StreamChannel::StopRunning() {
  const MutexLock lock(mutex_);
  DropUnsent();
  running_ = false;
  wake_.notify_one();
  place_free_.notify_all();
}

void StreamChannel::EndRunning() {
  const MutexLock lock(mutex_);
  running_ = false;
  place_free_.notify_all();
}

void StreamChannel::Resend(const ResendRequest& request) {
  const MutexLock lock(mutex_);
  if (depth_ == 0 || !config_.HasDestination() || request.requester.address != config_.resend_client) return;
  const Instant now = Now();
  const auto taken = requests_.Push(request, now);
  if (taken == ResendRequests::Taken::Dropped) ++dropped_requests_;
  if (taken != ResendRequests::Taken::Queued) return;
  if (request.block_id == newest_id_ || request.block_id + 1 == newest_id_) {
    const std::uint64_t packets = std::uint64_t{std::max(request.last, request.first)} - request.first + 1;
    rate_.PacketsMissed(now, packets * config_.packet_size);
  }
  wake_.notify_one();
}

// The pump.

void StreamChannel::Pump() {
  ThisThread::Name("tarn-pump");
  ThisThread::WakeOnTime();
  Orders orders;
  orders.requests.reserve(StreamTransmitter::kMaxResends);
  {
    MutexLock lock(mutex_);
    while (!closing_) {
      if (held_ || !HasWork()) {
        wake_.wait(lock);
        continue;
      }
      held_ = true;
      lock.unlock();
      Work(orders);
      lock.lock();
    }
    while (held_) wake_.wait(lock);
    held_ = true;  // for good
  }
  Finish();
}

/// The transmitter is the pump's until nothing is left to do.
void StreamChannel::Work(Orders& orders) {
  bool idle = true;
  while (TakeOrders(orders)) {
    Execute(orders);
    if (!transmitter_.Sending() && !transmitter_.Serving()) continue;
    if (std::exchange(idle, false)) transmitter_.Start(Now());
    if (Await(transmitter_.Due())) transmitter_.Step(stop_, gone_);
  }
}

/// False when there is nothing to do any more; the transmitter is free then.
bool StreamChannel::TakeOrders(Orders& orders) {
  if (LetGo()) releases_.Wake();
  const MutexLock lock(mutex_);
  NoteProgress();
  if (closing_ || (!HasWork() && !transmitter_.Serving())) {
    held_ = false;
    return false;
  }
  orders.dropped.clear();
  orders.requests.clear();
  orders.config.reset();
  orders.test.reset();
  orders.begin.reset();
  if (drop_current_) stop_ = false;
  orders.drop_current = std::exchange(drop_current_, false);
  orders.forget = std::exchange(forget_, false);
  orders.forgotten = std::exchange(forget_waiting_, 0);
  for (; drop_waiting_ != 0; --drop_waiting_) {
    orders.dropped.push_back(std::move(waiting_.front()));
    waiting_.pop_front();
  }
  if (orders.drop_current) place_free_.notify_all();
  if (!tests_.empty()) {
    orders.test = tests_.front();
    tests_.pop_front();
  }
  if (orders.drop_current || !transmitter_.Sending()) {
    if (std::exchange(config_changed_, false)) orders.config = config_;
    sending_ = !waiting_.empty();
    if (sending_) {
      orders.begin = std::move(waiting_.front());
      waiting_.pop_front();
    }
  }
  for (std::size_t room = transmitter_.RoomForRequests(); room != 0 && !requests_.Empty(); --room) {
    orders.requests.push_back(*requests_.Take());
  }
  orders.find_route = std::exchange(find_route_, false);
  orders.prepare = std::exchange(prepare_, 0);
  orders.pace = PaceNow();
  orders.kept = Kept();
  return true;
}

/// What was sent makes room for others.
void StreamChannel::NoteProgress() {
  if (const std::size_t finished = transmitter_.TakeFinished(); finished != 0)
    requests_.Finish(finished, Now());
  if (sending_ && !transmitter_.Sending()) {
    sending_ = false;
    place_free_.notify_all();
  }
}

void StreamChannel::Prepare(std::size_t bytes) {
  try {
    while (true) {
      std::vector<std::uint8_t> buffer(bytes);
      const MutexLock lock(mutex_);
      std::erase_if(spare_, [bytes](const auto& spare) { return spare.size() != bytes; });
      if (spare_.size() >= kMaxSpare) return;
      spare_.push_back(std::move(buffer));
    }
  } catch (const std::bad_alloc&) {
    // Senders try it again, and are told when there is none.
  }
}

void StreamChannel::DropUnbegun(std::span<Waiting> dropped) {
  for (Waiting& waiting : dropped) {
    transmitter_.Begin(std::move(waiting.block), waiting.id, gone_);
    transmitter_.DropCurrent(gone_);
  }
}

void StreamChannel::Execute(Orders& orders) {
  if (orders.drop_current) transmitter_.DropCurrent(gone_);
  const auto dropped = std::span(orders.dropped);
  DropUnbegun(dropped.first(orders.forgotten));
  if (orders.forget) transmitter_.Forget(gone_);
  DropUnbegun(dropped.subspan(orders.forgotten));
  transmitter_.KeepAtMost(orders.kept, gone_);
  if (orders.config) transmitter_.Apply(*orders.config, gone_);
  if (orders.find_route) transmitter_.FindRoute();
  if (orders.prepare != 0) Prepare(orders.prepare);
  transmitter_.SetPace(orders.pace);
  if (orders.test) transmitter_.SendTestPacket(orders.test->destination, orders.test->packet_size);
  if (orders.begin) transmitter_.Begin(std::move(orders.begin->block), orders.begin->id, gone_);
  for (const ResendRequest& request : orders.requests) transmitter_.Serve(request);
}

/// True when it is time; false when there are orders first.
bool StreamChannel::Await(Instant due) {
  for (Nanoseconds left = due - Now(); left.count() > 0; left = due - Now()) {
    if (left <= kSpinLimit) continue;
    MutexLock lock(mutex_);
    if (closing_ || HasOrders() || (!requests_.Empty() && transmitter_.RoomForRequests() != 0)) return false;
    wake_.wait_until(lock, due);
  }
  return true;
}

/// Blocks that are needed no more are to be told of, and their copies' memory goes to the next. False when there are none.
bool StreamChannel::LetGo() noexcept {
  if (gone_.empty()) return false;
  for (ImageBlock& block : gone_) {
    if (!block.staging.empty()) {
      const MutexLock lock(mutex_);
      Recycle(std::move(block.staging));
    }
    if (block.owner) releases_.Push(std::move(block.owner));
  }
  gone_.clear();
  return true;
}

/// Requires: the transmitter, for good.
void StreamChannel::Finish() {
  Orders orders;
  orders.drop_current = true;
  orders.forget = true;
  {
    const MutexLock lock(mutex_);
    for (Waiting& waiting : waiting_) orders.dropped.push_back(std::move(waiting));
    waiting_.clear();
    orders.forgotten = orders.dropped.size();
  }
  Execute(orders);
  static_cast<void>(LetGo());
  releases_.End();
}

}  // namespace Tarn
