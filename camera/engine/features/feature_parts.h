#pragma once

/// The standard features, category by category; each function adds one category's nodes.

#include "camera/engine/features/feature_builder.h"
#include "camera/engine/features/standard_features.h"

namespace Tarn {

void AddDeviceControl(FeatureBuilder& add, bool has_stream);

/// Requires: the category TransportLayerControl, the nodes of AddDeviceControl.
void AddGigEVision(FeatureBuilder& add, FeatureTree& tree);

/// Requires: the current category is that of the transport layer's registers.
void AddMessageChannel(FeatureBuilder& add);

/// Requires: the nodes of AddStreamChannel, where there is a stream.
void AddEventControl(FeatureBuilder& add, FeatureTree& tree);

/// Requires: as AddGigEVision; goes into the same category.
void AddControlChannel(FeatureBuilder& add, FeatureTree& tree);

/// Requires: the category TransportLayerControl.
void AddPtp(FeatureBuilder& add);

void AddActions(FeatureBuilder& add);

/// What went over the network, and what went wrong.
/// Requires: the category TransportLayerControl.
void AddCounters(const FeatureBuilder& device, bool has_stream);

// Devices with a stream. \param locked  node that is not zero while the stream's parameters are fixed

void AddStreamChannel(FeatureBuilder& add, const NodePtr& locked);
void AddImageFormat(FeatureBuilder& add, const SensorFormat& format, const NodePtr& locked,
                    const NodePtr& payload_size);
void AddAcquisition(FeatureBuilder& add, const NodePtr& locked);

/// What blocks are sent as.
/// Requires: the category TransportLayerControl is the last one added.
void AddPayloadType(FeatureBuilder& add, const NodePtr& locked);
void AddChunkData(FeatureBuilder& add, FeatureTree& tree, const SensorFormat& format, const NodePtr& locked);

/// Requires: the nodes of all parts with streamable features.
/// \param locked  node that is not zero while the stream's parameters are fixed
void AddUserSets(FeatureBuilder& add, FeatureTree& tree, const NodePtr& locked);

}  // namespace Tarn
