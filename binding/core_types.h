#pragma once

/// Type objects of the core module, exported by `_tarn_311` for the modules linked against it. Borrowed
/// references.
/// Requires: the interpreter lock held.

#include <Python.h>

#include "binding/export.h"

namespace tarn {

TARN_EXPORT PyTypeObject* TypeObject__Size2D__();
TARN_EXPORT PyTypeObject* TypeObject__Point2D__();
TARN_EXPORT PyTypeObject* TypeObject__DataType__();
TARN_EXPORT PyTypeObject* TypeObject__GenApiVersion__();
TARN_EXPORT PyTypeObject* TypeObject__NetworkConnection__();
TARN_EXPORT PyTypeObject* TypeObject__EventCookie__();
TARN_EXPORT PyTypeObject* TypeObject__Image__();
TARN_EXPORT PyTypeObject* TypeObject__DeviceImage__();
TARN_EXPORT PyTypeObject* TypeObject__VinImage__();
TARN_EXPORT PyTypeObject* TypeObject__VideoImage__();
TARN_EXPORT PyTypeObject* TypeObject__EmuImage__();
TARN_EXPORT PyTypeObject* TypeObject__StreamImage__();
TARN_EXPORT PyTypeObject* TypeObject__MultiPartImage__();
TARN_EXPORT PyTypeObject* TypeObject__RingBufferImage__();
TARN_EXPORT PyTypeObject* TypeObject__BufferImage__();
TARN_EXPORT PyTypeObject* TypeObject__WrappedImage__();
TARN_EXPORT PyTypeObject* TypeObject__Stream__();
TARN_EXPORT PyTypeObject* TypeObject__IndexedStream__();

}  // namespace tarn
