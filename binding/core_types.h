#pragma once

/// Type objects of the core module, exported by `_tarn_311` for the modules linked against it. Borrowed
/// references. Requires: the interpreter lock held.

#include <Python.h>

#include "gevserver/library/tr_types.h"

namespace tarn {

TR_API PyTypeObject* TypeObject__Size2D__();
TR_API PyTypeObject* TypeObject__Point2D__();
TR_API PyTypeObject* TypeObject__DataType__();
TR_API PyTypeObject* TypeObject__GenApiVersion__();
TR_API PyTypeObject* TypeObject__NetworkConnection__();
TR_API PyTypeObject* TypeObject__EventCookie__();
TR_API PyTypeObject* TypeObject__Image__();
TR_API PyTypeObject* TypeObject__DeviceImage__();
TR_API PyTypeObject* TypeObject__VinImage__();
TR_API PyTypeObject* TypeObject__VideoImage__();
TR_API PyTypeObject* TypeObject__EmuImage__();
TR_API PyTypeObject* TypeObject__StreamImage__();
TR_API PyTypeObject* TypeObject__MultiPartImage__();
TR_API PyTypeObject* TypeObject__RingBufferImage__();
TR_API PyTypeObject* TypeObject__BufferImage__();
TR_API PyTypeObject* TypeObject__WrappedImage__();
TR_API PyTypeObject* TypeObject__Stream__();
TR_API PyTypeObject* TypeObject__IndexedStream__();

}  // namespace tarn
