# Made by tools/make_stubs.py from the docstrings of the native types.
"""Native types of tarn.gevserver."""

from collections.abc import Callable
from typing import Any, Final, Self, overload

import tarn

class DriverType:
    """Driver type."""

    Auto: Final = -1
    """Auto select driver type."""
    Socket: Final = 0
    """Socket driver."""
    Filter: Final = 1
    """Filter driver."""

class ImageBufferDescription:
    """Describes a GenICam Pixel Format Naming Convention (PFNC) compatible image memory buffer.

    This buffer needn't be TARN Image compatible. You can use all PFNC values even packed ones.
    """
    @staticmethod
    def create_image_buffer_description(
        size: tarn.Size2D, color_model: int, data_type: tarn.DataType
    ) -> ImageBufferDescription:
        """Creates a default image buffer description.

        Tries to map the given color_model and data_type to a PfncFormat.

        Parameters
        ----------
        size : tarn.Size2D
            Width and height in pixels.

        color_model : int
            Color model of the image to send (see tarn.ColorModel).

        data_type : tarn.DataType
            TARN data type of the image to send.

        Returns
        -------
        tarn.gevserver.ImageBufferDescription
            The default image buffer description.
        """
    @staticmethod
    def create_image_buffer_description_pfnc(size: tarn.Size2D, pixel_format: int) -> ImageBufferDescription:
        """Creates a default image buffer description.

        Tries to map the given color_model and data_type to a PfncFormat.

        Parameters
        ----------
        size : tarn.Size2D
            GenICam PFNC format value.

        pixel_format : int
            TARN data type of the image to send.

        Returns
        -------
        tarn.gevserver.ImageBufferDescription
            The default image buffer description.
        """
    @property
    def pixel_format(self) -> int:
        """Gets or sets the image pixel format (see tarn.PfncFormat)."""
    @pixel_format.setter
    def pixel_format(self, value: int) -> None: ...
    @property
    def size(self) -> tarn.Size2D:
        """Gets or sets the image size."""
    @size.setter
    def size(self, value: tarn.Size2D) -> None: ...
    @property
    def offset(self) -> tarn.Point2D:
        """Gets or sets the image's offset on the sensor.

        The server always sends an image with the given Size. The offset is only for information.
        """
    @offset.setter
    def offset(self, value: tarn.Point2D) -> None: ...
    @property
    def line_padding(self) -> int:
        """Gets or sets the line padding.

        Line padding is a contiguous block at the end of each line that holds no meaningful data. This
        is normally used to align lines.
        """
    @line_padding.setter
    def line_padding(self, value: int) -> None: ...

class Info:
    """General version and acquisition information."""

    XMLVersionMajor: Final = 0
    """Major XML version info."""
    XMLVersionMinor: Final = 1
    """Minor XML version info."""
    XMLVersionSubMinor: Final = 2
    """Sub minor XML version info."""
    ServerUserVersion: Final = 3
    """User version of the server."""
    AcquisitionActive: Final = 4
    """Acquisition active info."""

class LogicalNetworkInterface:
    """An IP network interface the GevServer can be bound to."""
    def __new__(cls, ip_address: str, ipv4_mask: str) -> Self:
        """Instantiates a LogicalNetworkInterface object.

        Parameters
        ----------
        ip_address : str
            The address of the interface.

        ipv4_mask : str
            The subnet mask of the address.
        """
    @staticmethod
    def get_all_available() -> list[LogicalNetworkInterface]:
        """Gets all available network interfaces usable by the GevServer.

        Returns
        -------
        List[tarn.gevserver.LogicalNetworkInterface]
            List containing all available network interfaces.
        """
    @property
    def ip_address(self) -> str:
        """Gets or sets the address of the interface as string and converted uint."""
    @ip_address.setter
    def ip_address(self, value: str) -> None: ...
    @property
    def ip_address_uint(self) -> int:
        """Gets or sets the address of the interface as unsigned integer."""
    @ip_address_uint.setter
    def ip_address_uint(self, value: int) -> None: ...
    @property
    def ipv4_mask(self) -> str:
        """Gets or sets the subnet mask of the address."""
    @ipv4_mask.setter
    def ipv4_mask(self, value: str) -> None: ...

class NameSpace:
    """The possible name spaces a node can be in."""

    Standard: Final = 0
    """Standard name space."""
    Custom: Final = 1
    """Custom name space."""
    Private: Final = 2
    """Private name space."""

class Node:
    """Basic GevServer node for device feature access."""
    def add(self, node: Node, kind: int) -> None:
        """Adds a node to this node.

        See tarn.gevserver.NodeList for the kinds. A node that is in no node map is added to the node
        map of this node as well. Set operation is only possible as long as the tarn.gevserver.State is
        tarn.gevserver.State.Configuration.

        Parameters
        ----------
        node : tarn.gevserver.Node
            Node to add.

        kind : int
            Kind of node.
        """
    def remove(self, node: Node, kind: int) -> bool:
        """Removes a node from this node.

        See tarn.gevserver.NodeList for the kinds. The node stays in its node map; only an entry leaves
        it together with its enumeration. Set operation is only possible as long as the
        tarn.gevserver.State is tarn.gevserver.State.Configuration.

        Parameters
        ----------
        node : tarn.gevserver.Node
            Node to remove.

        kind : int
            Kind of node.

        Returns
        -------
        bool
            True if the node was removed, otherwise false.
        """
    def register_event_updated(self, handler: Callable[[Self], None]) -> tarn.EventCookie:
        """Register a listener to node updated event.

        Parameters
        ----------
        handler : Callable[[tarn.gevserver.Node], None]
            Called with this node, on a thread of the server.

        Returns
        -------
        tarn.EventCookie
            Ends the registration when unregistered.
        """
    def unregister_event_updated(self, event_cookie: tarn.EventCookie) -> None:
        """Manually unregister a listener to the node updated event.

        Parameters
        ----------
        event_cookie : tarn.EventCookie
            What the registration returned.
        """
    @property
    def node_map(self) -> NodeMap | Any:
        """Gets the node map of this GevServer node.

        None as long as the node is in no node map.
        """
    @property
    def tool_tip(self) -> str:
        """Gets or sets the short descriptive text of this node.

        Set operation is only possible as long as the tarn.gevserver.State is
        tarn.gevserver.State.Configuration.
        """
    @tool_tip.setter
    def tool_tip(self, value: str) -> None: ...
    @property
    def description(self) -> str:
        """Gets or sets the long descriptive text of this node.

        Set operation is only possible as long as the tarn.gevserver.State is
        tarn.gevserver.State.Configuration.
        """
    @description.setter
    def description(self, value: str) -> None: ...
    @property
    def access_mode(self) -> int:
        """Gets the access mode of this node (see tarn.AccessMode)."""
    @property
    def imposed_access_mode(self) -> int | None:
        """Gets or sets the default access mode of this node (see tarn.AccessMode).

        None when no access mode is imposed; setting None lifts it. Set operation is only possible as
        long as the tarn.gevserver.State is tarn.gevserver.State.Configuration.
        """
    @imposed_access_mode.setter
    def imposed_access_mode(self, value: int | None) -> None: ...
    @property
    def is_implemented(self) -> bool:
        """Gets whether the node is implemented."""
    @property
    def is_implemented_config(self) -> Node | None:
        """Gets or sets the node that specifies whether a node is implemented in the device or not.

        Set operation is only possible as long as the tarn.gevserver.State is
        tarn.gevserver.State.Configuration.
        """
    @is_implemented_config.setter
    def is_implemented_config(self, value: Node | None) -> None: ...
    @property
    def is_available_config(self) -> Node | None:
        """Gets or sets the node that specifies whether a node is currently available or not.

        Set operation is only possible as long as the tarn.gevserver.State is
        tarn.gevserver.State.Configuration.
        """
    @is_available_config.setter
    def is_available_config(self, value: Node | None) -> None: ...
    @property
    def is_locked_config(self) -> Node | None:
        """Gets or sets the node that specifies whether a node is currently read only or not.

        Set operation is only possible as long as the tarn.gevserver.State is
        tarn.gevserver.State.Configuration.
        """
    @is_locked_config.setter
    def is_locked_config(self, value: Node | None) -> None: ...
    @property
    def is_readable(self) -> bool:
        """Helper to check whether this node is readable."""
    @property
    def is_writable(self) -> bool:
        """Helper to check whether this node is writable."""
    @property
    def cache_mode(self) -> int:
        """Gets the cache mode of this node (see tarn.CacheMode)."""
    @property
    def visibility(self) -> int:
        """Gets the complexity level of this node (see tarn.Visibility)."""
    @property
    def alias_node(self) -> Node | None:
        """Gets or sets the node that is an alias value for this node.

        Set operation is only possible as long as the tarn.gevserver.State is
        tarn.gevserver.State.Configuration.
        """
    @alias_node.setter
    def alias_node(self, value: Node | None) -> None: ...
    @property
    def name(self) -> str:
        """Gets the full name of this node."""
    @property
    def name_only(self) -> str:
        """Gets the full name of this node without namespace."""
    @property
    def name_space(self) -> int:
        """Gets the namespace this node is in (see tarn.gevserver.NameSpace)."""
    @property
    def event_id(self) -> int:
        """Nodes with an event identifier may become invalidated if an event/message is delivered from the
        device.

        0 when the node has none.
        """
    @property
    def is_feature(self) -> bool:
        """Gets whether this node is considered a feature node."""
    @property
    def is_deprecated(self) -> bool:
        """Gets whether this node is considered deprecated."""
    @property
    def display_name(self) -> str:
        """Gets or sets the display name of this node.

        Set operation is only possible as long as the tarn.gevserver.State is
        tarn.gevserver.State.Configuration.
        """
    @display_name.setter
    def display_name(self, value: str) -> None: ...

