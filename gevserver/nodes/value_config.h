#pragma once

/// What may be asked of a node whose class is not known: where its value comes from.

namespace Tarn::GevServer::Private {

/// A node whose value is a constant or comes from another node. `Source` is a shared pointer to the kind of
/// node that can supply it.
template <class Source>
class IHasValueConfig {
 public:
  virtual ~IHasValueConfig() = default;
  /// Null for a constant.
  virtual Source ValueConfigAsNode() const = 0;
};

/// Marks nodes whose value lies in the register space: the ends of value chains.
class IConfigurableRegisterNode {
 public:
  virtual ~IConfigurableRegisterNode() = default;
};

/// Marks commands.
class IConfigurableCommandNode {
 public:
  virtual ~IConfigurableCommandNode() = default;
};

}  // namespace Tarn::GevServer::Private
