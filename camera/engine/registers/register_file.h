#pragma once

/// The register space as clients meet it: what exists, what may be read and written, and which nodes are
/// concerned.

#include <cstdint>
#include <memory>
#include <vector>

#include "camera/engine/nodes/feature_tree.h"
#include "camera/engine/registers/bootstrap_rules.h"
#include "camera/wire/gvcp.h"

namespace Tarn {

/// A register at one of the addresses where clients can find it.
struct PlacedRegister {
  std::uint64_t address;
  NodePtr node;
};

/// Threads: guarded by the tree lock. Nothing here throws on account of what a client asks for.
class RegisterFile {
 public:
  explicit RegisterFile(FeatureTree& tree) : tree_(tree) {}

  /// Collects the registers and their dependants; to be called when the tree was frozen.
  /// \param description_size  bytes of the description file, readable from kDescriptionFile on
  void Index(const BootstrapProfile& profile, std::uint64_t description_size);

  const BootstrapProfile& Profile() const { return profile_; }

  /// Whether `length` bytes from `address` on can be read.
  /// \param block  a memory read: it may span registers, and the holes of the discovery block
  /// Requires: address and length are multiples of 4.
  WireStatus CheckRead(std::uint32_t address, std::uint32_t length, bool block) const;

  /// The bytes as they stand; write-only registers read as zero, as the standard's own do, so that a block
  /// read can span them.
  void Read(std::uint32_t address, MutableByteView out) const;

  /// How many of `length` bytes from `address` on belong to one register; at least 4.
  std::uint32_t UnitLength(std::uint32_t address, std::uint32_t length) const;

  /// A client's write within one register. On any status but Success nothing has changed.
  ///
  /// A register of a user may be written when it can be written itself, or when at least one feature whose
  /// value ends in it would take the new value at this moment.
  WireStatus Write(std::uint32_t address, ByteView bytes, const WriteContext& context);

  /// The nodes that hear of an access to the bytes, in the order in which they hear: registers by address;
  /// behind each the nodes whose value chain ends in it, nearest first, and those equally near in the order
  /// of adding.
  std::vector<NodePtr> Concerned(std::uint32_t address, std::uint32_t length) const;

  /// Whether a client's reading or writing of the bytes can mean calling listeners.
  bool HasListeners(std::uint32_t address, std::uint32_t length, NodeEvent event) const;

  /// The listeners of the concerned nodes in order; shared, so that each lives through its call.
  std::vector<std::shared_ptr<const NodeListener>> Listeners(std::uint32_t address, std::uint32_t length,
                                                             NodeEvent event) const;

  /// The writable registers that belong to a saved configuration, since they or features on them are
  /// streamable; by address. Those that selectors move stand there once for each address, but not the few
  /// whose addresses are too many to be known.
  std::vector<PlacedRegister> Streamable() const;

 private:
  struct Entry {
    std::uint64_t address;
    std::uint32_t length;
    NodePtr node;
    std::vector<NodePtr> dependants;

    std::uint64_t End() const { return (address + length + 3) / 4 * 4; }
  };

  /// Calls `use(entry, present address)` for each register that has a byte in the range.
  template <class Use>
  void ForEachEntry(std::uint64_t address, std::uint64_t length, Use&& use) const;
  template <class Use>
  void ForEachConcerned(std::uint64_t address, std::uint64_t length, Use&& use) const;
  bool Exists(std::uint64_t address) const;
  WireStatus WriteBootstrap(std::uint32_t address, ByteView bytes, const WriteContext& context);
  WireStatus WriteNode(std::uint32_t address, ByteView bytes);

  FeatureTree& tree_;
  BootstrapProfile profile_;
  std::uint64_t description_size_ = 0;
  std::vector<Entry> fixed_;    ///< by address; a register stands at each address that it can have
  std::vector<Entry> dynamic_;  ///< registers with too many of them; their address is found at each access
  std::uint64_t longest_ = 0;   ///< bytes of the longest fixed register
};

}  // namespace Tarn
