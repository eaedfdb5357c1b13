#include "camera/engine/registers/write_check.h"

#include <algorithm>
#include <string_view>

#include "camera/base/engine_error.h"
#include "camera/base/utf8.h"
#include "camera/engine/nodes/node_access.h"
#include "camera/engine/nodes/node_limits.h"
#include "camera/engine/nodes/node_values.h"

namespace Tarn {
namespace {

WireStatus AccessStatus(const Node& node, Evaluation& at) {
  switch (AccessOf(node, at)) {
    case AccessMode::NotImplemented:
      return WireStatus::InvalidAddress;
    case AccessMode::NotAvailable:
      return WireStatus::Busy;
    case AccessMode::ReadOnly:
      // What a lock or a condition forbids now may be possible later; a read-only register never is.
      return IsLocked(node, at) ? WireStatus::Busy : WireStatus::WriteProtect;
    default:
      return WireStatus::Success;
  }
}

bool Takes(const Node& node, const Node& reg, Evaluation& at) {
  switch (node.traits.value) {
    case ValueType::Integer:
      CheckInteger(node, ReadInteger(reg), at);
      return true;
    case ValueType::Float:
      CheckFloat(node, ReadFloat(reg), at);
      return true;
    case ValueType::Enumeration: {
      const NodePtr entry = EntryOf(node, ReadInteger(reg));
      return entry && IsImplemented(*entry, at) && IsAvailable(*entry, at);
    }
    case ValueType::Boolean: {
      const std::int64_t number = ReadInteger(reg);
      const auto* on = std::get_if<std::int64_t>(&node.on_value);
      const auto* off = std::get_if<std::int64_t>(&node.off_value);
      return (on && number == *on) || (off && number == *off);
    }
    default:
      return true;
  }
}

WireStatus FeatureStatus(const Node& node, const Node& trial, Evaluation& at) {
  if (const WireStatus access = AccessStatus(node, at); access != WireStatus::Success) return access;
  try {
    return Takes(node, trial, at) ? WireStatus::Success : WireStatus::InvalidParameter;
  } catch (const EngineError&) {
    return WireStatus::InvalidParameter;
  }
}

/// Gives `trial`, a register that is in no tree, the form of `reg` and this content.
void SetUpTrial(Node& trial, const Node& reg, ByteView bytes) {
  trial.reg = RegisterPart{};
  trial.reg->length = reg.reg->length;
  trial.reg->is_signed = reg.reg->is_signed;
  trial.reg->bits = reg.reg->bits;
  trial.reg->bytes.assign(bytes.begin(), bytes.end());
}

}  // namespace

WireStatus MoreTelling(WireStatus a, WireStatus b) {
  const auto weight = [](WireStatus status) {
    return status == WireStatus::InvalidParameter ? 2 : status == WireStatus::Busy ? 1 : 0;
  };
  return weight(b) > weight(a) ? b : a;
}

WireStatus CheckClientWrite(const Node& reg, const std::vector<NodePtr>& dependants, ByteView bytes,
                            Evaluation& at) {
  Node trial(reg.kind, reg.name, reg.name_space);
  SetUpTrial(trial, reg, bytes);
  try {
    if (const WireStatus own = AccessStatus(reg, at); own != WireStatus::Success) return own;
    if (dependants.empty()) return WireStatus::Success;
    WireStatus refusal = WireStatus::WriteProtect;
    for (const NodePtr& node : dependants) {
      const WireStatus status = FeatureStatus(*node, trial, at);
      if (status == WireStatus::Success) return status;
      refusal = MoreTelling(refusal, status);
    }
    return refusal;
  } catch (const EngineError&) {
    return WireStatus::Error;  // a condition has no value at this moment
  }
}

bool IsPieceOfText(ByteView content, std::size_t begin, std::size_t end) {
  const std::string_view text(reinterpret_cast<const char*>(content.data()), content.size());
  std::size_t at = begin;
  for (std::size_t back = 1; back <= std::min<std::size_t>(begin, 3); ++back) {
    const std::string_view before = text.substr(begin - back, back);
    if (FirstUtf8Character(before).state == Utf8Character::State::Cut) at = begin - back;
  }
  while (at < end && text[at] != 0) {
    const Utf8Character next = FirstUtf8Character(text.substr(at, end - at));
    if (next.state == Utf8Character::State::Invalid) return false;
    if (next.state == Utf8Character::State::Cut) return end < content.size();
    at += next.length;
  }
  return true;
}

std::int64_t NumberIn(const Node& reg, ByteView bytes) {
  Node trial(reg.kind, reg.name, reg.name_space);
  SetUpTrial(trial, reg, bytes);
  return ReadInteger(trial);
}

}  // namespace Tarn
