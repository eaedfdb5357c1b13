/// libTRCore: the life of handles, shared by all libraries of the family.
///
/// Threads: any thread, at the same time on one handle.
#ifndef TARN_GEVSERVER_LIBRARY_TR_CORE_H
#define TARN_GEVSERVER_LIBRARY_TR_CORE_H

#include "gevserver/library/tr_types.h"

TR_BEGIN_C

/// Adds a reference. Fails with TR_E_INVALID_HANDLE on a null or stale handle.
TR_API TR_STATUS ShareObject(TR_HANDLE object);

/// Drops one reference and sets the caller's variable to null; the object dies with its last reference.
/// A null pointer, or a variable that holds null, is TR_E_INVALID_HANDLE, a stale handle too.
/// Never waits for a thread of the library and never calls back.
TR_API TR_STATUS ReleaseObject(TR_HANDLE* object);

/// Number of objects that are alive at present in this process, for leak checks.
TR_API uint64_t TRCLiveHandleCount(void);

/// For the sibling libraries: makes an object known under a new handle with one reference.
/// \param kind     the sibling's own code for the type of `object`, not 0
/// \param destroy  called once with `object` when the last reference goes, on that thread
/// Returns null when memory runs out; `object` then still belongs to the caller.
TR_API TR_HANDLE TRCCreateHandle(void* object, uint32_t kind, void (*destroy)(void* object));

/// For the sibling libraries: the object behind a handle, with one reference added so that it cannot die in
/// use. Null when the handle is null, stale or of another kind. Each success is paired with one
/// ReleaseObject.
TR_API void* TRCPinHandle(TR_HANDLE handle, uint32_t kind);

TR_END_C

#endif
