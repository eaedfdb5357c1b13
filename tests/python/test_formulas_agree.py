"""Formulas: the camera and the reference GenApi library compute the same, from each operator to the corners.

Every formula is computed three times: by the camera, by the library from the description that the camera
publishes, and by the library from the text as it was set. The first two must agree, as clients decide by the
one what the other then refuses; the third shows that operators bind as users of GenApi expect.
"""

import xml.etree.ElementTree as ElementTree
from typing import Any

from conftest import MakeCamera
from features import description
from genapi_peer import genapi, node_map
from node_trees import constant
from tarn.gevserver import IntSwissKnifeNode, NodeList

FAILS = None  # reading is an error
LOWEST = -(2**63)
VARIABLES = {"A": 7, "B": 3, "N": -7, "P": -2, "Z": 0, "LOW": LOWEST, "HIGH": 2**63 - 1, "S": 63, "T": 64}

AGREED = [
    # Each operator.
    *("(A + B) * 2", "3 * 7 + 4 / 2", "7 % 4", "2 ** 3", "2 | 1", "A & B", "A ^ B", "~A", "2 * (3 / 2)"),
    *("1 && 0", "A && P", "Z || B", "Z || 0", "A <> B", "A = B", "A > B", "A < B", "A <= 7", "3 >= 2"),
    *("1 << 2", "A >> 1", "A > B ? A : B", "Z ? A : B", "SGN(42)", "SGN(N) + SGN(Z)", "NEG(-42)"),
    *("sgn(A) + neg(B)", "0xfF + 0x10"),
    # Quotients, and those that nobody can compute; clients compute both branches.
    *("N / P", "N / 7", "LOW / 1", "N % 4", "A % -4", "A / Z", "A % Z", "Z / Z"),
    *("1 ? A : A / Z", "Z && A / Z"),
    # Numbers that just fit, and that wrap.
    *("HIGH + 1", "LOW - 1", "HIGH * 2", "LOW * -1", "NEG(LOW)", "-LOW", "SGN(LOW)", "HIGH > LOW"),
    *("9223372036854775807", "0x7FFFFFFFFFFFFFFF - HIGH", "2 ** 62", "2 ** -1", "1 ** -1", "0 ** 0"),
    *("P ** 3", "0 ** -1", "-1 ** -3", "B ** 39", "B ** 41", "P ** 63", "2 ** HIGH"),
    *("1 << S", "LOW >> S", "HIGH >> S", "-1 >> 1"),
    # What binds what.
    *("A=7&&B=3", "1+2<<3", "1<<2+3", "5&3=3", "1||0&&0", "2**3**2", "-2**2", "~1<<2", "A-B-1"),
    *("100/7/2", "2*3%4", "A>B?1:A<5?2:3", "A>B?(A<5?2:3):4", "A*-B", "2*~1", "-A*B", "(-A)+(+B)"),
    *("-(-2)", " A\t+ B ", "(" * 40 + "A" + "+1)" * 40, "NEG(" * 33 + "A" + ")" * 33),
]

# What the camera computes where the library computes something else from the text as it was set.
DIFFERENT_AS_SET = {
    # Quotients are floored on the camera, and cut towards zero by the library.
    **{"N / 2": -4, "A / P": -4, "LOW / B": LOWEST // 3, "HIGH / P": -(2**62), "N / 2 * 2 + N / P": -5},
    # The library reads a conditional in another conditional's branch only in parentheses.
    "A ? B ? 1 : 2 : 3": 1,
    # It takes no sign behind a sum's operator or another sign.
    **{"A- -B": 10, "A+-B": 4, "--2": 2, "~~A": 7},
}
# The camera refuses to shift by 64 and more or by less than 0, the library takes the count modulo 64.
DIFFERENT_ALWAYS = dict.fromkeys(("1 << T", "A >> T", "1 << 1000", "1 << -1", "A >> LOW"), FAILS)
FORMULAS = [*AGREED, *DIFFERENT_AS_SET, *DIFFERENT_ALWAYS]

_FORMULA = "{http://www.genicam.org/GenApi/Version_1_1}Formula"


def value_of(node: Any) -> int | None:
    try:
        return int(node.value)
    except (RuntimeError, genapi.GenericException):
        return FAILS


def as_set(xml: bytes) -> str:
    """The description with the formulas as they were set in place of what the camera made of them."""
    root = ElementTree.fromstring(xml)
    for knife in root:
        index = (knife.get("Name") or "").removeprefix("Formula")
        if index.isdigit():
            for expression in [element for element in knife if element.tag.endswith("}Expression")]:
                knife.remove(expression)
            (formula,) = knife.findall(_FORMULA)
            formula.text = FORMULAS[int(index)]
    ElementTree.register_namespace("", "http://www.genicam.org/GenApi/Version_1_1")
    return ElementTree.tostring(root, encoding="unicode")


def test_camera_and_library_agree(make_camera: MakeCamera) -> None:
    camera = make_camera(start=False)
    tree = camera.server.node_map
    variables = [constant(tree, name, value) for name, value in VARIABLES.items()]
    for index, formula in enumerate(FORMULAS):
        knife = IntSwissKnifeNode.create(f"Formula{index}")
        tree.add_node(knife)
        for variable in variables:
            if variable.name_only in formula:
                knife.add(variable, NodeList.Child)
        knife.formula = formula
    camera.server.start(camera.address)
    wrong = []
    with camera.client() as client:
        published, port = node_map(client)
        plain = genapi.NodeMap()
        plain.load_xml_from_string(as_set(description(client)))
        plain.connect(port, "Device")
        for index, formula in enumerate(FORMULAS):
            name = f"Formula{index}"
            sides = (tree[name], published.get_node(name), plain.get_node(name))
            here, there, read = (value_of(side) for side in sides)
            expected = (DIFFERENT_AS_SET | DIFFERENT_ALWAYS).get(formula, here)
            agree = (here == expected, there == here, read == here)
            if agree != (True, formula not in DIFFERENT_ALWAYS, formula in AGREED):
                wrong.append(f"{formula}: camera {here}, library {there}, library of the text as set {read}")
        del published, plain, port
    assert not wrong, "\n".join(wrong)
