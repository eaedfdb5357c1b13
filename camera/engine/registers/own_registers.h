#pragma once

/// Addresses of the standard features' registers that the standard leaves to the maker.

#include <cstdint>

namespace Tarn::OwnRegisters {

inline constexpr std::uint32_t kBase = 0xF000'0000;  // FeatureTree's kOwnRegisters
inline constexpr std::uint32_t kWidth = kBase + 0x00;
inline constexpr std::uint32_t kHeight = kBase + 0x04;
inline constexpr std::uint32_t kOffsetX = kBase + 0x08;
inline constexpr std::uint32_t kOffsetY = kBase + 0x0C;
inline constexpr std::uint32_t kPixelFormat = kBase + 0x10;
inline constexpr std::uint32_t kPayloadSize = kBase + 0x14;
inline constexpr std::uint32_t kAcquisitionMode = kBase + 0x18;
inline constexpr std::uint32_t kAcquisitionStart = kBase + 0x1C;
inline constexpr std::uint32_t kAcquisitionStop = kBase + 0x20;
inline constexpr std::uint32_t kThroughputLimitMode = kBase + 0x24;
inline constexpr std::uint32_t kThroughputLimit = kBase + 0x28;      // 8 bytes
inline constexpr std::uint32_t kLinkSpeed = kBase + 0x30;            // 8 bytes
inline constexpr std::uint32_t kTimestampLatchValue = kBase + 0x38;  // 8 bytes
inline constexpr std::uint32_t kTimestampControl = kBase + 0x40;
inline constexpr std::uint32_t kAcquisitionFrameCount = kBase + 0x44;

inline constexpr std::uint32_t kListenerTimeout = kBase + 0x48;

inline constexpr std::uint32_t kActionCounts = kBase + 0x200;  ///< 4 bytes for each signal

// What was counted since the start, 8 bytes each.
inline constexpr std::uint32_t kCounters = kBase + 0x400;
inline constexpr std::uint32_t kStreamFrames = kCounters + 0x00;
inline constexpr std::uint32_t kStreamDroppedFrames = kCounters + 0x08;
inline constexpr std::uint32_t kStreamPackets = kCounters + 0x10;
inline constexpr std::uint32_t kStreamBytes = kCounters + 0x18;
inline constexpr std::uint32_t kStreamResentPackets = kCounters + 0x20;
inline constexpr std::uint32_t kStreamFailedPackets = kCounters + 0x28;
inline constexpr std::uint32_t kStreamUnreachable = kCounters + 0x30;
inline constexpr std::uint32_t kHeartbeatTimeouts = kCounters + 0x38;
inline constexpr std::uint32_t kEventsSent = kCounters + 0x40;
inline constexpr std::uint32_t kEventsRepeated = kCounters + 0x48;
inline constexpr std::uint32_t kEventsLost = kCounters + 0x50;
inline constexpr std::uint32_t kEventsDropped = kCounters + 0x58;
inline constexpr std::uint32_t kRefusedCommands = kCounters + 0x60;
inline constexpr std::uint32_t kDroppedCommands = kCounters + 0x68;
inline constexpr std::uint32_t kDroppedNotifications = kCounters + 0x70;
inline constexpr std::uint32_t kWrongSwitchoverKeys = kCounters + 0x78;
inline constexpr std::uint32_t kCountersEnd = kCounters + 0x80;

inline constexpr std::uint32_t kUserSetSelector = kBase + 0x100;
inline constexpr std::uint32_t kUserSetLoad = kBase + 0x104;
inline constexpr std::uint32_t kUserSetSave = kBase + 0x108;

inline constexpr std::uint32_t kChunkModeActive = kBase + 0x800;
inline constexpr std::uint32_t kPayloadType = kBase + 0x804;
inline constexpr std::uint32_t kPayloadFileName = kBase + 0x810;
inline constexpr std::uint32_t kPayloadFileNameLength = 64;
inline constexpr std::uint32_t kChunkEnable = kBase + 0x900;  // a word for each entry of ChunkSelector
inline constexpr std::uint32_t kMaxChunks = 64;
constexpr bool IsChunkEnable(std::uint64_t address) {
  return address >= kChunkEnable && address < kChunkEnable + 4 * kMaxChunks;
}

/// One for each event number, 4 bytes each.
inline constexpr std::uint32_t kEventNotification = kBase + 0x1'0000;

}  // namespace Tarn::OwnRegisters
