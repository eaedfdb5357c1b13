#pragma once

/// The value of a register node: where its bytes lie, and what they mean.

#include <cstdint>
#include <string>

#include "engine/nodes/node.h"

namespace Tarn {

/// Present address: the constant plus the values of the address nodes. -1 while none is assigned.
/// Throws: EngineError when an address node has no value, kAddress when the sum leaves the register space.
std::int64_t CurrentAddress(const Node& node);

/// Smallest and largest number that an integer register, or its bit field, holds. 8-byte unsigned registers
/// end at 2^63 - 1, as in GenApi.
std::int64_t SmallestNumber(const RegisterPart& reg);
std::int64_t LargestNumber(const RegisterPart& reg);

std::int64_t LoadInteger(const Node& node);
double LoadFloat(const Node& node);
/// Bytes up to the first zero.
std::string LoadString(const Node& node);

/// Throw EngineError kOutOfRange when the value does not fit the register. A store is announced to the tree.
void StoreInteger(Node& node, std::int64_t value);
void StoreFloat(Node& node, double value);
void StoreString(Node& node, const std::string& value);

}  // namespace Tarn
