#pragma once

/// The GenICam description that clients download: written from the feature tree and nothing else.

#include <cstdint>
#include <string>

#include "camera/engine/nodes/feature_tree.h"

namespace Tarn {

/// What the head of the description says.
struct DescriptionIdentity {
  std::string vendor_name;
  std::string model_name;
  std::uint32_t major = 1;  ///< version of the file, not of the schema
  std::uint32_t minor = 0;
  std::uint32_t sub_minor = 0;
};

struct Description {
  std::string xml;        ///< UTF-8; its length is a multiple of 4, as memory reads are
  std::string file_name;  ///< names vendor, model, version and content, since clients cache by it
};

/// Throws: EngineError that names the nodes when something in the tree cannot be published: a link to a node
/// that is not in the tree, an enumeration without entries or with two of one number, a swiss knife without a
/// formula, a minimum above the maximum, a selector that depends on what it selects, too
/// many nodes in a row.
void CheckPublishable(const FeatureTree& tree);

/// Requires: CheckPublishable(tree) passed.
Description WriteDescription(const FeatureTree& tree, const DescriptionIdentity& identity);

}  // namespace Tarn
