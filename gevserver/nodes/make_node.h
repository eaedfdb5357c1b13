#pragma once

/// How node objects come into being.

#include <concepts>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include "core/c_text.h"
#include "core/library_call.h"
#include "gevserver/library/tr_status.h"
#include "gevserver/node_name.h"
#include "gevserver/nodes/node_registry.h"
#include "gevserver/nodes/value_node.h"

namespace Tarn::GevServer::Private {

/// A node object of class T over a handle, connected to the library's events and known by its handle. When
/// another thread made the object of that handle meanwhile, that one is returned.
template <class T>
std::shared_ptr<T> MakeNode(HandleGuard<Node> handle, std::weak_ptr<NodeMap> map) {
  auto node = std::make_shared<T>(NewNode{std::move(handle), std::move(map)});
  if constexpr (std::derived_from<T, ValueNode>) node->ConnectEvents(node);
  return std::static_pointer_cast<T>(NodeRegistry::Instance().Insert(node));
}

/// A new free node.
/// \param create  (const char* name, int32_t name_space) -> TR_HANDLE
template <class T, class Create>
std::shared_ptr<T> CreateFreeNode(std::string_view name, std::optional<std::int32_t> name_space,
                                  Create&& create) {
  const CreationName resolved = ResolveCreationName(name, name_space);
  HandleGuard<Node> handle(create(CText(resolved.name), resolved.name_space));
  if (!handle) ThrowLastError(TR_E_FAILED);
  return MakeNode<T>(std::move(handle), {});
}

}  // namespace Tarn::GevServer::Private
