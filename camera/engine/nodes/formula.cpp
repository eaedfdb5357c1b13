#include "camera/engine/nodes/formula.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <limits>
#include <utility>

#include "camera/base/engine_error.h"

namespace Tarn {
/// What a step does.
enum class FormulaOp {
  Literal,
  Variable,
  Negate,
  Not,
  Sign,
  Power,
  ShiftLeft,
  ShiftRight,
  And,
  Xor,
  Or,
  Multiply,
  Divide,
  Remainder,
  Add,
  Subtract,
  Less,
  LessEqual,
  Greater,
  GreaterEqual,
  Equal,
  Unequal,
  LogicAnd,
  LogicOr,
  Choose,
};

namespace {

using Op = FormulaOp;

struct Spelling {
  std::string_view text;
  Op op;
};

// Binary operators, loosest level first. Within a level the longer spelling stands first.
constexpr std::array<Spelling, 8> kCompare{{{"<>", Op::Unequal},
                                            {"<=", Op::LessEqual},
                                            {">=", Op::GreaterEqual},
                                            {"&&", Op::LogicAnd},
                                            {"||", Op::LogicOr},
                                            {"<", Op::Less},
                                            {">", Op::Greater},
                                            {"=", Op::Equal}}};
constexpr std::array<Spelling, 2> kSum{{{"+", Op::Add}, {"-", Op::Subtract}}};
constexpr std::array<Spelling, 3> kProduct{{{"*", Op::Multiply}, {"/", Op::Divide}, {"%", Op::Remainder}}};
constexpr std::array<Spelling, 6> kBitwise{{{"**", Op::Power},
                                            {"<<", Op::ShiftLeft},
                                            {">>", Op::ShiftRight},
                                            {"&", Op::And},
                                            {"^", Op::Xor},
                                            {"|", Op::Or}}};
constexpr std::array<std::span<const Spelling>, 4> kLevels{kCompare, kSum, kProduct, kBitwise};

// Tokens that a shorter spelling must not be cut out of.
constexpr std::array<std::string_view, 8> kLongTokens{"**", "<<", ">>", "<>", "<=", ">=", "&&", "||"};

std::string_view Text(Op op) {
  for (const auto level : kLevels) {
    for (const Spelling& spelling : level) {
      if (spelling.op == op) return spelling.text;
    }
  }
  return {};
}

// Parentheses nest on the program's stack.
constexpr int kMaxDepth = 200;

std::int64_t Wrap(std::uint64_t bits) { return static_cast<std::int64_t>(bits); }
std::uint64_t Unsigned(std::int64_t value) { return static_cast<std::uint64_t>(value); }

/// Powers that are no 64-bit number, 0 ** -1 among them, are the lowest number: so clients have it, which
/// compute them in floating point.
std::int64_t Power(std::int64_t base, std::int64_t exponent) {
  constexpr std::int64_t kNoNumber = std::numeric_limits<std::int64_t>::min();
  if (base == 1 || base == -1) return exponent % 2 == 0 ? 1 : base;
  if (exponent < 0) return base == 0 ? kNoNumber : 0;
  if (base == 0) return exponent == 0;
  std::int64_t result = 1;
  for (; exponent > 0; --exponent) {  // ends after 64 rounds, by overflow
    if (__builtin_mul_overflow(result, base, &result)) return kNoNumber;
  }
  return result;
}

std::int64_t Quotient(std::int64_t a, std::int64_t b) {
  if (b == 0) throw EngineError(Failure::kNoValue, "the formula divides by zero");
  if (b == -1) return Wrap(0 - Unsigned(a));  // the one quotient that overflows
  const std::int64_t truncated = a / b;
  return a % b != 0 && (a < 0) != (b < 0) ? truncated - 1 : truncated;
}

std::int64_t Remainder(std::int64_t a, std::int64_t b) {
  if (b == 0) throw EngineError(Failure::kNoValue, "the formula takes a remainder by zero");
  return b == -1 ? 0 : a % b;
}

unsigned ShiftCount(std::int64_t count) {
  if (count < 0 || count > 63) {
    throw EngineError(Failure::kNoValue, "the formula shifts by " + std::to_string(count) + " bits");
  }
  return static_cast<unsigned>(count);
}

std::int64_t Apply(Op op, std::int64_t a, std::int64_t b) {
  switch (op) {
    case Op::Power:
      return Power(a, b);
    case Op::ShiftLeft:
      return Wrap(Unsigned(a) << ShiftCount(b));
    case Op::ShiftRight:
      return a >> ShiftCount(b);
    case Op::And:
      return a & b;
    case Op::Xor:
      return a ^ b;
    case Op::Or:
      return a | b;
    case Op::Multiply:
      return Wrap(Unsigned(a) * Unsigned(b));
    case Op::Divide:
      return Quotient(a, b);
    case Op::Remainder:
      return Remainder(a, b);
    case Op::Add:
      return Wrap(Unsigned(a) + Unsigned(b));
    case Op::Subtract:
      return Wrap(Unsigned(a) - Unsigned(b));
    case Op::Less:
      return a < b;
    case Op::LessEqual:
      return a <= b;
    case Op::Greater:
      return a > b;
    case Op::GreaterEqual:
      return a >= b;
    case Op::Equal:
      return a == b;
    case Op::Unequal:
      return a != b;
    case Op::LogicAnd:
      return a != 0 && b != 0;
    case Op::LogicOr:
      return a != 0 || b != 0;
    default:
      break;
  }
  throw EngineError(Failure::kInternal, "formula with an unknown operator");
}

}  // namespace

/// One step in postfix order. Operators name their operands by position, so nothing is searched at
/// evaluation.
struct Formula::Term {
  FormulaOp op;
  std::int64_t literal = 0;  ///< kLiteral: the number; kVariable: its index
  std::size_t a = 0;
  std::size_t b = 0;
  std::size_t c = 0;
};

namespace {

/// Recursive descent over the text; appends terms and returns the position of each result.
class Parser {
 public:
  Parser(std::string_view text, std::span<const std::string> variables)
      : text_(text), variables_(variables) {}

