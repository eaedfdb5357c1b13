#include "gevserver/nodes/number_base_nodes.h"

#include "core/library_call.h"
#include "core/tarn_exception.h"
#include "core/two_call_text.h"
#include "gevserver/library/tr_gev_server.h"

namespace Tarn::GevServer {

namespace {

std::string NumericText(TR_HANDLE node) {
  const auto fail_with = [](const char* text) {
    return [text](TR_STATUS status) {
      if (status < 0) ThrowStatus(status, text);
    };
  };
  return ReadTwoCallText([node](char* text, std::size_t* size) { return GSNGetAsString(node, text, size); },
                         fail_with("failed to get string representation name length"),
                         fail_with("failed to get string representation of this node"));
}

}  // namespace

std::int64_t IntegerBaseNode::Value() const {
  std::int64_t value = 0;
  CheckLastError(GSNGetAsInteger(Handle(), &value));
  return value;
}

void IntegerBaseNode::SetValue(std::int64_t value) { CheckLastError(GSNSetAsInteger(Handle(), value)); }

std::string IntegerBaseNode::ToString() const { return NumericText(Handle()); }

double FloatBaseNode::Value() const {
  double value = 0.0;
  CheckLastError(GSNGetAsFloat(Handle(), &value));
  return value;
}

void FloatBaseNode::SetValue(double value) { CheckLastError(GSNSetAsFloat(Handle(), value)); }

std::string FloatBaseNode::ToString() const { return NumericText(Handle()); }

}  // namespace Tarn::GevServer
