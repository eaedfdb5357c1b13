"""The server module as a set of types: order, bases, names, codes, docstrings."""

import gc
import inspect
import sys
import weakref
from collections.abc import Callable
from typing import Any
from unittest.mock import Mock

import pytest

import tarn
from binding_machine import Liar
from tarn import _gevserver_311 as module
from tarn import gevserver

BASES = {
    "NodeMap": None,
    "Server": None,
    "Stream": None,
    "ImageBufferDescription": None,
    "ChunkImageBufferDescription": "ImageBufferDescription",
    "LogicalNetworkInterface": None,
    "Node": None,
    "ValueNode": "Node",
    "SelectorNode": "ValueNode",
    "BooleanNode": "ValueNode",
    "CategoryNode": "ValueNode",
    "CommandNode": "ValueNode",
    "EnumEntryNode": "ValueNode",
    "EnumerationNode": "SelectorNode",
    "FloatBaseNode": "SelectorNode",
    "FloatNode": "FloatBaseNode",
    "FloatRegNode": "FloatBaseNode",
    "Float32RegNode": "FloatRegNode",
    "Float64RegNode": "FloatRegNode",
    "IntegerBaseNode": "SelectorNode",
    "IntegerNode": "IntegerBaseNode",
    "IntRegNode": "IntegerBaseNode",
    "IntSwissKnifeNode": "IntegerBaseNode",
    "Int32RegNode": "IntRegNode",
    "Int64RegNode": "IntRegNode",
    "StringNode": "SelectorNode",
    "StringRegNode": "StringNode",
}

CODES = {
    "NodeList": {"Child": 0, "Selected": 1, "Invalidator": 2, "Addresses": 3},
    "DriverType": {"Auto": -1, "Socket": 0, "Filter": 1},
    "ServerInitType": {"FixedSize": 1, "DynamicSize": 2},
    "ServerEvent": {
        "Connected": 0,
        "Disconnected": 1,
        "AcquisitionStart": 2,
        "AcquisitionStop": 3,
        "ImageSnapped": 4,
    },
    "NodeEvent": {"Read": 0, "Write": 1},
    "NumberSign": {"Unsigned": 0, "Signed": 1},
    "PayloadType": {"Image": 1, "File": 2, "ChunkImage": 0x4001},
    "State": {"Configuration": 0, "Disconnected": 1, "Connected": 2, "AcquisitionEnabled": 3},
    "NameSpace": {"Standard": 0, "Custom": 1, "Private": 2},
}


def members(code_type: type) -> dict[str, int]:
    return {name: getattr(code_type, name) for name in vars(code_type) if not name.startswith("_")}


def test_the_module_holds_its_types_and_the_build_id() -> None:
    public = {name for name in dir(module) if not name.startswith("__")}
    assert public == {*BASES, *CODES, "NodeType", "Info", "NodeInfo", "_mbi_id"}
    assert len(public) == 40 and module.__doc__ is None
    identification = "TARNpy-v1.11.7.build-21.Release gcc94 @ ubu2004-x86_64 & TARNpp-v1.11.4.build-31"
    assert module._mbi_id() == module._mbi_id(1, what=2) == identification
    assert set(gevserver.__all__) == public - {"_mbi_id"}


def test_types_have_their_names_and_bases() -> None:
    for name, base in BASES.items():
        kind = getattr(module, name)
        assert (kind.__name__, kind.__module__) == (name, "tarn.gevserver")
        assert kind.__base__ is (getattr(module, base) if base else object), name
        assert kind.__doc__.startswith(f"@sec@cls tarn.gevserver.{name}\n\n"), name


@pytest.mark.parametrize("name", [*BASES, *CODES])
def test_every_type_can_be_derived_from_and_weakly_referenced(name: str) -> None:
    derived = type("Derived", (getattr(module, name),), {})
    for kind in (getattr(module, name), derived):
        if name == "LogicalNetworkInterface":
            made = kind("10.0.0.1", "255.0.0.0")
        else:
            made = kind()
        assert gc.is_tracked(made) == (kind is derived)
        weak = weakref.ref(made)
        del made
        gc.collect()
        assert weak() is None


