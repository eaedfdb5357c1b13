#pragma once

/// Packets in tests, written as the standard's tables show them.

#include <cstdint>
#include <string>
#include <vector>

namespace Tarn {

/// Bytes from hexadecimal text; spaces are for the reader.
inline std::vector<std::uint8_t> Hex(const std::string& text) {
  std::vector<std::uint8_t> bytes;
  std::string digits;
  for (const char c : text) {
    if (c == ' ') continue;
    digits += c;
    if (digits.size() == 2) {
      bytes.push_back(static_cast<std::uint8_t>(std::stoul(digits, nullptr, 16)));
      digits.clear();
    }
  }
  return bytes;
}

}  // namespace Tarn