class NodeEvent:
    """Node event."""

    Read: Final = 0
    """Read from node."""
    Write: Final = 1
    """Write to node."""

class NodeInfo:
    """Node information."""

    Name: Final = 0
    """Gets the full name of the node."""
    DisplayName: Final = 1
    """Gets the display name of the node."""
    AccessMode: Final = 2
    """Gets the access mode of the node."""
    Max: Final = 3
    """Gets the maximum value."""
    Min: Final = 4
    """Gets the minimum value."""
    Increment: Final = 5
    """Gets the increment."""
    NumEnumEntries: Final = 6
    """Number of enumeration entries for NInfoEnum."""
    Streamable: Final = 7
    """Information on the streamability of the node."""
    CachingMode: Final = 8
    """Gets the caching mode."""
    ToolTip: Final = 9
    """Gets the tool tip (short description)."""
    Description: Final = 10
    """Gets the long descriptive text."""
    Visibility: Final = 11
    """Gets the visibility level."""
    PollingTime: Final = 12
    """Gets the polling time in ms."""
    EventID: Final = 13
    """Gets the event ID if available."""
    NameSpace: Final = 14
    """Gets the node namespace."""
    RegisterLength: Final = 15
    """Gets the register nodes length in bytes."""
    RegisterAddress: Final = 16
    """Gets the current address of the register (can change)."""
    Value: Final = 18
    """Accesses the value configuration."""
    OnValue: Final = 19
    """Boolean specific: accesses the integer value for true. Command specific: accesses the integer
    value for execute.
    """
    OffValue: Final = 20
    """Boolean specific: accesses the integer value for false."""
    Formula: Final = 21
    """Formula for swiss knife nodes."""
    ImposedAccessMode: Final = 22
    """Accesses the TAccessMode of the node overriding the nodes it depends on."""
    IsImplemented: Final = 23
    """Access the IInteger node defining whether the node is implemented."""
    IsAvailable: Final = 24
    """Accesses the IInteger node defining whether the node is available."""
    IsLocked: Final = 25
    """Accesses the IInteger node defining whether the node is read only."""
    Alias: Final = 26
    """Accesses the alias node of this node."""
    Sign: Final = 27
    """Accesses the signed or unsigned state of integer registers."""
    Last: Final = 30
    """Node last."""

class NodeList:
    """Node access."""

    Child: Final = 0
    """Node accesses the child nodes.

    Category: Nodes in category. Enumeration: EnumEntry nodes. SwissKnifes: Variables.
    """
    Selected: Final = 1
    """Node accesses the selected nodes."""
    Invalidator: Final = 2
    """Node accesses the invalidator nodes."""
    Addresses: Final = 3
    """Node accesses the register address nodes (not constants)."""

class NodeMap:
    """Contains all nodes of a device or module."""
    def __getattribute__(self, name: str, /) -> Any: ...
    def __getitem__(self, name: str, /) -> Any: ...
    @overload
    def add_node(self, key: str, node: Node, kind: int) -> None:
        """Adds the given to this node map.

        Add a node either by 1) Node only, 2) Node key (name) and value (node) or 3) Node key, value and
        kind specified in node list. The key will be the full node.name.

        Parameters
        ----------
        key : str
            Key of the node to add. This will be the full name of the node including namespace.

        node : tarn.gevserver.Node
            Node to add.

        kind : int
            Kind of node to add.
        """
    @overload
    def add_node(self, key: str, node: Node) -> None:
        """Adds the given to this node map.

        Add a node either by 1) Node only, 2) Node key (name) and value (node) or 3) Node key, value and
        kind specified in node list. The key will be the full node.name.

        Parameters
        ----------
        key : str
            Key of the node to add. This will be the full name of the node including namespace.

        node : tarn.gevserver.Node
            Node to add.
        """
    @overload
    def add_node(self, node: Node) -> None:
        """Adds the given to this node map.

        Add a node either by 1) Node only, 2) Node key (name) and value (node) or 3) Node key, value and
        kind specified in node list. The key will be the full node.name.

        Parameters
        ----------
        node : tarn.gevserver.Node
            Node to add.
        """
    @overload
    def remove_node(self, key: str) -> bool:
        """Removes the node from this node map either by key or the node itself.

        Parameters
        ----------
        key : str
            Key of the node to add. This will be the full name of the node including namespace.

        Returns
        -------
        bool
            True if has been removed; False if node is not present in this node map.
        """
    @overload
    def remove_node(self, node: Node) -> bool:
        """Removes the node from this node map either by key or the node itself.

        Parameters
        ----------
        node : tarn.gevserver.Node
            Node to remove.

        Returns
        -------
        bool
            True if has been removed; False if node is not present in this node map.
        """
    def try_get_node(self, name: str) -> Node | None:
        """Tries to get the node from the node map.

        Parameters
        ----------
        name : str
            Name of the node to try to get.

        Returns
        -------
        tarn.gevserver.Node
            Node retrieved by name. Empty shell if node is not available.
        """
    @property
    def vendor_name(self) -> str:
        """Gets the name of the vendor, who created the XML description.

        Often this name does not match the information of the GenTL port (discovery information).
        """
    @property
    def is_read_only(self) -> bool:
        """Gets whether this node map is read only.

        Read only when the server is not in the tarn.gevserver.State.Configuration gevserver.State.
        """
    @property
    def model_name(self) -> str:
        """Gets the name of the model, that the XML description is for.

        Often this name does not match the information of the GenTL port (discovery information).
        """
    @property
    def module_name(self) -> str:
        """Gets this node map's module name.

        This is the device node map.
        """
    @property
    def transport_layer_namespace(self) -> str:
        """Gets the transport layer type of the device."""
    @property
    def xml_file_version(self) -> tarn.GenApiVersion:
        """Gets the XML version."""
    @xml_file_version.setter
    def xml_file_version(self, value: tarn.GenApiVersion) -> None: ...
    @property
    def xml_file_schema_version(self) -> tarn.GenApiVersion:
        """Gets the XML schema version."""
    @property
    def nodes(self) -> dict[str, Node]:
        """Gets a dictionary that contains all nodes of this node map."""

class NodeType:
    """Available node types."""

    Invalid: Final = -1
    """Node is invalid."""
    Unknown: Final = 0
    """Node is of unknown type."""
    Category: Final = 1
    """Node is a category node."""
    IntReg: Final = 2
    """Node is an integer register node."""
    StringReg: Final = 3
    """Node is a string register node."""
    Integer: Final = 4
    """Node is an integer node (no reg)."""
    Boolean: Final = 5
    """Node is a boolean node (no reg)."""
    Command: Final = 6
    """Node is a command node (no reg)."""
    Enumeration: Final = 7
    """Node is an enumeration node (no reg)."""
    EnumEntry: Final = 8
    """Node is an enumeration entry node (no reg)."""
    IntSwissKnife: Final = 9
    """Node is an integer swiss knife node (no reg)."""

class NumberSign:
    """The signedness of the number."""

    Unsigned: Final = 0
    """Unsigned."""
    Signed: Final = 1
    """Signed."""

class PayloadType:
    """The type of the payload."""

    Image: Final = 1
    """Image payload."""
    File: Final = 2
    """File payload."""
    ChunkImage: Final = 16385
    """Chunk image payload."""