def test_an_object_that_was_never_bound_is_empty_and_says_so() -> None:
    for use, text in (
        (lambda: module.Server().state, "failed to extract type -  resource might be gone"),
        (lambda: module.Server().stop(), "failed to extract type -  resource might be gone"),
        (lambda: module.NodeMap().nodes, "failed to extract type -  resource might be gone"),
        (lambda: module.NodeMap()["Width"], "failed to extract type -  resource might be gone"),
        (lambda: module.NodeMap().add_node, "failed to extract type -  resource might be gone"),
        (lambda: module.Node().name, "failed to extract type -  resource might be gone"),
        (
            lambda: module.Stream().send(tarn.Image((2, 2))),
            "failed to extract type -  resource might be gone",
        ),
        (lambda: module.ImageBufferDescription().size, "failed to extract type - pointer is null"),
    ):
        with pytest.raises(RuntimeError) as caught:
            use()
        assert str(caught.value) == text


def test_codes() -> None:
    for name, expected in CODES.items():
        assert members(getattr(module, name)) == expected, name
    assert members(module.NodeType) == {
        "Invalid": -1,
        **{
            name: value
            for value, name in enumerate(
                [
                    "Unknown",
                    "Category",
                    "IntReg",
                    "StringReg",
                    "Integer",
                    "Boolean",
                    "Command",
                    "Enumeration",
                    "EnumEntry",
                    "IntSwissKnife",
                ]
            )
        },
    }
    info = members(module.NodeInfo)
    assert sorted(info.values()) == [n for n in range(31) if n not in (17, 28, 29)]
    assert (info["Value"], info["Sign"], info["Last"], info["RegisterAddress"]) == (18, 27, 30, 16)
    assert list(members(module.Info).values()) == [0, 1, 2, 3, 4]
    for holder in (module.State, module.State()):
        with pytest.raises(AttributeError):
            holder.Connected = 5
        with pytest.raises(AttributeError):
            del holder.Connected
        assert holder.Connected == 2 and type(holder.Connected) is int
    child = inspect.getattr_static(module.NodeList, "Child").__doc__
    assert child == (
        "@ro Node accesses the child nodes.\n\n"
        "Category: Nodes in category. Enumeration: EnumEntry nodes. SwissKnifes: Variables."
    )


def test_docstrings_of_the_three_kinds() -> None:
    server = module.Server
    assert server.__doc__ == (
        "@sec@cls tarn.gevserver.Server\n\n"
        "Tarn GigE Vision Server implements a GigE Vision camera in software.\n\n"
    )
    assert server.node_map.__doc__ == "@ro Gets this servers node map."
    assert module.NodeMap.xml_file_version.__doc__ == "Gets the XML version."
    assert module.NodeMap.module_name.__doc__ == (
        "@ro Gets this node map's module name.\n\nThis is the device node map."
    )
    assert server.stop.__doc__.startswith(
        "@sec@call def stop(self) -> None:\n\nStops this server.\n\nStopping the server results"
    )
    assert "Parameters" not in server.stop.__doc__ and "Returns" not in server.stop.__doc__
    assert module.Stream.try_send.__doc__.count("@sec@call def try_send(self, image: tarn.Image") == 1
    assert module.NodeMap.add_node.__doc__.split("@sec@call ")[1:] == [
        f"def add_node(self, {signature}) -> None:\n\nAdds the given to this node map.\n\n"
        "Add a node either by 1) Node only, 2) Node key (name) and value (node) or 3) Node key, value and "
        "kind specified in node list. The key will be the full node.name.\n\n"
        f"Parameters\n----------{listed}\n"
        for signature, listed in (
            ("key: str, node: tarn.gevserver.Node, kind: int", _KEY + _NODE + _KIND),
            ("key: str, node: tarn.gevserver.Node", _KEY + _NODE),
            ("node: tarn.gevserver.Node", _NODE),
        )
    ]


_KEY = (
    "\nkey : str\n    Key of the node to add. This will be the full name of the node including namespace.\n"
)
_NODE = "\nnode : tarn.gevserver.Node\n    Node to add.\n"
_KIND = "\nkind : int\n    Kind of node to add.\n"


