#pragma once

/// Numbers as text and back, independent of the process' locale.

#include <cstdint>
#include <string>

namespace Tarn {

/// Shortest text that reads back as the same number; "INF", "-INF", "NaN" as XML spells them.
std::string FloatText(double value);

/// Decimal with optional sign, or hexadecimal after 0x; the whole text, blanks around it aside.
/// \param what  named in the failure text. Throw: EngineError kText, kOverflow when it does not fit.
std::int64_t ParseInteger(const std::string& text, const std::string& what);
double ParseFloat(const std::string& text, const std::string& what);

}  // namespace Tarn
