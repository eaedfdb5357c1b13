#pragma once

/// Floating-point numbers whose value and limits are constants or come from other nodes.

#include <optional>
#include <string_view>

#include "gevserver/nodes/number_base_nodes.h"
#include "gevserver/nodes/value_chain.h"

namespace Tarn::GevServer {

/// A floating-point number; each of value, minimum, maximum and increment is configured as a constant or a
/// node. Node getters return null for a constant; node setters throw std::runtime_error "node to set must not
/// be empty".
class FloatNode final : public Private::ValueConfigured<FloatBaseNode, FloatBaseNode> {
 public:
  using ValueConfigured::ValueConfigured;

  /// A new free node.
  /// \param name  with a prefix, or without and with `name_space` (GSNameSpace, custom by default)
  static std::shared_ptr<FloatNode> Create(std::string_view name,
                                           std::optional<std::int32_t> name_space = {});

  double ValueConfigAsFloat() const { return GetInfoAsFloat(GSN_INFO_VALUE); }
  void SetValueConfigAsFloat(double value) { SetInfoAsFloat(GSN_INFO_VALUE, value); }

  std::shared_ptr<FloatBaseNode> MinConfigAsNode() const { return ConfigAsNode(GSN_INFO_MIN); }
  void SetMinConfigAsNode(const std::shared_ptr<FloatBaseNode>& node) { SetInfo(GSN_INFO_MIN, node); }
  double MinConfigAsFloat() const { return GetInfoAsFloat(GSN_INFO_MIN); }
  void SetMinConfigAsFloat(double value) { SetInfoAsFloat(GSN_INFO_MIN, value); }

  std::shared_ptr<FloatBaseNode> MaxConfigAsNode() const { return ConfigAsNode(GSN_INFO_MAX); }
  void SetMaxConfigAsNode(const std::shared_ptr<FloatBaseNode>& node) { SetInfo(GSN_INFO_MAX, node); }
  double MaxConfigAsFloat() const { return GetInfoAsFloat(GSN_INFO_MAX); }
  void SetMaxConfigAsFloat(double value) { SetInfoAsFloat(GSN_INFO_MAX, value); }

  std::shared_ptr<FloatBaseNode> IncrementConfigAsNode() const { return ConfigAsNode(GSN_INFO_INCREMENT); }
  void SetIncrementConfigAsNode(const std::shared_ptr<FloatBaseNode>& node) {
    SetInfo(GSN_INFO_INCREMENT, node);
  }
  double IncrementConfigAsFloat() const { return GetInfoAsFloat(GSN_INFO_INCREMENT); }
  void SetIncrementConfigAsFloat(double value) { SetInfoAsFloat(GSN_INFO_INCREMENT, value); }

  /// Physical unit, for example "us".
  std::string Unit() const { return GetInfoAsString(GSN_INFO_UNIT); }
  void SetUnit(const std::string& text) { SetInfoAsString(GSN_INFO_UNIT, text); }

  /// Digits to show.
  std::int64_t DisplayPrecision() const { return GetInfoAsInt(GSN_INFO_DISPLAY_PRECISION); }
  void SetDisplayPrecision(std::int64_t digits) { SetInfoAsInt(GSN_INFO_DISPLAY_PRECISION, digits); }
};

}  // namespace Tarn::GevServer
