#pragma once

/// The list of the server module's types.

#include "binding/export.h"
#include "binding/type_definition.h"

/// Node types; each has a native class of the same name.
#define TARN_NODE_TYPES(T) \
  T(Node)                  \
  T(ValueNode)             \
  T(SelectorNode)          \
  T(BooleanNode)           \
  T(CategoryNode)          \
  T(CommandNode)           \
  T(EnumEntryNode)         \
  T(EnumerationNode)       \
  T(FloatBaseNode)         \
  T(FloatNode)             \
  T(FloatRegNode)          \
  T(Float32RegNode)        \
  T(Float64RegNode)        \
  T(IntegerBaseNode)       \
  T(IntegerNode)           \
  T(IntRegNode)            \
  T(IntSwissKnifeNode)     \
  T(Int32RegNode)          \
  T(Int64RegNode)          \
  T(StringNode)            \
  T(StringRegNode)

/// Every type in order of creation, bases ahead of those derived from them.
#define TARN_SERVER_TYPES(T)     \
  T(NodeMap)                     \
  T(Server)                      \
  T(Stream)                      \
  T(ImageBufferDescription)      \
  T(ChunkImageBufferDescription) \
  T(LogicalNetworkInterface)     \
  TARN_NODE_TYPES(T)             \
  T(NodeList)                    \
  T(DriverType)                  \
  T(ServerInitType)              \
  T(ServerEvent)                 \
  T(NodeEvent)                   \
  T(NodeType)                    \
  T(Info)                        \
  T(NodeInfo)                    \
  T(NumberSign)                  \
  T(PayloadType)                 \
  T(State)                       \
  T(NameSpace)

namespace _tarn::gevserver {

// A tag and an exported type accessor for each; the accessor gives a borrowed reference.
#define TARN_DECLARE(X) \
  struct X;             \
  TARN_EXPORT PyTypeObject* TypeObject__##X##__();
TARN_SERVER_TYPES(TARN_DECLARE)
#undef TARN_DECLARE

/// The description of type X. Init is called once, when the module is made, ahead of the accessor.
template <class X>
struct TypeDef : Tarn::Binding::TypeSlot<X> {
  static void Init();
};
#define TARN_DECLARE(X) \
  template <>           \
  void TypeDef<X>::Init();
TARN_SERVER_TYPES(TARN_DECLARE)
#undef TARN_DECLARE

}  // namespace _tarn::gevserver