  std::vector<Formula::Term> Run() {
    Choice();
    SkipBlanks();
    if (at_ != text_.size()) Fail("unexpected '" + std::string(1, text_[at_]) + "'");
    return std::move(terms_);
  }

 private:
  [[noreturn]] void Fail(const std::string& what) const {
    throw EngineError(Failure::kFormula, "formula '" + std::string(text_) + "': " + what + " at character " +
                                             std::to_string(at_ + 1));
  }

  std::size_t Choice() {
    if (++depth_ > kMaxDepth) Fail("nested too deeply");
    std::size_t result = Binary(0);
    while (Accept("?")) {
      const std::size_t yes = Choice();
      if (!Accept(":")) Fail("':' expected");
      const std::size_t no = Binary(0);
      result = Emit({Op::Choose, 0, result, yes, no});
    }
    --depth_;
    return result;
  }

  std::size_t Binary(std::size_t level) {
    if (level == kLevels.size()) return Unary();
    std::size_t left = Binary(level + 1);
    while (const Spelling* spelling = AcceptOneOf(kLevels[level])) {
      const std::size_t right = Binary(level + 1);
      left = Emit({spelling->op, 0, left, right});
    }
    return left;
  }

  std::size_t Unary() {
    if (++depth_ > kMaxDepth) Fail("nested too deeply");
    std::size_t result = 0;
    if (Accept("-")) {
      result = Emit({Op::Negate, 0, Unary()});
    } else if (Accept("+")) {
      result = Unary();
    } else if (Accept("~")) {
      result = Emit({Op::Not, 0, Unary()});
    } else {
      result = Primary();
    }
    --depth_;
    return result;
  }

  std::size_t Primary() {
    if (Accept("(")) return Closed();
    SkipBlanks();
    if (at_ == text_.size()) Fail("a value is missing");
    const char c = text_[at_];
    if (c >= '0' && c <= '9') return Literal();
    if (std::isalpha(static_cast<unsigned char>(c))) return Word();
    Fail("a value is missing");
  }

  std::size_t Closed() {
    const std::size_t inner = Choice();
    if (!Accept(")")) Fail("')' expected");
    return inner;
  }

  std::size_t Literal() {
    const bool hex = text_.substr(at_, 2) == "0x";
    if (hex) at_ += 2;
    const std::size_t start = at_;
    std::uint64_t value = 0;
    while (at_ < text_.size() && std::isalnum(static_cast<unsigned char>(text_[at_]))) {
      const std::uint64_t digit = Digit(text_[at_], hex ? 16 : 10);
      const std::uint64_t base = hex ? 16 : 10;
      if (value > (std::numeric_limits<std::uint64_t>::max() - digit) / base) Fail("the number is too large");
      value = value * base + digit;
      ++at_;
    }
    if (at_ == start) Fail("hexadecimal digits expected");
    if (value > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
      Fail("the number is too large");
    }
    return Emit({Op::Literal, static_cast<std::int64_t>(value)});
  }

  std::uint64_t Digit(char c, unsigned base) const {
    const int value = c >= '0' && c <= '9' ? c - '0' : std::tolower(static_cast<unsigned char>(c)) - 'a' + 10;
    if (value < 0 || value >= static_cast<int>(base)) Fail("no digit");
    return static_cast<std::uint64_t>(value);
  }

