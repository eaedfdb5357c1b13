#pragma once

/// A stand-in for the server library: a node tree without a network.

#include <map>
#include <string>
#include <vector>

#include "core/fake_library_test.h"
#include "gevserver/library/tr_gev_server.h"

namespace Tarn::Testing {

/// What the fake library knows of a node.
struct FakeNode {
  std::string name;
  std::int32_t name_space = GS_NAMESPACE_CUSTOM;
  std::int32_t type = GSN_TYPE_INTEGER;
  std::map<std::int32_t, std::int64_t> integers;
  std::map<std::int32_t, std::string> texts;
  std::map<std::int32_t, TR_HANDLE> nodes;
  std::map<std::int32_t, std::vector<TR_HANDLE>> lists;
  std::string value;
  bool boolean = false;
  std::map<std::uint64_t, std::pair<std::int32_t, std::pair<GSCallback, void*>>> events;

  /// Tells the listeners of a GSNodeEvent.
  void Fire(std::int32_t event) const;
};

struct Pending {
  GSCallback released;
  void* context;
};

/// Servers and nodes of the fake library, by handle. Nodes that are in a map live until Reset.
class FakeServerLibrary {
 public:
  static FakeServerLibrary& Instance();
  void Reset() { *this = FakeServerLibrary(); }

  /// A node of the server's own, as the standard features are.
  TR_HANDLE AddStandardNode(const std::string& name, std::int32_t type);
  TR_HANDLE NewNode(const std::string& name, std::int32_t name_space, std::int32_t type);
  FakeNode& NodeOf(TR_HANDLE handle) { return nodes.at(handle); }
  /// Runs the server event callback as a thread of the library would.
  void FireServerEvent(std::int32_t event) const;

  std::map<TR_HANDLE, FakeNode> nodes;
  std::vector<std::pair<std::string, TR_HANDLE>> map;  ///< nodes that are in the server's map
  std::map<std::int32_t, std::pair<GSCallback, void*>> server_events;
  GSCreationRecord record{};
  std::string record_name;
  std::int32_t resend_buffers = 0;
  std::vector<Pending> pending;
  std::string last_error = "library text";
  std::function<void()> during_start;
  std::function<void()> during_stop;
};

}  // namespace Tarn::Testing
