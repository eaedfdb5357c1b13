#include "camera/image/image_buffer.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <thread>

#include "camera/base/engine_error.h"

namespace Tarn {
namespace {

constexpr std::uint32_t kMono8 = 8;

std::uint8_t* SampleAt(const ImagePlane& plane, std::int64_t x, std::int64_t y) {
  return plane.base + x * plane.x_increment + y * plane.y_increment;
}

TEST(ImageBuffer, OwnsZeroedInterleavedMemoryOfItsSize) {
  for (const std::uint32_t type : {0x008u, 0x00Cu, 0x340u}) {
    const auto image = ImageBuffer::CreateFilled(5, 3, 3, type);
    const auto bytes = static_cast<std::ptrdiff_t>(SampleBytes(type));
    std::uint8_t* next = image->Plane(0).base;
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(next) % 64, 0u);
    for (int y = 0; y < 3; ++y) {
      for (int x = 0; x < 5; ++x) {
        for (int plane = 0; plane < 3; ++plane, next += bytes) {
          ASSERT_EQ(SampleAt(image->Plane(plane), x, y), next) << x << ' ' << y << ' ' << plane;
          for (std::ptrdiff_t i = 0; i < bytes; ++i) {
            EXPECT_EQ(next[i], 0);
            next[i] = 0xFF;  // under a sanitizer, also a check of the size
          }
        }
      }
    }
  }
}

TEST(ImageBuffer, RefusesWhatCannotBe) {
  struct Row {
    std::int64_t width, height, planes;
    std::uint32_t data_type;
    Failure failure;
    const char* text;
  };
  constexpr auto kBig = ImageBuffer::kMaxExtent;
  const Row rows[] = {
      {0, 1, 1, kMono8, Failure::kInvalidArgument, "width must lie within 1 and 2147483647, not 0"},
      {1, -1, 1, kMono8, Failure::kInvalidArgument, "height must lie within 1 and 2147483647, not -1"},
      {kBig + 1, 1, 1, kMono8, Failure::kInvalidArgument, "width must"},
      {1, INT64_MIN, 1, kMono8, Failure::kInvalidArgument, "height must"},
      {1, 1, 0, kMono8, Failure::kInvalidArgument, "planes must lie within 1 and 65536, not 0"},
      {1, 1, INT64_MAX, kMono8, Failure::kInvalidArgument, "planes must"},
      {1, 1, 1, 0x100, Failure::kInvalidArgument, "data type must have 1 to 64 bits per sample, not 0"},
      {1, 1, 1, 65, Failure::kInvalidArgument, "data type must"},
      {kBig, kBig, 1, 64, Failure::kNoMemory, "exceeds the address space"},
      {kBig, kBig, 65536, kMono8, Failure::kNoMemory, "exceeds the address space"},
  };
  for (const Row& row : rows) {
    try {
      ImageBuffer::CreateFilled(row.width, row.height, row.planes, row.data_type);
      ADD_FAILURE() << row.text;
    } catch (const EngineError& e) {
      EXPECT_EQ(e.failure(), row.failure) << row.text;
      EXPECT_NE(std::string(e.what()).find(row.text), std::string::npos) << e.what();
    }
  }
}

TEST(ImageBuffer, ReportsAnAllocationThatFails) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "a sanitizer ends the program instead";
#else
  try {
    ImageBuffer::CreateFilled(ImageBuffer::kMaxExtent, ImageBuffer::kMaxExtent, 1, kMono8);
    ADD_FAILURE();
  } catch (const EngineError& e) {
    EXPECT_EQ(e.failure(), Failure::kNoMemory);
    EXPECT_STREQ(e.what(), "no memory for an image of 4611686014132420609 bytes");
  }
#endif
}

TEST(ImageBuffer, RefusesPlanesOutOfReach) {
  std::uint8_t byte = 0;
  const ImagePlane good{&byte, 1, 10, kMono8};
  const ImagePlane bad[] = {{nullptr, 1, 10, kMono8},
                            {&byte, PTRDIFF_MAX / 4, 10, kMono8},
                            {&byte, 1, PTRDIFF_MIN, kMono8},
                            {&byte, PTRDIFF_MAX / 9, PTRDIFF_MAX / 9, kMono8},
                            {&byte, 1, 10, 0}};
  EXPECT_NO_THROW(ImageBuffer(10, 10, {good, good}, nullptr));
  for (const ImagePlane& plane : bad) {
    EXPECT_THROW(ImageBuffer(10, 10, {good, plane}, nullptr), EngineError)
        << plane.x_increment << ' ' << plane.y_increment;
  }
  EXPECT_THROW(ImageBuffer(10, 10, {}, nullptr), EngineError);
}

TEST(ImageBuffer, TableLeadsToTheSameSamplesAsTheIncrements) {
  std::array<std::uint8_t, 64> memory{};
  // Upside down and mirrored, taller than wide.
  const ImageBuffer image(3, 4, {{&memory[40], -2, -8, kMono8}}, nullptr);
  const VpaEntry* table = image.VpaTable(0);
  for (int y = 0; y < 4; ++y) {
    for (int x = 0; x < 3; ++x) {
      EXPECT_EQ(image.Plane(0).base + table[x].x_offset + table[y].y_offset,
                memory.data() + 40 - 2 * x - 8 * y);
    }
  }
  EXPECT_THROW(image.VpaTable(1), EngineError);
  EXPECT_THROW(image.VpaTable(-1), EngineError);
}

TEST(ImageBuffer, MakesItsTableOnceForAllThreads) {
  const auto image = ImageBuffer::CreateFilled(1000, 10, 1, kMono8);
  std::array<const VpaEntry*, 4> seen{};
  {
    std::array<std::jthread, 4> threads;
    for (std::size_t i = 0; i < threads.size(); ++i) {
      threads[i] = std::jthread([&, i] { seen[i] = image->VpaTable(0); });
    }
  }
  for (const VpaEntry* table : seen) EXPECT_EQ(table, seen[0]);
  EXPECT_EQ(seen[0][999].x_offset, 999);
}

TEST(ImageBuffer, LetsGoOfItsOwnerAtTheEnd) {
  std::array<std::uint8_t, 4> memory{};
  auto owner = std::make_shared<int>(0);
  {
    const ImageBuffer image(2, 2, {{memory.data(), 1, 2, kMono8}}, owner);
    EXPECT_EQ(owner.use_count(), 2);
  }
  EXPECT_EQ(owner.use_count(), 1);
}

}  // namespace
}  // namespace Tarn
