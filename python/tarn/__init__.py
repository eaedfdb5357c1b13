"""Images, their formats and the values that describe them: the core of Tarn.

``tarn.gevserver`` turns the process into a GigE Vision camera that sends these images.
``tarn.help(subject)`` explains any of it in plain text.
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
    IndexedStream,
    MultiPartImage,
    NetworkConnection,
    NumberRepresentation,
    PfncFormat,
    Point2D,
    RingBufferImage,
    Size2D,
    Stream,
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
    "IndexedStream",
    "MultiPartImage",
    "NetworkConnection",
    "NumberRepresentation",
    "PfncFormat",
    "Point2D",
    "RingBufferImage",
    "Size2D",
    "Stream",
    "StreamImage",
    "VideoImage",
    "VinImage",
    "Visibility",
    "WrappedImage",
]


def help(subject: object) -> None:  # noqa: A001 - read as tarn.help, and not part of __all__
    """Show help on a type, member, object or package of Tarn in plain text.

    The docstrings of the native types carry markers for the documentation build, which the interpreter's own
    help shows too; this one does not.

    Parameters
    ----------
    subject : object
        ``tarn.gevserver.Server``, ``Server.start``, a server, ``tarn.gevserver``, or a text like
        ``"IntegerNode.value"``. Anything that is not Tarn's goes to the interpreter's help.
    """
    from tarn._help import show  # here, because importing what it needs takes longer than all of this package

    show(subject)
