#include "camera/device/stream_transmitter.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace Tarn {
namespace {

/// Trains show up uncut at packet sockets on loopback and virtual links, and some clients read through those;
/// on real hardware the card or the driver cuts them before anybody looks.
StreamDriver DriverFor(const StreamOptions& options) {
  const bool wanted = options.driver == StreamDriver::Filter ||
                      (options.driver == StreamDriver::Auto && options.hardware_interface);
  return wanted && SegmentationWorks(options.local_address) ? StreamDriver::Filter : StreamDriver::Socket;
}

}  // namespace

StreamTransmitter::StreamTransmitter(const StreamOptions& options)
    : socket_(options.local_address),
      interface_mtu_(options.interface_mtu),
      driver_(DriverFor(options)),
      observer_(options.observer),
      store_(options.resend_depth) {}

StreamCounters StreamTransmitter::Counters() const noexcept {
  return {frames_.load(),       packets_.load(),        bytes_.load(),      resent_packets_.load(),
          failed_sends_.load(), dropped_blocks_.load(), unreachable_.load()};
}

bool StreamTransmitter::CanSend(const PayloadLayout& payload, const StreamConfig& config) noexcept {
  const PacketForm form{config.packet_size, config.extended_ids};
  return Packetiser::Fits(payload.Size(), form) &&
         payload.MaxPieces(form.DataBytes()) < DatagramBatch::kMaxPieces;
}

void StreamTransmitter::Apply(const StreamConfig& config, Blocks& gone) {
  const PacketForm form{config.packet_size, config.extended_ids};
  if (form != form_) ForgetKept(gone);
  if (config.HasDestination() && config.destination != config_.destination) {
    explicit_peer_.reset();
    if (!socket_.SetPeer(config.destination)) explicit_peer_ = config.destination;
  }
  socket_.SetDontFragment(config.dont_fragment);
  pacer_.Configure(config.packet_delay, config.bytes_per_second);
  config_ = config;
  form_ = form;
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
}

void StreamTransmitter::Serve(const ResendRequest& request) {
  // Ids of the other width name no block of this stream.
  if (request.extended != form_.extended || request.first > request.last) return;
  const CutBlock* const block = FindSent(request.block_id);
  if (const std::uint16_t refusal = RefusalFor(request, block); refusal != StreamStatus::kSuccess) {
    // Without the newer codes a refusal means for good, and makes clients give the block up.
    const bool comes_anyhow = block && refusal == StreamStatus::kNotYetAvailable;
    if (config_.extended_status || !comes_anyhow) {
      Refuse(request, config_.extended_status ? refusal : StreamStatus::kUnavailable);
    }
    return;
  }
  const std::uint32_t trailer = block->packets.TrailerId();
  // The largest id is not beyond the block: it asks for all the rest.
  const bool beyond = request.last > trailer && request.last != std::numeric_limits<std::uint32_t>::max();
  serving_ = Resend{request.block_id, request.first, std::min(request.last, trailer) + 1,
                    beyond ? StreamHeader::kBeyondBlockFlag : std::uint16_t{0}, ResendDestination(request)};
}

/// Success when at least the first packet asked for can be sent again.
/// \param block  null when not kept
std::uint16_t StreamTransmitter::RefusalFor(const ResendRequest& request,
                                            const CutBlock* block) const noexcept {
  if (!block) return store_.RefusalFor(request.block_id, newest_block_, form_.extended);
  if (request.first > block->packets.TrailerId() || block->resend_budget == 0) return StreamStatus::kGone;
  return request.first < SentCount(*block) ? StreamStatus::kSuccess : StreamStatus::kNotYetAvailable;
}

std::optional<Endpoint> StreamTransmitter::ResendDestination(const ResendRequest& request) const noexcept {
  return config_.resend_to_requester ? std::optional(request.requester) : std::nullopt;
}

void StreamTransmitter::Refuse(const ResendRequest& request, std::uint16_t status) {
  StreamHeader header;
  header.status = status;
  header.format = StreamFormat::Payload;
  header.extended = form_.extended;
  header.block_id = request.block_id;
  header.packet_id = request.first;
  ByteWriter out(ends_[0]);
  header.Encode(out);

  StartBatch(ResendDestination(request));
  batch_.Begin(out.Size(), 1);
  batch_.Add(ends_[0].data(), out.Size());
  SendGathered(std::atomic<bool>{false});
}

CutBlock* StreamTransmitter::FindSent(std::uint64_t block_id) noexcept {
  if (current_ && current_->packets.BlockId() == block_id) return &*current_;
  return store_.Find(block_id);
}

std::uint32_t StreamTransmitter::SentCount(const CutBlock& block) const noexcept {
  const bool is_current = current_ && &block == &*current_;
  return is_current ? next_packet_ : block.packets.Count();
}

std::optional<Instant> StreamTransmitter::Due() const noexcept {
  if (pacer_.Unlimited()) return std::nullopt;
  return pacer_.Due();
}

void StreamTransmitter::Step(const std::atomic<bool>& stop, Blocks& gone) {
  const bool resend = serving_ && (!current_ || resend_turn_);
  resend_turn_ = !resend;
  if (resend) {
    StepResend(stop);
  } else {
    StepBlock(stop, gone);
  }
}

