#include "camera/engine/nodes/register_value.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>

#include "camera/base/engine_error.h"
#include "camera/base/utf8.h"
#include "camera/engine/nodes/feature_tree.h"
#include "camera/engine/nodes/node_values.h"

namespace Tarn {
namespace {

/// Else the node itself keeps its bytes: while it is in no tree, and on ports that have no memory here.
bool IsInRegisterSpace(const Node& node) { return node.tree && node.reg->port == PortKind::Device; }

std::vector<std::uint8_t> LoadBytes(const Node& node, Evaluation& at) {
  if (!IsInRegisterSpace(node)) return node.reg->bytes;
  std::vector<std::uint8_t> bytes(node.reg->length);
  const auto address = static_cast<std::uint64_t>(CurrentAddress(node, at));
  node.tree->Refresh(address, bytes.size());
  node.tree->Memory().Read(address, bytes);
  return bytes;
}

void StoreBytes(Node& node, const std::vector<std::uint8_t>& bytes, Evaluation& at) {
  if (!IsInRegisterSpace(node)) {
    node.reg->bytes = bytes;
    if (node.tree) node.tree->NoteConstant();
    return;
  }
  const auto address = static_cast<std::uint64_t>(CurrentAddress(node, at));
  node.tree->Memory().Write(address, bytes);
  node.tree->NoteOwnStore(node, address);
}

std::uint64_t Word(const std::vector<std::uint8_t>& bytes) {
  std::uint64_t word = 0;
  for (const std::uint8_t byte : bytes) word = word << 8 | byte;
  return word;
}

std::vector<std::uint8_t> Bytes(std::uint64_t word, std::size_t length) {
  std::vector<std::uint8_t> bytes(length);
  for (std::size_t i = length; i-- > 0; word >>= 8) bytes[i] = static_cast<std::uint8_t>(word);
  return bytes;
}

/// Width in bits of the number, and its distance from the least significant end.
struct Field {
  unsigned width;
  unsigned shift;
};

Field FieldOf(const RegisterPart& reg) {
  const unsigned bits = reg.length * 8;
  if (!reg.bits) return {bits, 0};
  return {reg.bits->last - reg.bits->first + 1, bits - 1 - reg.bits->last};
}

std::uint64_t Mask(unsigned width) {
  return width >= 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << width) - 1;
}

[[noreturn]] void ThrowTooLarge(const Node& node, const std::string& value) {
  throw EngineError(Failure::kOutOfRange, node.name + ": " + value + " does not fit the register");
}

std::int64_t MovedAddress(const Node& node, Evaluation& at) {
  const RegisterPart& reg = *node.reg;
  std::int64_t address = reg.address;
  for (const NodePtr& offset : reg.address_nodes) {
    const std::int64_t value = ReadInteger(*offset, at);
    constexpr std::int64_t kSpace = std::int64_t{1} << 32;
    if (value < -kSpace || value > kSpace || address + value < 0 || address + value > kSpace - reg.length) {
      throw EngineError(Failure::kAddress, "the address of " + node.name + " leaves the register space");
    }
    address += value;
  }
  if (!RangeOfMoving(reg).Holds(address, reg.length)) {
    throw EngineError(Failure::kAddress, "the address of " + node.name + " lies in a reserved range");
  }
  return address;
}

}  // namespace

std::int64_t CurrentAddress(const Node& node, Evaluation& at) {
  const RegisterPart& reg = *node.reg;
  if (reg.address < 0 || reg.port != PortKind::Device || reg.address_nodes.empty()) return reg.address;
  return at.Number(node, [&] { return MovedAddress(node, at); });
}

std::int64_t CurrentAddress(const Node& node) {
  Evaluation now;
  return CurrentAddress(node, now);
}

AddressRange RangeOfMoving(const RegisterPart& reg) {
  constexpr auto kOwn = static_cast<std::int64_t>(kManufacturerRegisters);
  if (reg.address < static_cast<std::int64_t>(kBootstrapEnd))
    return {0, static_cast<std::int64_t>(kBootstrapEnd)};
  if (reg.address >= kOwn) return {kOwn, static_cast<std::int64_t>(kDescriptionFile)};
  return {static_cast<std::int64_t>(kBootstrapEnd), kOwn};
}

std::int64_t SmallestNumber(const RegisterPart& reg) {
  if (!reg.is_signed) return 0;
  const Field field = FieldOf(reg);
  return -static_cast<std::int64_t>(Mask(field.width - 1)) - 1;
}

std::int64_t LargestNumber(const RegisterPart& reg) {
  const Field field = FieldOf(reg);
  const unsigned magnitude = reg.is_signed || field.width == 64 ? field.width - 1 : field.width;
  return static_cast<std::int64_t>(Mask(magnitude));
}

std::int64_t LoadInteger(const Node& node, Evaluation& at) {
  if (const auto assumed = at.Assumed(node)) return *assumed;
  const Field field = FieldOf(*node.reg);
  std::uint64_t word = Word(LoadBytes(node, at)) >> field.shift & Mask(field.width);
  const bool negative = node.reg->is_signed && (word >> (field.width - 1) & 1) != 0;
  if (negative) word |= ~Mask(field.width);
  return static_cast<std::int64_t>(word);
}

double LoadFloat(const Node& node, Evaluation& at) {
  const std::uint64_t word = Word(LoadBytes(node, at));
  return node.reg->length == 4 ? static_cast<double>(std::bit_cast<float>(static_cast<std::uint32_t>(word)))
                               : std::bit_cast<double>(word);
}

std::string LoadString(const Node& node, Evaluation& at) {
  const std::vector<std::uint8_t> bytes = LoadBytes(node, at);
  const std::string text(bytes.begin(), std::ranges::find(bytes, 0));
  return std::string(WholeUtf8(text));
}

void StoreInteger(Node& node, std::int64_t value, Evaluation& at) {
  const RegisterPart& reg = *node.reg;
  if (value < SmallestNumber(reg) || value > LargestNumber(reg)) ThrowTooLarge(node, std::to_string(value));
  const Field field = FieldOf(reg);
  const std::uint64_t mask = Mask(field.width) << field.shift;
  const std::uint64_t rest = reg.bits ? Word(LoadBytes(node, at)) & ~mask : 0;
  StoreBytes(node, Bytes(rest | (static_cast<std::uint64_t>(value) << field.shift & mask), reg.length), at);
}

void StoreInteger(Node& node, std::int64_t value) {
  Evaluation now;
  StoreInteger(node, value, now);
}

void StoreFloat(Node& node, double value) {
  Evaluation now;
  if (node.reg->length == 8) return StoreBytes(node, Bytes(std::bit_cast<std::uint64_t>(value), 8), now);
  if (std::isfinite(value) && std::abs(value) > static_cast<double>(std::numeric_limits<float>::max())) {
    ThrowTooLarge(node, std::to_string(value));
  }
  StoreBytes(node, Bytes(std::bit_cast<std::uint32_t>(static_cast<float>(value)), 4), now);
}

void StoreString(Node& node, const std::string& value) {
  if (value.size() > node.reg->length)
    ThrowTooLarge(node, "a text of " + std::to_string(value.size()) + " bytes");
  if (WholeUtf8(value).size() < value.size()) {
    throw EngineError(Failure::kText, node.name + ": the text is no UTF-8");
  }
  std::vector<std::uint8_t> bytes(node.reg->length);
  if (!value.empty()) std::memcpy(bytes.data(), value.data(), value.size());
  Evaluation now;
  StoreBytes(node, bytes, now);
}

}  // namespace Tarn
