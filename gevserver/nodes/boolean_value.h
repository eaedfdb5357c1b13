#pragma once

/// Values that are true or false, as booleans and commands have them.

#include <string>

#include "gevserver/library/tr_types.h"

namespace Tarn::GevServer::Private {

bool GetBoolean(TR_HANDLE node);
void SetBoolean(TR_HANDLE node, bool value);

/// "true" or "false".
std::string BooleanText(bool value);

/// True for "true" in any case, false for every other text; callers rely on the latter.
/// Throws: std::runtime_error "String must not be empty".
bool ParseBoolean(const std::string& text);

}  // namespace Tarn::GevServer::Private