class Server:
    """Tarn GigE Vision Server implements a GigE Vision camera in software."""
    @staticmethod
    def create_non_streaming() -> Server:
        """Creates a non-streaming GigE Vision server object.

        For stream-capable variants see create_server_const_size(size, color_model, data_type,
        driver_type) or create_server_variable_size(max_size, color_model, data_type, driver_type). You
        can use this server for pure communication use cases via the GenApi (think for example of a
        lighting controller or motor lens).

        Returns
        -------
        tarn.gevserver.Server
            Newly created non-streaming server object in tarn.gevserver.State.Configuration..
        """
    @staticmethod
    def create_with_const_size_pfnc(
        size: tarn.Size2D, pixel_format: int, driver_type: int = DriverType.Auto
    ) -> Server:
        """Creates a new server object with a constant width and height.

        If you wish to change the payload size (for example because you want to send chunk data), you
        can set it on the PayloadSizeValue node in State.Configuration.

        Parameters
        ----------
        size : tarn.Size2D
            Width and height in pixels.

        pixel_format : int
            GenICam PFNC format value (see tarn.PfncFormat).

        driver_type : int
            The driver type to use (see tarn.gevserver.DriverType).

        Returns
        -------
        tarn.gevserver.Server
            Newly created server object in State.Configuration.
        """
    @staticmethod
    def create_with_const_size(
        size: tarn.Size2D,
        color_model: int,
        data_type: tarn.DataType = tarn.DataType.Int8BppSigned,
        driver_type: int = DriverType.Auto,
    ) -> Server:
        """Creates a new server object with a constant width and height.

        Tries to map the given and to a PfncFormat. If you wish to change the payload size (for example
        because you want to send chunk data), you can set it on the PayloadSizeValue node in
        tarn.gevserver.State.Configuration state.

        Parameters
        ----------
        size : tarn.Size2D
            Width and height in pixels.

        color_model : int
            Color model of the image to send (see tarn.ColorModel).

        data_type : tarn.DataType
            Data type of the image to send.

        driver_type : int
            The driver type to use. Newly created server object in tarn.gevserver.State.Configuration
            state (see tarn.gevserver.DriverType).

        Returns
        -------
        tarn.gevserver.Server
            Newly created server object in tarn.gevserver.State.Configuration.
        """
    @staticmethod
    def create_with_variable_size(
        max_size: tarn.Size2D,
        color_model: int,
        data_type: tarn.DataType = tarn.DataType.Int8BppSigned,
        driver_type: int = DriverType.Auto,
    ) -> Server:
        """Creates a new server object with a client configurable width, height and offsets.

        Tries to map the given color_model and data_type to a PfncFormat. If you wish to change the
        payload size (for example because you want to send chunk data), you can set it on the
        PayloadSizeValue node in tarn.gevserver.State.Configuration state.

        Parameters
        ----------
        max_size : tarn.Size2D
            Maximal width and height in pixels.

        color_model : int
            Color model of the image to send (see tarn.ColorModel).

        data_type : tarn.DataType
            Data type of the image to send.

        driver_type : int
            The driver type to use (see tarn.gevserver.DriverType).

        Returns
        -------
        tarn.gevserver.Server
            Newly created server object in tarn.gevserver.State.Configuration state.
        """
    @staticmethod
    def create_with_variable_size_pfnc(
        max_size: tarn.Size2D, pixel_format: int, driver_type: int = DriverType.Auto
    ) -> Server:
        """Creates a new server object with a client configurable width, height and offsets.

        If you wish to change the payload size (for example because you want to send chunk data), you
        can set it on the PayloadSizeValue node in tarn.gevserver.State.Configuration State.

        Parameters
        ----------
        max_size : tarn.Size2D
            Width and height in pixels.

        pixel_format : int
            GenICam PFNC format value (see tarn.PfncFormat).

        driver_type : int
            The driver type to use (see tarn.gevserver.DriverType).

        Returns
        -------
        tarn.gevserver.Server
            Newly created server object in tarn.gevserver.State.Configuration.
        """
    def start(self, ip_address: str | int) -> None:
        """Starts this server and binds it to the given ip_address.

        All communication channels are bound and the GenApi XML description is generated. On success the
        state changes to tarn.gevserver.State.Disconnected.

        Parameters
        ----------
        ip_address : Union[str, int]
            IP address version 4 to bind to as string or unsigned integer.
        """
    def stop(self) -> None:
        """Stops this server.

        Stopping the server results, depending on the current state, in a chain from
        tarn.gevserver.State.AcquisitionEnabled to tarn.gevserver.State.Connected to
        tarn.gevserver.State.Disconnected to tarn.gevserver.State.Configuration.
        """
    @property
    def state(self) -> int:
        """Gets the current state this server is in (see tarn.gevserver.State)."""
    @property
    def driver_type(self) -> int:
        """Gets the GigE Vision driver type used by this server object (see tarn.gevserver.DriverType)."""
    @property
    def user_version(self) -> str:
        """Gets or sets the user defined version that is appended to the device version.

        This property is mandatory as soon as you change anything about the GenApi nodes! As the GenApi
        XML description is auto-generated the client needs a way to distinguish between different server
        instances with differing feature sets. If you change anything about the GenApi nodes on certain
        user version, you must increase the NodeMap.XmlFileVersion. This version information is appended
        to the TRGevServer version. The available memory for the overall information is limited by the
        GigE Vision standard to 32 bytes which results in up to 31 ASCII characters text (actual
        encoding is UTF-8) as strings must be null-terminated. Longer version information is silently
        cropped!
        """
    @user_version.setter
    def user_version(self, value: str) -> None: ...
    @property
    def local_endpoint(self) -> tarn.NetworkConnection:
        """Gets the local end point this server is bound to (see tarn.NetworkConnection).

        Network connection containing the current IP address and port. This value is only set if state
        is not tarn.gevserver.State.Configuration.
        """
    @property
    def remote_endpoint(self) -> tarn.NetworkConnection:
        """Gets the remote end point this server is connected to (see tarn.NetworkConnection).

        Network connection containing the current IP address and port. Empty if not connected.This value
        is only set if state is tarn.gevserver.State.Connected or
        tarn.gevserver.State.AcquisitionEnabled.
        """
    @property
    def node_map(self) -> NodeMap:
        """Gets this servers node map."""
    @property
    def stream(self) -> Stream | Any:
        """Gets the Tarn.GevServer.Stream for sending Images or other data.

        The Tarn.GevServer.Stream object if this server object is streaming capable; empty hull for
        non-streaming server. This property is only non-empty if you created the server object via
        create_server_const_size(Size2D, ColorModel, DataType, DriverType) or
        create_server_variable_size(Size2D, ColorModel, DataType, DriverType).
        """

class ServerEvent:
    """Server status event."""

    Connected: Final = 0
    """Connection established."""
    Disconnected: Final = 1
    """Server is disconnected."""
    AcquisitionStart: Final = 2
    """Start of acquisition requested."""
    AcquisitionStop: Final = 3
    """Stop of acquisition requested."""
    ImageSnapped: Final = 4
    """Image snap requested."""

class ServerInitType:
    """The possible types a server can be initiated."""

    FixedSize: Final = 1
    """Server with fixed size."""
    DynamicSize: Final = 2
    """Server with dynamic size."""

class State:
    """The possible states the GevServer can be in."""

    Configuration: Final = 0
    """Configuration state."""
    Disconnected: Final = 1
    """Disconnected from remote client."""
    Connected: Final = 2
    """Connected to remote client."""
    AcquisitionEnabled: Final = 3
    """Acquisition enabled state."""

class Stream:
    """The stream to send Images or other data."""
    def send(self, image: tarn.Image, image_released: Callable[[tarn.Image], None] | None = None) -> None:
        """Sends the given image to the remote client.

        The given image must fit into the payload size set at creation / State.Configuration state. If
        packet resend is enabled (Stream.resend_buffers_count is larger than zero), then the given must
        remain unchanged until ``image_released`` has been called! In case packet resend is disabled
        ``image_released`` will be called immediately. If no callback is given, packet resend must be
        disabled (Stream.resend_buffers_count is zero).

        Parameters
        ----------
        image : tarn.Image
            An image to be sent.

        image_released : Optional[Callable[[tarn.Image], None]]
            Delegate to be called when the given image is not needed anymore for packet resend.If
            ``None`` is set then the image will be copied to the resend buffer.
        """
    def try_send(self, image: tarn.Image, image_released: Callable[[tarn.Image], None] | None = None) -> bool:
        """Tries to send the given image to the remote client.

        If packet resend is enabled (Stream.resend_buffers_count is larger than zero), then the given
        image must remain unchanged until ``image_released`` has been called! In case packet resend is
        disabled ``image_released`` will be called immediately. If no callback is given, packet resend
        must be disabled (Stream.resend_buffers_count is zero).

        Parameters
        ----------
        image : tarn.Image
            An image to be sent.

        image_released : Optional[Callable[[tarn.Image], None]]
            Delegate to be called when the given image is not needed anymore for packet resend. If
            ``None`` is set the image will be copied to the resend buffer.

        Returns
        -------
        bool
            ``True`` if successfully sent; ``False`` on any error. Parameter errors and disposed
            exception will still be thrown.
        """
    @property
    def is_running(self) -> bool:
        """Gets whether this stream is running.

        Streaming can only be enabled by the remote client. Send is only possible as long as the stream
        is active (running). Note that acquisition start/stop is an asynchronous action without any
        means to synchronize. Use the try_send() method to avoid exceptions. ``True`` if parent's state
        is tarn.gevserver.State.AcquisitionEnabled; ``False`` otherwise.
        """
    @property
    def resend_buffers_count(self) -> int:
        """Gets or sets the number of resend buffers.

        This number specifies for how many full frames a packet resend can be done; set to 0 if no
        packet resend is to be supported. This property can only be change only if the parent is in
        State.Configuration.
        """
    @resend_buffers_count.setter
    def resend_buffers_count(self, value: int) -> None: ...

