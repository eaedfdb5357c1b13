#include "camera/device/stream_transmitter.h"

#include <algorithm>
#include <utility>

namespace Tarn {
namespace {

/// Trains show up uncut at packet sockets on loopback and virtual links, and some clients read through those; on real
/// hardware the card or the driver cuts them before anybody looks.
StreamDriver DriverFor(StreamDriver requested, const StreamRoute& route) {
  const bool wanted = requested == StreamDriver::Filter ||
                      (requested == StreamDriver::Auto && route.hardware && !route.local);
  return wanted && SegmentationWorks(route) ? StreamDriver::Filter : StreamDriver::Socket;
}

/// Before a client tells where the stream goes.
StreamDriver FirstDriver(const StreamOptions& options) {
  const std::optional<StreamRoute> route = RouteOutOf(options.local_address);
  return route ? DriverFor(options.driver, *route) : StreamDriver::Socket;
}

/// What the socket may hold: a few trains, but no more than goes out in a moment, since nobody can call it back.
std::size_t BufferFor(const Pace& pace) {
  constexpr std::uint64_t kMost = 1 << 20;
  constexpr std::uint64_t kLeast = 64 << 10;  // a train
  constexpr std::uint64_t kMomentsPerSecond = 1000;
  if (pace.bytes_per_second == 0) return kMost;
  return std::clamp(pace.bytes_per_second / kMomentsPerSecond, kLeast, kMost);
}

}  // namespace

StreamTransmitter::StreamTransmitter(const StreamOptions& options)
    : socket_(options.local_address),
      local_address_(options.local_address),
      requested_driver_(options.driver),
      driver_(FirstDriver(options)),
      observer_(options.observer),
      kernel_pacing_([this](std::uint64_t rate) { socket_.SetPacingRate(rate); }),
      store_(options.resend_depth) {
  serving_.reserve(kMaxResends);
}

StreamCounters StreamTransmitter::Counters() const noexcept {
  StreamCounters counters;
  counters.frames = frames_;
  counters.packets = packets_;
  counters.bytes = bytes_;
  counters.resent_packets = resent_packets_;
  counters.failed_sends = failed_sends_;
  counters.dropped_blocks = dropped_blocks_;
  counters.unreachable = unreachable_;
  counters.queue_full = queue_full_times_;
  return counters;
}

bool StreamTransmitter::CanSend(const PayloadLayout& payload, const StreamConfig& config) noexcept {
  const PacketForm form{config.packet_size, config.extended_ids};
  return Packetiser::Fits(payload.Size(), form) &&
         payload.MaxPieces(form.DataBytes()) < DatagramBatch::kMaxPieces;
}

void StreamTransmitter::Apply(const StreamConfig& config, Blocks& gone) {
  const PacketForm form{config.packet_size, config.extended_ids};
  if (form != form_) KeepAtMost(0, gone);
  const bool elsewhere = config.HasDestination() && config.destination != config_.destination;
  if (elsewhere) {
    explicit_peer_.reset();
    if (!socket_.SetPeer(config.destination)) explicit_peer_ = config.destination;
  }
  socket_.SetDontFragment(config.dont_fragment);
  socket_.SetBuffer(BufferFor(config.pace));
  config_ = config;
  form_ = form;
  if (!config.HasDestination()) {
    route_.reset();
    state_ = StreamState::Closed;
  } else if (elsewhere || !route_) {
    FindRoute();
  }
}

void StreamTransmitter::FindRoute() noexcept {
  if (!config_.HasDestination()) return;
  try {
    route_ = RouteOf(local_address_, config_.destination.address);
    if (route_ && route_->up) driver_ = DriverFor(requested_driver_, *route_);
  } catch (const std::exception&) {
    // The system has no socket to ask with at the moment; what was known holds on.
  }
  train_refused_ = false;
  state_ = !route_ ? StreamState::NoRoute : route_->up ? StreamState::Open : StreamState::NoLink;
  SetPace(pace_);
}

Pacing& StreamTransmitter::PacingFor(const Pace& pace) noexcept {
  const std::uint64_t link_rate = route_ ? std::uint64_t{route_->speed_mbit} * 125'000 : 0;
  const bool above_link = link_rate != 0 && pace.bytes_per_second >= link_rate;
  if (!pace.Limited() || (above_link && pace.packet_delay.count() == 0)) return no_pacing_;
  if (route_ && route_->kernel_paces && pace.packet_delay.count() == 0) return kernel_pacing_;
  return clock_pacing_;
}

void StreamTransmitter::SetPace(const Pace& pace) noexcept {
  Pacing& next = PacingFor(pace);
  if (pacing_ == &kernel_pacing_ && pacing_ != &next) kernel_pacing_.Set({});
  pace_ = pace;
  pacing_ = &next;
  pacing_->Set(pace);
}

void StreamTransmitter::Begin(ImageBlock&& block, std::uint64_t block_id, Blocks& gone) {
  newest_block_ = block_id;
  if (!config_.HasDestination() || !CanSend(block.payload, config_)) {
    gone.push_back(std::move(block));
    Add(dropped_blocks_, 1);
    after_drop_ = true;
    return;
  }
  block.tail.StampBlockId(block_id);
  current_.emplace(std::move(block), block_id, form_);
  if (std::exchange(after_drop_, false)) current_->flags = StreamHeader::kAfterDropFlag;
  next_packet_ = 0;
  start_told_ = false;
  lost_some_ = false;
}

std::size_t StreamTransmitter::PayloadSent() const noexcept {
  const Packetiser& packets = current_->packets;
  if (next_packet_ == 0) return 0;
  return packets.IsData(next_packet_) ? packets.SliceOf(next_packet_).offset : current_->block.payload.Size();
}

void StreamTransmitter::Serve(const ResendRequest& request) {
  const CutBlock* const block = FindSent(request.block_id);
  const RequestedBlock requested{block, block ? SentCount(*block) : 0};
  if (const auto answer = AnswerTo(request, requested, store_, newest_block_, config_)) {
    serving_.push_back({request, *answer});
  } else {
    ++finished_;
  }
}

std::size_t StreamTransmitter::RoomForRequests() const noexcept { return kMaxResends - serving_.size(); }

std::optional<Endpoint> StreamTransmitter::DestinationOf(const ResendRequest& request) const noexcept {
  return config_.resend_to_requester ? std::optional(request.requester) : std::nullopt;
}

CutBlock* StreamTransmitter::FindSent(std::uint64_t block_id) noexcept {
  if (current_ && current_->packets.BlockId() == block_id) return &*current_;
  return store_.Find(block_id);
}

std::uint32_t StreamTransmitter::SentCount(const CutBlock& block) const noexcept {
  const bool is_current = current_ && &block == &*current_;
  return is_current ? next_packet_ : block.packets.Count();
}

void StreamTransmitter::Step(const std::atomic<bool>& stop, Blocks& gone) {
  if (ResendsFirst()) {
    StepResends(stop);
  } else {
    StepBlock(stop, gone);
  }
}

void StreamTransmitter::StepBlock(const std::atomic<bool>& stop, Blocks& gone) {
  if (observer_ && !std::exchange(start_told_, true)) observer_->FrameStarts(current_->packets.BlockId());
  StartBatch(std::nullopt);
  Gather(*current_, {next_packet_, current_->packets.Count(), StreamStatus::kSuccess, current_->flags},
         GroupLimit());
  const BatchResult result = SendGathered(stop);
  resent_ = 0;
  lost_some_ = lost_some_ || result.failed != 0;
  next_packet_ += static_cast<std::uint32_t>(result.sent + result.failed);
  if (next_packet_ < current_->packets.Count()) return;

  Add(lost_some_ ? dropped_blocks_ : frames_, 1);
  if (observer_ && !lost_some_) observer_->FrameEnds(current_->packets.BlockId());
  KeepCurrent(gone);
}

void StreamTransmitter::KeepCurrent(Blocks& gone) {
  std::optional<CutBlock> evicted = store_.Keep(std::move(*current_));
  current_.reset();
  if (evicted) gone.push_back(std::move(evicted->block));
}

/// Requests that are answered to the same place go together.
void StreamTransmitter::StepResends(const std::atomic<bool>& stop) {
  const std::optional<Endpoint> destination = DestinationOf(serving_.front().request);
  StartBatch(destination);
  std::size_t room = ResendRoom();
  for (const Resend& resend : serving_) {
    if (room == 0 || DestinationOf(resend.request) != destination) break;
    room -= GatherResend(resend, room);
  }
  const BatchResult result = SendGathered(stop);
  resent_ += result.sent + result.failed;
  CountResent(result.sent + result.failed);
}

/// Packets that may be sent again with the next step.
std::size_t StreamTransmitter::ResendRoom() const noexcept {
  const std::size_t most = std::min(kMaxResends, GroupLimit());
  return Sending() ? std::min(most, GroupLimit() - std::min(resent_, GroupLimit())) : most;
}

/// Returns the packets gathered; none when the block is gone meanwhile.
std::size_t StreamTransmitter::GatherResend(const Resend& resend, std::size_t most) {
  if (resend.answer.IsRefusal()) return GatherRefusal(resend) ? 1 : 0;
  const CutBlock* const block = FindSent(resend.request.block_id);
  if (!block) return 0;
  const auto status = config_.extended_status ? StreamStatus::kResent : StreamStatus::kSuccess;
  return Gather(*block, {resend.answer.first, resend.answer.end, status, resend.answer.flags}, most);
}

/// \param done  packets, in the order in which they were gathered
void StreamTransmitter::CountResent(std::size_t done) noexcept {
  while (!serving_.empty()) {
    ResendAnswer& answer = serving_.front().answer;
    CutBlock* const block = answer.IsRefusal() ? nullptr : FindSent(serving_.front().request.block_id);
    const std::size_t left = answer.IsRefusal() ? 1 : block ? answer.end - answer.first : 0;
    const std::size_t here = std::min(done, left);
    if (block) {
      answer.first += static_cast<std::uint32_t>(here);
      block->resend_budget -= std::min<std::uint64_t>(block->resend_budget, here);
      Add(resent_packets_, here);
    }
    if (here < left) return;
    done -= here;
    serving_.erase(serving_.begin());
    ++finished_;
  }
}

void StreamTransmitter::DropCurrent(Blocks& gone) {
  if (!current_) return;
  Add(dropped_blocks_, 1);
  after_drop_ = true;
  // It takes its turn in the store, so that owners are told in the order of sending, but is not sent again.
  current_->resend_budget = 0;
  KeepCurrent(gone);
}

void StreamTransmitter::KeepAtMost(std::size_t count, Blocks& gone) {
  while (store_.Count() > count) gone.push_back(std::move(store_.TakeOldest()->block));
}

void StreamTransmitter::Forget(Blocks& gone) {
  KeepAtMost(0, gone);
  finished_ += serving_.size();
  serving_.clear();
  newest_block_ = 0;
  after_drop_ = false;
}

void StreamTransmitter::SendTestPacket(const Endpoint& destination, std::size_t packet_size) {
  if (packet_size <= kDatagramOverhead) return;
  std::vector<std::uint8_t> packet(packet_size - kDatagramOverhead);
  FillTestPacket(packet);
  batch_.Clear(1);
  batch_.SetDestination(destination);
  batch_.Begin(packet.size(), 1);
  batch_.Add(packet.data(), packet.size());
  socket_.SetDontFragment(true);
  SendBatch(socket_, batch_, std::atomic<bool>{false});
  socket_.SetDontFragment(config_.dont_fragment);
}

bool StreamTransmitter::UsesTrains() const noexcept {
  // Segments are never fragmented, so larger packets have to go alone.
  return driver_.load(std::memory_order_relaxed) == StreamDriver::Filter && !train_refused_ && !queue_full_ &&
         route_ && form_.packet_size <= route_->mtu;
}

void StreamTransmitter::StartBatch(const std::optional<Endpoint>& destination) noexcept {
  batch_.Clear(UsesTrains() ? Train::kMaxSegments : 1);
  headers_used_ = 0;
  ends_used_ = 0;
  if (destination) {
    batch_.SetDestination(*destination);
  } else if (explicit_peer_) {
    batch_.SetDestination(*explicit_peer_);
  } else {
    batch_.ClearDestination();
  }
}

std::size_t StreamTransmitter::GroupLimit() const noexcept {
  if (train_refused_) return 1;
  return std::min(kMaxGroup, pacing_->GroupPackets(form_.packet_size + kFrameOverhead));
}

/// Returns the packets that found room.
std::size_t StreamTransmitter::Gather(const CutBlock& block, const Range& range, std::size_t most) noexcept {
  const Packetiser& packets = block.packets;
  const PayloadLayout& payload = block.block.payload;
  const std::size_t header_size = packets.Form().HeaderSize();
  const std::size_t max_pieces = 1 + payload.MaxPieces(packets.Form().DataBytes());
  const DataHeader header = packets.DataHeaders(range.status, range.flags);
  const auto count = static_cast<std::uint32_t>(std::min<std::size_t>(range.end - range.first, most));
  for (std::uint32_t i = 0; i < count; ++i) {
    const std::uint32_t id = range.first + i;
    if (!packets.IsData(id)) {
      if (!GatherEnd(block, id, range)) return i;
      continue;
    }
    const Packetiser::Slice slice = packets.SliceOf(id);
    if (!batch_.Begin(header_size + slice.size, max_pieces)) return i;
    std::uint8_t* const at = headers_.data() + headers_used_;
    headers_used_ += header_size;
    header.Write(at, id);
    batch_.Add(at, header_size);
    payload.ForEachPiece(slice.offset, slice.size,
                         [this](const std::uint8_t* bytes, std::size_t size) { batch_.Add(bytes, size); });
  }
  return count;
}

/// False when there is no room.
bool StreamTransmitter::GatherEnd(const CutBlock& block, std::uint32_t id, const Range& range) noexcept {
  if (ends_used_ == ends_.size()) return false;
  auto& bytes = ends_[ends_used_];
  const std::size_t size = block.packets.EncodeEnd(id, range.status, range.flags, bytes);
  if (!batch_.Begin(size, 1)) return false;
  batch_.Add(bytes.data(), size);
  ++ends_used_;
  return true;
}

/// False when there is no room.
bool StreamTransmitter::GatherRefusal(const Resend& resend) noexcept {
  if (ends_used_ == ends_.size()) return false;
  StreamHeader header;
  header.status = resend.answer.status;
  header.format = StreamFormat::Payload;
  header.extended = form_.extended;
  header.block_id = resend.request.block_id;
  header.packet_id = resend.answer.first;
  ByteWriter out(ends_[ends_used_]);
  header.Encode(out);
  if (!batch_.Begin(out.Size(), 1)) return false;
  batch_.Add(ends_[ends_used_++].data(), out.Size());
  return true;
}

/// What could not be sent counts and takes its time like the rest.
BatchResult StreamTransmitter::SendNothing() const noexcept {
  BatchResult result;
  for (std::size_t i = 0; i < batch_.MessageCount(); ++i) {
    result.failed += batch_.TrainAt(i).segments;
    result.failed_bytes += batch_.TrainAt(i).bytes;
  }
  return result;
}

void StreamTransmitter::NoteState(const BatchResult& result) noexcept {
  if (!route_) {
    state_ = StreamState::NoRoute;
  } else if (!route_->up) {
    state_ = StreamState::NoLink;
  } else if (result.refused != 0) {
    state_ = StreamState::Refused;
  } else if (result.unreachable != 0) {
    state_ = StreamState::Unreachable;
  } else if (result.failed != 0) {
    state_ = StreamState::Failing;
  } else if (result.sent != 0) {
    state_ = StreamState::Open;
  }
}

BatchResult StreamTransmitter::SendGathered(const std::atomic<bool>& stop) noexcept {
  // Without carrier the system takes packets and drops them without a word.
  const bool dead = !route_ || !route_->up;
  const bool paced = pacing_ != &no_pacing_;
  const Instant begin = paced ? Now() : Instant();
  const BatchResult result = dead ? SendNothing() : SendBatch(socket_, batch_, stop);
  const std::size_t done = result.sent + result.failed;
  Add(packets_, result.sent);
  Add(bytes_, result.sent_bytes);
  Add(failed_sends_, result.failed);
  Add(unreachable_, result.unreachable);
  Add(queue_full_times_, result.queue_full);
  NoteState(result);
  queue_full_ = result.queue_full != 0;
  if (paced) {
    pacing_->Sent(begin, done,
                  result.sent_bytes + result.failed_bytes + done * (kDatagramOverhead + kFrameOverhead));
  }

  // A refusal may as well be the destination's fault: the train's first packet is tried alone, and trains are
  // given up when that works, until the way changes.
  if (result.train_refused) {
    train_refused_ = true;
  } else if (train_refused_ && done != 0) {
    if (result.sent != 0) driver_ = StreamDriver::Socket;
    train_refused_ = false;
  }
  return result;
}

}  // namespace Tarn
