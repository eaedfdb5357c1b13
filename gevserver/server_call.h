#pragma once

/// The check around calls of the server library.

#include <string>
#include <string_view>

#include "gevserver/library/tr_types.h"

namespace Tarn::GevServer {

inline constexpr std::string_view kServerPrefix = "ServerBase ";
inline constexpr std::string_view kNodeMapPrefix = "NodeMap: ";

/// The server library's text for this thread's last failure; empty when it cannot be had.
std::string LastErrorText();

/// Throws when `status` is negative: its own kind of exception, with `prefix` and the server library's last
/// text ("Error" when there is none).
void CheckServerCall(std::string_view prefix, TR_STATUS status);

}  // namespace Tarn::GevServer