class ChunkImageBufferDescription(ImageBufferDescription):
    """Describes a GenICam Pixel Format Naming Convention (PFNC) compatible image memory buffer with
    possibly additional data.

    This buffer does not need to be TARN Image compatible. You can use all PFNC values, even packed
    ones.
    """
    @staticmethod
    def create_chunk_image_buffer_description(
        size: tarn.Size2D,
        color_model: int,
        data_type: tarn.DataType,
        pixel_format: int,
        total_payload_size: int,
    ) -> ChunkImageBufferDescription:
        """Creates a default chunk image buffer description.

        Tries to map the given color_model and data_type to a PfncFormat.

        Parameters
        ----------
        size : tarn.Size2D
            Width and height in pixels.

        color_model : int
            Color model of the image to send (see tarn.ColorModel).

        data_type : tarn.DataType
            TARN data type of the image to send.

        pixel_format : int
            GenICam PFNC format value (see tarn.PfncFormat).

        total_payload_size : int
            Size of the valid payload over all chunks (including the image).

        Returns
        -------
        tarn.gevserver.ChunkImageBufferDescription
            Its default chunk image buffer description.
        """
    @staticmethod
    def create_chunk_image_buffer_description_pfnc(
        size: tarn.Size2D, pixel_format: int, total_payload_size: int
    ) -> ChunkImageBufferDescription:
        """Creates a default chunk image buffer description.

        Parameters
        ----------
        size : tarn.Size2D
            Width and height in pixels.

        pixel_format : int
            GenICam PFNC format value (see tarn.PfncFormat).

        total_payload_size : int
            Size of the valid payload over all chunks (including the image).

        Returns
        -------
        tarn.gevserver.ChunkImageBufferDescription
            Its default chunk image buffer description.
        """
    @property
    def total_payload_size(self) -> int:
        """Gets or sets a valid payload size over all chunks including the image chunk."""
    @total_payload_size.setter
    def total_payload_size(self, value: int) -> None: ...
    @property
    def layout_id(self) -> int:
        """Gets or sets the layout identifier for the chunks.

        Change the identifier if the layout size of the chunks you send changes. This is to reduce parse
        time on the client side. An easy way to define such an identifier is to use a bit field for all
        supported chunks. A value of 0 means that the layout mechanism is not used and the client must
        parse the chunk layout for each buffer.
        """
    @layout_id.setter
    def layout_id(self, value: int) -> None: ...

class ValueNode(Node):
    """Base class for all nodes, that have a value."""
    def from_string(self, value: str) -> None:
        """Sets the value of the node from the string value.

        Parameters
        ----------
        value : str
            Value to set.
        """
    def register_event_written_updated(self, handler: Callable[[Self], None]) -> tarn.EventCookie:
        """Registers a listener to node written event.

        Parameters
        ----------
        handler : Callable[[tarn.gevserver.Node], None]
            Called with this node, on a thread of the server.

        Returns
        -------
        tarn.EventCookie
            Ends the registration when unregistered.
        """
    def unregister_event_written_updated(self, event_cookie: tarn.EventCookie) -> None:
        """Manually unregister a listener from the node written event.

        Parameters
        ----------
        event_cookie : tarn.EventCookie
            What the registration returned.
        """
    def register_event_on_read_updated(self, handler: Callable[[Self], None]) -> tarn.EventCookie:
        """Registers a listener to node on read event.

        Parameters
        ----------
        handler : Callable[[tarn.gevserver.Node], None]
            Called with this node, on a thread of the server.

        Returns
        -------
        tarn.EventCookie
            Ends the registration when unregistered.
        """
    def unregister_event_on_read_updated(self, event_cookie: tarn.EventCookie) -> None:
        """Manually unregister a listener from the node on read event.

        Parameters
        ----------
        event_cookie : tarn.EventCookie
            What the registration returned.
        """
    @property
    def is_streamable(self) -> bool:
        """Gets whether this node should be used, when the camera settings are stared.

        Set operation is only possible as long as the tarn.gevserver.State is
        tarn.gevserver.State.Configuration.
        """
    @is_streamable.setter
    def is_streamable(self, value: bool) -> None: ...
    @property
    def polling_time(self) -> int:
        """Gets the polling time of this value in milliseconds.

        Zero means that the node is not polled. Only this node is asked, not the nodes it depends on.
        """

class BooleanNode(ValueNode):
    """Represents true or false over an integer value."""
    @overload
    @staticmethod
    def create(name: str, namespace: int) -> BooleanNode:
        """Creates a new node.

        You must add this node to a node map before most operations are possible.

        Parameters
        ----------
        name : str
            Node name with or without namespace prefix. If the name does not contain a namespace prefix
            and no namespace is specified separately, tarn.gevserver.NameSpace.Custom is used.

        namespace : int
            Namespace of the node (see tarn.gevserver.NameSpace).

        Returns
        -------
        tarn.gevserver.BooleanNode
            The requested node.
        """
    @overload
    @staticmethod
    def create(name: str) -> BooleanNode:
        """Creates a new node.

        You must add this node to a node map before most operations are possible.

        Parameters
        ----------
        name : str
            Node name with or without namespace prefix. If the name does not contain a namespace prefix
            and no namespace is specified separately, tarn.gevserver.NameSpace.Custom is used.

        Returns
        -------
        tarn.gevserver.BooleanNode
            The requested node.
        """
    def from_string(self, value: str) -> None:
        """Sets the value of the node from the string value.

        "true" in any case sets true, every other text sets false.

        Parameters
        ----------
        value : str
            Value to set.
        """
    @property
    def value(self) -> bool:
        """Gets or sets the value of this node.

        Possible in every tarn.gevserver.State.
        """
    @value.setter
    def value(self, value: bool) -> None: ...
    @property
    def on_value(self) -> int:
        """Gets or sets the integer value that is written for true.

        Set operation is only possible as long as the tarn.gevserver.State is
        tarn.gevserver.State.Configuration.
        """
    @on_value.setter
    def on_value(self, value: int) -> None: ...
    @property
    def off_value(self) -> int:
        """Gets or sets the integer value that is written for false.

        Set operation is only possible as long as the tarn.gevserver.State is
        tarn.gevserver.State.Configuration.
        """
    @off_value.setter
    def off_value(self, value: int) -> None: ...
    @property
    def value_config_as_node(self) -> Node | None:
        """Gets or sets the node that supplies the value of this node.

        None when the value is a constant. Set operation is only possible as long as the
        tarn.gevserver.State is tarn.gevserver.State.Configuration.
        """
    @value_config_as_node.setter
    def value_config_as_node(self, value: Node | None) -> None: ...
    @property
    def value_config_as_int(self) -> int:
        """Gets or sets the value of this node as a constant.

        Gets the present value when a node supplies it; setting replaces the node. Set operation is only
        possible as long as the tarn.gevserver.State is tarn.gevserver.State.Configuration.
        """
    @value_config_as_int.setter
    def value_config_as_int(self, value: int) -> None: ...
    @property
    def access_mode(self) -> int:
        """Gets the access mode of this node (see tarn.AccessMode).

        The access mode of the node that supplies the value in the end, read-write for a constant.
        """
    @property
    def cache_mode(self) -> int:
        """Gets the cache mode of this node (see tarn.CacheMode).

        The cache mode of the node that supplies the value in the end, no cache for a constant.
        """
    @property
    def polling_time(self) -> int:
        """Gets the polling time of this value in milliseconds.

        Zero means that the node is not polled. Only this node is asked, not the nodes it depends on.
        """

class CategoryNode(ValueNode):
    """Groups other nodes, as clients show them."""
    @overload
    @staticmethod
    def create(name: str, namespace: int) -> CategoryNode:
        """Creates a new node.

        You must add this node to a node map before most operations are possible.

        Parameters
        ----------
        name : str
            Node name with or without namespace prefix. If the name does not contain a namespace prefix
            and no namespace is specified separately, tarn.gevserver.NameSpace.Custom is used.

        namespace : int
            Namespace of the node (see tarn.gevserver.NameSpace).

        Returns
        -------
        tarn.gevserver.CategoryNode
            The requested node.
        """
    @overload
    @staticmethod
    def create(name: str) -> CategoryNode:
        """Creates a new node.

        You must add this node to a node map before most operations are possible.

        Parameters
        ----------
        name : str
            Node name with or without namespace prefix. If the name does not contain a namespace prefix
            and no namespace is specified separately, tarn.gevserver.NameSpace.Custom is used.

        Returns
        -------
        tarn.gevserver.CategoryNode
            The requested node.
        """
    def from_string(self, value: str) -> None:
        """Not supported.

        Parameters
        ----------
        value : str
            Value ignored.
        """
    @property
    def nodes(self) -> list[Node]:
        """Gets the nodes categorized by this node."""
    @property
    def is_streamable(self) -> bool:
        """Categories are never streamable."""
    @is_streamable.setter
    def is_streamable(self, value: bool) -> None: ...
    @property
    def access_mode(self) -> int:
        """Categories are always read-only (see tarn.AccessMode)."""
    @property
    def cache_mode(self) -> int:
        """Nothing to cache here (see tarn.CacheMode)."""
    @property
    def polling_time(self) -> int:
        """Nothing to poll."""