  std::size_t Word() {
    const std::size_t start = at_;
    while (at_ < text_.size() &&
           (std::isalnum(static_cast<unsigned char>(text_[at_])) || text_[at_] == '_')) {
      ++at_;
    }
    const std::string word(text_.substr(start, at_ - start));
    const auto found = std::find(variables_.begin(), variables_.end(), word);
    if (found != variables_.end()) return Emit({Op::Variable, found - variables_.begin()});
    std::string upper = word;  // function names are not case-sensitive
    std::transform(upper.begin(), upper.end(), upper.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    if (upper != "SGN" && upper != "NEG") {
      at_ = start;
      Fail("'" + word + "' is no variable of this node");
    }
    if (!Accept("(")) Fail("'(' expected");
    const std::size_t operand = Closed();
    return Emit({upper == "SGN" ? Op::Sign : Op::Negate, 0, operand});
  }

  void SkipBlanks() {
    while (at_ < text_.size() && std::isspace(static_cast<unsigned char>(text_[at_]))) ++at_;
  }

  bool Accept(std::string_view token) {
    SkipBlanks();
    if (!text_.substr(at_).starts_with(token)) return false;
    const std::string_view pair = text_.substr(at_, 2);
    if (token.size() == 1 && std::find(kLongTokens.begin(), kLongTokens.end(), pair) != kLongTokens.end()) {
      return false;
    }
    at_ += token.size();
    return true;
  }

  const Spelling* AcceptOneOf(std::span<const Spelling> level) {
    for (const Spelling& spelling : level) {
      if (Accept(spelling.text)) return &spelling;
    }
    return nullptr;
  }

  std::size_t Emit(Formula::Term term) {
    terms_.push_back(term);
    return terms_.size() - 1;
  }

  std::string_view text_;
  std::span<const std::string> variables_;
  std::size_t at_ = 0;
  int depth_ = 0;
  std::vector<Formula::Term> terms_;
};

}  // namespace

Formula Formula::Parse(std::string_view text, std::span<const std::string> variables) {
  Formula formula;
  formula.terms_ = std::make_shared<const std::vector<Term>>(Parser(text, variables).Run());
  return formula;
}

std::int64_t Formula::Evaluate(const std::function<std::int64_t(std::size_t)>& variable) const {
  std::vector<std::int64_t> values;
  values.reserve(terms_->size());
  for (const Term& term : *terms_) {
    std::int64_t value = 0;
    switch (term.op) {
      case Op::Literal:
        value = term.literal;
        break;
      case Op::Variable:
        value = variable(static_cast<std::size_t>(term.literal));
        break;
      case Op::Negate:
        value = Wrap(0 - Unsigned(values[term.a]));
        break;
      case Op::Not:
        value = ~values[term.a];
        break;
      case Op::Sign:
        value = (values[term.a] > 0) - (values[term.a] < 0);
        break;
      case Op::Choose:
        value = values[term.a] != 0 ? values[term.b] : values[term.c];
        break;
      default:
        value = Apply(term.op, values[term.a], values[term.b]);
    }
    values.push_back(value);
  }
  return values.back();
}

std::string Formula::Parenthesised(std::span<const std::string> names, const Quotient& quotient) const {
  std::vector<std::string> texts;
  texts.reserve(terms_->size());
  for (const Term& term : *terms_) {
    switch (term.op) {
      case Op::Literal:
        texts.push_back(std::to_string(term.literal));
        break;
      case Op::Variable:
        texts.push_back(names[static_cast<std::size_t>(term.literal)]);
        break;
      case Op::Negate:
        texts.push_back("NEG(" + texts[term.a] + ")");
        break;
      case Op::Not:
        texts.push_back("(~(" + texts[term.a] + "))");
        break;
      case Op::Sign:
        texts.push_back("SGN(" + texts[term.a] + ")");
        break;
      case Op::Choose:
        texts.push_back("((" + texts[term.a] + ")?(" + texts[term.b] + "):(" + texts[term.c] + "))");
        break;
      case Op::Divide:
        texts.push_back(quotient(texts[term.a], texts[term.b]));
        break;
      default:
        texts.push_back("((" + texts[term.a] + ")" + std::string(Text(term.op)) + "(" + texts[term.b] + "))");
    }
  }
  return texts.back();
}

bool Formula::Uses(std::size_t index) const {
  return std::any_of(terms_->begin(), terms_->end(), [index](const Term& term) {
    return term.op == Op::Variable && static_cast<std::size_t>(term.literal) == index;
  });
}

}  // namespace Tarn
