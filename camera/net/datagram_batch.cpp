#include "camera/net/datagram_batch.h"

#include <netinet/udp.h>

#include <cstring>

#include "camera/net/socket_address.h"

namespace Tarn {

void DatagramBatch::SetDestination(const Endpoint& destination) noexcept {
  destination_ = ToSocketAddress(destination);
  has_destination_ = true;
}

void DatagramBatch::StartMessage() noexcept {
  mmsghdr& message = messages_[message_count_];
  message = {};
  message.msg_hdr.msg_iov = &pieces_[piece_count_];
  if (has_destination_) {
    message.msg_hdr.msg_name = &destination_;
    message.msg_hdr.msg_namelen = sizeof destination_;
  }
  trains_[message_count_] = {};
  ++message_count_;
}

mmsghdr* DatagramBatch::Seal() noexcept {
  for (std::size_t i = 0; i < message_count_; ++i) {
    if (trains_[i].segments < 2) continue;
    msghdr& header = messages_[i].msg_hdr;
    header.msg_control = controls_[i].bytes.data();
    header.msg_controllen = controls_[i].bytes.size();
    cmsghdr* control = CMSG_FIRSTHDR(&header);
    control->cmsg_level = SOL_UDP;
    control->cmsg_type = UDP_SEGMENT;
    control->cmsg_len = CMSG_LEN(sizeof(std::uint16_t));
    const auto size = static_cast<std::uint16_t>(trains_[i].first_size);
    std::memcpy(CMSG_DATA(control), &size, sizeof size);
  }
  return messages_.data();
}

}  // namespace Tarn
