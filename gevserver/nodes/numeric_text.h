#pragma once

/// The text form of numeric values.

#include <string>

#include "gevserver/library/tr_types.h"

namespace Tarn::GevServer::Private {

/// Throws: the kind of the library's code, with "failed to get string representation name length" or
///   "failed to get string representation of this node".
std::string NumericText(TR_HANDLE node);

}  // namespace Tarn::GevServer::Private
