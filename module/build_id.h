#pragma once

/// What this build is called.

#include <string>

namespace _tarn::gevserver {

/// The Python layer's version, build and platform, and the version of the native layer below it.
std::string BuildId();

}  // namespace _tarn::gevserver
