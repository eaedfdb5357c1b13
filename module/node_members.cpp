#include "module/node_members.h"

#include <utility>

#include "gevserver/nodes/value_node.h"
#include "module/native_types.h"

namespace _tarn::gevserver {

using namespace Tarn::Binding;
namespace Native = Tarn::GevServer;

std::string WithConfigurationRule(const std::string& before) {
  return before.empty() ? kConfigurationOnly : before + " " + kConfigurationOnly;
}

void AddChainModes(TypeBuilder& type) {
  type.ReadOnly<&Native::Node::AccessMode>(
          "access_mode", "Gets the access mode of this node (see tarn.AccessMode).",
          "The access mode of the node that supplies the value in the end, read-write for a constant.")
      .ReadOnly<&Native::Node::CacheMode>(
          "cache_mode", "Gets the cache mode of this node (see tarn.CacheMode).",
          "The cache mode of the node that supplies the value in the end, no cache for a constant.");
}

void AddFixedModes(TypeBuilder& type, const std::string& access, const std::string& cache,
                   const std::string& polling) {
  type.ReadOnly<&Native::Node::AccessMode>("access_mode", access)
      .ReadOnly<&Native::Node::CacheMode>("cache_mode", cache)
      .ReadOnly<&Native::ValueNode::PollingTime>("polling_time", polling);
}

void AddPollingTime(TypeBuilder& type) {
  type.ReadOnly<&Native::ValueNode::PollingTime>(
      "polling_time", "Gets the polling time of this value in milliseconds.",
      "Zero means that the node is not polled. Only this node is asked, not the nodes it depends on.");
}

void AddFromString(TypeBuilder& type, const std::string& summary, const std::string& description,
                   const std::string& parameter) {
  type.Method<Signature<&Native::ValueNode::FromString, "value">>(
      "from_string",
      {{.summary = summary, .description = description, .params = {{"value", "str", parameter}}}});
}

void AddNeverStreamable(TypeBuilder& type, const std::string& summary, const std::string& description) {
  type.ReadWrite<&Native::ValueNode::IsStreamable, &Native::ValueNode::SetIsStreamable>("is_streamable",
                                                                                        summary, description);
}

CallDoc CreateDoc(const std::string& type_name, std::vector<ParamDoc> params, const std::string& more) {
  params.insert(
      params.begin(),
      {"name", "str",
       "Node name with or without namespace prefix. If the name does not contain a namespace prefix "
       "and no namespace is specified separately, tarn.gevserver.NameSpace.Custom is used."});
  return {.summary = "Creates a new node.",
          .description = "You must add this node to a node map before most operations are possible." +
                         (more.empty() ? more : " " + more),
          .params = std::move(params),
          .returns = {type_name, "The requested node."}};
}

// The published text calls the parameter otherwise than the call does; both are kept.
ParamDoc NameSpaceParam() {
  return {"namespace", "int", "Namespace of the node (see tarn.gevserver.NameSpace)."};
}

ParamDoc AddressParam(const std::string& default_text) {
  return {"address", "int", "Address for this register; -1 for auto assignment.", default_text};
}

}  // namespace _tarn::gevserver
