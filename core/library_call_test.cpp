#include "core/library_call.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <new>
#include <set>
#include <stdexcept>
#include <typeinfo>

#include "core/fake_library_test.h"
#include "core/handle_guard.h"
#include "core/tarn_exception.h"

namespace Tarn {
namespace {

using testing::ElementsAre;

class LibraryCall : public testing::Test {
 protected:
  LibraryCall() { library_.Reset(); }

  Testing::FakeLibrary& library_ = Testing::FakeLibrary::Instance();
};

// Name of what `action` throws; "nothing" when it does not.
template <class Action>
std::string KindOf(Action&& action) {
  try {
    action();
  } catch (const std::invalid_argument&) {
    return "argument";
  } catch (const std::out_of_range&) {
    return "range";
  } catch (const std::domain_error&) {
    return "domain";
  } catch (const std::overflow_error&) {
    return "overflow";
  } catch (const std::bad_alloc&) {
    return "memory";
  } catch (const TarnException&) {
    return "other";
  }
  return "nothing";
}

TEST_F(LibraryCall, ThrowsTheKindOfEachCode) {
  const std::map<std::string, std::set<std::uint32_t>> kinds = {
      {"argument", {0x02, 0x22, 0x23, 0x24, 0x25, 0x26, 0x28, 0x29}},
      {"range", {0x06, 0x08, 0x09, 0x0A, 0x0D, 0x30}},
      {"domain", {0x07, 0x12, 0x13, 0x16, 0x18, 0x19, 0x1A, 0x1B, 0x1C, 0x1E, 0x27, 0x2A, 0x2F, 0x31}},
      {"overflow", {0x2B}},
      {"memory", {0x05}}};
  for (std::uint32_t number = 0; number < 0x40; ++number) {
    std::string expected = "other";
    for (const auto& [kind, numbers] : kinds) {
      if (numbers.contains(number)) expected = kind;
    }
    const auto status = static_cast<TR_STATUS>(0x80000000U + number);
    EXPECT_EQ(KindOf([&] { ThrowStatus(status, "text"); }), expected) << "code " << number;
  }
}

TEST_F(LibraryCall, KeepsCodeAndTextOfAnUnlistedFailure) {
  const TR_STATUS status = TR_FAILURE(0);
  try {
    ThrowStatus(status, "what happened");
  } catch (const TarnException& e) {
    EXPECT_EQ(e.Code(), status);
    EXPECT_STREQ(e.what(), "what happened");
    return;
  }
  FAIL() << "threw nothing of its kind";
}

TEST_F(LibraryCall, IsDecidedByTheLastErrorWhenThereIsOne) {
  library_.last_error_code = TR_E_OUT_OF_RANGE;
  library_.last_error_text = L"gr\u00f6\u00dfer als \u20ac \U0001F600";
  try {
    CheckLastError(TR_E_INVALID_ARGUMENT);
    FAIL() << "threw nothing";
  } catch (const std::out_of_range& e) {
    EXPECT_STREQ(e.what(),
                 "gr\xC3\xB6\xC3\x9F"
                 "er als \xE2\x82\xAC \xF0\x9F\x98\x80");
  }
  library_.last_error_text = L"\xD800";
  EXPECT_THROW(CheckLastError(TR_E_INVALID_ARGUMENT), std::range_error);
}

TEST_F(LibraryCall, FallsBackToItsOwnStatusWithoutALastError) {
  for (const bool fetching_fails : {false, true}) {
    library_.last_error_code = fetching_fails ? TR_E_OUT_OF_RANGE : TR_OK;
    library_.Fail("TRCGetLastErrorW", fetching_fails ? TR_E_INTERNAL : TR_OK);
    try {
      CheckLastError(TR_E_EXISTS);
      FAIL() << "threw nothing";
    } catch (const std::invalid_argument& e) {
      EXPECT_STREQ(e.what(), "no specific message");
    }
  }
}

TEST_F(LibraryCall, TakesEveryStatusThatIsNotNegativeAsSuccess) {
  library_.last_error_code = TR_E_OUT_OF_RANGE;
  for (const TR_STATUS status : {0, 1, 0x7FFFFFFF}) EXPECT_NO_THROW(CheckLastError(status)) << status;
}

TEST_F(LibraryCall, ReportsImageFailuresUnderTheUnmarkedName) {
  EXPECT_ANY_THROW(CheckImageCall(TR_E_INTERNAL, "_ppGetImageVPA"));
  EXPECT_NO_THROW(CheckImageCall(TR_OK, "_ppGetImageVPA"));
  EXPECT_THAT(
      library_.reports,
      ElementsAre("-2147483644|C-API call failed; try getting a log by using TARN LogScope/logscopeutil: "
                  "{\"Name\": \"GetImageVPA\", \"TRC_ERROR_CODE\": 4}|GetImageVPA"));
}

TEST_F(LibraryCall, HandlesAreGivenBackOnceByWhoeverOwnsThemLast) {
  const TR_HANDLE handle = library_.NewHandle();
  const TR_HANDLE replaced = library_.NewHandle();
  {
    RawHandleGuard first(handle);
    RawHandleGuard second(replaced);
    second = std::move(first);
    EXPECT_FALSE(library_.IsLive(replaced));
    EXPECT_TRUE(library_.IsLive(handle));
    EXPECT_FALSE(first);
  }
  EXPECT_EQ(library_.LiveHandles(), 0U);

  std::vector<TR_HANDLE> given_back;
  {
    const RawHandleGuard own(handle, [&](TR_HANDLE what) { given_back.push_back(what); });
  }
  {
    const RawHandleGuard none(nullptr, [&](TR_HANDLE what) { given_back.push_back(what); });
  }
  EXPECT_THAT(given_back, ElementsAre(handle));
}

}  // namespace
}  // namespace Tarn
