#include "gevserver/nodes/boolean_value.h"

#include <algorithm>
#include <stdexcept>

#include "core/library_call.h"
#include "gevserver/library/tr_gev_server.h"

namespace Tarn::GevServer::Private {

bool GetBoolean(TR_HANDLE node) {
  bool value = false;
  CheckLastError(GSNGetAsBoolean(node, &value));
  return value;
}

void SetBoolean(TR_HANDLE node, bool value) { CheckLastError(GSNSetAsBoolean(node, value)); }

std::string BooleanText(bool value) { return value ? "true" : "false"; }

bool ParseBoolean(const std::string& text) {
  if (text.empty()) throw std::runtime_error("String must not be empty");
  // By hand: the standard's conversion follows the locale, and node values are no prose.
  std::string lower = text;
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
  return lower == "true";
}

}  // namespace Tarn::GevServer::Private
