#include "module/build_id.h"

namespace _tarn::gevserver {
namespace {

constexpr const char* kMajor = "1";
constexpr const char* kMinor = "11";
constexpr const char* kPatch = "7";
constexpr const char* kBuild = "21";
constexpr const char* kConfiguration = "Release";
constexpr const char* kCompiler = "gcc94";
constexpr const char* kPlatform = "ubu2004-x86_64";
constexpr const char* kNativeLayer = "v1.11.4.build-31";

}  // namespace

std::string BuildId() {
  return std::string("TARNpy-v") + kMajor + "." + kMinor + "." + kPatch + ".build-" + kBuild + "." +
         kConfiguration + " " + kCompiler + " @ " + kPlatform + " & TARNpp-" + kNativeLayer;
}

}  // namespace _tarn::gevserver
