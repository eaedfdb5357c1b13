#include "bench/bare_block.h"

#include <netinet/udp.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace Tarn {
namespace {

/// Room for a few trains, as the camera's socket has it.
constexpr int kSendBufferBytes = 1 << 20;

void SetOption(int fd, int level, int name, int value) {
  static_cast<void>(::setsockopt(fd, level, name, &value, sizeof value));
}

/// With the options of the camera's socket, but that it waits for room: a datagram that the kernel did not
/// take would have cost less than one that it did.
int StreamingSocket(const sockaddr_in& peer) {
  const int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
  SetOption(fd, SOL_SOCKET, SO_SNDBUF, kSendBufferBytes);
  SetOption(fd, SOL_SOCKET, SO_BROADCAST, 1);
  SetOption(fd, IPPROTO_IP, IP_MTU_DISCOVER, IP_PMTUDISC_DONT);
  ::connect(fd, reinterpret_cast<const sockaddr*>(&peer), sizeof peer);
  return fd;
}

}  // namespace

BareBlock::BareBlock(const std::vector<std::uint8_t>& image, std::size_t packet_size, bool trains,
                     const sockaddr_in& peer)
    : socket_(StreamingSocket(peer)), full_(packet_size - kDatagramOverhead - StreamHeader::kStandardSize) {
  const std::size_t most = image.size() / full_ + 3;  // with leader, trailer, and a shorter last packet
  headers_.resize(most * StreamHeader::kStandardSize);
  messages_.resize(most);
  trains_.resize(most);
  controls_.resize(most);
  pieces_.resize(2 * most);

  const std::size_t max_segments = trains ? Train::kMaxSegments : 1;
  const auto add = [&](MutableByteView header, const std::uint8_t* data, std::size_t size) {
    Begin(header.size() + size, max_segments);
    AddPiece(header.data(), header.size());
    if (size != 0) AddPiece(data, size);
    ++packets_;
  };
  ByteWriter leader(leader_);
  Header(StreamFormat::Leader).Encode(leader);
  ImageLeader{}.Encode(leader);
  add(leader_, nullptr, 0);
  for (std::size_t offset = 0; offset < image.size(); offset += full_) {
    const auto at = MutableByteView(headers_).subspan(packets_ * StreamHeader::kStandardSize,
                                                      StreamHeader::kStandardSize);
    ByteWriter header(at);
    Header(StreamFormat::Payload).Encode(header);
    add(at, &image[offset], std::min(full_, image.size() - offset));
  }
  ByteWriter trailer(trailer_);
  Header(StreamFormat::Trailer).Encode(trailer);
  ImageTrailer{}.Encode(trailer);
  add(trailer_, nullptr, 0);
  SealTrains();
}

BareBlock::~BareBlock() { ::close(socket_); }

StreamHeader BareBlock::Header(StreamFormat format) const {
  StreamHeader header;
  header.format = format;
  header.block_id = 1;
  header.packet_id = packets_;
  return header;
}

void BareBlock::Begin(std::size_t size, std::size_t max_segments) {
  if (message_count_ == 0 || !FitsTrain(trains_[message_count_ - 1], size, max_segments)) {
    messages_[message_count_].msg_hdr.msg_iov = &pieces_[piece_count_];
    trains_[message_count_++].first_size = size;
  }
  Train& train = trains_[message_count_ - 1];
  ++train.segments;
  train.bytes += size;
  train.last_size = size;
}

void BareBlock::AddPiece(const std::uint8_t* bytes, std::size_t size) {
  // The kernel only reads; the structure serves both directions.
  pieces_[piece_count_++] = {const_cast<std::uint8_t*>(bytes), size};
  ++messages_[message_count_ - 1].msg_hdr.msg_iovlen;
}

void BareBlock::SealTrains() {
  for (std::size_t i = 0; i < message_count_; ++i) {
    if (trains_[i].segments < 2) continue;
    msghdr& header = messages_[i].msg_hdr;
    header.msg_control = controls_[i].bytes.data();
    header.msg_controllen = controls_[i].bytes.size();
    cmsghdr* const control = CMSG_FIRSTHDR(&header);
    control->cmsg_level = SOL_UDP;
    control->cmsg_type = UDP_SEGMENT;
    control->cmsg_len = CMSG_LEN(sizeof(std::uint16_t));
    const auto size = static_cast<std::uint16_t>(trains_[i].first_size);
    std::memcpy(CMSG_DATA(control), &size, sizeof size);
  }
}

void BareBlock::Show(const std::vector<std::uint8_t>& image) noexcept {
  // The leader is one piece; each packet of data is two, its header and then its part of the image.
  for (std::size_t packet = 0; packet * full_ < image.size(); ++packet) {
    pieces_[2 * packet + 2].iov_base = const_cast<std::uint8_t*>(&image[packet * full_]);
  }
}

void BareBlock::Send() noexcept {
  for (std::size_t next = 0; next < message_count_;) {
    const std::size_t count = std::min(message_count_ - next, DatagramBatch::kMaxMessages);
    const int taken = ::sendmmsg(socket_, &messages_[next], static_cast<unsigned>(count), MSG_NOSIGNAL);
    next += taken > 0 ? static_cast<std::size_t>(taken) : 1;
  }
}

}  // namespace Tarn