class CommandNode(ValueNode):
    """Represents a command that a client can execute."""
    @overload
    @staticmethod
    def create(name: str, namespace: int) -> CommandNode:
        """Creates a new node.

        You must add this node to a node map before most operations are possible.

        Parameters
        ----------
        name : str
            Node name with or without namespace prefix. If the name does not contain a namespace prefix
            and no namespace is specified separately, tarn.gevserver.NameSpace.Custom is used.

        namespace : int
            Namespace of the node (see tarn.gevserver.NameSpace).

        Returns
        -------
        tarn.gevserver.CommandNode
            The requested node.
        """
    @overload
    @staticmethod
    def create(name: str) -> CommandNode:
        """Creates a new node.

        You must add this node to a node map before most operations are possible.

        Parameters
        ----------
        name : str
            Node name with or without namespace prefix. If the name does not contain a namespace prefix
            and no namespace is specified separately, tarn.gevserver.NameSpace.Custom is used.

        Returns
        -------
        tarn.gevserver.CommandNode
            The requested node.
        """
    def execute(self) -> None:
        """Executes this command.

        Writes the command value to the node that supplies this command's value.
        """
    def from_string(self, value: str) -> None:
        """Sets the value of the node from the string value.

        "true" in any case executes the command, every other text marks it as done.

        Parameters
        ----------
        value : str
            Value to set.
        """
    @property
    def is_done(self) -> bool:
        """Gets whether the execution of this command is finished.

        A command that is not readable is always done.
        """
    @property
    def command_config_as_node(self) -> Node | None:
        """Gets or sets the node that supplies the command value of this node.

        None when the command value is a constant. Set operation is only possible as long as the
        tarn.gevserver.State is tarn.gevserver.State.Configuration.
        """
    @command_config_as_node.setter
    def command_config_as_node(self, value: Node | None) -> None: ...
    @property
    def command_config_as_int(self) -> int:
        """Gets or sets the command value of this node as a constant.

        Gets the present value when a node supplies it; setting replaces the node. Set operation is only
        possible as long as the tarn.gevserver.State is tarn.gevserver.State.Configuration.
        """
    @command_config_as_int.setter
    def command_config_as_int(self, value: int) -> None: ...
    @property
    def value_config_as_node(self) -> Node | None:
        """Gets or sets the node that supplies the value of this node.

        None when the value is a constant. Set operation is only possible as long as the
        tarn.gevserver.State is tarn.gevserver.State.Configuration.
        """
    @value_config_as_node.setter
    def value_config_as_node(self, value: Node | None) -> None: ...
    @property
    def value_config_as_int(self) -> int:
        """Gets or sets the value of this node as a constant.

        Gets the present value when a node supplies it; setting replaces the node. Set operation is only
        possible as long as the tarn.gevserver.State is tarn.gevserver.State.Configuration.
        """
    @value_config_as_int.setter
    def value_config_as_int(self, value: int) -> None: ...
    @property
    def is_streamable(self) -> bool:
        """Commands are never streamable.

        It will always return False.
        """
    @is_streamable.setter
    def is_streamable(self, value: bool) -> None: ...
    @property
    def access_mode(self) -> int:
        """Gets the access mode of this node (see tarn.AccessMode).

        The access mode of the node that supplies the value in the end, read-write for a constant.
        """
    @property
    def cache_mode(self) -> int:
        """Gets the cache mode of this node (see tarn.CacheMode).

        The cache mode of the node that supplies the value in the end, no cache for a constant.
        """
    @property
    def polling_time(self) -> int:
        """Gets the polling time of this value in milliseconds.

        Zero means that the node is not polled. Only this node is asked, not the nodes it depends on.
        """

class EnumEntryNode(ValueNode):
    """Represents one entry of an enumeration."""
    @overload
    @staticmethod
    def create(name: str, namespace: int) -> EnumEntryNode:
        """Creates a new node.

        You must add this node to a node map before most operations are possible.

        Parameters
        ----------
        name : str
            Node name with or without namespace prefix. If the name does not contain a namespace prefix
            and no namespace is specified separately, tarn.gevserver.NameSpace.Custom is used.

        namespace : int
            Namespace of the node (see tarn.gevserver.NameSpace).

        Returns
        -------
        tarn.gevserver.EnumEntryNode
            The requested node.
        """
    @overload
    @staticmethod
    def create(name: str) -> EnumEntryNode:
        """Creates a new node.

        You must add this node to a node map before most operations are possible.

        Parameters
        ----------
        name : str
            Node name with or without namespace prefix. If the name does not contain a namespace prefix
            and no namespace is specified separately, tarn.gevserver.NameSpace.Custom is used.

        Returns
        -------
        tarn.gevserver.EnumEntryNode
            The requested node.
        """
    def from_string(self, value: str) -> None:
        """Not supported.

        Parameters
        ----------
        value : str
            Value ignored.
        """
    @property
    def numeric_value(self) -> int:
        """Gets or sets the numeric value of this entry.

        Set operation is only possible as long as the tarn.gevserver.State is
        tarn.gevserver.State.Configuration.
        """
    @numeric_value.setter
    def numeric_value(self, value: int) -> None: ...
    @property
    def symbolic_value(self) -> str:
        """Gets or sets the symbolic value of this entry.

        Set operation is only possible as long as the tarn.gevserver.State is
        tarn.gevserver.State.Configuration.
        """
    @symbolic_value.setter
    def symbolic_value(self, value: str) -> None: ...
    @property
    def is_streamable(self) -> bool:
        """EnumEntryNodes are never streamable."""
    @is_streamable.setter
    def is_streamable(self, value: bool) -> None: ...
    @property
    def access_mode(self) -> int:
        """EnumEntryNodes are always read-only (see tarn.AccessMode)."""
    @property
    def cache_mode(self) -> int:
        """Nothing to cache here (see tarn.CacheMode)."""
    @property
    def polling_time(self) -> int:
        """Nothing to poll."""

class SelectorNode(ValueNode):
    """Groups other nodes that are dependent on this node."""
    @property
    def is_selector(self) -> bool:
        """Gets whether this node selects at least one other."""
    @property
    def selected_nodes(self) -> list[Node]:
        """Gets all nodes selected by this node."""

class EnumerationNode(SelectorNode):
    """Represents a choice among named values.

    Add entries with tarn.gevserver.NodeList.Child; an entry that is in no node map joins the node
    map of its enumeration.
    """
    @overload
    @staticmethod
    def create(name: str, namespace: int) -> EnumerationNode:
        """Creates a new node.

        You must add this node to a node map before most operations are possible.

        Parameters
        ----------
        name : str
            Node name with or without namespace prefix. If the name does not contain a namespace prefix
            and no namespace is specified separately, tarn.gevserver.NameSpace.Custom is used.

        namespace : int
            Namespace of the node (see tarn.gevserver.NameSpace).

        Returns
        -------
        tarn.gevserver.EnumerationNode
            The requested node.
        """
    @overload
    @staticmethod
    def create(name: str) -> EnumerationNode:
        """Creates a new node.

        You must add this node to a node map before most operations are possible.

        Parameters
        ----------
        name : str
            Node name with or without namespace prefix. If the name does not contain a namespace prefix
            and no namespace is specified separately, tarn.gevserver.NameSpace.Custom is used.

        Returns
        -------
        tarn.gevserver.EnumerationNode
            The requested node.
        """
    def from_string(self, value: str) -> None:
        """Same as assigning to Value.

        Parameters
        ----------
        value : str
            Symbolic value to set.
        """
    @property
    def entries(self) -> list[EnumEntryNode]:
        """Gets all enum entries of this enumeration."""
    @property
    def value(self) -> str:
        """Gets or sets the symbolic value of this node.

        The name of the current entry. Possible in every tarn.gevserver.State.
        """
    @value.setter
    def value(self, value: str) -> None: ...
    @property
    def numeric_value(self) -> int:
        """Gets the numeric value of the current entry."""
    @property
    def value_config_as_node(self) -> Node | None:
        """Gets or sets the node that supplies the value of this node.

        None when the value is a constant. Set operation is only possible as long as the
        tarn.gevserver.State is tarn.gevserver.State.Configuration.
        """
    @value_config_as_node.setter
    def value_config_as_node(self, value: Node | None) -> None: ...
    @property
    def value_config_as_int(self) -> int:
        """Gets or sets the value of this node as a constant.

        Gets the present value when a node supplies it; setting replaces the node. Set operation is only
        possible as long as the tarn.gevserver.State is tarn.gevserver.State.Configuration.
        """
    @value_config_as_int.setter
    def value_config_as_int(self, value: int) -> None: ...

class FloatBaseNode(SelectorNode):
    """Represents the floating-point number nodes' base class."""
    def from_string(self, value: str) -> None:
        """Sets the value of the node from the string value.

        Parameters
        ----------
        value : str
            Value to set.
        """
    @property
    def increment(self) -> float:
        """Gets the increment of this node's value.

        A value is the minimum plus a multiple of the increment.
        """
    @property
    def max(self) -> float:
        """Gets the largest value of this node."""
    @property
    def min(self) -> float:
        """Gets the smallest value of this node."""
    @property
    def representation(self) -> int:
        """Gets or sets the representation of this node's value (see tarn.NumberRepresentation).

        Set operation is only possible as long as the tarn.gevserver.State is
        tarn.gevserver.State.Configuration.
        """
    @representation.setter
    def representation(self, value: int) -> None: ...
    @property
    def value(self) -> float:
        """Gets or sets the value of this node.

        A value outside min to max, or off the increment, is refused. Possible in every
        tarn.gevserver.State.
        """
    @value.setter
    def value(self, value: float) -> None: ...

class IntegerBaseNode(SelectorNode):
    """Represents the integer nodes' base class."""
    def from_string(self, value: str) -> None:
        """Sets the value of the node from the string value.

        Parameters
        ----------
        value : str
            Value to set.
        """
    @property
    def increment(self) -> int:
        """Gets the increment of this node's value.

        A value is the minimum plus a multiple of the increment.
        """
    @property
    def max(self) -> int:
        """Gets the largest value of this node."""
    @property
    def min(self) -> int:
        """Gets the smallest value of this node."""
    @property
    def representation(self) -> int:
        """Gets or sets the representation of this node's value (see tarn.NumberRepresentation).

        Set operation is only possible as long as the tarn.gevserver.State is
        tarn.gevserver.State.Configuration.
        """
    @representation.setter
    def representation(self, value: int) -> None: ...
    @property
    def value(self) -> int:
        """Gets or sets the value of this node.

        A value outside min to max, or off the increment, is refused. Possible in every
        tarn.gevserver.State.
        """
    @value.setter
    def value(self, value: int) -> None: ...
    @property
    def unit(self) -> str:
        """Gets the physical unit of this node's value.

        Always empty: integers carry no unit.
        """

