"""Formulas: the camera and the reference GenApi library compute the same, from each operator to the corners.

Every formula is computed three times: by the camera, by the library from the description that the camera
publishes, and by the library from the text as it was set. The first two must agree, as clients decide by the
one what the other then refuses; the third shows that operators bind as users of GenApi expect.
"""

import dataclasses
import xml.etree.ElementTree as ElementTree
from collections.abc import Callable
from typing import Any

import pytest

from conftest import Camera
from features import description
from node_trees import constant
from tarn.gevserver import IntSwissKnifeNode, NodeList, Server

genapi: Any = pytest.importorskip("genicam.genapi", reason="the Python package genicam is not installed")

LOWEST, HIGHEST = -(2**63), 2**63 - 1
FAILS = None  # reading is an error

VARIABLES = {"A": 7, "B": 3, "N": -7, "P": -2, "Z": 0, "LOW": LOWEST, "HIGH": HIGHEST, "S": 63, "T": 64}

# Why the library computes something else.
FLOORED = "quotients are floored on the camera, and cut towards zero by the library"
SHIFTED = (
    "the camera refuses to shift by 64 and more or by less than 0, the library takes the count modulo 64"
)
NESTED = "the library reads a conditional in another conditional's branch only in parentheses"
SIGNS = "the library takes no sign behind a sum's operator or another sign"


@dataclasses.dataclass(frozen=True)
class Row:
    """A formula, its value on the camera, and the reasons where the library computes something else."""

    formula: str
    value: int | None
    as_set_differs: str = ""  # given the text as it was set
    published_differs: str = ""  # given the camera's description


OPERATORS = [
    Row("(A + B) * 2", 20),
    Row("3 * 7 + 4 / 2", 23),
    Row("7 % 4", 3),
    Row("2 ** 3", 8),
    Row("2 | 1", 3),
    Row("A & B", 3),
    Row("A ^ B", 4),
    Row("~A", -8),
    Row("1 && 0", 0),
    Row("A && P", 1),
    Row("Z || B", 1),
    Row("Z || 0", 0),
    Row("A <> B", 1),
    Row("A = B", 0),
    Row("A > B", 1),
    Row("A < B", 0),
    Row("A <= 7", 1),
    Row("3 >= 2", 1),
    Row("1 << 2", 4),
    Row("A >> 1", 3),
    Row("A > B ? A : B", 7),
    Row("Z ? A : B", 3),
    Row("SGN(42)", 1),
    Row("SGN(N) + SGN(Z)", -1),
    Row("NEG(-42)", 42),
    Row("sgn(A) + neg(B)", -2),
    Row("2 * (3 / 2)", 2),
    Row("0xfF + 0x10", 271),
]

QUOTIENTS = [
    Row("N / 2", -4, FLOORED),
    Row("A / P", -4, FLOORED),
    Row("N / P", 3),
    Row("N / 7", -1),
    Row("LOW / B", -3074457345618258603, FLOORED),
    Row("HIGH / P", -4611686018427387904, FLOORED),
    Row("LOW / 1", LOWEST),
    Row("N / 2 * 2 + N / P", -5, FLOORED),
    Row("N % 4", -3),
    Row("A % -4", 3),
    Row("A / Z", FAILS),
    Row("A % Z", FAILS),
    Row("Z / Z", FAILS),
    Row("1 ? A : A / Z", FAILS),  # clients compute both branches
    Row("Z && A / Z", FAILS),
]

LARGE = [
    Row("HIGH + 1", LOWEST),
    Row("LOW - 1", HIGHEST),
    Row("HIGH * 2", -2),
    Row("LOW * -1", LOWEST),
    Row("NEG(LOW)", LOWEST),
    Row("-LOW", LOWEST),
    Row("SGN(LOW)", -1),
    Row("HIGH > LOW", 1),
    Row("9223372036854775807", HIGHEST),
    Row("0x7FFFFFFFFFFFFFFF - HIGH", 0),
    Row("2 ** 62", 2**62),
    Row("2 ** -1", 0),
    Row("1 ** -1", 1),
    Row("0 ** 0", 1),
    Row("P ** 3", -8),
    Row("0 ** -1", LOWEST),
    Row("-1 ** -3", -1),
    Row("B ** 39", 3**39),
    Row("B ** 41", LOWEST),
    Row("P ** 63", LOWEST),
    Row("2 ** HIGH", LOWEST),
]

