#pragma once

/// Nodes between native code and Python. One native node never has two live wrappers.
///
/// As a parameter, `std::shared_ptr<X>` for a node class X takes an instance of the Python type of that name;
/// None gives a null pointer, which the native operation refuses with its own text. GivenNode takes no None.
/// As a result a shared pointer gives the wrapper, a vector of them a list.

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

/// The node's wrapper: the live one, else a new one of the most derived type. None for a null pointer. A new
/// wrapper of a node whose map Python has let go is cut off like those before it.
Tarn::Binding::PyRef WrapNode(const NodePtr& node);

/// A new list of the wrappers of nodes, none of them null.
Tarn::Binding::PyRef WrapNodes(const std::vector<NodePtr>& nodes);

/// The wrapper of a node's map; empty when the node is free or nobody has wrapped its map.
Tarn::Binding::PyRef NodeMapOf(const Tarn::GevServer::Node& node);

/// To be called after a node has joined a map, by the map's add_node or as an entry of an enumeration: the
/// map's wrapper then knows the node's wrapper and those of its entries, and its dictionary is built afresh.
/// Throws: std::runtime_error "No node map." when the map has no wrapper.
void NodeJoinedMap(const NodePtr& node);

/// To be called after nodes may have left the map: those that did are forgotten by its wrapper's record, with
/// their listeners, and its dictionary is built afresh.
void NodesLeftMap(Tarn::Binding::NodeMapMeta& record, const std::vector<NodePtr>& nodes);

/// A node argument that None does not fit.
struct GivenNode {
  NodePtr node;
};

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

template <std::derived_from<GevServer::Node> X>
struct Converter<std::vector<std::shared_ptr<X>>> {
  static PyRef ToPython(const std::vector<std::shared_ptr<X>>& nodes) {
    return _tarn::gevserver::WrapNodes({nodes.begin(), nodes.end()});
  }
};

template <>
struct Converter<_tarn::gevserver::GivenNode> {
  static _tarn::gevserver::GivenNode FromPython(PyObject* object) {
    using Type = _tarn::gevserver::NodeTypeOf<GevServer::Node>;
    RequireInstance(object, Type::Get(), Type::kName);
    return {Extract<GevServer::Node>(object)};
  }
};

}  // namespace Tarn::Binding
