#include "camera/engine/stream/gather.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <tuple>
#include <type_traits>
#include <utility>

namespace Tarn {
namespace {

/// Bytes from an element to its neighbours.
struct Steps {
  std::ptrdiff_t x;  ///< to the next one of the line
  std::ptrdiff_t y;  ///< to the same one of the next line
};

/// A rectangle of elements.
struct Area {
  std::size_t x;
  std::size_t y;
  std::size_t width;
  std::size_t height;
};

/// Elements of an image, samples or whole pixels: where they lie and where they go to.
struct Grid {
  const std::uint8_t* from;
  Steps from_steps;
  std::uint8_t* to;
  Steps to_steps;
  std::size_t width;
  std::size_t height;

  Grid Part(const Area& area) const noexcept {
    const auto offset = [&area](const Steps& steps) {
      return static_cast<std::ptrdiff_t>(area.x) * steps.x + static_cast<std::ptrdiff_t>(area.y) * steps.y;
    };
    return {from + offset(from_steps), from_steps, to + offset(to_steps), to_steps, area.width, area.height};
  }

  /// True when the elements of a column are nearer to each other than those of a line.
  bool IsTurned() const noexcept { return height > 1 && std::abs(from_steps.y) < std::abs(from_steps.x); }
};

/// Calls take(const Area&) for each tile of a rectangle, column by column; those at the far sides may be
/// smaller.
void ForEachArea(std::size_t width, std::size_t height, const Area& tile, auto&& take) noexcept {
  for (std::size_t x = 0; x < width; x += tile.width) {
    for (std::size_t y = 0; y < height; y += tile.height) {
      take(Area{x, y, std::min(tile.width, width - x), std::min(tile.height, height - y)});
    }
  }
}

/// The same with squares of a grid, for take(const Grid&).
void ForEachSquare(const Grid& grid, std::size_t side, auto&& take) noexcept {
  ForEachArea(grid.width, grid.height, {0, 0, side, side}, [&](const Area& area) { take(grid.Part(area)); });
}

// ---- Line by line ----

/// A distance that the compiler knows, so that it finds vector instructions for a loop.
template <std::ptrdiff_t kBytes>
using Known = std::integral_constant<std::ptrdiff_t, kBytes>;

template <std::size_t kBytes>
void CopyLine(const std::uint8_t* __restrict from, auto from_step, std::uint8_t* __restrict to, auto to_step,
              std::size_t count) noexcept {
  // Bytes at distances that no vector instruction knows are copied twice as fast.
#pragma GCC unroll 4
  for (std::size_t i = 0; i < count; ++i, from += from_step, to += to_step) std::memcpy(to, from, kBytes);
}

/// Bytes have no vector instruction that turns their order round.
template <>
void CopyLine<1>(const std::uint8_t* __restrict from, Known<-1>, std::uint8_t* __restrict to, Known<1>,
                 std::size_t count) noexcept {
  std::uint64_t eight;
  for (; count >= sizeof eight; count -= sizeof eight, from -= sizeof eight, to += sizeof eight) {
    std::memcpy(&eight, from - (sizeof eight - 1), sizeof eight);
    eight = __builtin_bswap64(eight);
    std::memcpy(to, &eight, sizeof eight);
  }
  for (; count != 0; --count) *to++ = *from--;
}

template <std::size_t kBytes>
void CopyLines(const Grid& grid, auto from_step, auto to_step) noexcept {
  for (std::size_t y = 0; y < grid.height; ++y) {
    const Grid line = grid.Part({0, y, grid.width, 1});
    CopyLine<kBytes>(line.from, from_step, line.to, to_step, line.width);
  }
}

/// The distances with a loop of their own are those of dense lines, of every second and every fourth element,
/// and of mirrored lines.
template <std::size_t kBytes>
void CopyRows(const Grid& grid) noexcept {
  constexpr auto kStep = static_cast<std::ptrdiff_t>(kBytes);
  if (grid.to_steps.x != kStep) return CopyLines<kBytes>(grid, grid.from_steps.x, grid.to_steps.x);
  switch (grid.from_steps.x) {
    case kStep:
      return CopyLines<kBytes>(grid, Known<kStep>(), Known<kStep>());
    case 2 * kStep:
      return CopyLines<kBytes>(grid, Known<2 * kStep>(), Known<kStep>());
    case 4 * kStep:
      return CopyLines<kBytes>(grid, Known<4 * kStep>(), Known<kStep>());
    case -kStep:
      return CopyLines<kBytes>(grid, Known<-kStep>(), Known<kStep>());
    default:
      return CopyLines<kBytes>(grid, grid.from_steps.x, Known<kStep>());
  }
}

// ---- Column by column ----

constexpr std::size_t kVectorBytes = 16;
constexpr std::size_t kCacheLineBytes = 64;

template <class T>
struct Lanes {
  static constexpr std::size_t kCount = kVectorBytes / sizeof(T);
  using Vector [[gnu::vector_size(kVectorBytes)]] = T;
  using Indices = std::make_index_sequence<kCount>;
};

template <std::size_t kFirst, class Vector, std::size_t... kLane>
Vector ZipLanes(Vector a, Vector b, std::index_sequence<kLane...>) noexcept {
  return __builtin_shufflevector(a, b, (kFirst + kLane / 2 + kLane % 2 * sizeof...(kLane))...);
}

/// The elements of `a` and `b` from lane kFirst on, by turns.
template <class T, std::size_t kFirst>
typename Lanes<T>::Vector Zip(typename Lanes<T>::Vector a, typename Lanes<T>::Vector b) noexcept {
  return ZipLanes<kFirst>(a, b, typename Lanes<T>::Indices());
}

/// A square whose columns and, in the target, lines are vectors.
template <class T>
void Transpose(const Grid& grid) noexcept {
  constexpr std::size_t kSide = Lanes<T>::kCount;
  using Square = typename Lanes<T>::Vector[kSide];
  Square columns;
  for (std::size_t x = 0; x < kSide; ++x) {
    std::memcpy(&columns[x], grid.Part({x, 0, 1, kSide}).from, kVectorBytes);
  }
  // Each round moves one bit of an element's place from the number of its vector to that of its lane.
  for (std::size_t round = 1; round < kSide; round *= 2) {
    Square mixed;
    for (std::size_t i = 0; i < kSide / 2; ++i) {
      mixed[2 * i] = Zip<T, 0>(columns[i], columns[i + kSide / 2]);
      mixed[2 * i + 1] = Zip<T, kSide / 2>(columns[i], columns[i + kSide / 2]);
    }
    std::memcpy(columns, mixed, sizeof columns);
  }
  for (std::size_t y = 0; y < kSide; ++y) {
    std::memcpy(grid.Part({0, y, kSide, 1}).to, &columns[y], kVectorBytes);
  }
}

/// By squares, as far as they fit.
template <class T>
void CopySquares(const Grid& grid) noexcept {
  constexpr std::size_t kSide = Lanes<T>::kCount;
  ForEachSquare(grid, kSide, [](const Grid& part) {
    const bool whole = part.width == kSide && part.height == kSide;
    return whole ? Transpose<T>(part) : CopyRows<sizeof(T)>(part);
  });
}

/// The same elements with the lines in the other order.
Grid UpsideDown(const Grid& grid) noexcept {
  Grid turned = grid.Part({0, grid.height - 1, grid.width, grid.height});
  turned.from_steps.y = -grid.from_steps.y;
  turned.to_steps.y = -grid.to_steps.y;
  return turned;
}

/// In squares as wide and high as a cache line, so that all of it is used while it is at hand, both where it is
/// read and where it is written.
template <std::size_t kBytes>
void CopyColumns(const Grid& grid) noexcept {
  constexpr auto kStep = static_cast<std::ptrdiff_t>(kBytes);
  constexpr std::size_t kSide = kCacheLineBytes / kBytes;
  if constexpr (kBytes == 1 || kBytes == 2 || kBytes == 4) {
    using Unsigned = std::tuple<std::uint8_t, std::uint16_t, std::uint32_t>;
    using Element = std::tuple_element_t<kBytes / 2, Unsigned>;
    if (grid.from_steps.y == -kStep) return CopyColumns<kBytes>(UpsideDown(grid));
    if (grid.from_steps.y == kStep && grid.to_steps.x == kStep) {
      return ForEachSquare(grid, kSide, CopySquares<Element>);
    }
  }
  ForEachSquare(grid, kSide, CopyRows<kBytes>);
}

// ---- Elements of any size ----

template <std::size_t kBytes>
void CopyElements(const Grid& grid) noexcept {
  return grid.IsTurned() ? CopyColumns<kBytes>(grid) : CopyRows<kBytes>(grid);
}

using CopyFunction = void (*)(const Grid&) noexcept;

/// For samples, and for pixels of up to four samples side by side. Null for other sizes.
CopyFunction CopyFunctionFor(std::size_t element_bytes) noexcept {
  switch (element_bytes) {
    case 1:
      return &CopyElements<1>;
    case 2:
      return &CopyElements<2>;
    case 3:
      return &CopyElements<3>;
    case 4:
      return &CopyElements<4>;
    case 6:
      return &CopyElements<6>;
    case 8:
      return &CopyElements<8>;
    case 12:
      return &CopyElements<12>;
    case 16:
      return &CopyElements<16>;
    default:
      return nullptr;
  }
}

/// The samples of a plane on their way into `out`.
Grid GridOf(const ImageMemory& image, std::size_t plane, SampleOrder order, std::uint8_t* out) noexcept {
  const bool planar = order == SampleOrder::kPlanar;
  const std::size_t step = planar ? image.sample_bytes : image.PixelBytes();
  const std::size_t line = image.width * step;
  const PlaneMemory& memory = image.planes[plane];
  return {memory.base,
          {memory.x_increment, memory.y_increment},
          out + plane * (planar ? line * image.height : image.sample_bytes),
          {static_cast<std::ptrdiff_t>(step), static_cast<std::ptrdiff_t>(line)},
          image.width,
          image.height};
}

// ---- Planes that are interleaved ----

/// A line of each plane, with samples side by side.
template <std::size_t kPlanes>
using Lines = std::array<const std::uint8_t*, kPlanes>;

using ByteLanes = Lanes<std::uint8_t>::Vector;
using WordLanes = Lanes<std::uint16_t>::Vector;
using PairLanes = Lanes<std::uint64_t>::Vector;

/// Writes the first three bytes of each group of four, and two bytes of rubbish behind them.
void PutTriples(WordLanes groups, std::uint8_t* to) noexcept {
  const auto pairs = reinterpret_cast<PairLanes>(groups);
  const PairLanes sixes = (pairs & 0xFF'FFFF) | (pairs >> 8 & 0xFFFF'FF00'0000);
  const std::uint64_t low = sixes[0];
  const std::uint64_t high = sixes[1];
  std::memcpy(to, &low, sizeof low);
  std::memcpy(to + 6, &high, sizeof high);
}

/// Eight pixels, of the samples from kFirst on.
template <std::size_t kFirst>
void PutEightPixels(ByteLanes a, ByteLanes b, ByteLanes c, std::uint8_t* to) noexcept {
  const auto ab = reinterpret_cast<WordLanes>(Zip<std::uint8_t, kFirst>(a, b));
  const auto c0 = reinterpret_cast<WordLanes>(Zip<std::uint8_t, kFirst>(c, ByteLanes{}));
  PutTriples(Zip<std::uint16_t, 0>(ab, c0), to);
  PutTriples(Zip<std::uint16_t, 4>(ab, c0), to + 12);
}

ByteLanes Load(const std::uint8_t* from) noexcept {
  ByteLanes bytes;
  std::memcpy(&bytes, from, sizeof bytes);
  return bytes;
}

/// Returns how many pixels it wrote: those in whole vectors, without any that rubbish behind them would leave
/// the line.
std::size_t InterleaveTriples(const Lines<3>& from, std::size_t width, std::uint8_t* to) noexcept {
  std::size_t x = 0;
  for (; x + kVectorBytes < width; x += kVectorBytes, to += 3 * kVectorBytes) {
    const ByteLanes a = Load(from[0] + x), b = Load(from[1] + x), c = Load(from[2] + x);
    PutEightPixels<0>(a, b, c, to);
    PutEightPixels<8>(a, b, c, to + 24);
  }
  return x;
}

template <std::size_t kBytes, std::size_t kPlanes>
void InterleaveLines(const Lines<kPlanes>& from, std::size_t width, std::uint8_t* line) noexcept {
  std::size_t x = 0;
  if constexpr (kBytes == 1 && kPlanes == 3) x = InterleaveTriples(from, width, line);
  std::uint8_t* __restrict to = line + x * kPlanes * kBytes;
  for (; x < width; ++x) {
    for (std::size_t p = 0; p < kPlanes; ++p, to += kBytes) std::memcpy(to, from[p] + x * kBytes, kBytes);
  }
}

/// Of one plane: stays with those of the others in the cache that is nearest.
using Scratch = std::array<std::uint8_t, 4096>;

/// The same elements with samples of a line side by side: where they lie, or copied to `scratch`.
template <std::size_t kBytes>
Grid WithDenseLines(Grid grid, Scratch& scratch) noexcept {
  constexpr auto kStep = static_cast<std::ptrdiff_t>(kBytes);
  if (grid.from_steps.x == kStep) return grid;
  const Steps steps{kStep, static_cast<std::ptrdiff_t>(grid.width) * kStep};
  CopyElements<kBytes>({grid.from, grid.from_steps, scratch.data(), steps, grid.width, grid.height});
  grid.from = scratch.data();
  grid.from_steps = steps;
  return grid;
}

template <std::size_t kBytes, std::size_t kPlanes>
void InterleaveArea(const std::array<Grid, kPlanes>& planes, const Area& area) noexcept {
  std::array<Scratch, kPlanes> scratch;
  std::array<Grid, kPlanes> dense;
  for (std::size_t p = 0; p < kPlanes; ++p) {
    dense[p] = WithDenseLines<kBytes>(planes[p].Part(area), scratch[p]);
  }
  for (std::size_t y = 0; y < area.height; ++y) {
    const Area line{0, y, area.width, 1};
    Lines<kPlanes> from;
    for (std::size_t p = 0; p < kPlanes; ++p) from[p] = dense[p].Part(line).from;
    InterleaveLines<kBytes, kPlanes>(from, area.width, dense[0].Part(line).to);
  }
}

template <std::size_t kBytes, std::size_t kPlanes>
void InterleavePlanes(const ImageMemory& image, std::uint8_t* out) noexcept {
  std::array<Grid, kPlanes> planes;
  for (std::size_t p = 0; p < kPlanes; ++p) planes[p] = GridOf(image, p, SampleOrder::kInterleaved, out);
  const std::size_t height = planes[0].IsTurned() ? kCacheLineBytes / kBytes : 1;
  const Area tile{0, 0, sizeof(Scratch) / kBytes / height, height};
  ForEachArea(image.width, image.height, tile,
              [&](const Area& area) { InterleaveArea<kBytes, kPlanes>(planes, area); });
}

using InterleaveFunction = void (*)(const ImageMemory&, std::uint8_t*) noexcept;

/// By the logarithm of the bytes of a sample.
template <std::size_t kPlanes>
constexpr std::array<InterleaveFunction, 4> kInterleave = {
    &InterleavePlanes<1, kPlanes>, &InterleavePlanes<2, kPlanes>, &InterleavePlanes<4, kPlanes>,
    &InterleavePlanes<8, kPlanes>};

/// Null for other numbers of planes than formats have.
InterleaveFunction InterleaveFunctionFor(const ImageMemory& image) noexcept {
  const auto size = static_cast<std::size_t>(std::countr_zero(image.sample_bytes));
  switch (image.planes.size()) {
    case 2:
      return kInterleave<2>[size];
    case 3:
      return kInterleave<3>[size];
    case 4:
      return kInterleave<4>[size];
    default:
      return nullptr;
  }
}

}  // namespace

bool CanGather(std::size_t sample_bytes) noexcept {
  return std::has_single_bit(sample_bytes) && sample_bytes <= 8;
}

void GatherImage(const ImageMemory& image, SampleOrder order, MutableByteView out) noexcept {
  if (order == SampleOrder::kInterleaved) {
    const CopyFunction copy_pixels = CopyFunctionFor(image.PixelBytes());
    if (copy_pixels && HasWholePixels(image)) return copy_pixels(GridOf(image, 0, order, out.data()));
    if (const InterleaveFunction interleave = InterleaveFunctionFor(image))
      return interleave(image, out.data());
  }
  const CopyFunction copy_samples = CopyFunctionFor(image.sample_bytes);
  for (std::size_t p = 0; p < image.planes.size(); ++p) copy_samples(GridOf(image, p, order, out.data()));
}

}  // namespace Tarn
