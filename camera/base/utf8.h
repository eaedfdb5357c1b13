#pragma once

/// Characters of UTF-8, byte by byte.

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Tarn {

constexpr bool IsUtf8Continuation(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

/// What stands at the front of a text.
struct Utf8Character {
  enum class State { Whole, Cut, Invalid };
  State state;         ///< Cut: the text ends within a character that could still become a valid one
  std::size_t length;  ///< bytes of a whole character, 0 else
  char32_t code;       ///< of a whole character, 0 else
};

/// Requires: `text` is not empty. Source: Unicode, well-formed UTF-8 byte sequences.
constexpr Utf8Character FirstUtf8Character(std::string_view text) {
  constexpr Utf8Character kInvalid{Utf8Character::State::Invalid, 0, 0};
  const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
  const std::uint8_t lead = byte(0);
  if (lead < 0x80) return {Utf8Character::State::Whole, 1, lead};
  if (lead < 0xC2 || lead > 0xF4) return kInvalid;
  const std::size_t length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  char32_t code = lead & (0x7Fu >> length);
  for (std::size_t i = 1; i < length; ++i) {
    if (i == text.size()) return {Utf8Character::State::Cut, 0, 0};
    // The second byte tells whether the character is longer than it need be, a surrogate, or beyond Unicode.
    const std::uint8_t lowest = i > 1 ? 0x80 : lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    const std::uint8_t highest = i > 1 ? 0xBF : lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    if (byte(i) < lowest || byte(i) > highest) return kInvalid;
    code = code << 6 | (byte(i) & 0x3Fu);
  }
  return {Utf8Character::State::Whole, length, code};
}

/// The longest part of a text, from its beginning, that is made of whole characters.
constexpr std::string_view WholeUtf8(std::string_view text) {
  std::size_t end = 0;
  while (end < text.size()) {
    const Utf8Character next = FirstUtf8Character(text.substr(end));
    if (next.state != Utf8Character::State::Whole) break;
    end += next.length;
  }
  return text.substr(0, end);
}

}  // namespace Tarn
