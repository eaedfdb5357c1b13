#include "gevserver/nodes/enumeration_node.h"

#include "core/library_call.h"
#include "gevserver/library/tr_gev_server.h"

namespace Tarn::GevServer {

std::vector<std::shared_ptr<EnumEntryNode>> EnumerationNode::Entries() const {
  std::vector<std::shared_ptr<EnumEntryNode>> entries;
  for (const auto& node : Related(GSN_LIST_CHILD)) {
    if (auto entry = std::dynamic_pointer_cast<EnumEntryNode>(node)) entries.push_back(std::move(entry));
  }
  return entries;
}

std::int64_t EnumerationNode::NumericValue() const {
  std::int64_t value = 0;
  CheckLastError(GSNGetAsInteger(Handle(), &value));
  return value;
}

}  // namespace Tarn::GevServer
