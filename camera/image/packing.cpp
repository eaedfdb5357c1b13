#include "camera/image/packing.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "camera/base/engine_error.h"
#include "camera/wire/pfnc.h"

namespace Tarn {
namespace {

static_assert(std::endian::native == std::endian::little, "words hold the samples in the order of the wire");

using Samples = std::span<const std::uint8_t>;  // 16-bit words of any alignment

std::uint16_t SampleAt(Samples samples, std::size_t index) noexcept {
  std::uint16_t sample = 0;
  std::memcpy(&sample, samples.data() + 2 * index, 2);
  return sample;
}

/// How a format arranges the bits of a pixel.
struct Packing {
  enum class Order {
    kLowFirst,     ///< from the least significant bit on
    kPairs,        ///< high eight bits, low bits of two samples, high eight bits
    kLowTogether,  ///< low bits of three samples in a byte, then the high eight of each
  };
  Order order = Order::kLowFirst;
  std::array<unsigned, 4> bits{};  ///< of the samples of a pixel
  std::size_t samples = 0;         ///< of a pixel
  unsigned padding = 0;            ///< bits after each pixel

  bool IsUniform() const noexcept {
    const auto used = std::span(bits).first(samples);
    return padding == 0 && std::ranges::all_of(used, [&](unsigned own) { return own == bits.front(); });
  }
};

/// The digits of a name that stand before its end `suffix`. Empty when there are none.
std::optional<unsigned> DepthBefore(std::string_view name, std::string_view suffix) {
  const auto end = name.rfind(suffix);
  if (end == std::string_view::npos) return std::nullopt;
  const auto begin = name.find_last_not_of("0123456789", end - 1) + 1;
  if (begin == end) return std::nullopt;
  return static_cast<unsigned>(std::stoul(std::string(name.substr(begin, end - begin))));
}

Packing Uniform(Packing::Order order, unsigned depth, unsigned pixel_bits) {
  return {order, {depth, depth, depth, depth}, pixel_bits / depth, 0};
}

/// Source: PFNC 2.1, where the names say how the bits lie.
std::optional<Packing> PackingOf(const PixelFormat& format) {
  using enum Packing::Order;
  const std::string_view name = format.name;
  const unsigned pixel_bits = BitsPerPixel(format.value);
  if (name.ends_with("565p")) return Packing{kLowFirst, {5, 6, 5}, 3, 0};
  if (name.ends_with("10p32")) return Packing{kLowFirst, {10, 10, 10}, 3, 2};
  if (name.ends_with("10V1Packed")) return Packing{kLowTogether, {10, 10, 10}, 3, 2};
  if (name.ends_with("12V1Packed")) return Uniform(kPairs, 12, pixel_bits);
  // A pair of samples takes 24 bits here, however many of them count.
  if (const auto depth = DepthBefore(name, "Packed")) return Packing{kPairs, {*depth}, 1, 0};
  if (format.IsPlanar()) return std::nullopt;
  const auto end = std::min(name.find("p_"), name.size() - 1);
  if (name[end] != 'p') return std::nullopt;
  if (const auto depth = DepthBefore(name.substr(0, end + 1), "p"))
    return Uniform(kLowFirst, *depth, pixel_bits);
  return std::nullopt;
}

/// Writes bits from the least significant one on.
class BitWriter {
 public:
  explicit BitWriter(std::uint8_t* out) : out_(out) {}

  void Put(std::uint64_t value, unsigned bits) noexcept {
    pending_ |= (value & ((std::uint64_t{1} << bits) - 1)) << count_;
    count_ += bits;
    for (; count_ >= 8; count_ -= 8, pending_ >>= 8) *out_++ = static_cast<std::uint8_t>(pending_);
  }

  /// The last byte, when it is not full.
  void Flush() noexcept {
    if (count_ > 0) *out_ = static_cast<std::uint8_t>(pending_);
  }

