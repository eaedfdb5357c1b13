#pragma once

/// What all integer and all floating-point nodes have.

#include <cstdint>
#include <string>

#include "gevserver/nodes/value_node.h"

namespace Tarn::GevServer {

/// A signed 64-bit value with limits.
class IntegerBaseNode : public SelectorNode {
 public:
  using SelectorNode::SelectorNode;

  std::int64_t Value() const;
  /// Throws: std::out_of_range outside the limits, std::invalid_argument off the increment.
  void SetValue(std::int64_t value);

  std::int64_t Min() const { return GetInfoAsInt(GSN_INFO_MIN); }
  std::int64_t Max() const { return GetInfoAsInt(GSN_INFO_MAX); }
  std::int64_t Increment() const { return GetInfoAsInt(GSN_INFO_INCREMENT); }

  /// GSRepresentation.
  std::int32_t Representation() const { return GetInfoAsCode(GSN_INFO_REPRESENTATION); }
  void SetRepresentation(std::int32_t representation) {
    SetInfoAsInt(GSN_INFO_REPRESENTATION, representation);
  }

  /// Always empty: integers of this model carry no unit.
  virtual std::string Unit() const { return {}; }
  virtual void SetUnit(const std::string& /*unit*/) {}

  std::string ToString() const override;
};

/// A double value with limits.
class FloatBaseNode : public SelectorNode {
 public:
  using SelectorNode::SelectorNode;

  double Value() const;
  /// Throws: std::out_of_range outside the limits, std::invalid_argument off the increment.
  void SetValue(double value);

  double Min() const { return GetInfoAsFloat(GSN_INFO_MIN); }
  double Max() const { return GetInfoAsFloat(GSN_INFO_MAX); }
  double Increment() const { return GetInfoAsFloat(GSN_INFO_INCREMENT); }

  /// GSRepresentation.
  std::int32_t Representation() const { return GetInfoAsCode(GSN_INFO_REPRESENTATION); }
  void SetRepresentation(std::int32_t representation) {
    SetInfoAsInt(GSN_INFO_REPRESENTATION, representation);
  }

  std::string ToString() const override;
};

}  // namespace Tarn::GevServer
