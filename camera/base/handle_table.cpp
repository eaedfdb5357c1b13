#include "camera/base/handle_table.h"

#include <limits>
#include <new>

#include "camera/base/process_mutex.h"

namespace Tarn {
namespace {

// A handle is generation (32 bits), slot number (24), tag (8). The tag is odd, so that no pointer to anything
// in memory that is aligned, a likely thing to be handed in by mistake, passes for a handle.
constexpr std::uint64_t kTag = 0xA5;

HandleTable::Handle MakeHandle(std::uint32_t generation, std::uint32_t number) {
  return std::uint64_t{generation} << 32 | std::uint64_t{number} << 8 | kTag;
}
constexpr std::uint32_t NumberOf(HandleTable::Handle handle) { return handle >> 8 & 0xFF'FFFF; }
constexpr std::uint32_t GenerationOf(std::uint64_t handle_or_word) {
  return static_cast<std::uint32_t>(handle_or_word >> 32);
}
constexpr std::uint32_t CountOf(std::uint64_t word) { return static_cast<std::uint32_t>(word); }

bool Lives(std::uint64_t word, HandleTable::Handle handle) {
  return GenerationOf(word) == GenerationOf(handle) && CountOf(word) != 0;
}

}  // namespace

HandleTable::Handle HandleTable::Create(void* object, std::uint32_t kind, Destroy destroy) noexcept {
  const MutexLock lock(mutex_);
  const std::uint32_t taken = TakeFree();
  if (taken == 0) return 0;
  Slot& slot = At(taken - 1);
  slot.object = object;
  slot.destroy = destroy;
  slot.kind = kind;
  ++live_;
  // The word comes last: it makes the slot visible to whoever holds, or guesses, the handle.
  return MakeHandle(GenerationOf(slot.word.fetch_add(1)), taken - 1);
}

bool HandleTable::Share(Handle handle) noexcept {
  Slot* slot = Find(handle);
  return slot != nullptr && AddReference(*slot, handle);
}

void* HandleTable::Pin(Handle handle, std::uint32_t kind) noexcept {
  Slot* slot = Find(handle);
  // The kind may be that of a newer generation; the handle is stale then, and AddReference refuses it.
  if (slot == nullptr || slot->kind != kind || !AddReference(*slot, handle)) return nullptr;
  return slot->object;
}

bool HandleTable::Release(Handle handle) noexcept {
  Slot* slot = Find(handle);
  if (slot == nullptr) return false;
  std::uint64_t word = slot->word;
  std::uint64_t left = 0;
  do {
    if (!Lives(word, handle)) return false;
    left = CountOf(word) > 1 ? word - 1 : std::uint64_t{GenerationOf(word) + 1} << 32;
  } while (!slot->word.compare_exchange_weak(word, left));
  if (CountOf(left) != 0) return true;

  slot->destroy(slot->object);
  --live_;
  // A slot whose generations are used up rests for ever: a handle of its first one may still be around.
  if (GenerationOf(left) != 0) PutFree(NumberOf(handle));
  return true;
}

void HandleTable::GuardAtForks() { Tarn::GuardAtForks(mutex_); }

HandleTable::Slot* HandleTable::Find(Handle handle) const noexcept {
  const std::uint32_t number = NumberOf(handle);
  if ((handle & 0xFF) != kTag || number >= kSlotsPerChunk * kMaxChunks) return nullptr;
  return chunks_[number / kSlotsPerChunk] == nullptr ? nullptr : &At(number);
}

bool HandleTable::AddReference(Slot& slot, Handle handle) noexcept {
  std::uint64_t word = slot.word;
  do {
    if (!Lives(word, handle)) return false;
    // One more would run over into the generation.
    if (CountOf(word) == std::numeric_limits<std::uint32_t>::max()) return false;
  } while (!slot.word.compare_exchange_weak(word, word + 1));
  return true;
}

std::uint32_t HandleTable::TakeFree() noexcept {
  std::uint32_t first = first_free_;
  // The head of the list can't be taken and put back meanwhile: only this function takes, one thread at a
  // time.
  while (first != 0 && !first_free_.compare_exchange_weak(first, At(first - 1).next_free)) {
  }
  if (first != 0) return first;

  if (used_ == kSlotsPerChunk * kMaxChunks) return 0;
  if (used_ % kSlotsPerChunk == 0) {
    Slot* chunk = new (std::nothrow) Slot[kSlotsPerChunk];
    if (chunk == nullptr) return 0;
    chunks_[used_ / kSlotsPerChunk] = chunk;
  }
  return ++used_;
}

void HandleTable::PutFree(std::uint32_t number) noexcept {
  std::uint32_t first = first_free_;
  do {
    At(number).next_free = first;
  } while (!first_free_.compare_exchange_weak(first, number + 1));
}

HandleTable::Slot& HandleTable::At(std::uint32_t number) const noexcept {
  return chunks_[number / kSlotsPerChunk].load()[number % kSlotsPerChunk];
}

}  // namespace Tarn
