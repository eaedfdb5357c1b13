#include "gevserver/nodes/integer_base_node.h"

#include "core/library_call.h"
#include "gevserver/library/tr_gev_server.h"
#include "gevserver/nodes/numeric_text.h"

namespace Tarn::GevServer {

std::int64_t IntegerBaseNode::Value() const {
  std::int64_t value = 0;
  CheckLastError(GSNGetAsInteger(Handle(), &value));
  return value;
}

void IntegerBaseNode::SetValue(std::int64_t value) { CheckLastError(GSNSetAsInteger(Handle(), value)); }

std::string IntegerBaseNode::ToString() const { return Private::NumericText(Handle()); }

}  // namespace Tarn::GevServer
