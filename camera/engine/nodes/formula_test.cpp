#include "camera/engine/nodes/formula.h"

#include <gtest/gtest.h>

#include <limits>
#include <optional>
#include <random>

#include "camera/base/engine_error.h"

namespace Tarn {
namespace {

constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();

const std::vector<std::string> kNames{"A", "B"};

std::int64_t Value(const Formula& formula, std::int64_t a, std::int64_t b) {
  return formula.Evaluate([a, b](std::size_t index) { return index == 0 ? a : b; });
}

std::int64_t Value(const std::string& text, std::int64_t a = 7, std::int64_t b = 3) {
  return Value(Formula::Parse(text, kNames), a, b);
}

/// Nothing when the formula has no value.
std::optional<std::int64_t> ValueOrNone(const Formula& formula, std::int64_t a, std::int64_t b) {
  try {
    return Value(formula, a, b);
  } catch (const EngineError& error) {
    EXPECT_EQ(error.failure(), Failure::kNoValue) << error.what();
    return std::nullopt;
  }
}

struct Row {
  const char* text;
  std::int64_t value;
};

TEST(Formulas, KnowEveryOperator) {
  const Row rows[] = {
      {"3 * 7 + 4 / 2", 23}, {"7 % 4", 3},     {"2 ** 3", 8}, {"2 | 1", 3},        {"6 & 3", 2},
      {"6 ^ 3", 5},          {"~0", -1},       {"1 && 0", 0}, {"2 && 4", 1},       {"0 || 0", 0},
      {"0 || 9", 1},         {"3 >= 2", 1},    {"2 >= 2", 1}, {"3 <= 2", 0},       {"3 < 3", 0},
      {"4 > 3", 1},          {"3 = 3", 1},     {"3 <> 3", 0}, {"1 << 2", 4},       {"12 >> 2", 3},
      {"SGN(42)", 1},        {"sgn(-42)", -1}, {"Sgn(0)", 0}, {"NEG(-42)", 42},    {"2 * (3 / 2)", 2},
      {"1 ? 5 : 6", 5},      {"0 ? 5 : 6", 6}, {"A - B", 4},  {"0xfF + 010", 265}, {"+5", 5},
      {"\t( A )\n", 7},      {"-(3)", -3},     {"A<-B", 0},   {"2*~1", -4},        {"A*-B", -21},
  };
  for (const Row& row : rows) EXPECT_EQ(Value(row.text), row.value) << row.text;
}

TEST(Formulas, GroupAsTheReferenceImplementationDoes) {
  const Row rows[] = {
      {"A=7&&B=3", 0},  {"1+2<<3", 17},       {"1<<2+3", 7},    {"5&3=3", 0},    {"1||0&&0", 0},
      {"2**3**2", 64},  {"-2**2", 4},         {"10-4-3", 3},    {"100/5/2", 10}, {"2+3*4", 14},
      {"2*3**2", 18},   {"8>>1*2", 8},        {"6|1*2", 14},    {"1<2=1", 1},    {"-A*B", -21},
      {"1+1?2+3:4", 5}, {"A>B?1:A<5?2:3", 2}, {"1?0?5:6:7", 6},
  };
  for (const Row& row : rows) EXPECT_EQ(Value(row.text), row.value) << row.text;
}

TEST(Formulas, WrapAndFloorAtTheEdges) {
  const struct {
    const char* text;
    std::int64_t a;
    std::int64_t b;
    std::int64_t value;
  } rows[] = {
      {"A+B", kMax, 1, kMin},  {"A-B", kMin, 1, kMax},  {"A*B", kMax, 2, -2},  {"NEG(A)", kMin, 0, kMin},
      {"A/B", kMin, -1, kMin}, {"A%B", kMin, -1, 0},    {"A/B", -7, 2, -4},    {"A/B", 7, -2, -4},
      {"A/B", -8, 2, -4},      {"A%B", -7, 4, -3},      {"A%B", 7, -4, 3},     {"A**B", 0, 0, 1},
      {"A**B", 2, -1, 0},      {"A**B", 0, -1, kMin},   {"A**B", -1, kMin, 1}, {"A**B", -1, -3, -1},
      {"A**B", 2, 63, kMin},   {"A**B", 3, kMax, kMin}, {"A<<B", 1, 63, kMin}, {"A>>B", -1, 63, -1},
      {"A>>B", 5, 0, 5},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Value(row.text, row.a, row.b), row.value) << row.text << ' ' << row.a << ' ' << row.b;
  }
}

TEST(Formulas, HaveNoValueWhereArithmeticHasNone) {
  const struct {
    const char* text;
    std::int64_t b;
  } rows[] = {{"A/B", 0},     {"A%B", 0},           {"A<<B", 64},      {"A>>B", -1},
              {"1<<B", kMin}, {"B=0 ? 5 : A/B", 0}, {"B<>0 && A/B", 0}};
  for (const auto& row : rows) {
    const Formula formula = Formula::Parse(row.text, kNames);
    EXPECT_EQ(ValueOrNone(formula, 7, row.b), std::nullopt) << row.text;
  }
}

TEST(Formulas, AreRefusedWithThePlaceOfTheFault) {
  const struct {
    const char* text;
    const char* place;
  } rows[] = {
      {"", "character 1"},
      {"   ", "character 4"},
      {"A+", "character 3"},
      {"A B", "character 3"},
      {"(A", "character 3"},
      {"A)", "character 2"},
      {"A+*B", "character 3"},
      {"A==B", "character 3"},
      {"A!=B", "character 2"},
      {"A&&&B", "character 4"},
      {"A* *B", "character 4"},
      {"1.5", "character 2"},
      {"0x", "character 3"},
      {"0X10", "character 2"},
      {"12h", "character 3"},
      {"9223372036854775808", "character 20"},
      {"99999999999999999999", "character 20"},
      {"C+1", "character 1"},
      {"A+a", "character 3"},
      {"SGN A", "character 5"},
      {"1?2", "character 4"},
      {"?1:2", "character 1"},
      {"A\xC3\xA4", "character 2"},
  };
  for (const auto& row : rows) {
    try {
      Formula::Parse(row.text, kNames);
      ADD_FAILURE() << "accepted: " << row.text;
    } catch (const EngineError& error) {
      EXPECT_EQ(error.failure(), Failure::kFormula) << row.text;
      EXPECT_TRUE(std::string(error.what()).ends_with(row.place)) << error.what();
    }
  }
}

TEST(Formulas, NestDeepButNotWithoutEnd) {
  const auto nested = [](std::size_t depth) {
    return std::string(depth, '(') + "A" + std::string(depth, ')');
  };
  EXPECT_EQ(Value(nested(50)), 7);
  EXPECT_EQ(Value(std::string(50, '-') + "A"), 7);
  std::string sum = "0";
  for (int i = 0; i < 2000; ++i) sum += "+1";  // long is not deep
  EXPECT_EQ(Value(sum), 2000);
  std::string choices;
  for (int i = 0; i < 100'000; ++i) choices += "1?";
  for (const std::string& text :
       {nested(100'000), std::string(100'000, '~') + "A", choices, std::string(100'000, '(')}) {
    EXPECT_THROW(Formula::Parse(text, kNames), EngineError);
  }
}

/// A random formula with little more parentheses than needed to be one.
class RandomFormula {
 public:
  explicit RandomFormula(unsigned seed) : random_(seed) {}

  std::string Text(int depth) {
    if (depth == 0 || Pick(6) == 0) {
      const char* const leaves[] = {"A", "B", "0", "1", "2", "5", "64", "0x7FFFFFFFFFFFFFFF"};
      return leaves[Pick(8)];
    }
    switch (Pick(9)) {
      case 0:
        return "-" + Text(0);
      case 1:
        return "~" + Text(0);
      case 2:
        return "(" + Text(depth - 1) + ")";
      case 3:
        return (Pick(2) == 0 ? "NEG(" : "SGN(") + Text(depth - 1) + ")";
      case 4:
        return Text(depth - 1) + "?" + Text(depth - 1) + ":" + Text(depth - 1);
      default:
        break;
    }
    const char* const operators[] = {"**", "<<", ">>", "&", "^",  "|", "*",  "/",  "%", "+",
                                     "-",  "<",  "<=", ">", ">=", "=", "<>", "&&", "||"};
    return Text(depth - 1) + operators[Pick(19)] + Text(depth - 1);
  }

 private:
  std::size_t Pick(std::size_t count) { return random_() % count; }

  std::mt19937 random_;
};

std::string PlainQuotient(const std::string& a, const std::string& b) { return "((" + a + ")/(" + b + "))"; }

TEST(Formulas, MeanTheSameInParentheses) {
  const unsigned first = std::random_device{}();
  for (unsigned seed = first; seed != first + 2000; ++seed) {
    const std::string text = RandomFormula(seed).Text(4);
    SCOPED_TRACE("seed " + std::to_string(seed) + ": " + text);
    const Formula formula = Formula::Parse(text, kNames);
    const Formula again = Formula::Parse(formula.Parenthesised(kNames, PlainQuotient), kNames);
    for (const std::int64_t a : {std::int64_t{-3}, std::int64_t{0}, std::int64_t{7}, kMin}) {
      for (const std::int64_t b : {std::int64_t{-1}, std::int64_t{0}, std::int64_t{3}, kMax}) {
        ASSERT_EQ(ValueOrNone(formula, a, b), ValueOrNone(again, a, b)) << "A " << a << ", B " << b;
      }
    }
  }
}

TEST(Formulas, AreWrittenWithEachOperationInParentheses) {
  const std::vector<std::string> names{"WidthMax", "OffsetX"};
  const auto written = [&](const char* text) {
    return Formula::Parse(text, kNames).Parenthesised(names, PlainQuotient);
  };
  EXPECT_EQ(written("A-B*2"), "((WidthMax)-(((OffsetX)*(2))))");
  EXPECT_EQ(written("-A"), "NEG(WidthMax)");  // a sign behind an operator is an error to some clients
  EXPECT_EQ(written("A>B?1:0x10"), "((((WidthMax)>(OffsetX)))?(1):(16))");
  EXPECT_EQ(written("A/B+1"), "((((WidthMax)/(OffsetX)))+(1))");
}

}  // namespace
}  // namespace Tarn
