#include "gevserver/address_text.h"

#include <charconv>

namespace Tarn::GevServer {

std::uint32_t LooseAddress(std::string_view text) noexcept {
  const auto digit = [text](std::size_t at) {
    return static_cast<std::uint32_t>(text[at]) - std::uint32_t{'0'};
  };
  std::uint32_t sum = 0;
  std::uint32_t weight = 1;
  int position = 0;
  for (std::size_t at = text.size(); at-- > 0;) {
    if (text[at] == '.') {
      weight <<= 8;
      position = 1;
      // The character in front of the dot is the units digit, whatever it is.
      if (at > 0) sum += digit(--at) * weight;
      continue;
    }
    sum += digit(at) * weight * (position == 1 ? 10U : position == 2 ? 100U : 1U);
    ++position;
  }
  return sum;
}

std::optional<std::uint32_t> StrictAddress(std::string_view text) noexcept {
  constexpr std::ptrdiff_t kMaxDigits = 3;
  const char* at = text.data();
  const char* const end = at + text.size();
  std::uint32_t address = 0;
  for (int group = 0; group < 4; ++group) {
    if (group > 0) {
      if (at == end || *at != '.') return std::nullopt;
      ++at;
    }
    std::uint8_t value = 0;
    const auto [next, failure] = std::from_chars(at, end, value);
    if (failure != std::errc() || next - at > kMaxDigits) return std::nullopt;
    address = address << 8 | value;
    at = next;
  }
  return at == end ? std::optional(address) : std::nullopt;
}

}  // namespace Tarn::GevServer