class StringNode(SelectorNode):
    """Represents a text that is a constant or comes from another node."""
    @overload
    @staticmethod
    def create(name: str, namespace: int) -> StringNode:
        """Creates a new node.

        You must add this node to a node map before most operations are possible.

        Parameters
        ----------
        name : str
            Node name with or without namespace prefix. If the name does not contain a namespace prefix
            and no namespace is specified separately, tarn.gevserver.NameSpace.Custom is used.

        namespace : int
            Namespace of the node (see tarn.gevserver.NameSpace).

        Returns
        -------
        tarn.gevserver.StringNode
            The requested node.
        """
    @overload
    @staticmethod
    def create(name: str) -> StringNode:
        """Creates a new node.

        You must add this node to a node map before most operations are possible.

        Parameters
        ----------
        name : str
            Node name with or without namespace prefix. If the name does not contain a namespace prefix
            and no namespace is specified separately, tarn.gevserver.NameSpace.Custom is used.

        Returns
        -------
        tarn.gevserver.StringNode
            The requested node.
        """
    @property
    def value(self) -> str:
        """Gets or sets the value of this node.

        Possible in every tarn.gevserver.State.
        """
    @value.setter
    def value(self, value: str) -> None: ...
    @property
    def value_config_as_node(self) -> Node | None:
        """Gets or sets the node that supplies the value of this node.

        None when the value is a constant. Set operation is only possible as long as the
        tarn.gevserver.State is tarn.gevserver.State.Configuration.
        """
    @value_config_as_node.setter
    def value_config_as_node(self, value: Node | None) -> None: ...
    @property
    def value_config_as_string(self) -> str:
        """Gets or sets the value of this node as a constant.

        Gets the present value when a node supplies it; setting replaces the node. Set operation is only
        possible as long as the tarn.gevserver.State is tarn.gevserver.State.Configuration.
        """
    @value_config_as_string.setter
    def value_config_as_string(self, value: str) -> None: ...
    @property
    def access_mode(self) -> int:
        """Gets the access mode of this node (see tarn.AccessMode).

        The access mode of the node that supplies the value in the end, read-write for a constant.
        """
    @property
    def cache_mode(self) -> int:
        """Gets the cache mode of this node (see tarn.CacheMode).

        The cache mode of the node that supplies the value in the end, no cache for a constant.
        """

class FloatNode(FloatBaseNode):
    """Represents a floating-point number whose value and limits are constants or come from other
    nodes.
    """
    @overload
    @staticmethod
    def create(name: str, namespace: int) -> FloatNode:
        """Creates a new node.

        You must add this node to a node map before most operations are possible.

        Parameters
        ----------
        name : str
            Node name with or without namespace prefix. If the name does not contain a namespace prefix
            and no namespace is specified separately, tarn.gevserver.NameSpace.Custom is used.

        namespace : int
            Namespace of the node (see tarn.gevserver.NameSpace).

        Returns
        -------
        tarn.gevserver.FloatNode
            The requested node.
        """
    @overload
    @staticmethod
    def create(name: str) -> FloatNode:
        """Creates a new node.

        You must add this node to a node map before most operations are possible.

        Parameters
        ----------
        name : str
            Node name with or without namespace prefix. If the name does not contain a namespace prefix
            and no namespace is specified separately, tarn.gevserver.NameSpace.Custom is used.

        Returns
        -------
        tarn.gevserver.FloatNode
            The requested node.
        """
    @property
    def increment_config_as_node(self) -> Node | None:
        """Gets or sets the node that supplies the increment of this node.

        None when the increment is a constant. Set operation is only possible as long as the
        tarn.gevserver.State is tarn.gevserver.State.Configuration.
        """
    @increment_config_as_node.setter
    def increment_config_as_node(self, value: Node | None) -> None: ...
    @property
    def increment_config_as_float(self) -> float:
        """Gets or sets the increment of this node as a constant.

        Gets the present value when a node supplies it; setting replaces the node. Set operation is only
        possible as long as the tarn.gevserver.State is tarn.gevserver.State.Configuration.
        """
    @increment_config_as_float.setter
    def increment_config_as_float(self, value: float) -> None: ...
    @property
    def max_config_as_node(self) -> Node | None:
        """Gets or sets the node that supplies the maximum of this node.

        None when the maximum is a constant. Set operation is only possible as long as the
        tarn.gevserver.State is tarn.gevserver.State.Configuration.
        """
    @max_config_as_node.setter
    def max_config_as_node(self, value: Node | None) -> None: ...
    @property
    def max_config_as_float(self) -> float:
        """Gets or sets the maximum of this node as a constant.

        Gets the present value when a node supplies it; setting replaces the node. Set operation is only
        possible as long as the tarn.gevserver.State is tarn.gevserver.State.Configuration.
        """
    @max_config_as_float.setter
    def max_config_as_float(self, value: float) -> None: ...
    @property
    def min_config_as_node(self) -> Node | None:
        """Gets or sets the node that supplies the minimum of this node.

        None when the minimum is a constant. Set operation is only possible as long as the
        tarn.gevserver.State is tarn.gevserver.State.Configuration.
        """
    @min_config_as_node.setter
    def min_config_as_node(self, value: Node | None) -> None: ...
    @property
    def min_config_as_float(self) -> float:
        """Gets or sets the minimum of this node as a constant.

        Gets the present value when a node supplies it; setting replaces the node. Set operation is only
        possible as long as the tarn.gevserver.State is tarn.gevserver.State.Configuration.
        """
    @min_config_as_float.setter
    def min_config_as_float(self, value: float) -> None: ...
    @property
    def value_config_as_node(self) -> Node | None:
        """Gets or sets the node that supplies the value of this node.

        None when the value is a constant. Set operation is only possible as long as the
        tarn.gevserver.State is tarn.gevserver.State.Configuration.
        """
    @value_config_as_node.setter
    def value_config_as_node(self, value: Node | None) -> None: ...
    @property
    def value_config_as_float(self) -> float:
        """Gets or sets the value of this node as a constant.

        Gets the present value when a node supplies it; setting replaces the node. Set operation is only
        possible as long as the tarn.gevserver.State is tarn.gevserver.State.Configuration.
        """
    @value_config_as_float.setter
    def value_config_as_float(self, value: float) -> None: ...
    @property
    def access_mode(self) -> int:
        """Gets the access mode of this node (see tarn.AccessMode).

        The access mode of the node that supplies the value in the end, read-write for a constant.
        """
    @property
    def cache_mode(self) -> int:
        """Gets the cache mode of this node (see tarn.CacheMode).

        The cache mode of the node that supplies the value in the end, no cache for a constant.
        """
    @property
    def polling_time(self) -> int:
        """Gets the polling time of this value in milliseconds.

        Zero means that the node is not polled. Only this node is asked, not the nodes it depends on.
        """
    @property
    def unit(self) -> str:
        """Gets or sets the physical unit of this node's value.

        Set operation is only possible as long as the tarn.gevserver.State is
        tarn.gevserver.State.Configuration.
        """
    @unit.setter
    def unit(self, value: str) -> None: ...
    @property
    def display_precision(self) -> int:
        """Gets or sets the current display precision value.

        The number of digits to show. Set operation is only possible as long as the tarn.gevserver.State
        is tarn.gevserver.State.Configuration.
        """
    @display_precision.setter
    def display_precision(self, value: int) -> None: ...

class FloatRegNode(FloatBaseNode):
    """Represents a floating-point number register."""
    @property
    def access_mode(self) -> int:
        """Gets or sets the access mode of this node (see tarn.AccessMode).

        Set operation is only possible as long as the tarn.gevserver.State is
        tarn.gevserver.State.Configuration.
        """
    @access_mode.setter
    def access_mode(self, value: int) -> None: ...
    @property
    def address(self) -> int:
        """Gets the current address of this register.

        The sum of the address given at creation and the current values of the address nodes.
        """
    @property
    def address_nodes(self) -> list[Node]:
        """Gets the nodes whose values are part of this register's address.

        The constant part of the address is not among them.
        """
    @property
    def cache_mode(self) -> int:
        """Gets or sets the cache mode of this node (see tarn.CacheMode).

        Set operation is only possible as long as the tarn.gevserver.State is
        tarn.gevserver.State.Configuration.
        """
    @cache_mode.setter
    def cache_mode(self, value: int) -> None: ...
    @property
    def invalidator_nodes(self) -> list[Node]:
        """Gets the nodes whose change invalidates the cached value of this register."""
    @property
    def length(self) -> int:
        """Gets the length of this register in bytes."""
    @property
    def polling_time(self) -> int:
        """Gets or sets the polling time of this value in milliseconds.

        Zero means that the node is not polled. Only this node is asked, not the nodes it depends on.
        Set operation is only possible as long as the tarn.gevserver.State is
        tarn.gevserver.State.Configuration.
        """
    @polling_time.setter
    def polling_time(self, value: int) -> None: ...
    @property
    def is_signed(self) -> bool:
        """Gets whether this float register is signed.

        Always true.
        """

