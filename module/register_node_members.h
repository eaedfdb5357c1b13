#pragma once

/// Members that all register node types declare alike.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "gevserver/nodes/register_nodes.h"
#include "module/node_members.h"

namespace _tarn::gevserver {

/// \tparam X  the native register class
template <class X>
void AddRegisterMembers(Tarn::Binding::TypeBuilder& type) {
  type.ReadWrite<&X::AccessMode, &X::SetAccessMode>(
          "access_mode", "Gets or sets the access mode of this node (see tarn.AccessMode).",
          kConfigurationOnly)
      .template ReadOnly<&X::Address>(
          "address", "Gets the current address of this register.",
          "The sum of the address given at creation and the current values of the address nodes.")
      .template ReadOnly<&X::AddressNodes>("address_nodes",
                                           "Gets the nodes whose values are part of this register's address.",
                                           "The constant part of the address is not among them.")
      .template ReadWrite<&X::CacheMode, &X::SetCacheMode>(
          "cache_mode", "Gets or sets the cache mode of this node (see tarn.CacheMode).", kConfigurationOnly)
      .template ReadOnly<&X::InvalidatorNodes>(
          "invalidator_nodes", "Gets the nodes whose change invalidates the cached value of this register.")
      .template ReadOnly<&X::Length>("length", "Gets the length of this register in bytes.")
      .template ReadWrite<&X::PollingTime, &X::SetPollingTime>(
          "polling_time", "Gets or sets the polling time of this value in milliseconds.",
          WithConfigurationRule(
              "Zero means that the node is not polled. Only this node is asked, not the nodes it depends "
              "on."));
}

template <class X>
std::shared_ptr<X> CreateRegisterInSpace(const std::string& name, std::int32_t name_space,
                                         std::optional<std::int64_t> address) {
  return X::Create(name, name_space, address.value_or(Tarn::GevServer::Private::kAutomaticAddress));
}

template <class X>
std::shared_ptr<X> CreateRegister(const std::string& name, std::optional<std::int64_t> address) {
  return X::Create(name, std::nullopt, address.value_or(Tarn::GevServer::Private::kAutomaticAddress));
}

/// `create(name, nameSpace, address)` and `create(name, address)`, the address with a default.
template <class X>
void AddRegisterCreate(Tarn::Binding::TypeBuilder& type) {
  using Tarn::Binding::Signature;
  const char* name = NodeTypeOf<X>::kName;
  type.Static<Signature<&CreateRegisterInSpace<X>, "name", "nameSpace", "address">,
              Signature<&CreateRegister<X>, "name", "address">>(
      "create",
      {CreateDoc(name, {NameSpaceParam(), AddressParam("-1")}), CreateDoc(name, {AddressParam("-1")})});
}

}  // namespace _tarn::gevserver
