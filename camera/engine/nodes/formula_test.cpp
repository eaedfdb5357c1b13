#include "camera/engine/nodes/formula.h"

#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <optional>

#include "camera/engine/nodes/make_nodes_test.h"

// What operators compute, how they group and how they are written out is compared with the reference library.

namespace Tarn {
namespace {

constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();

const std::vector<std::string> kNames{"A", "B"};

/// Nothing when the formula has no value.
std::optional<std::int64_t> Value(const std::string& text, std::int64_t a = 7, std::int64_t b = 3) {
  const Formula formula = Formula::Parse(text, kNames);
  try {
    return formula.Evaluate([a, b](std::size_t index) { return index == 0 ? a : b; });
  } catch (const EngineError& error) {
    EXPECT_EQ(error.failure(), Failure::kNoValue) << error.what();
    return std::nullopt;
  }
}

TEST(Formulas, HaveEdges) {
  const struct {
    const char* text;
    std::int64_t a, b;
    std::optional<std::int64_t> value;
  } rows[] = {
      {"A>=B", 2, 2, 1}, {"A<B", 3, 3, 0},    {"A<=B", 3, 3, 1},       {"A>B", 3, 3, 0},
      {"A<-B", 7, 3, 0}, {"A**B", 0, 1, 0},   {"A**B", -1, kMin, 1},   {"A**B", 2, 63, kMin},
      {"A>>B", 5, 0, 5}, {"A<<B", 1, 64, {}}, {"A/B", kMin, -1, kMin}, {"A%B", kMin, -1, 0},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Value(row.text, row.a, row.b), row.value) << row.text << ' ' << row.a << ' ' << row.b;
  }
}

TEST(Formulas, AreRefusedWithThePlaceOfTheFault) {
  const std::map<int, std::vector<const char*>> faults{
      {1, {"", "C+1", "?1:2"}},
      {2, {"A)", "A!=B", "1.5", "0X10", "A\xC3\xA4"}},
      {3, {"A+", "A B", "(A", "A+*B", "A==B", "0x", "12h", "A+a"}},
      {4, {"   ", "A&&&B", "A* *B", "1?2"}},
      {5, {"SGN A"}},
      {20, {"9223372036854775808", "99999999999999999999"}},
  };
  for (const auto& [place, texts] : faults) {
    for (const char* text : texts) {
      try {
        Formula::Parse(text, kNames);
        ADD_FAILURE() << "accepted: " << text;
      } catch (const EngineError& error) {
        EXPECT_EQ(error.failure(), Failure::kFormula) << text;
        EXPECT_TRUE(std::string(error.what()).ends_with("r " + std::to_string(place))) << error.what();
      }
    }
  }
}

TEST(Formulas, NestDeepButNotWithoutEnd) {
  const auto nested = [](std::size_t depth) {
    return std::string(depth, '(') + "A" + std::string(depth, ')');
  };
  std::string sum = "0", choices;
  for (int i = 0; i < 2000; ++i) sum += "+1";  // long is not deep
  for (int i = 0; i < 100'000; ++i) choices += "1?";
  EXPECT_EQ(Value(nested(50)), 7);
  EXPECT_EQ(Value(sum), 2000);
  for (const std::string& text : {nested(100'000), std::string(100'000, '~') + "A", choices}) {
    EXPECT_EQ(Refusal([&] { Formula::Parse(text, kNames); }), Failure::kFormula);
  }
}

}  // namespace
}  // namespace Tarn
