#pragma once

/// The bases of all nodes with a value.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "gevserver/nodes/node.h"

namespace Tarn::GevServer {

/// Adds to Node the text form of the value, and the events of a client reading or writing it.
///
/// Read listeners run before the client gets its answer, so they may still change the value; written and
/// updated listeners after the value was stored. They run on a thread of the library. Categories and entries
/// have no events.
class ValueNode : public Node {
 public:
  using Node::Node;
  ~ValueNode() override;

  /// Whether the node belongs to the saved camera settings.
  virtual bool IsStreamable() const;
  virtual void SetIsStreamable(bool streamable);

  /// The value as text.
  virtual std::string ToString() const;
  /// Sets the value from text; the library reads it.
  virtual void FromString(const std::string& text);

  /// Milliseconds, 0 when the node is not polled. Asks this node only, not those it depends on.
  virtual std::int64_t PollingTime() const;

  using NodeCallback = CbCarrier<Node&>::Callback;
  std::uint64_t RegisterOnRead(NodeCallback callback);
  bool UnregisterOnRead(std::uint64_t cookie);
  std::uint64_t RegisterWritten(NodeCallback callback);
  bool UnregisterWritten(std::uint64_t cookie);

  /// Has the library's events reach the listeners. Called once, by MakeNode.
  /// \param self  this node
  /// Throws: the kind of the library's code, with "failed to register updated handler".
  void ConnectEvents(const std::weak_ptr<ValueNode>& self);

 protected:
  /// Tells the library which events anybody listens to: others need not be told at all.
  void OnListenersChanged() override;

 private:
  static void OnReadEvent(void* context);
  static void OnWriteEvent(void* context);

  CbCarrier<Node&> on_read_;
  CbCarrier<Node&> written_;

  // Constant after ConnectEvents. 0 is none.
  std::uint64_t event_context_ = 0;
  std::uint64_t read_cookie_ = 0;
  std::uint64_t write_cookie_ = 0;
};

/// Groups nodes whose meaning depends on this node's value.
class SelectorNode : public ValueNode {
 public:
  using ValueNode::ValueNode;

  /// True when it selects at least one node.
  bool IsSelector() const { return RelatedCount(GSN_LIST_SELECTED) > 0; }
  std::vector<std::shared_ptr<Node>> SelectedNodes() const { return Related(GSN_LIST_SELECTED); }
};

}  // namespace Tarn::GevServer