 private:
  std::uint8_t* out_;
  std::uint64_t pending_ = 0;
  unsigned count_ = 0;
};

/// Four samples at a time, side by side in a word: most of what cameras send.
/// Requires: a multiple of four samples.
template <unsigned kDepth>
void PackFours(Samples samples, std::uint8_t* out) noexcept {
  constexpr std::uint64_t kMask = ((std::uint64_t{1} << kDepth) - 1) * 0x0001'0001'0001'0001;
  for (std::size_t at = 0; at < samples.size(); at += 8, out += kDepth / 2) {
    std::uint64_t four = 0;
    std::memcpy(&four, samples.data() + at, 8);
    four &= kMask;
    const std::uint64_t pairs =
        (four & 0x0000'FFFF'0000'FFFF) | (four & 0xFFFF'0000'FFFF'0000) >> (16 - kDepth);
    const std::uint64_t packed = (pairs & 0xFFFF'FFFF) | (pairs >> 32) << (2 * kDepth);
    std::memcpy(out, &packed, kDepth / 2);
  }
}

void PackLowFirst(const Packing& packing, Samples samples, std::uint8_t* out) {
  if (packing.IsUniform() && samples.size() % 8 == 0) {
    switch (packing.bits.front()) {
      case 10:
        return PackFours<10>(samples, out);
      case 12:
        return PackFours<12>(samples, out);
      case 14:
        return PackFours<14>(samples, out);
      default:
        break;
    }
  }
  BitWriter writer(out);
  for (std::size_t i = 0; i < samples.size() / 2; ++i) {
    const std::size_t place = i % packing.samples;
    writer.Put(SampleAt(samples, i), packing.bits[place]);
    if (packing.padding > 0 && place + 1 == packing.samples) writer.Put(0, packing.padding);
  }
  writer.Flush();
}

void PackPairs(unsigned depth, Samples samples, std::uint8_t* out) noexcept {
  const unsigned low_bits = depth - 8;
  const unsigned low = (1U << low_bits) - 1;
  const std::size_t count = samples.size() / 2;
  for (std::size_t i = 0; i + 1 < count; i += 2) {
    const unsigned first = SampleAt(samples, i);
    const unsigned second = SampleAt(samples, i + 1);
    *out++ = static_cast<std::uint8_t>(first >> low_bits);
    *out++ = static_cast<std::uint8_t>((first & low) | (second & low) << 4);
    *out++ = static_cast<std::uint8_t>(second >> low_bits);
  }
  if (count % 2 == 1) {
    const unsigned last = SampleAt(samples, count - 1);
    *out++ = static_cast<std::uint8_t>(last >> low_bits);
    *out = static_cast<std::uint8_t>(last & low);
  }
}

void PackLowTogether(Samples samples, std::uint8_t* out) noexcept {
  for (std::size_t i = 0; i < samples.size() / 2; i += 3) {
    std::uint8_t& low = *out++;
    for (unsigned place = 0; place < 3; ++place) {
      const unsigned sample = SampleAt(samples, i + place);
      low = static_cast<std::uint8_t>(low | (sample & 3) << 2 * place);
      *out++ = static_cast<std::uint8_t>(sample >> 2);
    }
  }
}

void Pack(const Packing& packing, Samples samples, std::uint8_t* out) {
  switch (packing.order) {
    case Packing::Order::kLowFirst:
      return PackLowFirst(packing, samples, out);
    case Packing::Order::kPairs:
      return PackPairs(packing.bits.front(), samples, out);
    case Packing::Order::kLowTogether:
      return PackLowTogether(samples, out);
  }
}

/// Whether the samples of a line lie side by side as 16-bit words, in the order of the wire.
bool HasWireLines(const ImageBuffer& image) noexcept {
  const auto& planes = image.Planes();
  const auto step = static_cast<std::ptrdiff_t>(2 * planes.size());
  for (std::size_t p = 0; p < planes.size(); ++p) {
    if (SampleBytes(planes[p].data_type) != 2 || planes[p].x_increment != step) return false;
    if (planes[p].y_increment != planes[0].y_increment || planes[p].base != planes[0].base + 2 * p)
      return false;
  }
  return true;
}

/// The samples of line `y` as words in the order of the wire.
void GatherLine(const ImageBuffer& image, std::int64_t y, std::uint16_t* line) noexcept {
  const std::size_t step = image.Planes().size();
  for (std::size_t p = 0; p < step; ++p) {
    const ImagePlane& plane = image.Planes()[p];
    const std::uint8_t* sample = plane.base + y * plane.y_increment;
    const bool words = SampleBytes(plane.data_type) == 2;
    for (std::size_t i = p; i < step * static_cast<std::size_t>(image.Width()); i += step) {
      std::uint16_t value = *sample;
      if (words) std::memcpy(&value, sample, 2);
      line[i] = value;
      sample += plane.x_increment;
    }
  }
}

/// Calls `take(y, samples)` for the lines from the first to the last.
template <class Take>
void ForEachLine(const ImageBuffer& image, Take take) {
  const std::size_t samples = static_cast<std::size_t>(image.Width()) * image.Planes().size();
  const bool in_place = HasWireLines(image);
  std::vector<std::uint16_t> line(in_place ? 0 : samples);
  for (std::int64_t y = 0; y < image.Height(); ++y) {
    const std::uint8_t* first = image.Planes().front().base + y * image.Planes().front().y_increment;
    if (!in_place) {
      GatherLine(image, y, line.data());
      first = reinterpret_cast<const std::uint8_t*>(line.data());
    }
    take(y, Samples(first, 2 * samples));
  }
}

[[noreturn]] void Refuse(const std::string& text) { throw EngineError(Failure::kInvalidArgument, text); }

/// Throws: EngineError when the image does not have the samples that the format packs.
void RequireSamples(const ImageBuffer& image, const PixelFormat& format, const Packing& packing) {
  const std::string name(format.name);
  if (image.Planes().size() != packing.samples) {
    Refuse("a pixel of " + name + " is made from " + std::to_string(packing.samples) +
           " samples, the image has " + std::to_string(image.Planes().size()) + " planes");
  }
  constexpr std::uint32_t kUnsignedOfAnyDepth = 0xFF;
  for (const ImagePlane& plane : image.Planes()) {
    if (SampleBytes(plane.data_type) > 2 || (plane.data_type & ~kUnsignedOfAnyDepth) != 0)
      Refuse(name + " is packed from unsigned integers of 8 or 16 bits");
  }
}

}  // namespace

std::unique_ptr<ImageBuffer> PackImage(const ImageBuffer& image, std::uint32_t pixel_format) {
  constexpr std::uint32_t kByte = 8;  // data type: unsigned, eight bits
  const auto format = FindPixelFormat(pixel_format);
  const auto packing = format ? PackingOf(*format) : std::nullopt;
  if (!packing) Refuse((format ? std::string(format->name) : "this number") + " is no packed pixel format");
  RequireSamples(image, *format, *packing);

  const std::int64_t line_bits = image.Width() * BitsPerPixel(pixel_format);
  if (line_bits % 8 == 0) {
    auto packed = ImageBuffer::CreateFilled(line_bits / 8, image.Height(), 1, kByte);
    const ImagePlane& plane = packed->Planes().front();
    ForEachLine(image, [&](std::int64_t y, Samples line) {
      Pack(*packing, line, plane.base + y * plane.y_increment);
    });
    return packed;
  }
  std::vector<std::uint8_t> all;
  ForEachLine(image, [&](std::int64_t, Samples line) { all.insert(all.end(), line.begin(), line.end()); });
  auto packed = ImageBuffer::CreateFilled((line_bits * image.Height() + 7) / 8, 1, 1, kByte);
  Pack(*packing, all, packed->Planes().front().base);
  return packed;
}

}  // namespace Tarn
