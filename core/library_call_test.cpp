#include "core/library_call.h"

#include <gtest/gtest.h>

#include <map>
#include <new>
#include <set>
#include <stdexcept>
#include <typeindex>

#include "core/image.h"
#include "core/tarn_exception.h"
#include "core/wide_text.h"
#include "gevserver/library/tr_utilities.h"

namespace Tarn {
namespace {

/// Type and text of what `action` throws.
template <class Action>
std::pair<std::type_index, std::string> Thrown(Action&& action) {
  try {
    action();
  } catch (const std::exception& e) {
    return {typeid(e), e.what()};
  }
  return {typeid(void), ""};
}

TEST(LibraryCall, ThrowsTheKindOfEachCode) {
  const std::map<std::type_index, std::set<std::uint32_t>> kinds = {
      {typeid(std::invalid_argument), {0x02, 0x22, 0x23, 0x24, 0x25, 0x26, 0x28, 0x29}},
      {typeid(std::out_of_range), {0x06, 0x08, 0x09, 0x0A, 0x0D, 0x30}},
      {typeid(std::domain_error),
       {0x07, 0x12, 0x13, 0x16, 0x18, 0x19, 0x1A, 0x1B, 0x1C, 0x1E, 0x27, 0x2A, 0x2F, 0x31}},
      {typeid(std::overflow_error), {0x2B}},
      {typeid(std::bad_alloc), {0x05}}};
  for (std::uint32_t number = 0; number < 0x40; ++number) {
    std::type_index expected = typeid(TarnException);
    for (const auto& [kind, numbers] : kinds) {
      if (numbers.contains(number)) expected = kind;
    }
    const auto [kind, text] =
        Thrown([&] { ThrowStatus(TR_FAILURE(static_cast<TR_STATUS>(number)), "text"); });
    EXPECT_EQ(kind, expected) << "code " << number;
    EXPECT_EQ(text, kind == typeid(std::bad_alloc) ? "std::bad_alloc" : "text") << "code " << number;
  }
}

TEST(LibraryCall, IsDecidedByTheLastErrorWhenThereIsOne) {
  using Error = std::pair<std::type_index, std::string>;
  const auto check = [](TR_STATUS status) { return Thrown([status] { CheckLastError(status); }); };
  TRCSetLastError(TR_OK, nullptr);
  EXPECT_EQ(check(TR_E_EXISTS), Error(typeid(std::invalid_argument), "no specific message"));
  EXPECT_EQ(LastErrorCode(TR_E_EXISTS), TR_E_EXISTS);
  TRCSetLastError(TR_E_OUT_OF_RANGE, "größer als € 😀");
  EXPECT_EQ(check(TR_E_EXISTS), Error(typeid(std::out_of_range), "größer als € 😀"));
  EXPECT_EQ(LastErrorCode(TR_E_EXISTS), TR_E_OUT_OF_RANGE);
  for (const TR_STATUS status : {0, 1, 0x7FFFFFFF}) EXPECT_NO_THROW(CheckLastError(status)) << status;
  EXPECT_THROW(Utf8FromWide(L"\xD800"), std::range_error);
}

TEST(Image, NoExceptionOfItsOwnerEntersTheLibrary) {
  std::uint8_t sample = 0;
  const TRPlaneLayout layout{&sample, 1, 1};
  const std::function<void()> owners[] = {[] { throw std::runtime_error("late"); }, {}};
  for (const auto& released : owners)
    EXPECT_NO_THROW(Image::FromPointer(1, 1, DataTypes::kInt8BppUnsigned, {&layout, 1}, released));
}

}  // namespace
}  // namespace Tarn
