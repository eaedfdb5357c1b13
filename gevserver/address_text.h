#pragma once

/// IPv4 addresses from text.

#include <cstdint>
#include <optional>
#include <string_view>

namespace Tarn::GevServer {

/// The address that starting a server by text binds to, host order. Checks nothing, callers rely on what it
/// makes of odd texts: read from the end, every character counts as its code minus '0', a fourth digit of a
/// group as units, and a group above 255 spills over. Use the number where a check is needed. Empty text: 0.
std::uint32_t LooseAddress(std::string_view text) noexcept;

/// The address of a well-formed text ("192.168.0.1": four decimal groups of one to three digits, each up to
/// 255).
std::optional<std::uint32_t> StrictAddress(std::string_view text) noexcept;

}  // namespace Tarn::GevServer
