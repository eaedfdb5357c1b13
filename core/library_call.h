#pragma once

/// Checks around library calls whose failure is found in the thread's last error.

#include <string_view>

#include "gevserver/library/tr_types.h"

namespace Tarn {

/// Throws when `result` is negative: by the code and text of this thread's last error, or by `result` itself
/// with the text "no specific message" when none is recorded.
void CheckLastError(TR_STATUS result);

/// Throws what CheckLastError throws for a negative `result`; for calls that answer failure with a null
/// handle.
[[noreturn]] void ThrowLastError(TR_STATUS result);

/// Code of this thread's last error; `otherwise` when none is recorded.
TR_STATUS LastErrorCode(TR_STATUS otherwise);

/// Records a failed call in the product's error log. Throws nothing of its own.
/// \param marked_name  the function's name behind the mark "_pp", as in "_ppGetImageVPA"
void ReportFailedCall(TR_STATUS status, std::string_view marked_name);

/// Status that stands for a call which answers with a boolean.
TR_STATUS StatusOf(bool succeeded) noexcept;

/// For image library calls: reports any result but 0, then throws as CheckLastError does.
void CheckImageCall(TR_STATUS result, std::string_view marked_name);

}  // namespace Tarn