SHIFTS = [
    Row("1 << S", LOWEST),
    Row("LOW >> S", -1),
    Row("HIGH >> S", 0),
    Row("-1 >> 1", -1),
    Row("1 << T", FAILS, SHIFTED, SHIFTED),
    Row("A >> T", FAILS, SHIFTED, SHIFTED),
    Row("1 << 1000", FAILS, SHIFTED, SHIFTED),
    Row("1 << -1", FAILS, SHIFTED, SHIFTED),
    Row("A >> LOW", FAILS, SHIFTED, SHIFTED),
]

BINDING = [
    Row("A=7&&B=3", 0),
    Row("1+2<<3", 17),
    Row("1<<2+3", 7),
    Row("5&3=3", 0),
    Row("1||0&&0", 0),
    Row("2**3**2", 64),
    Row("-2**2", 4),
    Row("~1<<2", -8),
    Row("A-B-1", 3),
    Row("100/7/2", 7),
    Row("2*3%4", 2),
    Row("A>B?1:A<5?2:3", 2),
    Row("A>B?(A<5?2:3):4", 3),
    Row("A ? B ? 1 : 2 : 3", 1, NESTED),
    Row("A*-B", -21),
    Row("2*~1", -4),
    Row("-A*B", -21),
    Row("(-A)+(+B)", -4),
    Row("A- -B", 10, SIGNS),
    Row("A+-B", 4, SIGNS),
    Row("-(-2)", 2),
    Row("--2", 2, SIGNS),
    Row("~~A", 7, SIGNS),
    Row(" A\t+ B ", 10),
    Row("(" * 40 + "A" + "+1)" * 40, 47),
    Row("NEG(" * 33 + "A" + ")" * 33, -7),
]

ROWS = OPERATORS + QUOTIENTS + LARGE + SHIFTS + BINDING

_FORMULA = "{http://www.genicam.org/GenApi/Version_1_1}Formula"


class Memory(genapi.AbstractPort):  # type: ignore[misc]
    """Formulas of constants reach no register."""

    def read(self, address: int, length: int) -> bytes:
        raise AssertionError(f"read at {address:#x}")

    def write(self, address: int, data: bytes) -> None:
        raise AssertionError(f"write at {address:#x}")

    def get_access_mode(self) -> Any:
        return genapi.EAccessMode.RW


def values(xml: bytes) -> list[int | None]:
    """What the library reads from each formula of the description."""
    nodes, port = genapi.NodeMap(), Memory()
    nodes.load_xml_from_string(xml.decode("utf-8"))
    nodes.connect(port, "Device")
    found = []
    for index in range(len(ROWS)):
        try:
            found.append(nodes.get_node(f"Formula{index}").value)
        except genapi.GenericException:
            found.append(FAILS)
    del nodes
    return found


def as_set(xml: bytes) -> bytes:
    """The description with the texts of the rows in place of what the camera made of them."""
    root = ElementTree.fromstring(xml)
    for knife in root:
        index = (knife.get("Name") or "").removeprefix("Formula")
        if index.isdigit():
            for expression in [element for element in knife if element.tag.endswith("}Expression")]:
                knife.remove(expression)
            (formula,) = knife.findall(_FORMULA)
            formula.text = ROWS[int(index)].formula
    ElementTree.register_namespace("", "http://www.genicam.org/GenApi/Version_1_1")
    changed: bytes = ElementTree.tostring(root, encoding="utf-8", xml_declaration=True)
    return changed


def own(node: IntSwissKnifeNode) -> int | None:
    try:
        return node.value
    except RuntimeError:
        return FAILS


def test_camera_and_library_agree(make_camera: Callable[..., Camera]) -> None:
    camera = make_camera(start=False)
    camera.server = Server.create_non_streaming()
    node_map = camera.server.node_map
    variables = [constant(node_map, name, value) for name, value in VARIABLES.items()]
    knives = []
    for index, row in enumerate(ROWS):
        knife = IntSwissKnifeNode.create(f"Formula{index}")
        node_map.add_node(knife)
        for variable in variables:
            if variable.name_only in row.formula:
                knife.add(variable, NodeList.Child)
        knife.formula = row.formula
        knives.append(knife)
    camera.server.start(camera.address)
    with camera.client() as client:
        xml = description(client)
    wrong = []
    for row, here, published, read in zip(
        ROWS, map(own, knives), values(xml), values(as_set(xml)), strict=True
    ):
        told = f"{row.formula}: camera {here}, library {published}, library of the text as set {read}"
        if here != row.value:
            wrong.append(f"{told}, wanted {row.value}")
        for other, reason in ((published, row.published_differs), (read, row.as_set_differs)):
            if (other != here) != bool(reason):
                wrong.append(f"{told}, noted is '{reason}'")
    assert not wrong, "\n".join(wrong)
