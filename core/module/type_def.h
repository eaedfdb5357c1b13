#pragma once

/// The list of the core module's types.

#include "binding/core_types.h"
#include "binding/type_definition.h"

/// Every type, bases ahead of those derived from them.
#define TARN_CORE_TYPES(T) \
  T(Size2D)                \
  T(Point2D)               \
  T(DataType)              \
  T(GenApiVersion)         \
  T(NetworkConnection)     \
  T(EventCookie)           \
  T(AccessMode)            \
  T(CacheMode)             \
  T(Visibility)            \
  T(NumberRepresentation)  \
  T(ColorModel)            \
  T(PfncFormat)            \
  T(Image)                 \
  T(DeviceImage)           \
  T(VinImage)              \
  T(VideoImage)            \
  T(EmuImage)              \
  T(StreamImage)           \
  T(MultiPartImage)        \
  T(RingBufferImage)       \
  T(BufferImage)           \
  T(WrappedImage)          \
  T(Stream)                \
  T(IndexedStream)

namespace tarn {

// A tag and a type accessor for each.
#define TARN_DECLARE(X) \
  struct X;             \
  PyTypeObject* TypeObject__##X##__();
TARN_CORE_TYPES(TARN_DECLARE)
#undef TARN_DECLARE

/// The description of type X; filled by the first call of its accessor, so that other modules may come first.
template <class X>
struct TypeDef : Tarn::Binding::TypeSlot<X> {
  static void Init();
};
#define TARN_DECLARE(X) \
  template <>           \
  void TypeDef<X>::Init();
TARN_CORE_TYPES(TARN_DECLARE)
#undef TARN_DECLARE

/// Puts the ready-made instances into the finished type.
void AddDataTypes(PyTypeObject* type);

}  // namespace tarn
