// What it costs to bring images into the wire's order that lie otherwise in memory, beside a plain copy.
//
// Prints, for each shape and size of samples, the CPU time for an image of 1280x1024 pixels, the bytes of
// payload per CPU second, and their ratio to a memcpy of as many bytes, as the median of several rounds. The
// rounds of both take turns.

#include "camera/engine/stream/gather.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <functional>
#include <vector>

namespace Tarn {
namespace {

constexpr std::ptrdiff_t kWidth = 1280;
constexpr std::ptrdiff_t kHeight = 1024;
constexpr std::ptrdiff_t kArea = kWidth * kHeight;
constexpr int kRounds = 41;

struct Shape {
  const char* name;
  SampleOrder order;
  std::size_t planes;
  // In samples:
  std::ptrdiff_t start;  // of the first plane
  std::ptrdiff_t x_increment;
  std::ptrdiff_t y_increment;
  std::ptrdiff_t plane_step;
};

constexpr SampleOrder kPixels = SampleOrder::kInterleaved, kPlanes = SampleOrder::kPlanar;
constexpr Shape kShapes[] = {
    {"every second column", kPixels, 1, 0, 2, 2 * kWidth, 0},
    {"every third column", kPixels, 1, 0, 3, 3 * kWidth, 0},
    {"mirrored", kPixels, 1, kWidth - 1, -1, kWidth, 0},
    {"Fortran order", kPixels, 1, 0, kHeight, 1, 0},
    {"turned by 90 degrees", kPixels, 1, kHeight - 1, kHeight, -1, 0},
    {"planes to RGB", kPixels, 3, 0, 1, kWidth, kArea},
    {"BGR to RGB", kPixels, 3, 2, 3, 3 * kWidth, -1},
    {"RGB mirrored", kPixels, 3, 3 * (kWidth - 1), -3, 3 * kWidth, 1},
    {"RGB in Fortran order", kPixels, 3, 0, kHeight, 1, kArea},
    {"RGB with lines and columns exchanged", kPixels, 3, 0, 3 * kHeight, 3, 1},
    {"RGB to planes", kPlanes, 3, 0, 3, 3 * kWidth, 1},
    {"four planes to pixels", kPixels, 4, 0, 1, kWidth, kArea},
};

double CpuSeconds() {
  timespec now{};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

double SecondsFor(const std::function<void()>& work) {
  const double start = CpuSeconds();
  work();
  return CpuSeconds() - start;
}

double Median(std::vector<double>& values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

void Measure(const Shape& shape, std::size_t sample_bytes, const std::vector<std::uint8_t>& memory) {
  const auto bytes = static_cast<std::ptrdiff_t>(sample_bytes);
  std::vector<PlaneMemory> planes;
  for (std::ptrdiff_t at = shape.start; planes.size() < shape.planes; at += shape.plane_step) {
    planes.push_back({memory.data() + at * bytes, shape.x_increment * bytes, shape.y_increment * bytes});
  }
  const ImageMemory image{kWidth, kHeight, sample_bytes, planes};
  std::vector<std::uint8_t> gathered(SampleBytesOf(image));
  std::vector<std::uint8_t> copied(gathered.size());
  std::vector<double> gather, copy;
  for (int i = 0; i < kRounds; ++i) {
    gather.push_back(SecondsFor([&] { GatherImage(image, shape.order, gathered); }));
    copy.push_back(SecondsFor([&] { std::memcpy(copied.data(), memory.data(), copied.size()); }));
  }
  const double seconds = Median(gather);
  std::printf("%-36s %6zu %8.3f %8.0f %8.3f\n", shape.name, sample_bytes, seconds * 1e3,
              1e-6 * static_cast<double>(gathered.size()) / seconds, Median(copy) / seconds);
}

}  // namespace
}  // namespace Tarn

int main() {
  using namespace Tarn;
  const std::vector<std::uint8_t> memory(std::size_t{4} * kArea * 8, 1);
  std::printf("%-36s %6s %8s %8s %8s\n", "image of 1280x1024", "bytes", "ms", "MB/s", "ratio");
  for (const Shape& shape : kShapes) {
    for (const std::size_t sample_bytes : {1u, 2u, 4u, 8u}) Measure(shape, sample_bytes, memory);
  }
}
