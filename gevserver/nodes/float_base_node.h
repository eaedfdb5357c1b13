#pragma once

/// What all floating-point nodes have.

#include "gevserver/nodes/selector_node.h"

namespace Tarn::GevServer {

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
