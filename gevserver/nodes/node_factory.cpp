#include "gevserver/nodes/node_factory.h"

#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "core/tarn_exception.h"
#include "gevserver/nodes/make_node.h"
#include "gevserver/nodes/node_classes.h"
#include "gevserver/nodes/node_registry.h"

namespace Tarn::GevServer {

#define TARN_CREATE(Class, type, create)                                                                \
  std::shared_ptr<Class> Class::Create(std::string_view name, std::optional<std::int32_t> name_space) { \
    return Private::CreateFreeNode<Class>(name, name_space, create);                                    \
  }
TARN_PLAIN_NODES(TARN_CREATE)
#undef TARN_CREATE

#define TARN_CREATE(Class, type, length, create)                                                             \
  std::shared_ptr<Class> Class::Create(std::string_view name, std::optional<std::int32_t> name_space,        \
                                       std::int64_t address) {                                               \
    return Private::CreateFreeNode<Class>(                                                                   \
        name, name_space,                                                                                    \
        [address](const char* name_only, std::int32_t space) { return create(name_only, space, address); }); \
  }
TARN_NUMBER_REGISTERS(TARN_CREATE)
#undef TARN_CREATE

std::shared_ptr<StringRegNode> StringRegNode::Create(std::string_view name, std::int64_t length,
                                                     std::optional<std::int32_t> name_space,
                                                     std::int64_t address) {
  return Private::CreateFreeNode<StringRegNode>(
      name, name_space, [address, length](const char* name_only, std::int32_t space) {
        return CreateGSStringRegNode(name_only, space, address, length);
      });
}

}  // namespace Tarn::GevServer

namespace Tarn::GevServer::Private {

namespace {

constexpr std::int64_t kAnyLength = 0;

struct Row {
  std::int32_t type;
  std::int64_t length;  ///< bytes of the register
  std::shared_ptr<Node> (*make)(HandleGuard<Node> handle, std::weak_ptr<NodeMap> map);
};

template <class T>
std::shared_ptr<Node> Make(HandleGuard<Node> handle, std::weak_ptr<NodeMap> map) {
  return MakeNode<T>(std::move(handle), std::move(map));
}

// The first row that fits counts.
constexpr Row kRows[] = {
#define TARN_ROW(Class, type, create) {type, kAnyLength, Make<Class>},
    TARN_PLAIN_NODES(TARN_ROW)
#undef TARN_ROW
#define TARN_ROW(Class, type, length, create) {type, length, Make<Class>},
        TARN_NUMBER_REGISTERS(TARN_ROW)
#undef TARN_ROW
            {GSN_TYPE_INT_REG, kAnyLength, Make<IntRegNode>},
    {GSN_TYPE_FLOAT_REG, kAnyLength, Make<FloatRegNode>},
    {GSN_TYPE_STRING_REG, kAnyLength, Make<StringRegNode>},
};

std::int32_t TypeOf(TR_HANDLE handle) {
  std::int32_t type = GSN_TYPE_INVALID;
  const TR_STATUS status = GSNType(handle, &type);
  if (status < 0) ThrowStatus(status, "failed to get node type");
  if (type == GSN_TYPE_INVALID) throw std::runtime_error("invalid node type");
  return type;
}

std::int64_t LengthOf(TR_HANDLE handle, const char* failure) {
  std::int64_t length = 0;
  const TR_STATUS status = GSNGetInfoAsInteger(handle, GSN_INFO_REGISTER_LENGTH, &length);
  if (status < 0) ThrowStatus(status, failure);
  return length;
}

}  // namespace

std::int32_t DefaultNode::AccessMode() const { throw std::runtime_error("not implemented"); }
std::int32_t DefaultNode::CacheMode() const { throw std::runtime_error("not implemented"); }

std::shared_ptr<Node> NodeOfHandle(HandleGuard<Node> handle, std::weak_ptr<NodeMap> map,
                                   const char* length_failure) {
  if (auto known = NodeRegistry::Instance().Find(handle.Get())) return known;
  const std::int32_t type = TypeOf(handle.Get());
  std::optional<std::int64_t> length;  // asked for once, of nodes whose class depends on it
  for (const Row& row : kRows) {
    if (row.type != type) continue;
    if (row.length != kAnyLength && !length) length = LengthOf(handle.Get(), length_failure);
    if (row.length == kAnyLength || row.length == length) return row.make(std::move(handle), std::move(map));
  }
  return Make<DefaultNode>(std::move(handle), std::move(map));
}

}  // namespace Tarn::GevServer::Private
