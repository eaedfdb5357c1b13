"""Pixel formats that a client may choose among."""

import math
from collections.abc import Iterable

import tarn
from tarn.gevserver import (
    EnumEntryNode,
    EnumerationNode,
    IntegerNode,
    IntSwissKnifeNode,
    NameSpace,
    NodeList,
    NodeMap,
    Server,
)

_NAMES = {getattr(tarn.PfncFormat, name): name for name in dir(tarn.PfncFormat) if not name.startswith("_")}
#: Pixels after which a line ends on a byte, from the bits of a pixel. Source: PFNC, bits 16 to 23 of a value.
_STEP_FORMULA = "((BITS >> 16) & 7) = 0 ? 1 : (((BITS >> 16) & 3) = 0 ? 2 : (((BITS >> 16) & 1) = 0 ? 4 : 8))"


def offer_pixel_formats(server: Server, formats: Iterable[int]) -> None:
    """Let clients choose the pixel format, which is that of the server's creation until they do.

    What is sent has to follow: read ``server.node_map.PixelFormatValue.value``, the PFNC value, for each
    acquisition; it stands still while a client streams. `PayloadSize` follows by itself. Lines end on bytes:
    where clients choose the size, `Width` takes steps that depend on the format, and moves to the next
    smaller one when a format is chosen that cannot have it.

    Parameters
    ----------
    server : tarn.gevserver.Server
        One with a stream, in its configuration state.
    formats : iterable of int
        Members of ``tarn.PfncFormat``, beside the one that the server has; those that it offers already
        change nothing.

    Raises
    ------
    ValueError
        A number is no PFNC format, or lines of the sensor's width would end inside a byte; nothing was added
        then.
    RuntimeError
        The server is not in its configuration state.
    """
    tree = server.node_map
    selected: EnumerationNode = tree.PixelFormat
    offered = [entry.numeric_value for entry in selected.entries]
    new = [value for value in dict.fromkeys(formats) if value not in offered]
    for value in [*offered, *new] if new else []:
        if value not in _NAMES:
            raise ValueError(f"{value:#x} is no PFNC format")
        if tree.WidthMax.value % _step(value):
            raise ValueError(f"lines of {tree.WidthMax.value} pixels of {_NAMES[value]} end inside a byte")
    if not new:
        return
    if tree.Width.min < tree.Width.max and not tree.try_get_node("WidthStep"):
        _step_width(tree)
    selected.is_streamable = True
    for enumeration in (selected, tree.ChunkPixelFormat):
        for value in new:
            entry = EnumEntryNode.create(_NAMES[value], NameSpace.Standard)
            enumeration.add(entry, NodeList.Child)
            entry.numeric_value = value


def _step(pixel_format: int) -> int:
    """Pixels after which a line ends on a byte."""
    return 8 // math.gcd(8, pixel_format >> 16 & 0xFF)


def _step_width(tree: NodeMap) -> None:
    """Let the width take steps that the pixel format has."""
    bits = IntegerNode.create("BITS", NameSpace.Private)
    step = IntSwissKnifeNode.create("WidthStep", NameSpace.Private)
    for node in (bits, step):
        tree.add_node(node)
    bits.value_config_as_node = tree.PixelFormatValue
    bits.imposed_access_mode = tarn.AccessMode.ReadOnly  # or clients could write any number through it
    step.add(bits, NodeList.Child)
    step.formula = _STEP_FORMULA
    tree.Width.min_config_as_node = tree.Width.increment_config_as_node = step