class IntRegNode(IntegerBaseNode):
    """Represents an integer register."""
    @property
    def access_mode(self) -> int:
        """Gets or sets the access mode of this node (see tarn.AccessMode).

        Set operation is only possible as long as the tarn.gevserver.State is
        tarn.gevserver.State.Configuration.
        """
    @access_mode.setter
    def access_mode(self, value: int) -> None: ...
    @property
    def address(self) -> int:
        """Gets the current address of this register.

        The sum of the address given at creation and the current values of the address nodes.
        """
    @property
    def address_nodes(self) -> list[Node]:
        """Gets the nodes whose values are part of this register's address.

        The constant part of the address is not among them.
        """
    @property
    def cache_mode(self) -> int:
        """Gets or sets the cache mode of this node (see tarn.CacheMode).

        Set operation is only possible as long as the tarn.gevserver.State is
        tarn.gevserver.State.Configuration.
        """
    @cache_mode.setter
    def cache_mode(self, value: int) -> None: ...
    @property
    def invalidator_nodes(self) -> list[Node]:
        """Gets the nodes whose change invalidates the cached value of this register."""
    @property
    def length(self) -> int:
        """Gets the length of this register in bytes."""
    @property
    def polling_time(self) -> int:
        """Gets or sets the polling time of this value in milliseconds.

        Zero means that the node is not polled. Only this node is asked, not the nodes it depends on.
        Set operation is only possible as long as the tarn.gevserver.State is
        tarn.gevserver.State.Configuration.
        """
    @polling_time.setter
    def polling_time(self, value: int) -> None: ...
    @property
    def is_signed(self) -> bool:
        """Gets or sets whether this integer register is signed.

        Set operation is only possible as long as the tarn.gevserver.State is
        tarn.gevserver.State.Configuration.
        """
    @is_signed.setter
    def is_signed(self, value: bool) -> None: ...

class IntSwissKnifeNode(IntegerBaseNode):
    """Due to the integer arithmetic used in this node a System.Math.Floor(double) operation is
    performed after each calculation: The computation 2 * (3 / 2) results to two and not three. See
    the Formula property for available operations.
    """
    @overload
    @staticmethod
    def create(name: str, namespace: int) -> IntSwissKnifeNode:
        """Creates a new node.

        You must add this node to a node map before most operations are possible.

        Parameters
        ----------
        name : str
            Node name with or without namespace prefix. If the name does not contain a namespace prefix
            and no namespace is specified separately, tarn.gevserver.NameSpace.Custom is used.

        namespace : int
            Namespace of the node (see tarn.gevserver.NameSpace).

        Returns
        -------
        tarn.gevserver.IntSwissKnifeNode
            The requested node.
        """
    @overload
    @staticmethod
    def create(name: str) -> IntSwissKnifeNode:
        """Creates a new node.

        You must add this node to a node map before most operations are possible.

        Parameters
        ----------
        name : str
            Node name with or without namespace prefix. If the name does not contain a namespace prefix
            and no namespace is specified separately, tarn.gevserver.NameSpace.Custom is used.

        Returns
        -------
        tarn.gevserver.IntSwissKnifeNode
            The requested node.
        """
    @property
    def variables(self) -> dict[str, Node]:
        """Gets the variables of the formula.

        A dictionary from variable names to the nodes that supply the values. Add variables with
        tarn.gevserver.NodeList.Child.
        """
    @property
    def formula(self) -> str:
        """Gets or sets the formula of this node.

        The variables must be added before the formula is set, because the
        formula is checked then. Variable names consist of capital letters only (A to Z).
        Logical operations result to 1 for true and 0 for false; any number but 0 counts as true.

        Available operations:

        ( ) : Grouping, e.g. 3 * (2 / 3) results to 15
        + - * / : Addition, subtraction, multiplication and division, e.g. 3 * 7 + 4 / 2 results to 23
        % : Remainder, e.g. 7 % 4 results to 3
        ** : Power, e.g. 2 ** 3 results to 8
        & | ^ ~ : Bitwise and, or, xor and not, e.g. 2 | 1 results to 3
        && || : Logical and, or, e.g. 1 && 0 results to 0
        <> = > < <= >= : Unequal, equal, greater, less, less or equal, greater or equal, e.g. 3 >= 2
        results to 1
        << >> : Shift left, shift right, e.g. 1 << 2 results to 4
        ? : : Conditional: condition ? true case : false case
        SGN : Signum (-1, 0 or 1), e.g. SGN(42) results to 1
        NEG : Negation, e.g. NEG(-42) results to 42

        Set operation is only possible as long as the tarn.gevserver.State is
        tarn.gevserver.State.Configuration.
        """
    @formula.setter
    def formula(self, value: str) -> None: ...
    @property
    def access_mode(self) -> int:
        """Swiss knifes are always read only."""
    @property
    def cache_mode(self) -> int:
        """Here we may have multiple ones and can give no sane answer."""
    @property
    def polling_time(self) -> int:
        """Always time span zero as there may be multiple values."""

class IntegerNode(IntegerBaseNode):
    """Represents an integer whose value and limits are constants or come from other nodes."""
    @overload
    @staticmethod
    def create(name: str, namespace: int) -> IntegerNode:
        """Creates a new node.

        You must add this node to a node map before most operations are possible.

        Parameters
        ----------
        name : str
            Node name with or without namespace prefix. If the name does not contain a namespace prefix
            and no namespace is specified separately, tarn.gevserver.NameSpace.Custom is used.

        namespace : int
            Namespace of the node (see tarn.gevserver.NameSpace).

        Returns
        -------
        tarn.gevserver.IntegerNode
            The requested node.
        """
    @overload
    @staticmethod
    def create(name: str) -> IntegerNode:
        """Creates a new node.

        You must add this node to a node map before most operations are possible.

        Parameters
        ----------
        name : str
            Node name with or without namespace prefix. If the name does not contain a namespace prefix
            and no namespace is specified separately, tarn.gevserver.NameSpace.Custom is used.

        Returns
        -------
        tarn.gevserver.IntegerNode
            The requested node.
        """
    @property
    def increment_config_as_node(self) -> Node | None:
        """Gets or sets the node that supplies the increment of this node.

        None when the increment is a constant. Set operation is only possible as long as the
        tarn.gevserver.State is tarn.gevserver.State.Configuration.
        """
    @increment_config_as_node.setter
    def increment_config_as_node(self, value: Node | None) -> None: ...
    @property
    def increment_config_as_int(self) -> int:
        """Gets or sets the increment of this node as a constant.

        Gets the present value when a node supplies it; setting replaces the node. Set operation is only
        possible as long as the tarn.gevserver.State is tarn.gevserver.State.Configuration.
        """
    @increment_config_as_int.setter
    def increment_config_as_int(self, value: int) -> None: ...
    @property
    def max_config_as_node(self) -> Node | None:
        """Gets or sets the node that supplies the maximum of this node.

        None when the maximum is a constant. Set operation is only possible as long as the
        tarn.gevserver.State is tarn.gevserver.State.Configuration.
        """
    @max_config_as_node.setter
    def max_config_as_node(self, value: Node | None) -> None: ...
    @property
    def max_config_as_int(self) -> int:
        """Gets or sets the maximum of this node as a constant.

        Gets the present value when a node supplies it; setting replaces the node. Set operation is only
        possible as long as the tarn.gevserver.State is tarn.gevserver.State.Configuration.
        """
    @max_config_as_int.setter
    def max_config_as_int(self, value: int) -> None: ...
    @property
    def min_config_as_node(self) -> Node | None:
        """Gets or sets the node that supplies the minimum of this node.

        None when the minimum is a constant. Set operation is only possible as long as the
        tarn.gevserver.State is tarn.gevserver.State.Configuration.
        """
    @min_config_as_node.setter
    def min_config_as_node(self, value: Node | None) -> None: ...
    @property
    def min_config_as_int(self) -> int:
        """Gets or sets the minimum of this node as a constant.

        Gets the present value when a node supplies it; setting replaces the node. Set operation is only
        possible as long as the tarn.gevserver.State is tarn.gevserver.State.Configuration.
        """
    @min_config_as_int.setter
    def min_config_as_int(self, value: int) -> None: ...
    @property
    def value_config_as_node(self) -> Node | None:
        """Gets or sets the node that supplies the value of this node.

        None when the value is a constant. Set operation is only possible as long as the
        tarn.gevserver.State is tarn.gevserver.State.Configuration.
        """
    @value_config_as_node.setter
    def value_config_as_node(self, value: Node | None) -> None: ...
    @property
    def value_config_as_int(self) -> int:
        """Gets or sets the value of this node as a constant.

        Gets the present value when a node supplies it; setting replaces the node. Set operation is only
        possible as long as the tarn.gevserver.State is tarn.gevserver.State.Configuration.
        """
    @value_config_as_int.setter
    def value_config_as_int(self, value: int) -> None: ...
    @property
    def access_mode(self) -> int:
        """Gets the access mode of this node (see tarn.AccessMode).

        The access mode of the node that supplies the value in the end, read-write for a constant.
        """
    @property
    def cache_mode(self) -> int:
        """Gets the cache mode of this node (see tarn.CacheMode).

        The cache mode of the node that supplies the value in the end, no cache for a constant.
        """
    @property
    def polling_time(self) -> int:
        """Gets the polling time of this value in milliseconds.

        Zero means that the node is not polled. Only this node is asked, not the nodes it depends on.
        """

