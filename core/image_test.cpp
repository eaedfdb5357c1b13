#include "core/image.h"

#include <gtest/gtest.h>

#include <array>
#include <stdexcept>

#include "core/fake_library_test.h"

namespace Tarn {
namespace {

class ImageTest : public testing::Test {
 protected:
  ImageTest() { library_.Reset(); }

  Testing::FakeLibrary& library_ = Testing::FakeLibrary::Instance();
  // Two planes of 3 x 2 samples of 16 bits, one behind the other, the second upside down and mirrored.
  std::array<std::uint16_t, 12> memory_ = {1, 2, 3, 4, 5, 6, 70, 60, 50, 40, 30, 20};
  std::array<TRPlaneLayout, 2> layouts_ = {{{&memory_[0], 2, 6}, {&memory_[11], -2, -6}}};
};

TEST_F(ImageTest, TellsOnceWhenCallerMemoryIsFree) {
  int released = 0;
  auto image = Image::FromPointer(3, 2, DataTypes::kInt16BppUnsigned, layouts_, [&] { ++released; });
  auto shared = image;
  image.reset();
  EXPECT_EQ(released, 0);
  shared.reset();
  EXPECT_EQ(released, 1);
}

TEST_F(ImageTest, NeverCallsBackForAnImageThatWasRefused) {
  library_.Fail("CreateImageFromPointer", TR_E_INVALID_ARGUMENT);
  int released = 0;
  EXPECT_THROW(Image::FromPointer(3, 2, DataTypes::kInt16BppUnsigned, layouts_, [&] { ++released; }),
               std::invalid_argument);
  EXPECT_EQ(released, 0);
  EXPECT_EQ(library_.reports.size(), 1U);
}

TEST_F(ImageTest, DropsWhatTheReleaseCallbackThrows) {
  EXPECT_NO_THROW(Image::FromPointer(3, 2, DataTypes::kInt16BppUnsigned, layouts_, [] { throw 1; }));
  EXPECT_NO_THROW(Image::FromPointer(3, 2, DataTypes::kInt16BppUnsigned, layouts_, {}));
}

TEST_F(ImageTest, CopiesPixelsOfAnyLayout) {
  const auto image = Image::FromPointer(3, 2, DataTypes::kInt16BppUnsigned, layouts_, {}, ColorModel::HSV);
  const auto copy = image->Copy();
  EXPECT_EQ(copy->Model(), ColorModel::HSV);
  const auto* pixels = static_cast<const std::uint16_t*>(copy->LinearAccess(0).base);
  const std::array<std::uint16_t, 12> interleaved = {1, 20, 2, 30, 3, 40, 4, 50, 5, 60, 6, 70};
  for (std::size_t i = 0; i < interleaved.size(); ++i) EXPECT_EQ(pixels[i], interleaved[i]) << "sample " << i;
}

TEST_F(ImageTest, FailsForAPlaneWithoutLinearLayout) {
  const auto image = Image::FromPointer(3, 2, DataTypes::kInt16BppUnsigned, layouts_, {});
  library_.Fail("GetLinearAccess", TR_E_FAILED);
  EXPECT_ANY_THROW(image->LinearAccess(0));
  EXPECT_EQ(library_.reports.size(), 1U);
}

}  // namespace
}  // namespace Tarn
