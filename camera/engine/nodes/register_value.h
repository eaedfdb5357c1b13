#pragma once

/// The value of a register node: where its bytes lie, and what they mean.

#include <cstdint>
#include <string>

#include "camera/engine/nodes/evaluation.h"
#include "camera/engine/nodes/node.h"

namespace Tarn {

/// Present address: the constant plus the values of the address nodes. -1 while none is assigned. On a chunk
/// or event port it counts from the beginning of the data.
/// Throws: EngineError when an address node has no value, kAddress when the sum leaves the register space.
std::int64_t CurrentAddress(const Node& node, Evaluation& at);
std::int64_t CurrentAddress(const Node& node);

/// Where a register with address nodes may come to lie: users' ones among users' registers, the device's own
/// among its own, the standard's among the standard's.
struct AddressRange {
  std::int64_t begin;
  std::int64_t end;

  bool Holds(std::int64_t address, std::uint32_t length) const {
    return address >= begin && address <= end - length;
  }
};
AddressRange RangeOfMoving(const RegisterPart& reg);

/// Smallest and largest number that an integer register, or its bit field, holds. 8-byte unsigned registers
/// end at 2^63 - 1, as in GenApi.
std::int64_t SmallestNumber(const RegisterPart& reg);
std::int64_t LargestNumber(const RegisterPart& reg);

std::int64_t LoadInteger(const Node& node, Evaluation& at);
double LoadFloat(const Node& node, Evaluation& at);
/// The bytes up to the first zero, or to what is no whole character of UTF-8: clients store long texts in
/// pieces, which may end within one.
std::string LoadString(const Node& node, Evaluation& at);

/// Throw EngineError kOutOfRange when the value does not fit the register, kText when a text is no UTF-8. A
/// store is announced to the tree.
void StoreInteger(Node& node, std::int64_t value, Evaluation& at);
void StoreInteger(Node& node, std::int64_t value);
void StoreFloat(Node& node, double value);
void StoreString(Node& node, const std::string& value);

}  // namespace Tarn