class StringRegNode(StringNode):
    """Represents a text register."""
    @overload  # type: ignore[override]
    @staticmethod
    def create(name: str, namespace: int, address: int, length: int) -> StringRegNode:
        """Creates a new node.

        You must add this node to a node map before most operations are possible. The node needs at
        least the name and length to be created. In that case, tarn.gevserver.NameSpace.Custom and auto
        address will be applied.

        Parameters
        ----------
        name : str
            Node name with or without namespace prefix. If the name does not contain a namespace prefix
            and no namespace is specified separately, tarn.gevserver.NameSpace.Custom is used.

        namespace : int
            Namespace of the node (see tarn.gevserver.NameSpace).

        address : int
            Address for this register; -1 for auto assignment.

        length : int
            Length of the string in bytes. Must be a multiple of four.

        Returns
        -------
        tarn.gevserver.StringRegNode
            The requested node.
        """
    @overload
    @staticmethod
    def create(name: str, namespace: int, length: int) -> StringRegNode:
        """Creates a new node.

        You must add this node to a node map before most operations are possible. The node needs at
        least the name and length to be created. In that case, tarn.gevserver.NameSpace.Custom and auto
        address will be applied.

        Parameters
        ----------
        name : str
            Node name with or without namespace prefix. If the name does not contain a namespace prefix
            and no namespace is specified separately, tarn.gevserver.NameSpace.Custom is used.

        namespace : int
            Namespace of the node (see tarn.gevserver.NameSpace).

        length : int
            Length of the string in bytes. Must be a multiple of four.

        Returns
        -------
        tarn.gevserver.StringRegNode
            The requested node.
        """
    @overload
    @staticmethod
    def create(name: str, address: int, length: int) -> StringRegNode:
        """Creates a new node.

        You must add this node to a node map before most operations are possible. The node needs at
        least the name and length to be created. In that case, tarn.gevserver.NameSpace.Custom and auto
        address will be applied.

        Parameters
        ----------
        name : str
            Node name with or without namespace prefix. If the name does not contain a namespace prefix
            and no namespace is specified separately, tarn.gevserver.NameSpace.Custom is used.

        address : int
            Address for this register; -1 for auto assignment.

        length : int
            Length of the string in bytes. Must be a multiple of four.

        Returns
        -------
        tarn.gevserver.StringRegNode
            The requested node.
        """
    @overload
    @staticmethod
    def create(name: str, length: int) -> StringRegNode:
        """Creates a new node.

        You must add this node to a node map before most operations are possible. The node needs at
        least the name and length to be created. In that case, tarn.gevserver.NameSpace.Custom and auto
        address will be applied.

        Parameters
        ----------
        name : str
            Node name with or without namespace prefix. If the name does not contain a namespace prefix
            and no namespace is specified separately, tarn.gevserver.NameSpace.Custom is used.

        length : int
            Length of the string in bytes. Must be a multiple of four.

        Returns
        -------
        tarn.gevserver.StringRegNode
            The requested node.
        """
    @property
    def access_mode(self) -> int:
        """Gets or sets the access mode of this node (see tarn.AccessMode).

        Set operation is only possible as long as the tarn.gevserver.State is
        tarn.gevserver.State.Configuration.
        """
    @access_mode.setter
    def access_mode(self, value: int) -> None: ...
    @property
    def address(self) -> int:
        """Gets the current address of this register.

        The sum of the address given at creation and the current values of the address nodes.
        """
    @property
    def address_nodes(self) -> list[Node]:
        """Gets the nodes whose values are part of this register's address.

        The constant part of the address is not among them.
        """
    @property
    def cache_mode(self) -> int:
        """Gets or sets the cache mode of this node (see tarn.CacheMode).

        Set operation is only possible as long as the tarn.gevserver.State is
        tarn.gevserver.State.Configuration.
        """
    @cache_mode.setter
    def cache_mode(self, value: int) -> None: ...
    @property
    def invalidator_nodes(self) -> list[Node]:
        """Gets the nodes whose change invalidates the cached value of this register."""
    @property
    def length(self) -> int:
        """Gets the length of this register in bytes."""
    @property
    def polling_time(self) -> int:
        """Gets or sets the polling time of this value in milliseconds.

        Zero means that the node is not polled. Only this node is asked, not the nodes it depends on.
        Set operation is only possible as long as the tarn.gevserver.State is
        tarn.gevserver.State.Configuration.
        """
    @polling_time.setter
    def polling_time(self, value: int) -> None: ...
    @property
    def value(self) -> str:
        """Gets or sets the value of this node.

        A text that is longer than the register is refused. Possible in every tarn.gevserver.State.
        """
    @value.setter
    def value(self, value: str) -> None: ...

class Float32RegNode(FloatRegNode):
    """Represents a single precision floating-point number register of 4 bytes."""
    @overload
    @staticmethod
    def create(name: str, namespace: int, address: int = -1) -> Float32RegNode:
        """Creates a new node.

        You must add this node to a node map before most operations are possible.

        Parameters
        ----------
        name : str
            Node name with or without namespace prefix. If the name does not contain a namespace prefix
            and no namespace is specified separately, tarn.gevserver.NameSpace.Custom is used.

        namespace : int
            Namespace of the node (see tarn.gevserver.NameSpace).

        address : int
            Address for this register; -1 for auto assignment.

        Returns
        -------
        tarn.gevserver.Float32RegNode
            The requested node.
        """
    @overload
    @staticmethod
    def create(name: str, address: int = -1) -> Float32RegNode:
        """Creates a new node.

        You must add this node to a node map before most operations are possible.

        Parameters
        ----------
        name : str
            Node name with or without namespace prefix. If the name does not contain a namespace prefix
            and no namespace is specified separately, tarn.gevserver.NameSpace.Custom is used.

        address : int
            Address for this register; -1 for auto assignment.

        Returns
        -------
        tarn.gevserver.Float32RegNode
            The requested node.
        """

class Float64RegNode(FloatRegNode):
    """Represents a double precision floating-point number register of 8 bytes."""
    @overload
    @staticmethod
    def create(name: str, namespace: int, address: int = -1) -> Float64RegNode:
        """Creates a new node.

        You must add this node to a node map before most operations are possible.

        Parameters
        ----------
        name : str
            Node name with or without namespace prefix. If the name does not contain a namespace prefix
            and no namespace is specified separately, tarn.gevserver.NameSpace.Custom is used.

        namespace : int
            Namespace of the node (see tarn.gevserver.NameSpace).

        address : int
            Address for this register; -1 for auto assignment.

        Returns
        -------
        tarn.gevserver.Float64RegNode
            The requested node.
        """
    @overload
    @staticmethod
    def create(name: str, address: int = -1) -> Float64RegNode:
        """Creates a new node.

        You must add this node to a node map before most operations are possible.

        Parameters
        ----------
        name : str
            Node name with or without namespace prefix. If the name does not contain a namespace prefix
            and no namespace is specified separately, tarn.gevserver.NameSpace.Custom is used.

        address : int
            Address for this register; -1 for auto assignment.

        Returns
        -------
        tarn.gevserver.Float64RegNode
            The requested node.
        """

class Int32RegNode(IntRegNode):
    """Represents an integer register of 4 bytes."""
    @overload
    @staticmethod
    def create(name: str, namespace: int, address: int = -1) -> Int32RegNode:
        """Creates a new node.

        You must add this node to a node map before most operations are possible.

        Parameters
        ----------
        name : str
            Node name with or without namespace prefix. If the name does not contain a namespace prefix
            and no namespace is specified separately, tarn.gevserver.NameSpace.Custom is used.

        namespace : int
            Namespace of the node (see tarn.gevserver.NameSpace).

        address : int
            Address for this register; -1 for auto assignment.

        Returns
        -------
        tarn.gevserver.Int32RegNode
            The requested node.
        """
    @overload
    @staticmethod
    def create(name: str, address: int = -1) -> Int32RegNode:
        """Creates a new node.

        You must add this node to a node map before most operations are possible.

        Parameters
        ----------
        name : str
            Node name with or without namespace prefix. If the name does not contain a namespace prefix
            and no namespace is specified separately, tarn.gevserver.NameSpace.Custom is used.

        address : int
            Address for this register; -1 for auto assignment.

        Returns
        -------
        tarn.gevserver.Int32RegNode
            The requested node.
        """

class Int64RegNode(IntRegNode):
    """Represents an integer register of 8 bytes."""
    @overload
    @staticmethod
    def create(name: str, namespace: int, address: int = -1) -> Int64RegNode:
        """Creates a new node.

        You must add this node to a node map before most operations are possible.

        Parameters
        ----------
        name : str
            Node name with or without namespace prefix. If the name does not contain a namespace prefix
            and no namespace is specified separately, tarn.gevserver.NameSpace.Custom is used.

        namespace : int
            Namespace of the node (see tarn.gevserver.NameSpace).

        address : int
            Address for this register; -1 for auto assignment.

        Returns
        -------
        tarn.gevserver.Int64RegNode
            The requested node.
        """
    @overload
    @staticmethod
    def create(name: str, address: int = -1) -> Int64RegNode:
        """Creates a new node.

        You must add this node to a node map before most operations are possible.

        Parameters
        ----------
        name : str
            Node name with or without namespace prefix. If the name does not contain a namespace prefix
            and no namespace is specified separately, tarn.gevserver.NameSpace.Custom is used.

        address : int
            Address for this register; -1 for auto assignment.

        Returns
        -------
        tarn.gevserver.Int64RegNode
            The requested node.
        """
