/// What every library of the family shares: handles, the status convention, symbol visibility.
///
/// Compiles as C11 and as C++.
#ifndef TARN_GEVSERVER_LIBRARY_TR_TYPES_H
#define TARN_GEVSERVER_LIBRARY_TR_TYPES_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#define TR_BEGIN_C extern "C" {
#define TR_END_C }
#else
#define TR_BEGIN_C
#define TR_END_C
#endif

#define TR_API __attribute__((visibility("default")))

/// A library object (server, node, image, interface list). Opaque: not an address, never to be dereferenced.
/// Reference counted by the libraries; a null handle is never valid, a stale one is recognised and refused.
typedef void* TR_HANDLE;

/// Result of an entry point: 0 for success, negative for failure (see tr_status.h).
typedef int32_t TR_STATUS;

#endif
