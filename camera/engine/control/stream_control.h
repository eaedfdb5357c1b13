#pragma once

/// What the registers say about the stream: its settings, its payload, and what goes out with an image.

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "camera/base/clock.h"
#include "camera/base/endpoint.h"
#include "camera/engine/control/device_clock.h"
#include "camera/engine/control/effects.h"
#include "camera/engine/features/chunk_set.h"
#include "camera/engine/features/standard_features.h"
#include "camera/engine/nodes/feature_tree.h"
#include "camera/engine/stream/image_layout.h"

namespace Tarn {

/// Of a device without a stream nothing has an effect.
/// Threads: one at a time.
class StreamControl {
 public:
  /// \param format  what is sent; empty for a device without a stream
  StreamControl(FeatureTree& tree, const std::optional<SensorFormat>& format, const DeviceClock& clock,
                Effects& effects)
      : tree_(tree), format_(format), clock_(clock), effects_(effects) {}

  /// The tree is about to be published: finds the chunks.
  /// Throws: as ChunkSet::Collect.
  void Publish();

  /// The device starts.
  /// \param source_port  from which stream packets leave
  void Open(std::uint16_t source_port);
  void Close() { source_port_ = 0; }
  bool IsOpen() const { return source_port_ != 0; }

  /// Somebody stored into a register of the stream channel.
  /// \param primary  address of the client in control
  void OnChannelWritten(std::uint32_t primary);
  /// The stream's host port: a client opened or closed the channel.
  void OnPortWritten(std::uint32_t primary);
  void OnPacketSizeWritten(std::uint32_t primary);
  /// Something on which the payload size depends.
  void OnPayloadWritten();
  /// A pixel format may have another step of the width: the width moves to the next smaller that it can have.
  void OnPixelFormatWritten();
  /// The program gave a payload size; chunks are added to it.
  void OnPayloadSizeWritten();

  bool PortIsOpen() const;
  std::uint32_t PayloadSize() const;

  /// What goes out with an image that is sent now: leader and chunks.
  /// \param sample_bytes  the image's own size
  void DescribeBlock(ImageBlock& block, std::size_t sample_bytes, Instant now);

 private:
  ImageFormat PresentFormat() const;
  std::uint32_t ImagePayloadSize() const;
  StreamConfig ReadConfig(std::uint32_t primary) const;

  FeatureTree& tree_;
  const std::optional<SensorFormat> format_;
  const DeviceClock& clock_;
  Effects& effects_;
  ChunkSet chunks_;
  std::uint16_t source_port_ = 0;                    ///< 0 while closed
  std::optional<std::uint32_t> given_payload_size_;  ///< by the program, without chunks; else it is computed
};

/// Gives memory for so many bytes at least.
using BufferSource = std::function<std::vector<std::uint8_t>(std::size_t)>;

/// The payload of a block: the image as its leader says it is, and its chunks. An image that does not lie as the wire has
/// it is put in order in a buffer.
/// Throws: EngineError kInvalidArgument when the memory does not fit the format.
void LayOut(const ImageMemory& image, ImageBlock& block, const BufferSource& buffers);

}  // namespace Tarn
