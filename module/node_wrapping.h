#pragma once

/// Nodes between native code and Python. One native node never has two live wrappers.
///
/// As a parameter, `std::shared_ptr<X>` for a node class X takes an instance of the Python type of that name;
/// None gives a null pointer, which the native operation refuses with its own text. As a result it gives the
/// wrapper.

#include <Python.h>

#include <concepts>
#include <memory>
#include <vector>

#include "binding/convert.h"
#include "binding/parent_metas.h"
#include "gevserver/nodes/node.h"
#include "module/native_types.h"
#include "module/type_def.h"

namespace Tarn::GevServer {
#define TARN_DECLARE(X) class X;
TARN_NODE_TYPES(TARN_DECLARE)
#undef TARN_DECLARE
}  // namespace Tarn::GevServer

namespace _tarn::gevserver {

using NodePtr = std::shared_ptr<Tarn::GevServer::Node>;

/// The node's wrapper: the live one, else a new one of the most derived type. None for a null pointer.
Tarn::Binding::PyRef WrapNode(const NodePtr& node);

/// The wrapper of a node's map; empty when the node is free or nobody has wrapped its map.
Tarn::Binding::PyRef NodeMapOf(const Tarn::GevServer::Node& node);

/// To be called after a node has joined a map, by the map's add_node or as an entry of an enumeration: the
/// map's wrapper then knows the node's wrapper and those of its entries, and its dictionary is built afresh.
/// Throws: std::runtime_error "No node map." when the map has no wrapper.
void NodeJoinedMap(const NodePtr& node);

/// A node with its entries, if it is an enumeration.
std::vector<NodePtr> WithEntries(const NodePtr& node);

/// The Python type of a native node class.
template <class X>
struct NodeTypeOf;
#define TARN_NODE_TYPE(X)                                        \
  template <>                                                    \
  struct NodeTypeOf<Tarn::GevServer::X> {                        \
    static PyTypeObject* Get() { return TypeObject__##X##__(); } \
    static constexpr const char* kName = "tarn.gevserver." #X;   \
  };
TARN_NODE_TYPES(TARN_NODE_TYPE)
#undef TARN_NODE_TYPE

}  // namespace _tarn::gevserver

namespace Tarn::Binding {

template <std::derived_from<GevServer::Node> X>
struct Converter<std::shared_ptr<X>> {
  static std::shared_ptr<X> FromPython(PyObject* object) {
    if (Py_IsNone(object)) return nullptr;
    using Type = _tarn::gevserver::NodeTypeOf<X>;
    RequireInstance(object, Type::Get(), Type::kName);
    return Extract<X>(object);
  }
  static PyRef ToPython(const std::shared_ptr<X>& node) { return _tarn::gevserver::WrapNode(node); }
};

}  // namespace Tarn::Binding
