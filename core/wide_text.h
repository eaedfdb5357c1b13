#pragma once

/// Wide text of the libraries as UTF-8.

#include <string>
#include <string_view>

namespace Tarn {

/// What is no Unicode character becomes U+FFFD.
/// Requires: wide characters hold whole code points, as on all systems but Windows.
std::string Utf8FromWide(std::wstring_view text);

}  // namespace Tarn
