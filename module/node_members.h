#pragma once

/// Members that several node types declare alike, with their docstrings.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "binding/type_builder.h"
#include "gevserver/nodes/node.h"
#include "module/node_wrapping.h"

namespace _tarn::gevserver {

/// What the docstrings of settings say about setting them. The library enforces it.
inline constexpr const char* kConfigurationOnly =
    "Set operation is only possible as long as the tarn.gevserver.State is "
    "tarn.gevserver.State.Configuration.";

/// \param before  a sentence of its own, may be empty
std::string WithConfigurationRule(const std::string& before);

// Modes. Texts of kinds that answer the same whatever their configuration are their own.

/// `access_mode` and `cache_mode` of nodes whose value is a constant or comes from another node.
void AddChainModes(Tarn::Binding::TypeBuilder& type);
/// `access_mode`, `cache_mode` and `polling_time` of nodes that always answer the same.
/// \param access, cache, polling  summaries
void AddFixedModes(Tarn::Binding::TypeBuilder& type, const std::string& access, const std::string& cache,
                   const std::string& polling);
void AddPollingTime(Tarn::Binding::TypeBuilder& type);

// Values.

/// \param parameter  what the docstring says about `value`
void AddFromString(Tarn::Binding::TypeBuilder& type, const std::string& summary,
                   const std::string& description = "", const std::string& parameter = "Value to set.");
/// `is_streamable` of nodes that never are: false, and the setter throws.
void AddNeverStreamable(Tarn::Binding::TypeBuilder& type, const std::string& summary,
                        const std::string& description = "");

// Listeners.

/// `register_<event>` and `unregister_<event>`.
template <auto Register, auto Unregister>
void AddListener(Tarn::Binding::TypeBuilder& type, const std::string& event, const std::string& summary,
                 const std::string& unregister_summary) {
  using Tarn::Binding::Signature;
  type.Method<Signature<Register, "handler">>(
          "register_" + event,
          {{.summary = summary,
            .params = {{"handler", "Callable[[tarn.gevserver.Node], None]",
                        "Called with this node, on a thread of the server."}},
            .returns = {"tarn.EventCookie", "Ends the registration when unregistered."}}})
      .template Method<Signature<Unregister, "event_cookie">>(
          "unregister_" + event,
          {{.summary = unregister_summary,
            .params = {{"event_cookie", "tarn.EventCookie", "What the registration returned."}}}});
}

// Settings that are a constant or a node: two properties, `<name>_config_as_node` and `<name>_config_as_int`
// (or _float, or _string, by the constant's type).

template <class Constant>
inline constexpr const char* kConstantSuffix = "int";
template <>
inline constexpr const char* kConstantSuffix<double> = "float";
template <>
inline constexpr const char* kConstantSuffix<std::string> = "string";

/// \param what  the setting in words: "maximum"
template <auto GetNode, auto SetNode, auto GetConstant, auto SetConstant>
void AddConfig(Tarn::Binding::TypeBuilder& type, const std::string& name, const std::string& what) {
  using Constant = Tarn::Binding::ResultOf<GetConstant>;
  type.ReadWrite<GetNode, SetNode>(name + "_config_as_node",
                                   "Gets or sets the node that supplies the " + what + " of this node.",
                                   WithConfigurationRule("None when the " + what + " is a constant."))
      .template ReadWrite<GetConstant, SetConstant>(
          name + "_config_as_" + kConstantSuffix<Constant>,
          "Gets or sets the " + what + " of this node as a constant.",
          WithConfigurationRule(
              "Gets the present value when a node supplies it; setting replaces the node."));
}

// Creation. Forms with a namespace stand first, so that a second positional argument is one.

/// Docs of one form of `create`.
/// \param params  what the form takes beside the name;
/// \param more  the end of the description
Tarn::Binding::CallDoc CreateDoc(const std::string& type_name, std::vector<Tarn::Binding::ParamDoc> params,
                                 const std::string& more = "");

Tarn::Binding::ParamDoc NameSpaceParam();
Tarn::Binding::ParamDoc AddressParam(const std::string& default_text);

template <class X>
std::shared_ptr<X> CreateNamed(const std::string& name) {
  return X::Create(name);
}

template <class X>
std::shared_ptr<X> CreateInSpace(const std::string& name, std::int32_t name_space) {
  return X::Create(name, name_space);
}

/// `create(name, nameSpace)` and `create(name)`.
template <class X>
void AddCreate(Tarn::Binding::TypeBuilder& type) {
  using Tarn::Binding::Signature;
  const char* name = NodeTypeOf<X>::kName;
  type.Static<Signature<&CreateInSpace<X>, "name", "nameSpace">, Signature<&CreateNamed<X>, "name">>(
      "create", {CreateDoc(name, {NameSpaceParam()}), CreateDoc(name, {})});
}

}  // namespace _tarn::gevserver
