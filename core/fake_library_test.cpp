#include "core/fake_library_test.h"

#include <algorithm>

#include "gevserver/library/tr_core.h"
#include "gevserver/library/tr_img.h"
#include "gevserver/library/tr_utilities.h"

namespace Tarn::Testing {

FakeLibrary& FakeLibrary::Instance() {
  static FakeLibrary library;
  return library;
}

TR_HANDLE FakeLibrary::NewHandle(std::function<void()> destroyed) {
  const TR_HANDLE handle = reinterpret_cast<TR_HANDLE>(++last_handle_);
  live_[handle].destroyed = std::move(destroyed);
  return handle;
}

TR_STATUS FakeLibrary::Share(TR_HANDLE handle) {
  if (!IsLive(handle)) return TR_E_INVALID_HANDLE;
  ++live_[handle].references;
  return TR_OK;
}

TR_STATUS FakeLibrary::Release(TR_HANDLE* handle) {
  if (handle == nullptr || !IsLive(*handle)) return TR_E_INVALID_HANDLE;
  Object& object = live_[*handle];
  if (--object.references == 0) {
    const auto destroyed = std::move(object.destroyed);
    live_.erase(*handle);
    if (destroyed) destroyed();
  }
  *handle = nullptr;
  return TR_OK;
}

TR_STATUS FakeLibrary::Enter(const std::string& function, const std::string& arguments) {
  calls.push_back(function + '(' + arguments + ')');
  const auto failure = failures.find(function);
  return failure == failures.end() ? TR_OK : failure->second;
}

std::size_t FakeLibrary::Count(const std::string& function) const {
  return static_cast<std::size_t>(std::count_if(
      calls.begin(), calls.end(), [&](const std::string& call) { return call.starts_with(function + '('); }));
}

}  // namespace Tarn::Testing

using Tarn::Testing::FakeLibrary;

namespace {

FakeLibrary& Fake() { return FakeLibrary::Instance(); }

// The one image that the fake image library describes: two planes of 3 x 2 samples of 16 bits.
constexpr std::int64_t kWidth = 3;
constexpr std::int64_t kHeight = 2;
constexpr std::int64_t kPlanes = 2;
std::map<TR_HANDLE, std::vector<TRPlaneLayout>> image_planes;

}  // namespace

extern "C" {

TR_STATUS ShareObject(TR_HANDLE object) { return Fake().Share(object); }
TR_STATUS ReleaseObject(TR_HANDLE* object) { return Fake().Release(object); }

TR_STATUS TRCGetLastErrorW(TR_STATUS* code, wchar_t* text, std::size_t* size) {
  if (const TR_STATUS failure = Fake().Enter("TRCGetLastErrorW")) return failure;
  *code = Fake().last_error_code;
  return Tarn::Testing::AnswerText(Fake().last_error_text, text, size);
}

TR_STATUS TRCGetPFNCValueName(std::uint32_t value, char* name, std::size_t* size) {
  if (const TR_STATUS failure = Fake().Enter("TRCGetPFNCValueName")) return failure;
  if (value != 0x01080001) return TR_E_NOT_FOUND;
  return Tarn::Testing::AnswerText(std::string("Mono8"), name, size);
}

void ReportTARNErrorEx(TR_STATUS code, const char* message, const char* function_name) {
  Fake().reports.push_back(std::to_string(code) + '|' + message + '|' + function_name);
}

TR_STATUS CreateImageFromPointer(std::int64_t, std::int64_t, std::int64_t planes, std::uint32_t,
                                 const TRPlaneLayout* layouts, TRImageReleased released, void* context,
                                 TR_HANDLE* image) {
  if (const TR_STATUS failure = Fake().Enter("CreateImageFromPointer")) return failure;
  *image = Fake().NewHandle([released, context] { released(context); });
  image_planes[*image].assign(layouts, layouts + planes);
  return TR_OK;
}

std::int64_t ImageWidth(TR_HANDLE) { return kWidth; }
std::int64_t ImageHeight(TR_HANDLE) { return kHeight; }
std::int64_t ImageDimension(TR_HANDLE) { return kPlanes; }
std::uint32_t ImageDatatype(TR_HANDLE, std::int64_t) { return 0x010; }

bool GetLinearAccess(TR_HANDLE image, std::int64_t plane, void** base, std::ptrdiff_t* x_increment,
                     std::ptrdiff_t* y_increment) {
  if (Fake().Enter("GetLinearAccess") != TR_OK) return false;
  const TRPlaneLayout& layout = image_planes[image].at(static_cast<std::size_t>(plane));
  *base = layout.base;
  *x_increment = layout.x_increment;
  *y_increment = layout.y_increment;
  return true;
}

}  // extern "C"
