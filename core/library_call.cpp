#include "core/library_call.h"

#include <cstddef>
#include <cstdint>
#include <string>

#include "core/tarn_exception.h"
#include "core/wide_text.h"
#include "gevserver/library/tr_utilities.h"

namespace Tarn {

namespace {

struct LastError {
  TR_STATUS code = TR_OK;
  std::string text;
};

// A failure to get the text leaves code 0, so that the failure which is being reported decides.
LastError FetchLastError() {
  LastError error;
  std::size_t size = 0;
  if (TRCGetLastErrorW(&error.code, nullptr, &size) < 0) return {};
  std::wstring text(size + 1, L'\0');
  if (TRCGetLastErrorW(&error.code, text.data(), &size) < 0) return {};
  error.text = Utf8FromWide(text.c_str());
  return error;
}

std::string_view CalledName(std::string_view marked_name) {
  constexpr std::string_view kMark = "_pp";
  const std::size_t mark = marked_name.find(kMark);
  return mark == std::string_view::npos ? marked_name : marked_name.substr(mark + kMark.size());
}

}  // namespace

TR_STATUS LastErrorCode(TR_STATUS otherwise) {
  const TR_STATUS code = FetchLastError().code;
  return code < 0 ? code : otherwise;
}

void CheckLastError(TR_STATUS result) {
  if (result < 0) ThrowLastError(result);
}

void ThrowLastError(TR_STATUS result) {
  const LastError error = FetchLastError();
  if (error.code != TR_OK) ThrowStatus(error.code, error.text);
  ThrowStatus(result, "no specific message");
}

void ReportFailedCall(TR_STATUS status, std::string_view marked_name) {
  const std::string name(CalledName(marked_name));
  const std::uint32_t number = static_cast<std::uint32_t>(status) & 0x7FFFFFFF;
  const std::string message =
      "C-API call failed; try getting a log by using TARN LogScope/logscopeutil: {\"Name\": \"" + name +
      "\", \"TRC_ERROR_CODE\": " + std::to_string(number) + "}";
  ReportTARNErrorEx(status, message.c_str(), name.c_str());
}

TR_STATUS StatusOf(bool succeeded) noexcept { return succeeded ? TR_OK : TR_E_FAILED; }

void CheckImageCall(TR_STATUS result, std::string_view marked_name) {
  if (result != TR_OK) ReportFailedCall(result, marked_name);
  CheckLastError(result);
}

}  // namespace Tarn
