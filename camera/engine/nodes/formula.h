#pragma once

/// Integer formulas of swiss knives: parsed once, evaluated at each read, written out again with every
/// operation in parentheses.

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Tarn {

/// A parsed formula. Copies share the parsed form.
///
/// Operators, tightest first; those of one line are equal and group from the left (as GenApi's reference
/// implementation has them): functions SGN() NEG() and unary - + ~; ** << >> & ^ |; * / %; + -;
/// < <= > >= = <> && ||; ? :. Literals: decimal, or hexadecimal after 0x.
class Formula {
 public:
  struct Term;

  Formula() = default;

  /// \param variables  names that the text may use
  /// Throws: EngineError kFormula with the place of the fault.
  static Formula Parse(std::string_view text, std::span<const std::string> variables);

  bool Empty() const { return terms_ == nullptr; }

  /// Value with the variables' present values, asked for by their index in Parse's list.
  ///
  /// 64-bit arithmetic that wraps; quotients are floored; a remainder has the sign of the dividend; a power
  /// with a negative exponent is 0 unless the base is 1, -1 or 0; a power that does not fit is -2^63. Both
  /// branches of ? : and both sides of && || are evaluated, as GenApi has it.
  /// Throws: EngineError kNoValue on division or remainder by zero and on shifts outside 0..63.
  /// Requires: !Empty().
  std::int64_t Evaluate(const std::function<std::int64_t(std::size_t)>& variable) const;

  /// Whether the value follows from the variable of this index in Parse's list.
  /// Requires: !Empty().
  bool Uses(std::size_t index) const;

  /// Text for the quotient of two operands.
  using Quotient = std::function<std::string(const std::string& a, const std::string& b)>;

  /// The formula with every operation in parentheses, so that clients with other precedences agree.
  /// \param names  what to call the variables
  /// \param quotient  called for each division in the order of evaluation, since not everybody floors
  std::string Parenthesised(std::span<const std::string> names, const Quotient& quotient) const;

 private:
  /// Operands before their operator; the last is the result.
  std::shared_ptr<const std::vector<Term>> terms_;
};

}  // namespace Tarn
