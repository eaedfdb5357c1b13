#include "gevserver/node_map.h"

#include <array>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include "binding/parent_metas.h"
#include "binding/type_builder.h"
#include "module/node_wrapping.h"
#include "module/type_def.h"

namespace _tarn::gevserver {

using namespace Tarn::Binding;
namespace Native = Tarn::GevServer;

namespace {

std::shared_ptr<NodeMapMeta> NodesOf(PyObject* self) {
  auto meta = FindMeta<NodeMapMeta>(self);
  if (!meta) throw std::runtime_error("No node map.");
  return meta;
}

std::string ModuleName(const Native::NodeMap&) { return "Device"; }
std::string TransportLayerNamespace(const Native::NodeMap&) { return "GEV"; }

/// A dict that can be referenced weakly.
PyRef NewNodeDictionary() {
  static PyObject* type = nullptr;  // kept for the life of the process, as our own types
  if (!type) {
    type = PyObject_CallFunction(reinterpret_cast<PyObject*>(&PyType_Type), "s(O){s(s)ss}", "NodeDictionary",
                                 &PyDict_Type, "__slots__", "__weakref__", "__module__", "tarn.gevserver");
  }
  PyRef dictionary = type ? PyRef::Steal(PyObject_CallNoArgs(type)) : PyRef();
  if (!dictionary) {
    PyErr_Clear();
    throw std::runtime_error("failed to create python dictionary");
  }
  return dictionary;
}

PyRef Nodes(Self self) {
  const auto map = Extract<Native::NodeMap>(self.object);
  return NodesOf(self.object)->NodeDictOrCreate([&map] {
    PyRef dictionary = NewNodeDictionary();
    for (const NodePtr& node : map->Nodes()) InsertItem(dictionary, node->Name(), WrapNode(node));
    return dictionary;
  });
}

void AddWithKind(Native::NodeMap& map, const std::string& key, const NodePtr& node, std::int32_t kind) {
  map.AddNode(key, node, kind);
  NodeJoinedMap(node);
}

void AddWithKey(Native::NodeMap& map, const std::string& key, const NodePtr& node) {
  map.AddNode(key, node);
  NodeJoinedMap(node);
}

void AddToMap(Native::NodeMap& map, const NodePtr& node) {
  if (!node) throw std::runtime_error("node must not be null");
  AddWithKey(map, node->NameOnly(), node);
}

/// False when the node is none of this map's; then nothing changes.
bool RemoveNode(PyObject* self, Native::NodeMap& map, const NodePtr& node) {
  if (!node) return false;
  // Held to the end: with the node goes its listener, and with that perhaps the server that it alone kept.
  const auto record = NodesOf(self);
  const auto leaving = WithEntries(node);
  if (!map.RemoveNode(node)) return false;
  NodesLeftMap(*record, leaving);
  return true;
}

bool RemoveByKey(Self self, const std::string& key) {
  const auto map = Extract<Native::NodeMap>(self.object);
  return RemoveNode(self.object, *map, map->TryGet(key));
}

bool RemoveByNode(Self self, const GivenNode& given) {
  const auto map = Extract<Native::NodeMap>(self.object);
  return RemoveNode(self.object, *map, given.node);
}

/// The map of a wrapper that reaches a slot, where the interpreter has looked at its `__class__` only.
std::shared_ptr<Native::NodeMap> MapOf(PyObject* self) {
  RequireInstance(self, TypeObject__NodeMap__(), "tarn.gevserver.NodeMap");
  return Extract<Native::NodeMap>(self);
}

PyObject* GetItem(PyObject* self, PyObject* key) {
  return Guarded<PyObject*>(nullptr, [&] {
    const auto map = MapOf(self);
    return WrapNode(map->At(FromPython<std::string>(key))).Release();
  });
}

/// Names that always mean the map's own attributes, whatever its nodes are called.
bool IsOwnAttribute(std::string_view name) {
  constexpr std::array<std::string_view, 8> kOwn = {"name",
                                                    "description",
                                                    "vendor_name",
                                                    "model_name",
                                                    "transport_layer_namespace",
                                                    "xml_file_version",
                                                    "xml_file_schema_version",
                                                    "nodes"};
  return name.starts_with('_') || std::find(kOwn.begin(), kOwn.end(), name) != kOwn.end();
}

/// A node by its name, else what the type has.
PyObject* GetAttribute(PyObject* self, PyObject* attribute) {
  return Guarded<PyObject*>(nullptr, [&] {
    const std::string name = FromPython<AnyText>(attribute).text;
    if (!IsOwnAttribute(name)) {
      if (const NodePtr node = MapOf(self)->TryGet(name)) return WrapNode(node).Release();
    }
    return Checked(PyObject_GenericGetAttr(self, attribute)).Release();
  });
}

const ParamDoc kKey{"key", "str",
                    "Key of the node to add. This will be the full name of the node including namespace."};
const ParamDoc kNode{"node", "tarn.gevserver.Node", "Node to add."};
const ParamDoc kKindToAdd{"kind", "int", "Kind of node to add."};

CallDoc AddDoc(std::vector<ParamDoc> params) {
  return {.summary = "Adds the given to this node map.",
          .description =
              "Add a node either by 1) Node only, 2) Node key (name) and value (node) or 3) Node key, value "
              "and kind specified in node list. The key will be the full node.name.",
          .params = std::move(params)};
}

CallDoc RemoveDoc(ParamDoc param) {
  return {.summary = "Removes the node from this node map either by key or the node itself.",
          .params = {std::move(param)},
          .returns = {"bool", "True if has been removed; False if node is not present in this node map."}};
}

void AddMapProperties(TypeBuilder& type) {
  type.ReadOnly<&Native::NodeMap::VendorName>(
          "vendor_name", "Gets the name of the vendor, who created the XML description.",
          "Often this name does not match the information of the GenTL port (discovery information).")
      .ReadOnly<&Native::NodeMap::IsReadOnly>(
          "is_read_only", "Gets whether this node map is read only.",
          "Read only when the server is not in the tarn.gevserver.State.Configuration gevserver.State.")
      .ReadOnly<&Native::NodeMap::ModelName>(
          "model_name", "Gets the name of the model, that the XML description is for.",
          "Often this name does not match the information of the GenTL port (discovery information).")
      .ReadOnly<&ModuleName>("module_name", "Gets this node map's module name.",
                             "This is the device node map.")
      .ReadOnly<&TransportLayerNamespace>("transport_layer_namespace",
                                          "Gets the transport layer type of the device.")
      .ReadWrite<&Native::NodeMap::XmlFileVersion, &Native::NodeMap::SetXmlFileVersion>(
          "xml_file_version", "Gets the XML version.")
      .ReadOnly<&Native::NodeMap::XmlFileSchemaVersion>("xml_file_schema_version",
                                                        "Gets the XML schema version.")
      .ReadOnly<&Nodes>("nodes", "Gets a dictionary that contains all nodes of this node map.");
}

void AddMapMethods(TypeBuilder& type) {
  type.Method<Signature<&AddWithKind, "key", "node", "m_kind">, Signature<&AddWithKey, "key", "node">,
              Signature<&AddToMap, "node">>(
          "add_node", {AddDoc({kKey, kNode, kKindToAdd}), AddDoc({kKey, kNode}), AddDoc({kNode})})
      .Method<Signature<&RemoveByKey, "key">, Signature<&RemoveByNode, "node">>(
          "remove_node", {RemoveDoc(kKey), RemoveDoc({"node", "tarn.gevserver.Node", "Node to remove."})})
      .Method<Signature<&Native::NodeMap::TryGet, "name">>(
          "try_get_node", {{.summary = "Tries to get the node from the node map.",
                            .params = {{"name", "str", "Name of the node to try to get."}},
                            .returns = {"tarn.gevserver.Node",
                                        "Node retrieved by name. Empty shell if node is not available."}}});
}

}  // namespace

template <>
void TypeDef<NodeMap>::Init() {
  TypeBuilder type(Get(), "tarn.gevserver.NodeMap", "Contains all nodes of a device or module.");
  AddMapProperties(type);
  AddMapMethods(type);
  type.Definition().mapping_get = &GetItem;
  type.Definition().get_attribute = &GetAttribute;
}

}  // namespace _tarn::gevserver
