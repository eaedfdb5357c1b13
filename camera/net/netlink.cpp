#include "camera/net/netlink.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <system_error>

#include <algorithm>
#include <cerrno>

namespace Tarn {
namespace {

// Source: Linux, the largest part of a dump that the kernel makes.
constexpr std::size_t kAnswerBytes = 32768;

[[noreturn]] void Fail(int error) {
  throw std::system_error(error, std::generic_category(), "cannot ask the kernel about the network");
}

constexpr std::size_t Aligned(std::size_t size) { return (size + 3) & ~std::size_t{3}; }

/// Hands over the messages of one datagram. Returns true when the answer is complete.
/// Throws: std::system_error.
bool ReadMessages(ByteView bytes, const std::function<void(ByteView)>& each) {
  bool complete = true;
  while (bytes.size() >= sizeof(nlmsghdr)) {
    const auto header = FrontOf<nlmsghdr>(bytes);
    if (header.nlmsg_len < sizeof header || header.nlmsg_len > bytes.size()) Fail(EBADMSG);
    const ByteView message = bytes.subspan(sizeof header, header.nlmsg_len - sizeof header);
    if (header.nlmsg_type == NLMSG_DONE) return true;
    if (header.nlmsg_type == NLMSG_ERROR) Fail(-FrontOf<nlmsgerr>(message).error);
    each(message);
    complete = (header.nlmsg_flags & NLM_F_MULTI) == 0;
    bytes = bytes.subspan(std::min(Aligned(header.nlmsg_len), bytes.size()));
  }
  return complete;
}

}  // namespace

std::optional<ByteView> NetlinkAttributes::Find(unsigned type) const noexcept {
  for (ByteView left = list_; left.size() >= sizeof(rtattr);) {
    const auto header = FrontOf<rtattr>(left);
    if (header.rta_len < sizeof header || header.rta_len > left.size()) break;
    if ((header.rta_type & NLA_TYPE_MASK) == type) return left.subspan(4, header.rta_len - sizeof header);
    left = left.subspan(std::min(Aligned(header.rta_len), left.size()));
  }
  return std::nullopt;
}

std::string NetlinkAttributes::Text(unsigned type) const {
  const ByteView content = Find(type).value_or(ByteView());
  return {content.begin(), std::ranges::find(content, 0)};
}

NetlinkRequest::NetlinkRequest(std::uint16_t type, unsigned flags) {
  nlmsghdr header{};
  header.nlmsg_type = type;
  header.nlmsg_flags = static_cast<std::uint16_t>(NLM_F_REQUEST | flags);
  Append(&header, sizeof header);
}

void NetlinkRequest::Add(std::uint16_t attribute, std::uint32_t value) {
  const rtattr header{sizeof header + sizeof value, attribute};
  Append(&header, sizeof header);
  Append(&value, sizeof value);
}

void NetlinkRequest::Append(const void* bytes, std::size_t size) {
  const std::size_t at = bytes_.size();
  bytes_.resize(at + Aligned(size));
  std::memcpy(&bytes_[at], bytes, size);
  const auto length = static_cast<std::uint32_t>(bytes_.size());
  std::memcpy(&bytes_[offsetof(nlmsghdr, nlmsg_len)], &length, sizeof length);
}

NetlinkSocket::NetlinkSocket(std::uint32_t groups)
    : fd_(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE)) {
  sockaddr_nl local{};
  local.nl_family = AF_NETLINK;
  local.nl_groups = groups;
  if (!fd_ || ::bind(fd_.Get(), reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0) Fail(errno);
}

void NetlinkSocket::Ask(const NetlinkRequest& request, const std::function<void(ByteView)>& each) {
  if (::send(fd_.Get(), request.Bytes().data(), request.Bytes().size(), 0) < 0) Fail(errno);
  std::vector<std::uint8_t> buffer(kAnswerBytes);
  // The kernel makes the answer, or its next part, before each of these calls returns: nothing to wait for.
  for (bool complete = false; !complete;) {
    const ssize_t size = ::recv(fd_.Get(), buffer.data(), buffer.size(), MSG_TRUNC);
    if (size < 0) Fail(errno);
    if (static_cast<std::size_t>(size) > buffer.size()) Fail(EMSGSIZE);
    complete = ReadMessages(ByteView(buffer).first(static_cast<std::size_t>(size)), each);
  }
}

}  // namespace Tarn
