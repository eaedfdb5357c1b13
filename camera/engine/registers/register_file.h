#pragma once

/// The register space as clients meet it: what exists, what may be read and written, and which nodes an
/// access reaches.

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <unordered_map>
#include <variant>
#include <vector>

#include "camera/base/engine_error.h"
#include "camera/engine/nodes/feature_tree.h"
#include "camera/engine/registers/bootstrap_rules.h"
#include "camera/engine/registers/place_index.h"
#include "camera/engine/registers/selector_space.h"
#include "camera/wire/gvcp.h"

namespace Tarn {

/// A register at one of the addresses where clients can find it.
struct PlacedRegister {
  std::uint64_t address;
  NodePtr node;
};

/// Threads: one at a time. Nothing here throws on account of what a client asks for.
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

  /// Whether there is a register at the word.
  WireStatus CheckExists(std::uint32_t address) const { return CheckCovered(address, 4, false); }

  /// The bytes as they stand; write-only registers read as zero, as the standard's own do, so that a block
  /// read can span them.
  void Read(std::uint32_t address, MutableByteView out) const;

  /// How many of the nodes' registers have a byte in the range.
  std::uint32_t CountRegisters(std::uint32_t address, std::uint32_t length) const;

  /// How many of `length` bytes from `address` on belong to one register; at least 4.
  std::uint32_t UnitLength(std::uint32_t address, std::uint32_t length) const;

  /// A client's write within one register. On any status but Success nothing has changed.
  ///
  /// A register of a user may be written when it can be written itself, or when at least one feature whose
  /// value ends in it would take the new value at this moment. A selector that decides about that and lives
  /// in the client has the number that the address tells; where it tells none, one that would do is enough.
  WireStatus Write(std::uint32_t address, ByteView bytes, const WriteContext& context);

  /// Lets the commands count as done whose registers these bytes belong to, see FinishCommand in
  /// node_values.h. One that cannot be finished stays as it is.
  void FinishCommands(std::uint32_t address, std::uint32_t length);

  /// Whether a client's reading or writing of the bytes can mean calling listeners.
  bool HasListeners(std::uint32_t address, std::uint32_t length, NodeEvent event) const;

  /// The listeners of an access to the bytes, in the order in which they are called: registers by address;
  /// behind each the nodes whose value chain ends in it, nearest first, and those equally near in the order
  /// of adding. Shared, so that each lives through its call.
  std::vector<std::shared_ptr<const NodeListener>> Listeners(std::uint32_t address, std::uint32_t length,
                                                             NodeEvent event) const;

  /// The writable registers that belong to a saved configuration, since they or features on them are
  /// streamable; by address. Those that selectors move stand there once for each address, but not the few
  /// whose addresses are too many to be known.
  std::vector<PlacedRegister> Streamable() const;

 private:
  struct Register {
    NodePtr node;
    std::vector<NodePtr> dependants;
    std::unique_ptr<AddressSelectors> selectors;  ///< null when the address is a constant
    std::vector<std::size_t> inputs;              ///< numbers of its selectors' inputs in inputs_
    std::vector<Place> places;                    ///< of one that has inputs, as they are now
  };
  using Places = std::span<const Place>;

  void AddRegister(const NodePtr& node, std::vector<NodePtr> dependants, std::vector<Place>& fixed);
  std::vector<Place> PlacesOf(const Register& reg, std::uint32_t number) const;
  void FindPlaces(Register& reg, std::uint32_t number) const;
  std::size_t InputNumber(const NodePtr& node);
  /// Finds registers anew whose places follow values that have changed. Cheap when nothing has.
  void Update() const;
  /// Calls `use(register, its places at one address)` for each register that has a byte in the range.
  template <class Use>
  void ForEachRegister(std::uint64_t address, std::uint64_t length, Use&& use) const;
  /// Calls `use(node)` for each node whose value an access to the bytes reaches.
  template <class Use>
  void ForEachReached(std::uint64_t address, std::uint64_t length, Use&& use) const;
  /// Calls `test(evaluation)` for what the selectors can be when a client uses the places, until one is true.
  template <class Test>
  bool InAnyCase(const Register& reg, Places places, Test&& test) const;
  bool MayBeRead(const Register& reg, Places places) const;
  WireStatus CheckWrite(const Register& reg, Places places, ByteView content) const;
  bool CoverAll(std::uint64_t begin, std::uint64_t end) const;
  WireStatus CheckCovered(std::uint32_t address, std::uint32_t length, bool block) const;
  WireStatus Availability(const Register& reg, Places places) const;
  WireStatus WriteBootstrap(std::uint32_t address, ByteView bytes, const WriteContext& context);
  WireStatus WriteNode(std::uint32_t address, ByteView bytes);
  /// Calls `use(command, evaluation)` for each command on the register.
  template <class Use>
  void ForEachCommand(const Register& reg, Places places, Use&& use) const;
  void NoteCommands(const Register& reg, Places places, ByteView content) const;

  FeatureTree& tree_;
  BootstrapProfile profile_;
  std::uint64_t description_size_ = 0;

  PlaceIndex fixed_;  ///< places that stay while the device runs

  // Places that follow values of nodes: brought up to date by the accesses that look.
  struct Input {
    NodePtr node;
    std::variant<std::monostate, std::int64_t, Failure> value;  ///< nothing: not read yet
  };
  mutable std::vector<Register> registers_;
  mutable std::vector<Input> inputs_;
  std::unordered_map<const Node*, std::size_t> input_numbers_;
  mutable PlaceIndex moving_;
  mutable std::optional<std::uint64_t> revision_;  ///< of the tree, when that was done
};

}  // namespace Tarn