def test_docstring_of_a_factory_and_of_a_constructor() -> None:
    doc = module.Server.create_with_const_size_pfnc.__doc__
    assert doc.startswith(
        "@sec@call def create_with_const_size_pfnc(size: tarn.Size2D, pixel_format: int, "
        "driver_type: int = tarn.gevserver.DriverType.Auto) -> tarn.gevserver.Server:\n\n"
    )
    assert doc.endswith(
        "    The driver type to use (see tarn.gevserver.DriverType).\n"
        "\nReturns\n-------\ntarn.gevserver.Server\n"
        "    Newly created server object in State.Configuration.\n\n"
    )
    assert module.LogicalNetworkInterface.__doc__ == (
        "@sec@cls tarn.gevserver.LogicalNetworkInterface\n\n"
        "An IP network interface the GevServer can be bound to.\n\n"
        "@sec@call def __init__(self, ip_address: str, ipv4_mask: str) -> None:\n\n"
        "Instantiates a LogicalNetworkInterface object.\n\nParameters\n----------\n"
        "ip_address : str\n    The address of the interface.\n\n"
        "ipv4_mask : str\n    The subnet mask of the address.\n\n"
    )


def test_what_only_looks_like_one_of_ours_is_refused() -> None:
    """By its real type, before its memory is read: as an argument, in a comparison, in a slot."""
    server = gevserver.Server.create_with_const_size_pfnc(tarn.Size2D(64, 48), tarn.PfncFormat.Mono8)
    node_map, width = server.node_map, server.node_map.Width
    size, image = tarn.Size2D(1, 2), tarn.Image((64, 48))
    takers: list[tuple[object, Callable[[Any], object]]] = [
        (size, lambda fake: gevserver.Server.create_with_const_size_pfnc(fake, 1)),
        (size, lambda fake: tarn.Image(fake)),
        (size, lambda fake: tarn.Size2D.__iter__(fake)),
        (tarn.Point2D(1, 1), lambda fake: setattr(_description(), "offset", fake)),
        (tarn.DataType(8), lambda fake: tarn.Image((2, 2), 1, fake)),
        (tarn.DataType(8), lambda fake: tarn.DataType.__hash__(fake)),
        (tarn.GenApiVersion(1), lambda fake: setattr(node_map, "xml_file_version", fake)),
        (width.register_event_updated(print), lambda fake: width.unregister_event_updated(fake)),
        (image, lambda fake: server.stream.try_send(fake)),
        (image, lambda fake: server.stream.try_send(fake, print)),
        (image, lambda fake: tarn.Image.__repr__(fake)),
        (width, lambda fake: node_map.add_node(fake)),
        (width, lambda fake: node_map.remove_node(fake)),
        (width, lambda fake: node_map.Root.add(fake, 0)),
        (width, lambda fake: setattr(width, "alias_node", fake)),
        (node_map, lambda fake: type(node_map).__getitem__(fake, "Width")),
        (node_map, lambda fake: type(node_map).__getattribute__(fake, "Width")),
        (module.State, lambda fake: vars(module.State)["Connected"].__class__.__get__(fake, None)),
    ]
    for real, take in takers:
        for fake in (weakref.proxy(real), Mock(spec=real), Liar(type(real))):
            with pytest.raises((ValueError, TypeError)):
                take(fake)
    assert size == weakref.proxy(size)  # proxies compare what they stand for
    assert size != Mock(spec=size) and size != Liar(tarn.Size2D)


def _description() -> gevserver.ImageBufferDescription:
    make = gevserver.ImageBufferDescription.create_image_buffer_description_pfnc
    return make(tarn.Size2D(8, 8), tarn.PfncFormat.Mono8)


def test_subinterpreters_are_refused() -> None:
    """Callbacks and the exit hook belong to the main interpreter, whichever imported the package first."""
    interpreters = pytest.importorskip("_xxsubinterpreters")
    other = interpreters.create()
    script = "import tarn.gevserver as g; g.Server.create_non_streaming()"
    with pytest.raises(interpreters.RunFailedError, match="main interpreter only"):
        interpreters.run_string(other, f"import sys; sys.path[:] = {sys.path!r}; {script}")
    interpreters.destroy(other)
    assert gevserver.Server.create_non_streaming().node_map.DeviceUserID.value == ""
