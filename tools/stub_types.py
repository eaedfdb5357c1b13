"""What the docstrings of the native types leave open: types of attributes, and protocols of Python.

A property's docstring has no type. A name means the same on most types, so `ATTRIBUTES` goes by name;
``Type.name`` is looked up first, for the types on which it means something else. A test reads the attributes
of live objects and compares.
"""

# Of two types, of which one is Any: nothing to check for in most programs, where it is never None.
_NODE_MAP = "NodeMap | Any"
_STREAM = "Stream | Any"

_INT = (
    *("access_mode", "address", "bits_per_pixel", "bytes_per_pixel", "cache_mode", "color_model"),
    *("command_config_as_int", "descriptor", "driver_type", "event_id", "id", "increment_config_as_int"),
    *("ip_address_uint", "layout_id", "length", "line_padding", "major", "max_config_as_int"),
    *("min_config_as_int", "minor", "name_space", "numeric_value", "off_value", "on_value", "pixel_format"),
    *("planes", "polling_time", "port", "representation", "resend_buffers_count", "state", "sub_minor"),
    *("total_payload_size", "value_config_as_int", "visibility", "display_precision"),
)
_BOOL = (
    *("is_deprecated", "is_done", "is_feature", "is_float", "is_implemented", "is_read_only", "is_readable"),
    *("is_running", "is_selector", "is_signed", "is_streamable", "is_writable"),
)
_FLOAT = ("increment_config_as_float", "max_config_as_float", "min_config_as_float", "value_config_as_float")
_STR = (
    *("address", "description", "display_name", "formula", "ip_address", "ipv4_mask", "model_name"),
    *("module_name", "name", "name_only", "symbolic_value", "tool_tip", "transport_layer_namespace", "unit"),
    *("user_version", "value_config_as_string", "vendor_name"),
)
_NODE_OR_NONE = (
    *("alias_node", "command_config_as_node", "increment_config_as_node", "is_available_config"),
    *("is_implemented_config", "is_locked_config", "max_config_as_node", "min_config_as_node"),
    "value_config_as_node",
)

ATTRIBUTES: dict[str, str] = {
    **dict.fromkeys(_STR, "str"),
    **dict.fromkeys(_INT, "int"),
    **dict.fromkeys(_BOOL, "bool"),
    **dict.fromkeys(_FLOAT, "float"),
    **dict.fromkeys(_NODE_OR_NONE, "Node | None"),
    **dict.fromkeys(("address_nodes", "invalidator_nodes", "selected_nodes"), "list[Node]"),
    "BooleanNode.value": "bool",
    "CategoryNode.nodes": "list[Node]",
    "EnumerationNode.entries": "list[EnumEntryNode]",
    "EnumerationNode.value": "str",
    **{f"FloatBaseNode.{name}": "float" for name in ("increment", "max", "min", "value")},
    **{f"Image.{name}": "int" for name in ("width", "height")},
    "Image.data_type": "DataType",
    "Image.size": "Size2D",
    "ImageBufferDescription.offset": "tarn.Point2D",
    "ImageBufferDescription.size": "tarn.Size2D",
    **{f"IntegerBaseNode.{name}": "int" for name in ("increment", "max", "min", "value")},
    "IntSwissKnifeNode.variables": "dict[str, Node]",
    "NetworkConnection.address": "str",
    "Node.imposed_access_mode": "int | None",
    "Node.node_map": _NODE_MAP,
    "NodeMap.nodes": "dict[str, Node]",
    "NodeMap.xml_file_schema_version": "tarn.GenApiVersion",
    "NodeMap.xml_file_version": "tarn.GenApiVersion",
    **{f"Point2D.{name}": "float" for name in ("x", "y")},
    "Server.local_endpoint": "tarn.NetworkConnection",
    "Server.node_map": "NodeMap",
    "Server.remote_endpoint": "tarn.NetworkConnection",
    "Server.stream": _STREAM,
    **{f"Size2D.{name}": "float" for name in ("width", "height")},
    "StringNode.value": "str",
    "StringRegNode.value": "str",
}

# Where a program has to know more than a docstring's signature tells: a node that is not there, and that
# listeners hear of the very node on which they were registered.
RETURNS: dict[str, str] = {"NodeMap.try_get_node": "Node | None"}
PARAMETERS: dict[str, str] = {"handler": "Callable[[Self], None]"}

_ORDER = tuple(f"def __{name}__(self, other: Self, /) -> bool: ..." for name in ("lt", "le", "gt", "ge"))
_NO_HASH = "__hash__: ClassVar[None]  # type: ignore[assignment]"

# Members that stand in no docstring.
PROTOCOLS: dict[str, tuple[str, ...]] = {
    "GenApiVersion": _ORDER,
    "Image": ("def __buffer__(self, flags: int, /) -> memoryview: ...",),
    "NetworkConnection": ("def __iter__(self) -> Iterator[Any]: ...",),
    "NodeMap": (
        "def __getattribute__(self, name: str, /) -> Any: ...",
        "def __getitem__(self, name: str, /) -> Any: ...",
    ),
    "Point2D": ("def __iter__(self) -> Iterator[float]: ...", _NO_HASH),
    "Size2D": ("def __iter__(self) -> Iterator[float]: ...", _NO_HASH),
}

# Registers of texts have a length to give at creation, which their base has not.
INCOMPATIBLE = {"StringRegNode.create"}


def attribute_type(owner: str, name: str) -> str:
    """The type of an attribute, as the stub of its module writes it; KeyError when nobody has told."""
    return ATTRIBUTES.get(f"{owner}.{name}") or ATTRIBUTES[name]
