#include "camera/engine/nodes/number_text.h"

#include <array>
#include <charconv>
#include <cmath>
#include <string_view>

#include "camera/base/engine_error.h"

namespace Tarn {
namespace {

/// Without the sign that std::from_chars does not take.
std::string_view WithoutPlus(std::string_view digits) {
  return digits.starts_with('+') && !digits.starts_with("+-") ? digits.substr(1) : digits;
}

std::string_view Trim(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t\r\n");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

template <class Number, class... Format>
Number Parse(std::string_view digits, const std::string& text, const std::string& what, Format... format) {
  Number number{};
  const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), number, format...);
  if (result.ec == std::errc::result_out_of_range) {
    throw EngineError(Failure::kOverflow, what + ": '" + text + "' does not fit 64 bits");
  }
  if (result.ec != std::errc() || result.ptr != digits.data() + digits.size()) {
    throw EngineError(Failure::kText, what + ": '" + text + "' is no number");
  }
  return number;
}

}  // namespace

std::string FloatText(double value) {
  if (std::isnan(value)) return "NaN";
  if (std::isinf(value)) return value > 0 ? "INF" : "-INF";
  std::array<char, 32> buffer{};
  const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value);
  return {buffer.data(), result.ptr};
}

std::int64_t ParseInteger(const std::string& text, const std::string& what) {
  const std::string_view digits = Trim(text);
  if (digits.starts_with("0x") || digits.starts_with("0X")) {
    return static_cast<std::int64_t>(Parse<std::uint64_t>(digits.substr(2), text, what, 16));
  }
  return Parse<std::int64_t>(WithoutPlus(digits), text, what);
}

double ParseFloat(const std::string& text, const std::string& what) {
  return Parse<double>(WithoutPlus(Trim(text)), text, what);
}

}  // namespace Tarn
