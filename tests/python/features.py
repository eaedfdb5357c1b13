"""A client's view of a camera's features: finds the register behind a name in the description file.

Knows only what a test needs: fixed addresses, whole registers and bit fields of four bytes, commands, texts.
"""

import io
import xml.etree.ElementTree as ElementTree
import zipfile

from gvcp_client import ControlClient

_XMLNS = "{http://www.genicam.org/GenApi/Version_1_1}"
_REGISTERS = {"IntReg", "MaskedIntReg", "StringReg", "FloatReg"}


def description(client: ControlClient) -> bytes:
    """The camera's XML, unzipped when it comes zipped."""
    name, data = client.description()
    if not name.endswith(".zip"):
        return data
    with zipfile.ZipFile(io.BytesIO(data)) as archive:
        return archive.read(archive.namelist()[0])


class Features:
    """The features of the camera that `client` talks to, by name."""

    def __init__(self, client: ControlClient) -> None:
        self._client = client
        self.xml = ElementTree.fromstring(description(client))
        # Variables of formulas have names, too, often those of other nodes.
        self._nodes = {node.get("Name"): node for node in self.xml}

    def register(self, name: str) -> tuple[int, int]:
        """Address and length of the register at the end of the feature's value chain."""
        node = self._node_of_register(name)
        addresses = [int(text.text or "", 0) for text in node.findall(f"{_XMLNS}Address")]
        return sum(addresses), self._number(node, "Length")

    def execute(self, name: str) -> None:
        """Write a command's value to its register."""
        self._client.write_register(self.register(name)[0], self._number(self._nodes[name], "CommandValue"))

    def read(self, name: str) -> int:
        """The register behind an integer feature of at most four bytes; a bit field's own bits."""
        low, width = self._field(name)
        return self._client.read_register(self.register(name)[0]) >> low & ((1 << width) - 1)

    def write(self, name: str, value: int) -> None:
        low, width = self._field(name)
        address, _ = self.register(name)
        if width < 32:
            others = self._client.read_register(address) & ~((1 << width) - 1 << low)
            value = others | value << low
        self._client.write_register(address, value)

    def _field(self, name: str) -> tuple[int, int]:
        """Shift of the lowest bit, counted from the least significant one, and number of bits."""
        node = self._node_of_register(name)
        places = [text for tag in ("Bit", "MSB", "LSB") if (text := self._text(node, tag))]
        if not places:
            return 0, 32
        low, high = min(map(int, places)), max(map(int, places))
        return 31 - high, high - low + 1

    def _node_of_register(self, name: str) -> ElementTree.Element:
        node = self._nodes[name]
        while node.tag.removeprefix(_XMLNS) not in _REGISTERS:
            node = self._nodes[self._text(node, "pValue")]
        return node

    def _number(self, node: ElementTree.Element, tag: str) -> int:
        return int(self._text(node, tag) or "", 0)

    @staticmethod
    def _text(node: ElementTree.Element, tag: str) -> str | None:
        found = node.find(f"{_XMLNS}{tag}")
        return None if found is None else found.text
