#include "gevserver/nodes/numeric_text.h"

#include "core/tarn_exception.h"
#include "core/two_call_text.h"
#include "gevserver/library/tr_gev_server.h"

namespace Tarn::GevServer::Private {

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

}  // namespace Tarn::GevServer::Private
