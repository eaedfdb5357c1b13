#include "gevserver/server_call.h"

#include <cstddef>
#include <string>

#include "core/library_call.h"
#include "core/tarn_exception.h"
#include "gevserver/library/tr_gev_server.h"

namespace Tarn::GevServer {

// Its own failure is only reported, so that it never hides the one being described.
std::string LastErrorText() {
  constexpr std::string_view kCall = "_ppGSGetLastErrorString";
  std::size_t size = 0;
  TR_STATUS status = GSGetLastErrorString(nullptr, &size);
  if (status == TR_OK && size > 1) {
    std::string text(size, '\0');
    status = GSGetLastErrorString(text.data(), &size);
    if (status == TR_OK) return text.c_str();
  }
  if (status != TR_OK) ReportFailedCall(status, kCall);
  return {};
}

void CheckServerCall(std::string_view prefix, TR_STATUS status) {
  if (status >= 0) return;
  const std::string text = LastErrorText();
  ThrowStatus(status, std::string(prefix) + (text.empty() ? "Error" : text));
}

}  // namespace Tarn::GevServer
