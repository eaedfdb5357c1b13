#pragma once

/// A short way to write down the device's own nodes.

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <utility>

#include "camera/engine/nodes/feature_tree.h"

namespace Tarn {

/// Adds own nodes to a tree. Each call returns the node, for what only a few of them have.
class FeatureBuilder {
 public:
  explicit FeatureBuilder(FeatureTree& tree) : tree_(tree) {}

  /// Adds to the same category, under names of our own: the standard name space is for those that the SFNC has.
  FeatureBuilder Custom() const {
    FeatureBuilder custom(*this);
    custom.name_space_ = NameSpace::Custom;
    return custom;
  }

  /// Features added from now on become members of this category, itself a member of `parent` (empty: of
  /// none).
  NodePtr Category(const std::string& name, const std::string& parent, Visibility visibility);

  /// A read-only feature that is a register itself; not cached, since the device changes it.
  NodePtr IntRegister(const std::string& name, std::uint32_t address, std::uint32_t length,
                      Visibility visibility, const std::string& tool_tip);
  NodePtr StringRegister(const std::string& name, std::uint32_t address, std::uint32_t length,
                         Visibility visibility, const std::string& tool_tip);

  /// A register that stands behind features and is none itself.
  /// \param bits  a field of it
  NodePtr Value(const std::string& name, std::uint32_t address, std::uint32_t length, AccessMode access,
                std::optional<BitRange> bits = std::nullopt);

  NodePtr Integer(const std::string& name, Setting value, Visibility visibility, const std::string& tool_tip);
  NodePtr Boolean(const std::string& name, Setting value, Visibility visibility, const std::string& tool_tip);
  NodePtr Command(const std::string& name, const NodePtr& target, std::int64_t number, Visibility visibility,
                  const std::string& tool_tip);
  NodePtr Enumeration(const std::string& name, Setting value,
                      std::initializer_list<std::pair<std::string, std::int64_t>> entries,
                      Visibility visibility, const std::string& tool_tip);
  /// Read-only formula over nodes of the tree; variables are called by their names. Not a feature.
  NodePtr Formula(const std::string& name, std::initializer_list<NodePtr> variables,
                  const std::string& formula);

  /// Marks a feature that has a newer name.
  static void Deprecate(const NodePtr& node);

 private:
  NodePtr Own(NodePtr node, bool feature);
  NodePtr Register(NodeKind kind, const std::string& name, std::uint32_t address, std::uint32_t length,
                   AccessMode access, bool feature);

  FeatureTree& tree_;
  NodePtr category_;
  NameSpace name_space_ = NameSpace::Standard;
};

/// Words that say one more thing about a node just added, and return it.
NodePtr ReadOnlyNode(NodePtr node);
NodePtr Limited(NodePtr node, Setting min, Setting max, Setting increment = {});
NodePtr Unit(NodePtr node, const char* unit);
NodePtr Shown(NodePtr node, Representation representation);
/// Puts a register behind a chunk or event port; its address counts from the beginning of the port's data
/// then.
NodePtr OnPort(NodePtr node, PortKind port, std::uint32_t id);

}  // namespace Tarn
