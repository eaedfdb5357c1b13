#include "camera/engine/memory/sparse_memory.h"

#include <algorithm>
#include <cstring>

namespace Tarn {
namespace {

/// Calls `piece(page, offset in page, offset in range, size)` for each page that the range touches.
template <class Piece>
void ForEachPage(std::uint64_t address, std::size_t size, std::uint64_t page_size, Piece&& piece) {
  std::size_t done = 0;
  while (done < size) {
    const std::uint64_t at = address + done;
    const std::uint64_t offset = at % page_size;
    const std::size_t part = std::min<std::size_t>(size - done, static_cast<std::size_t>(page_size - offset));
    piece(at / page_size, static_cast<std::size_t>(offset), done, part);
    done += part;
  }
}

constexpr std::array<std::uint8_t, 4096> kZeros{};

/// Requires: no more bytes than a page has.
bool IsZero(ByteView bytes) { return std::memcmp(bytes.data(), kZeros.data(), bytes.size()) == 0; }

}  // namespace

void SparseMemory::Read(std::uint64_t address, MutableByteView out) const noexcept {
  ForEachPage(address, out.size(), kPageSize,
              [&](std::uint64_t page, std::size_t at, std::size_t to, std::size_t n) {
                const auto found = pages_.find(page);
                if (found == pages_.end()) {
                  std::memset(out.data() + to, 0, n);
                } else {
                  std::memcpy(out.data() + to, found->second->data() + at, n);
                }
              });
}

void SparseMemory::Write(std::uint64_t address, ByteView bytes) {
  ++revision_;
  ForEachPage(address, bytes.size(), kPageSize,
              [&](std::uint64_t number, std::size_t at, std::size_t from, std::size_t n) {
                // What was never written is zero already.
                if (!pages_.contains(number) && IsZero(bytes.subspan(from, n))) return;
                std::unique_ptr<Page>& page = pages_[number];
                if (!page) page = std::make_unique<Page>();
                std::memcpy(page->data() + at, bytes.data() + from, n);
              });
}

void SparseMemory::Clear(std::uint64_t address, std::size_t size) noexcept {
  ++revision_;
  ForEachPage(address, size, kPageSize,
              [&](std::uint64_t number, std::size_t at, std::size_t, std::size_t n) {
                const auto found = pages_.find(number);
                if (found == pages_.end()) return;
                std::memset(found->second->data() + at, 0, n);
                if (IsZero(*found->second)) pages_.erase(found);
              });
}

std::uint32_t SparseMemory::Load32(std::uint64_t address) const noexcept {
  std::array<std::uint8_t, 4> bytes{};
  Read(address, bytes);
  return LoadBe<std::uint32_t>(bytes.data());
}

void SparseMemory::Store32(std::uint64_t address, std::uint32_t value) {
  std::array<std::uint8_t, 4> bytes{};
  StoreBe(bytes.data(), value);
  Write(address, bytes);
}

}  // namespace Tarn
