#include <string>

#include "camera/base/handle_table.h"
#include "camera/capi/entry.h"
#include "gevserver/library/tr_core.h"

namespace {

using Tarn::EngineError;
using Tarn::Entry;
using Tarn::Failure;

// Never destroyed in effect: handles may be released by static objects of any library, in any order.
constinit Tarn::HandleTable handles;

// At load time: the other libraries come later, and hold locks while they ask for handles.
[[maybe_unused]] const bool guarded = (handles.GuardAtForks(), true);

static_assert(sizeof(TR_HANDLE) == sizeof(Tarn::HandleTable::Handle), "handles fill a 64-bit pointer");

Tarn::HandleTable::Handle Number(TR_HANDLE handle) { return reinterpret_cast<std::uintptr_t>(handle); }

void Require(bool lives, TR_HANDLE handle) {
  if (!lives)
    throw EngineError(Failure::kInvalidHandle, handle ? "the handle is stale" : "the handle is null");
}

}  // namespace

TR_STATUS ShareObject(TR_HANDLE object) {
  return Entry([&] { Require(handles.Share(Number(object)), object); });
}

TR_STATUS ReleaseObject(TR_HANDLE* object) {
  return Entry([&] {
    if (object == nullptr) throw EngineError(Failure::kInvalidHandle, "object must not be null");
    // The variable may itself lie in the object that dies now, so it isn't touched afterwards.
    const TR_HANDLE handle = *object;
    *object = nullptr;
    const bool released = handles.Release(Number(handle));
    if (!released) *object = handle;
    Require(released, handle);
  });
}

uint64_t TRCLiveHandleCount() { return handles.LiveCount(); }

TR_HANDLE TRCCreateHandle(void* object, uint32_t kind, void (*destroy)(void* object)) {
  if (object == nullptr || kind == 0 || destroy == nullptr) return nullptr;
  return reinterpret_cast<TR_HANDLE>(handles.Create(object, kind, destroy));
}

void* TRCPinHandle(TR_HANDLE handle, uint32_t kind) { return handles.Pin(Number(handle), kind); }
