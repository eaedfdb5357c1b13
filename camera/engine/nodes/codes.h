#pragma once

/// Codes that describe nodes. The values cross the C line; capi/ asserts that they agree with its headers.

#include <cstdint>

namespace Tarn {

/// node_kinds.cpp says what each of them is.
enum class NodeKind : std::int32_t {
  Category = 1,
  IntReg = 2,
  StringReg = 3,
  Integer = 4,
  Boolean = 5,
  Command = 6,
  Enumeration = 7,
  EnumEntry = 8,
  IntSwissKnife = 9,
  String = 10,
  Float = 11,
  FloatReg = 12,
};

enum class NameSpace : std::int32_t { Standard = 0, Custom = 1, Private = 2 };

enum class AccessMode : std::int32_t {
  NotImplemented = 0,
  NotAvailable = 1,
  ReadOnly = 2,
  WriteOnly = 3,
  ReadWrite = 4,
};

constexpr bool IsReadable(AccessMode mode) {
  return mode == AccessMode::ReadOnly || mode == AccessMode::ReadWrite;
}
constexpr bool IsWritable(AccessMode mode) {
  return mode == AccessMode::WriteOnly || mode == AccessMode::ReadWrite;
}

enum class CacheMode : std::int32_t { NoCache = 0, WriteThrough = 1, WriteAround = 2 };

enum class Visibility : std::int32_t { Beginner = 0, Expert = 1, Guru = 2, Invisible = 3 };

enum class Representation : std::int32_t {
  Linear = 0,
  Logarithmic = 1,
  Boolean = 2,
  PureNumber = 3,
  HexNumber = 4,
  Ipv4Address = 5,
  MacAddress = 6,
};

enum class NodeEvent : std::int32_t { Read = 0, Write = 1 };

/// Items of a node's description, which the information calls read and write (see node_items.h).
enum class NodeItem : std::int32_t {
  Name = 0,
  DisplayName = 1,
  AccessMode = 2,
  Max = 3,
  Min = 4,
  Increment = 5,
  NumEnumEntries = 6,
  Streamable = 7,
  CachingMode = 8,
  ToolTip = 9,
  Description = 10,
  Visibility = 11,
  PollingTime = 12,
  EventId = 13,
  NameSpace = 14,
  RegisterLength = 15,
  RegisterAddress = 16,
  Representation = 17,
  Value = 18,
  OnValue = 19,
  OffValue = 20,
  Formula = 21,
  ImposedAccessMode = 22,
  IsImplemented = 23,
  IsAvailable = 24,
  IsLocked = 25,
  Alias = 26,
  Sign = 27,
  Unit = 28,
  DisplayPrecision = 29,
  // As integers, which alias and unit are not.
  IsDeprecated = Alias,
  IsFeature = Unit,
};

/// Relations of a node to others.
enum class NodeList : std::int32_t { Child = 0, Selected = 1, Invalidator = 2, Addresses = 3 };

}  // namespace Tarn
