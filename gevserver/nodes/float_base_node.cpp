#include "gevserver/nodes/float_base_node.h"

#include "core/library_call.h"
#include "gevserver/library/tr_gev_server.h"
#include "gevserver/nodes/numeric_text.h"

namespace Tarn::GevServer {

double FloatBaseNode::Value() const {
  double value = 0.0;
  CheckLastError(GSNGetAsFloat(Handle(), &value));
  return value;
}

void FloatBaseNode::SetValue(double value) { CheckLastError(GSNSetAsFloat(Handle(), value)); }

std::string FloatBaseNode::ToString() const { return Private::NumericText(Handle()); }

}  // namespace Tarn::GevServer
