#include "gevserver/nodes/value_chain.h"

#include <stdexcept>

#include "gevserver/nodes/number_base_nodes.h"
#include "gevserver/nodes/string_node.h"

namespace Tarn::GevServer::Private {

namespace {

template <class Source>
std::shared_ptr<Node> SupplierOfKind(const Node& node) {
  const auto* configured = dynamic_cast<const IHasValueConfig<std::shared_ptr<Source>>*>(&node);
  return configured == nullptr ? nullptr : configured->ValueConfigAsNode();
}

// The node that supplies the value of `node`; null for registers, constants and nodes without a value
// configuration.
std::shared_ptr<Node> Supplier(const Node& node) {
  if (dynamic_cast<const IConfigurableRegisterNode*>(&node) != nullptr) return nullptr;
  if (auto supplier = SupplierOfKind<IntegerBaseNode>(node)) return supplier;
  if (auto supplier = SupplierOfKind<FloatBaseNode>(node)) return supplier;
  return SupplierOfKind<StringNode>(node);
}

}  // namespace

std::shared_ptr<Node> EndOfValueChain(const Node& node) {
  // The library refuses circles; a limit far above any real chain keeps one from hanging the caller all the
  // same.
  constexpr int kMaxLength = 1000;
  std::shared_ptr<Node> end = Supplier(node);
  if (!end) return nullptr;
  for (int length = 0; length < kMaxLength; ++length) {
    auto next = Supplier(*end);
    if (!next) return end;
    end = std::move(next);
  }
  throw std::runtime_error("value chain does not end");
}

std::int32_t ValueChainAccessMode(const Node& node) {
  const auto end = EndOfValueChain(node);
  return end ? end->AccessMode() : GS_ACCESS_READ_WRITE;
}

std::int32_t ValueChainCacheMode(const Node& node) {
  const auto end = EndOfValueChain(node);
  return end ? end->CacheMode() : GS_CACHE_NO_CACHE;
}

}  // namespace Tarn::GevServer::Private