void StreamTransmitter::StepBlock(const std::atomic<bool>& stop, Blocks& gone) {
  if (observer_ && !std::exchange(start_told_, true)) observer_->FrameStarts(current_->packets.BlockId());
  StartBatch(std::nullopt);
  Gather(*current_, {next_packet_, current_->packets.Count(), StreamStatus::kSuccess, current_->flags});
  next_packet_ += static_cast<std::uint32_t>(SendGathered(stop));
  if (next_packet_ < current_->packets.Count()) return;

  Add(frames_, 1);
  if (observer_) observer_->FrameEnds(current_->packets.BlockId());
  KeepCurrent(gone);
}

void StreamTransmitter::KeepCurrent(Blocks& gone) {
  std::optional<CutBlock> evicted = store_.Keep(std::move(*current_));
  current_.reset();
  if (evicted) gone.push_back(std::move(evicted->block));
}

void StreamTransmitter::StepResend(const std::atomic<bool>& stop) {
  CutBlock* const block = FindSent(serving_->block_id);
  // What was not sent yet is on its way anyhow.
  const std::uint32_t end =
      block && block->resend_budget != 0 ? std::min(serving_->end, SentCount(*block)) : 0;
  if (serving_->next >= end) {
    serving_.reset();
    return;
  }
  StartBatch(serving_->destination);
  const auto status = config_.extended_status ? StreamStatus::kResent : StreamStatus::kSuccess;
  const auto flags = static_cast<std::uint16_t>(block->flags | serving_->flags | StreamHeader::kResendFlag);
  Gather(*block, {serving_->next, end, status, flags});
  const std::size_t sent = SendGathered(stop);
  Add(resent_packets_, sent);
  block->resend_budget -= std::min<std::uint64_t>(block->resend_budget, sent);
  serving_->next += static_cast<std::uint32_t>(sent);
}

void StreamTransmitter::DropCurrent(Blocks& gone) {
  if (!current_) return;
  Add(dropped_blocks_, 1);
  after_drop_ = true;
  // It takes its turn in the store, so that owners are told in the order of sending, but is not sent again.
  current_->resend_budget = 0;
  KeepCurrent(gone);
}

void StreamTransmitter::DropKept(Blocks& gone) {
  ForgetKept(gone);
  newest_block_ = 0;
  after_drop_ = false;
}

void StreamTransmitter::ForgetKept(Blocks& gone) {
  serving_.reset();
  while (std::optional<CutBlock> oldest = store_.TakeOldest()) gone.push_back(std::move(oldest->block));
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
  return driver_.load(std::memory_order_relaxed) == StreamDriver::Filter && !train_refused_ &&
         form_.packet_size <= interface_mtu_;
}

void StreamTransmitter::StartBatch(const std::optional<Endpoint>& destination) noexcept {
  batch_.Clear(UsesTrains() ? Train::kMaxSegments : 1);
  if (destination) {
    batch_.SetDestination(*destination);
  } else if (explicit_peer_) {
    batch_.SetDestination(*explicit_peer_);
  } else {
    batch_.ClearDestination();
  }
}

std::size_t StreamTransmitter::GroupLimit(const PacketForm& form) const noexcept {
  if (train_refused_) return 1;
  return pacer_.Unlimited() ? kMaxGroup : std::min(kMaxGroup, pacer_.GroupPackets(form.packet_size));
}

void StreamTransmitter::Gather(const CutBlock& block, const Range& range) noexcept {
  const Packetiser& packets = block.packets;
  const PayloadLayout& payload = block.block.payload;
  const std::size_t header_size = packets.Form().HeaderSize();
  const std::size_t max_pieces = 1 + payload.MaxPieces(packets.Form().DataBytes());
  const DataHeader header = packets.DataHeaders(range.status, range.flags);
  const auto count = std::min<std::size_t>(range.end - range.first, GroupLimit(packets.Form()));
  std::uint8_t* at = headers_.data();
  const std::uint32_t end = range.first + static_cast<std::uint32_t>(count);
  for (std::uint32_t id = range.first; id < end; ++id) {
    if (!packets.IsData(id)) {
      GatherEnd(block, id, range);
      continue;
    }
    const Packetiser::Slice slice = packets.SliceOf(id);
    if (!batch_.Begin(header_size + slice.size, max_pieces)) return;
    header.Write(at, id);
    batch_.Add(at, header_size);
    at += header_size;
    payload.ForEachPiece(slice.offset, slice.size,
                         [this](const std::uint8_t* bytes, std::size_t size) { batch_.Add(bytes, size); });
  }
}

void StreamTransmitter::GatherEnd(const CutBlock& block, std::uint32_t id, const Range& range) noexcept {
  auto& bytes = ends_[id == 0 ? 0 : 1];
  const std::size_t size = block.packets.EncodeEnd(id, range.status, range.flags, bytes);
  if (batch_.Begin(size, 1)) batch_.Add(bytes.data(), size);
}

/// Returns the packets that are done with.
std::size_t StreamTransmitter::SendGathered(const std::atomic<bool>& stop) noexcept {
  const BatchResult result = SendBatch(socket_, batch_, stop);
  const std::size_t done = result.sent + result.failed;
  Add(packets_, result.sent);
  Add(bytes_, result.sent_bytes);
  Add(failed_sends_, result.failed);
  Add(unreachable_, result.unreachable);
  if (!pacer_.Unlimited()) pacer_.Sent(Now(), done, result.sent_bytes + done * kDatagramOverhead);

  // A refusal may as well be the destination's fault: the train's first packet is tried alone, and trains are
  // given up for good when that works.
  if (result.train_refused) {
    train_refused_ = true;
  } else if (train_refused_ && done != 0) {
    if (result.sent != 0) driver_ = StreamDriver::Socket;
    train_refused_ = false;
  }
  return done;
}

}  // namespace Tarn
