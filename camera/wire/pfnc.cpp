#include "camera/wire/pfnc.h"

#include <algorithm>
#include <array>

namespace Tarn {
namespace {

// Ordered by value as generated.
constexpr auto kByValue = std::to_array<PixelFormat>({
#define TARN_PFNC(value, name, components, family) {value, #name, components, PixelFamily::family},
#include "camera/wire/pfnc_names.inc"
#undef TARN_PFNC
});
static_assert(std::ranges::is_sorted(kByValue, {}, &PixelFormat::value));

constexpr auto kByName = [] {
  auto formats = kByValue;
  std::ranges::sort(formats, {}, &PixelFormat::name);
  return formats;
}();

template <class Table, class Key, class Column>
std::optional<PixelFormat> Find(const Table& table, const Key& key, Column column) {
  const auto found = std::ranges::lower_bound(table, key, {}, column);
  if (found == table.end() || (*found).*column != key) return std::nullopt;
  return *found;
}

}  // namespace

std::optional<PixelFormat> FindPixelFormat(std::uint32_t value) noexcept {
  return Find(kByValue, value, &PixelFormat::value);
}

std::optional<PixelFormat> FindPixelFormat(std::string_view name) noexcept {
  return Find(kByName, name, &PixelFormat::name);
}

}  // namespace Tarn
