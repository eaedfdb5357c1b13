#include "core/wide_text.h"

#include <cstdint>
#include <stdexcept>

namespace Tarn {

namespace {

void Append(std::string& out, std::uint32_t code) {
  const auto put = [&out](std::uint32_t byte) { out += static_cast<char>(static_cast<unsigned char>(byte)); };
  const auto put_rest = [&](int shift) { put(0x80 | (code >> shift & 0x3F)); };
  if (code < 0x80) {
    put(code);
  } else if (code < 0x800) {
    put(0xC0 | code >> 6);
    put_rest(0);
  } else if (code < 0x10000) {
    put(0xE0 | code >> 12);
    put_rest(6);
    put_rest(0);
  } else {
    put(0xF0 | code >> 18);
    put_rest(12);
    put_rest(6);
    put_rest(0);
  }
}

bool IsCharacter(std::uint32_t code) { return code < 0xD800 || (code > 0xDFFF && code <= 0x10FFFF); }

}  // namespace

std::string Utf8FromWide(std::wstring_view text) {
  static_assert(sizeof(wchar_t) == 4);
  std::string out;
  out.reserve(text.size());
  for (const wchar_t wide : text) {
    const auto code = static_cast<std::uint32_t>(wide);
    if (!IsCharacter(code)) throw std::range_error("wstring_convert::to_bytes");
    Append(out, code);
  }
  return out;
}

}  // namespace Tarn
