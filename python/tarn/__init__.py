"""Images, their formats and the values that describe them: the core of Tarn.

``tarn.gevserver`` turns the process into a GigE Vision camera that sends these images.
"""

from tarn._tarn_311 import (
    AccessMode,
    BufferImage,
    CacheMode,
    ColorModel,
    DataType,
    DeviceImage,
    EmuImage,
    EventCookie,
    GenApiVersion,
    Image,
    MultiPartImage,
    NetworkConnection,
    NumberRepresentation,
    PfncFormat,
    Point2D,
    RingBufferImage,
    Size2D,
    StreamImage,
    VideoImage,
    VinImage,
    Visibility,
    WrappedImage,
)

__all__ = [
    "AccessMode",
    "BufferImage",
    "CacheMode",
    "ColorModel",
    "DataType",
    "DeviceImage",
    "EmuImage",
    "EventCookie",
    "GenApiVersion",
    "Image",
    "MultiPartImage",
    "NetworkConnection",
    "NumberRepresentation",
    "PfncFormat",
    "Point2D",
    "RingBufferImage",
    "Size2D",
    "StreamImage",
    "VideoImage",
    "VinImage",
    "Visibility",
    "WrappedImage",
]
