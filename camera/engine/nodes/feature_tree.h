#pragma once

/// The nodes of one device, the register space behind them, and the order in which clients' accesses reach
/// them.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "camera/engine/memory/sparse_memory.h"
#include "camera/engine/nodes/node.h"

namespace Tarn {

/// First address that the standard leaves to the manufacturer; below lie the standard's own registers.
/// Source: GigE Vision, bootstrap register map.
constexpr std::uint64_t kBootstrapEnd = 0xA000;

/// Where registers without an address are placed; explicit addresses, which tend to be small, seldom collide.
constexpr std::uint64_t kAutomaticStart = 0x4000'0000;

/// Registers of the standard features that the standard gives no address, and the description file.
constexpr std::uint64_t kManufacturerRegisters = 0xF000'0000;
constexpr std::uint64_t kDescriptionFile = 0xF100'0000;

/// The description's port, through which clients reach the registers, is called so; no node may be.
constexpr const char* kPortName = "Device";

/// Whoever does what follows from stores into the tree's registers.
class TreeOwner {
 public:
  virtual ~TreeOwner() = default;
  /// Requires: the tree's lock is not held.
  virtual void OnStored() = 0;
};

/// Threads: guarded by the lock that `guard` tells, see device/node_lock.h.
class FeatureTree {
 public:
  std::atomic<Mutex*> guard = nullptr;  ///< of its device while that is started; null: not started

  FeatureTree() = default;
  ~FeatureTree() { Release(); }
  FeatureTree(const FeatureTree&) = delete;
  FeatureTree& operator=(const FeatureTree&) = delete;

  /// Puts a free node into the tree; a register gets its address and keeps its value.
  /// Throws: EngineError kExists when it is in a tree or the name is taken, kAddress when another register or
  ///   a reserved range lies there or no room is left, kWrongState while frozen.
  void Add(const NodePtr& node);

  /// Adds a node of the device's own, whose register may lie in reserved ranges and over other registers.
  void AddOwn(const NodePtr& node);

  /// Takes a node out. Categories, enumerations and lists that only inform forget it; a register keeps its
  /// value. With an enumeration go its entries that no other one has.
  /// Throws: EngineError kNotFound when it is not in this tree, kWrongState while frozen.
  void Remove(const NodePtr& node);

  /// Takes a register of the tree out of the device's register space and puts it at the beginning of a port's
  /// data; it keeps its value.
  /// Throws: EngineError kWrongState while frozen.
  void MoveToPort(Node& reg, PortKind port, std::uint32_t id);
  /// Puts such a register back into the register space, at an address of the tree's choice.
  /// Throws: as Add.
  void MoveToDevice(Node& reg);

  /// Lets go of all nodes; those that others hold are free again.
  void Release() noexcept;

  /// Takes the entry of an enumeration into the tree. It is found by its name as long as no node that was
  /// added, and no entry that came earlier, has the name.
  void AdoptEntry(const NodePtr& entry);

  /// Lets go of an entry that no enumeration of the tree lists any more, unless it was added by itself.
  void DropEntry(const NodePtr& entry);

  /// Nodes first, then adopted entries; null when there is none of the name (without namespace).
  NodePtr Find(const std::string& name) const;

  /// Everything that Find can find and nothing else, in the order in which it could be found.
  const std::vector<NodePtr>& Nodes() const;

  SparseMemory& Memory() { return memory_; }
  const SparseMemory& Memory() const { return memory_; }

  /// While frozen, descriptions cannot change.
  bool Frozen() const { return frozen_; }
  void SetFrozen(bool frozen) { frozen_ = frozen; }
  /// From now on the tree and all nodes in it are guarded by this lock.
  /// Requires: the lock that guards them, and this one; null is the one of what belongs to no started device.
  void SetGuard(Mutex* lock);

  /// Another number after each change of a value.
  std::uint64_t Revision() const { return memory_.Revision() + constants_; }
  /// Records that a value outside the register space changed.
  void NoteConstant() { ++constants_; }

  /// Records that the device's own side or a client stored into the register at `address`.
  void NoteStore(std::uint64_t address);
  /// The addresses below kBootstrapEnd, or of the device's own registers, that were stored to since the last
  /// call.
  std::vector<std::uint64_t> TakeStores();
  bool HasStores() const { return !stores_.empty() || !watched_stores_.empty(); }

  /// From now on the device's own side's stores into these registers, and no others, are kept for
  /// TakeWatchedStores().
  /// Requires: the registers stay in the tree until they are watched no more.
  void Watch(std::unordered_set<const Node*> registers);
  /// Records a store by the device's own side.
  void NoteOwnStore(const Node& reg, std::uint64_t address);
  struct WatchedStore {
    const Node* reg;
    std::uint64_t address;  ///< where the register was then
  };
  /// The stores into watched registers since the last call, in their order.
  std::vector<WatchedStore> TakeWatchedStores();

  /// Own registers that show what is counted elsewhere: `refresh` is called, under the tree's lock, before
  /// bytes of the device's own registers are read, and may store into them.
  void SetRefresh(std::function<void(std::uint64_t address, std::uint64_t length)> refresh) {
    refresh_ = std::move(refresh);
  }
  /// These bytes are about to be read.
  void Refresh(std::uint64_t address, std::uint64_t length) const {
    if (refresh_ && address < kDescriptionFile && address + length > kManufacturerRegisters)
      refresh_(address, length);
  }

  void SetOwner(std::weak_ptr<TreeOwner> owner) { owner_ = std::move(owner); }
  std::shared_ptr<TreeOwner> Owner() const { return owner_.lock(); }

 private:
  struct Extent {
    std::uint64_t end;
    const Node* owner;
  };

  void Insert(const NodePtr& node);
  void Show(const NodePtr& node);
  void Hide(const NodePtr& node);
  void CheckAddable(const NodePtr& node) const;
  void PlaceRegister(Node& node);
  std::uint64_t FreeAddress(const Node& node) const;
  std::optional<std::uint64_t> FreeAddressFrom(std::uint64_t begin, std::uint32_t length) const;
  const Node* OwnerWithin(std::uint64_t begin, std::uint64_t end) const;
  void CheckChangeable() const;
  void TakeBytes(Node& reg);
  void Forget(const NodePtr& node);
  bool WasAdded(const Node& node) const;

  mutable std::vector<NodePtr> nodes_;  ///< null where one was taken out since the last call of Nodes()
  mutable std::size_t gaps_ = 0;
  std::unordered_map<std::string, NodePtr> added_;
  std::unordered_map<std::string, std::vector<NodePtr>> entries_;  ///< adopted ones, in their order
  std::map<std::uint64_t, Extent> extents_;  ///< of the users' registers, by first address
  SparseMemory memory_;
  std::uint64_t constants_ = 0;  ///< changes of them
  std::vector<std::uint64_t> stores_;
  std::unordered_set<const Node*> watched_;
  std::vector<WatchedStore> watched_stores_;
  std::uint64_t next_automatic_ = kAutomaticStart;
  bool frozen_ = false;
  std::function<void(std::uint64_t, std::uint64_t)> refresh_;
  std::weak_ptr<TreeOwner> owner_;
};

}  // namespace Tarn
