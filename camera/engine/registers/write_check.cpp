#include "camera/engine/registers/write_check.h"

#include "camera/base/engine_error.h"
#include "camera/engine/nodes/node_access.h"
#include "camera/engine/nodes/node_limits.h"
#include "camera/engine/nodes/node_values.h"

namespace Tarn {
namespace {

WireStatus AccessStatus(const Node& node) {
  switch (AccessOf(node)) {
    case AccessMode::NotImplemented:
      return WireStatus::InvalidAddress;
    case AccessMode::NotAvailable:
      return WireStatus::Busy;
    case AccessMode::ReadOnly:
      // What a lock or a condition forbids now may be possible later; a read-only register never is.
      return IsLocked(node) ? WireStatus::Busy : WireStatus::WriteProtect;
    default:
      return WireStatus::Success;
  }
}

bool Takes(const Node& node, const Node& reg) {
  switch (node.kind) {
    case NodeKind::Integer:
      CheckInteger(node, ReadInteger(reg));
      return true;
    case NodeKind::Float:
      CheckFloat(node, ReadFloat(reg));
      return true;
    case NodeKind::Enumeration: {
      const NodePtr entry = EntryOf(node, ReadInteger(reg));
      return entry && IsImplemented(*entry) && IsAvailable(*entry);
    }
    case NodeKind::Boolean: {
      const std::int64_t number = ReadInteger(reg);
      const auto* on = std::get_if<std::int64_t>(&node.on_value);
      const auto* off = std::get_if<std::int64_t>(&node.off_value);
      return (on && number == *on) || (off && number == *off);
    }
    default:
      return true;
  }
}

WireStatus FeatureStatus(const Node& node, const Node& trial) {
  if (const WireStatus access = AccessStatus(node); access != WireStatus::Success) return access;
  try {
    return Takes(node, trial) ? WireStatus::Success : WireStatus::InvalidParameter;
  } catch (const EngineError&) {
    return WireStatus::InvalidParameter;
  }
}

}  // namespace

WireStatus CheckClientWrite(const Node& reg, const std::vector<NodePtr>& dependants, ByteView bytes) {
  Node trial(reg.kind, reg.name, reg.name_space);
  trial.reg = RegisterPart{};
  trial.reg->length = reg.reg->length;
  trial.reg->is_signed = reg.reg->is_signed;
  trial.reg->bits = reg.reg->bits;
  trial.reg->bytes.assign(bytes.begin(), bytes.end());
  try {
    if (const WireStatus own = AccessStatus(reg); own != WireStatus::Success) return own;
    if (dependants.empty()) return WireStatus::Success;
    WireStatus refusal = WireStatus::WriteProtect;
    for (const NodePtr& node : dependants) {
      const WireStatus status = FeatureStatus(*node, trial);
      if (status == WireStatus::Success) return status;
      // The most telling reason wins: a wrong value over a passing state over a lasting one.
      const auto weight = [](WireStatus s) {
        return s == WireStatus::InvalidParameter ? 2 : s == WireStatus::Busy ? 1 : 0;
      };
      if (weight(status) > weight(refusal)) refusal = status;
    }
    return refusal;
  } catch (const EngineError&) {
    return WireStatus::Error;  // a condition has no value at this moment
  }
}

}  // namespace Tarn
