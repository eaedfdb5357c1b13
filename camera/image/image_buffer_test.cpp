#include "camera/image/image_buffer.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <thread>

#include "camera/base/engine_error.h"

namespace Tarn {
namespace {

constexpr std::uint32_t kMono8 = 8;

TEST(ImageBuffer, OwnsZeroedInterleavedMemoryOfItsSize) {
  for (const std::uint32_t type : {0x008u, 0x00Cu, 0x340u}) {
    const auto image = ImageBuffer::CreateFilled(5, 3, 3, type);
    const auto bytes = static_cast<std::ptrdiff_t>(SampleBytes(type));
    std::uint8_t* next = image->Plane(0).base;
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(next) % 64, 0u);
    for (int sample = 0; sample < 45; ++sample, next += bytes) {
      const ImagePlane& plane = image->Plane(sample % 3);
      ASSERT_EQ(plane.base + sample / 3 % 5 * plane.x_increment + sample / 15 * plane.y_increment, next);
      for (std::ptrdiff_t i = 0; i < bytes; ++i) {
        EXPECT_EQ(next[i], 0);
        next[i] = 0xFF;  // under a sanitizer, also a check of the size
      }
    }
  }
}

TEST(ImageBuffer, RefusesWhatCannotBe) {
  constexpr auto kBig = ImageBuffer::kMaxExtent;
  const struct {
    std::int64_t width, height, planes;
    std::uint32_t data_type;
    Failure failure;
    const char* text;
  } rows[] = {
    {0, 1, 1, kMono8, Failure::kInvalidArgument, "width must lie within 1 and 2147483647, not 0"},
    {kBig + 1, 1, 1, kMono8, Failure::kInvalidArgument, "width must"},
    {1, INT64_MIN, 1, kMono8, Failure::kInvalidArgument, "height must"},
    {1, 1, 65537, kMono8, Failure::kInvalidArgument, "planes must lie within 1 and 65536, not 65537"},
    {1, 1, 1, 0x100, Failure::kInvalidArgument, "data type must have 1 to 64 bits per sample, not 0"},
    {1, 1, 1, 65, Failure::kInvalidArgument, "data type must"},
    {kBig, kBig, 1, 64, Failure::kNoMemory, "exceeds the address space"},
    {kBig, kBig, 65536, kMono8, Failure::kNoMemory, "exceeds the address space"},
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // which end the program instead
    {kBig, kBig, 1, kMono8, Failure::kNoMemory, "no memory for an image of 4611686014132420609 bytes"},
#endif
  };
  for (const auto& row : rows) {
    try {
      ImageBuffer::CreateFilled(row.width, row.height, row.planes, row.data_type);
      ADD_FAILURE() << row.text;
    } catch (const EngineError& e) {
      EXPECT_EQ(e.failure(), row.failure) << row.text;
      EXPECT_NE(std::string(e.what()).find(row.text), std::string::npos) << e.what();
    }
  }
}

TEST(ImageBuffer, RefusesPlanesOutOfReach) {
  std::uint8_t byte = 0;
  const ImagePlane good{&byte, 1, 10, kMono8};
  EXPECT_NO_THROW(ImageBuffer(10, 10, {good, good}, nullptr));
  EXPECT_THROW(ImageBuffer(10, 10, {}, nullptr), EngineError);
  for (const ImagePlane& bad : {ImagePlane{nullptr, 1, 10, kMono8},
                                {&byte, PTRDIFF_MAX / 4, 10, kMono8},
                                {&byte, 1, PTRDIFF_MIN, kMono8},
                                {&byte, PTRDIFF_MAX / 9, PTRDIFF_MAX / 9, kMono8},
                                {&byte, 1, 10, 0}}) {
    EXPECT_THROW(ImageBuffer(10, 10, {good, bad}, nullptr), EngineError)
        << bad.x_increment << ' ' << bad.y_increment;
  }
}

TEST(ImageBuffer, TableLeadsAllThreadsToTheSamplesOfTheIncrements) {
  std::array<std::uint8_t, 64> memory{};
  // Upside down and mirrored, taller than wide.
  const ImageBuffer image(3, 4, {{&memory[40], -2, -8, kMono8}}, nullptr);
  std::array<const VpaEntry*, 4> seen{};
  {
    std::array<std::jthread, 4> threads;
    for (std::size_t i = 0; i < threads.size(); ++i)
      threads[i] = std::jthread([&, i] { seen[i] = image.VpaTable(0); });
  }
  for (const VpaEntry* table : seen) EXPECT_EQ(table, seen[0]);
  for (int i = 0; i < 12; ++i)
    EXPECT_EQ(seen[0][i % 3].x_offset + seen[0][i / 3].y_offset, -2 * (i % 3) - 8 * (i / 3));
  for (const int absent : {-1, 1}) EXPECT_THROW(image.VpaTable(absent), EngineError);
}

}  // namespace
}  // namespace Tarn
