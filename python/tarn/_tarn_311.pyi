# Made by tools/make_stubs.py from the docstrings of the native types.
"""Native types of tarn."""

from collections.abc import Iterator
from typing import Any, ClassVar, Final, Self

class AccessMode:
    """What can be done with the value of a node."""

    NotImplemented: Final = 0
    """The node is not implemented."""
    NotAvailable: Final = 1
    """The node is not available at present."""
    ReadOnly: Final = 2
    """The value can be read."""
    WriteOnly: Final = 3
    """The value can be written."""
    ReadWrite: Final = 4
    """The value can be read and written."""

class CacheMode:
    """How clients may cache the value of a node."""

    NoCache: Final = 0
    """The value is not cached."""
    WriteThrough: Final = 1
    """A written value goes to the device and into the cache."""
    WriteAround: Final = 2
    """A written value goes to the device; reading fills the cache."""

class ColorModel:
    """How the planes of an image make a color."""

    RGBGuess: Final = -2
    """Probably red, green and blue planes."""
    MonoGuess: Final = -1
    """Probably one gray plane."""
    Unknown: Final = 0
    """Not known."""
    Mono: Final = 1
    """One gray plane."""
    RGB: Final = 2
    """Red, green and blue planes."""
    YUV: Final = 3
    """Brightness and two color differences."""
    HSV: Final = 4
    """Hue, saturation and value."""
    YCbCr: Final = 5
    """Digital brightness and two color differences."""

class DataType:
    """What one sample of an image is.

    The low byte of the data type word is the number of bits per sample; 0x100 marks signed, 0x200
    floating point samples, 0x800 is a further flag. Immutable.
    """
    def __new__(cls, descriptor: int) -> Self:
        """Instantiates a DataType object.

        Parameters
        ----------
        descriptor : int
            The 32-bit data type word.
        """
    @property
    def descriptor(self) -> int:
        """Gets the data type word."""
    @property
    def bits_per_pixel(self) -> int:
        """Gets the number of bits per sample."""
    @property
    def bytes_per_pixel(self) -> int:
        """Gets the number of whole bytes that hold one sample."""
    @property
    def is_signed(self) -> bool:
        """Gets whether samples are signed."""
    @property
    def is_float(self) -> bool:
        """Gets whether samples are floating-point numbers."""
    Int8BppUnsigned: ClassVar[DataType]
    Int8BppSigned: ClassVar[DataType]
    Int10BppUnsigned: ClassVar[DataType]
    Int12BppUnsigned: ClassVar[DataType]
    Int14BppUnsigned: ClassVar[DataType]
    Int16BppUnsigned: ClassVar[DataType]
    Int16BppSigned: ClassVar[DataType]
    Int32BppUnsigned: ClassVar[DataType]
    Int32BppSigned: ClassVar[DataType]
    Float: ClassVar[DataType]
    Double: ClassVar[DataType]

class EventCookie:
    """Names one registration of a listener.

    Handed out by the registration; needed to end it.
    """
    @property
    def id(self) -> int:
        """Gets the number of the registration."""

class GenApiVersion:
    """Version of a GenApi XML description or of its schema.

    Immutable.
    """
    def __new__(cls, major: int = 0, minor: int = 0, sub_minor: int = 0) -> Self:
        """Instantiates a GenApiVersion object.

        Parameters
        ----------
        major : int
            Major version.

        minor : int
            Minor version.

        sub_minor : int
            Sub minor version.
        """
    def __lt__(self, other: Self, /) -> bool: ...
    def __le__(self, other: Self, /) -> bool: ...
    def __gt__(self, other: Self, /) -> bool: ...
    def __ge__(self, other: Self, /) -> bool: ...
    @property
    def major(self) -> int:
        """Gets the major version."""
    @property
    def minor(self) -> int:
        """Gets the minor version."""
    @property
    def sub_minor(self) -> int:
        """Gets the sub minor version."""

class Image:
    """Pixels in one or more planes.

    Supports the buffer protocol: numpy.asarray(image) is a view without a copy, of shape (height,
    width) for one plane, else (height, width, planes).
    """
    def __new__(
        cls,
        size: Size2D | tuple[float, float],
        planes: int = 1,
        data_type: DataType = DataType.Int8BppUnsigned,
        color_model: int | None = None,
    ) -> Self:
        """Instantiates a zero-filled image, samples of a pixel side by side.

        Parameters
        ----------
        size : Union[tarn.Size2D, Tuple[float, float]]
            Width and height in pixels.

        planes : int
            Number of planes.

        data_type : tarn.DataType
            What one sample is.

        color_model : Optional[int]
            How the planes make a color (see tarn.ColorModel); by the number of planes if None.
        """
    def __buffer__(self, flags: int, /) -> memoryview: ...
    def copy(self) -> Image:
        """Makes a copy that owns its memory.

        Returns
        -------
        tarn.Image
            The copy.
        """
    def packed(self, pixel_format: int) -> Image:
        """Packs the samples as a pixel format has them.

        The result is what a stream of that format sends: bytes in one plane, a row for each line, or
        all in one row where lines end inside a byte.

        Parameters
        ----------
        pixel_format : int
            A tarn.PfncFormat whose name ends in p, p32 or Packed. The image has unsigned integers of 8
            or 16 bits and as many planes as a pixel has samples; bits above those that the format takes
            are left out.

        Returns
        -------
        tarn.Image
            The payload.
        """
    @property
    def width(self) -> int:
        """Gets the width in pixels."""
    @property
    def height(self) -> int:
        """Gets the height in lines."""
    @property
    def size(self) -> Size2D:
        """Gets width and height in pixels."""
    @property
    def planes(self) -> int:
        """Gets the number of planes."""
    @property
    def data_type(self) -> DataType:
        """Gets what one sample is."""
    @property
    def color_model(self) -> int:
        """Gets how the planes make a color (see tarn.ColorModel)."""

class IndexedStream:
    """Source of images with a position."""

class NetworkConnection:
    """One end of a network connection.

    Iterates as (address, port). Immutable.
    """
    def __new__(cls, address: str = "0.0.0.0", port: int = 0) -> Self:
        """Instantiates a NetworkConnection object.

        Parameters
        ----------
        address : str
            IP address version 4.

        port : int
            UDP port, 0 to 65535.
        """
    def __iter__(self) -> Iterator[Any]: ...
    @property
    def address(self) -> str:
        """Gets the IP address version 4."""
    @property
    def port(self) -> int:
        """Gets the UDP port."""

class NumberRepresentation:
    """How a number is to be shown."""

    Linear: Final = 0
    """Slider with linear behavior."""
    Logarithmic: Final = 1
    """Slider with logarithmic behavior."""
    Boolean: Final = 2
    """Check box."""
    PureNumber: Final = 3
    """Decimal number."""
    HexNumber: Final = 4
    """Hexadecimal number."""
    IPV4Address: Final = 5
    """IP address version 4."""
    MACAddress: Final = 6
    """Hardware address of a network interface."""

class PfncFormat:
    """Pixel formats of the GenICam naming convention."""

    Mono1p: Final = 16842807
    """Pixel format Mono1p."""
    Confidence1p: Final = 16842949
    """Pixel format Confidence1p."""
    Mono2p: Final = 16908344
    """Pixel format Mono2p."""
    Mono4p: Final = 17039417
    """Pixel format Mono4p."""
    BayerGR4p: Final = 17039629
    """Pixel format BayerGR4p."""
    BayerRG4p: Final = 17039630
    """Pixel format BayerRG4p."""
    BayerGB4p: Final = 17039631
    """Pixel format BayerGB4p."""
    BayerBG4p: Final = 17039632
    """Pixel format BayerBG4p."""
    Mono8: Final = 17301505
    """Pixel format Mono8."""
    Mono8s: Final = 17301506
    """Pixel format Mono8s."""
    BayerGR8: Final = 17301512
    """Pixel format BayerGR8."""
    BayerRG8: Final = 17301513
    """Pixel format BayerRG8."""
    BayerGB8: Final = 17301514
    """Pixel format BayerGB8."""
    BayerBG8: Final = 17301515
    """Pixel format BayerBG8."""
    SCF1WBWG8: Final = 17301607
    """Pixel format SCF1WBWG8."""
    SCF1WGWB8: Final = 17301614
    """Pixel format SCF1WGWB8."""
    SCF1WGWR8: Final = 17301621
    """Pixel format SCF1WGWR8."""
    SCF1WRWG8: Final = 17301628
    """Pixel format SCF1WRWG8."""
    Coord3D_A8: Final = 17301679
    """Pixel format Coord3D_A8."""
    Coord3D_B8: Final = 17301680
    """Pixel format Coord3D_B8."""
    Coord3D_C8: Final = 17301681
    """Pixel format Coord3D_C8."""
    Confidence1: Final = 17301700
    """Pixel format Confidence1."""
    Confidence8: Final = 17301702
    """Pixel format Confidence8."""
    R8: Final = 17301705
    """Pixel format R8."""
    G8: Final = 17301709
    """Pixel format G8."""
    B8: Final = 17301713
    """Pixel format B8."""
    Data8: Final = 17301782
    """Pixel format Data8."""
    Data8s: Final = 17301783
    """Pixel format Data8s."""
    Mono10p: Final = 17432646
    """Pixel format Mono10p."""
    BayerBG10p: Final = 17432658
    """Pixel format BayerBG10p."""
    BayerGB10p: Final = 17432660
    """Pixel format BayerGB10p."""
    BayerGR10p: Final = 17432662
    """Pixel format BayerGR10p."""
    BayerRG10p: Final = 17432664
    """Pixel format BayerRG10p."""
    SCF1WBWG10p: Final = 17432681
    """Pixel format SCF1WBWG10p."""
    SCF1WGWB10p: Final = 17432688
    """Pixel format SCF1WGWB10p."""
    SCF1WGWR10p: Final = 17432695
    """Pixel format SCF1WGWR10p."""
    SCF1WRWG10p: Final = 17432702
    """Pixel format SCF1WRWG10p."""
    R10_Deprecated: Final = 17432778
    """Pixel format R10_Deprecated."""
    G10_Deprecated: Final = 17432782
    """Pixel format G10_Deprecated."""
    B10_Deprecated: Final = 17432786
    """Pixel format B10_Deprecated."""
    Coord3D_A10p: Final = 17432789
    """Pixel format Coord3D_A10p."""
    Coord3D_B10p: Final = 17432790
    """Pixel format Coord3D_B10p."""
    Coord3D_C10p: Final = 17432791
    """Pixel format Coord3D_C10p."""
    Mono10Packed: Final = 17563652
    """Pixel format Mono10Packed."""
    Mono12Packed: Final = 17563654
    """Pixel format Mono12Packed."""
    BayerGR10Packed: Final = 17563686
    """Pixel format BayerGR10Packed."""
    BayerRG10Packed: Final = 17563687
    """Pixel format BayerRG10Packed."""
    BayerGB10Packed: Final = 17563688
    """Pixel format BayerGB10Packed."""
    BayerBG10Packed: Final = 17563689
    """Pixel format BayerBG10Packed."""
    BayerGR12Packed: Final = 17563690
    """Pixel format BayerGR12Packed."""
    BayerRG12Packed: Final = 17563691
    """Pixel format BayerRG12Packed."""
    BayerGB12Packed: Final = 17563692
    """Pixel format BayerGB12Packed."""
    BayerBG12Packed: Final = 17563693
    """Pixel format BayerBG12Packed."""
    Mono12p: Final = 17563719
    """Pixel format Mono12p."""
    BayerBG12p: Final = 17563731
    """Pixel format BayerBG12p."""
    BayerGB12p: Final = 17563733
    """Pixel format BayerGB12p."""
    BayerGR12p: Final = 17563735
    """Pixel format BayerGR12p."""
    BayerRG12p: Final = 17563737
    """Pixel format BayerRG12p."""
    SCF1WBWG12p: Final = 17563755
    """Pixel format SCF1WBWG12p."""
    SCF1WGWB12p: Final = 17563762
    """Pixel format SCF1WGWB12p."""
    SCF1WGWR12p: Final = 17563769
    """Pixel format SCF1WGWR12p."""
    SCF1WRWG12p: Final = 17563776
    """Pixel format SCF1WRWG12p."""
    R12_Deprecated: Final = 17563851
    """Pixel format R12_Deprecated."""
    G12_Deprecated: Final = 17563855
    """Pixel format G12_Deprecated."""
    B12_Deprecated: Final = 17563859
    """Pixel format B12_Deprecated."""
    Coord3D_A12p: Final = 17563864
    """Pixel format Coord3D_A12p."""
    Coord3D_B12p: Final = 17563865
    """Pixel format Coord3D_B12p."""
    Coord3D_C12p: Final = 17563866
    """Pixel format Coord3D_C12p."""
    Mono14p: Final = 17694980
    """Pixel format Mono14p."""
    BayerGR14p: Final = 17694981
    """Pixel format BayerGR14p."""
    BayerRG14p: Final = 17694982
    """Pixel format BayerRG14p."""
    BayerGB14p: Final = 17694983
    """Pixel format BayerGB14p."""
    BayerBG14p: Final = 17694984
    """Pixel format BayerBG14p."""
    Mono10: Final = 17825795
    """Pixel format Mono10."""
    Mono12: Final = 17825797
    """Pixel format Mono12."""
    Mono16: Final = 17825799
    """Pixel format Mono16."""
    BayerGR10: Final = 17825804
    """Pixel format BayerGR10."""
    BayerRG10: Final = 17825805
    """Pixel format BayerRG10."""
    BayerGB10: Final = 17825806
    """Pixel format BayerGB10."""
    BayerBG10: Final = 17825807
    """Pixel format BayerBG10."""
    BayerGR12: Final = 17825808
    """Pixel format BayerGR12."""
    BayerRG12: Final = 17825809
    """Pixel format BayerRG12."""
    BayerGB12: Final = 17825810
    """Pixel format BayerGB12."""
    BayerBG12: Final = 17825811
    """Pixel format BayerBG12."""
    Mono14: Final = 17825829
    """Pixel format Mono14."""
    BayerGR16: Final = 17825838
    """Pixel format BayerGR16."""
    BayerRG16: Final = 17825839
    """Pixel format BayerRG16."""
    BayerGB16: Final = 17825840
    """Pixel format BayerGB16."""
    BayerBG16: Final = 17825841
    """Pixel format BayerBG16."""
    SCF1WBWG10: Final = 17825896
    """Pixel format SCF1WBWG10."""
    SCF1WBWG12: Final = 17825898
    """Pixel format SCF1WBWG12."""
    SCF1WBWG14: Final = 17825900
    """Pixel format SCF1WBWG14."""
    SCF1WBWG16: Final = 17825901
    """Pixel format SCF1WBWG16."""
    SCF1WGWB10: Final = 17825903
    """Pixel format SCF1WGWB10."""
    SCF1WGWB12: Final = 17825905
    """Pixel format SCF1WGWB12."""
    SCF1WGWB14: Final = 17825907
    """Pixel format SCF1WGWB14."""
    SCF1WGWB16: Final = 17825908
    """Pixel format SCF1WGWB16."""
    SCF1WGWR10: Final = 17825910
    """Pixel format SCF1WGWR10."""
    SCF1WGWR12: Final = 17825912
    """Pixel format SCF1WGWR12."""
    SCF1WGWR14: Final = 17825914
    """Pixel format SCF1WGWR14."""
    SCF1WGWR16: Final = 17825915
    """Pixel format SCF1WGWR16."""
    SCF1WRWG10: Final = 17825917
    """Pixel format SCF1WRWG10."""
    SCF1WRWG12: Final = 17825919
    """Pixel format SCF1WRWG12."""
    SCF1WRWG14: Final = 17825921
    """Pixel format SCF1WRWG14."""
    SCF1WRWG16: Final = 17825922
    """Pixel format SCF1WRWG16."""
    Coord3D_A16: Final = 17825974
    """Pixel format Coord3D_A16."""
    Coord3D_B16: Final = 17825975
    """Pixel format Coord3D_B16."""
    Coord3D_C16: Final = 17825976
    """Pixel format Coord3D_C16."""
    Confidence16: Final = 17825991
    """Pixel format Confidence16."""
    R16: Final = 17825996
    """Pixel format R16."""
    G16: Final = 17826000
    """Pixel format G16."""
    B16: Final = 17826004
    """Pixel format B16."""
    BayerGR14: Final = 17826057
    """Pixel format BayerGR14."""
    BayerRG14: Final = 17826058
    """Pixel format BayerRG14."""
    BayerGB14: Final = 17826059
    """Pixel format BayerGB14."""
    BayerBG14: Final = 17826060
    """Pixel format BayerBG14."""
    Data16: Final = 17826072
    """Pixel format Data16."""
    Data16s: Final = 17826073
    """Pixel format Data16s."""
    R10: Final = 17826080
    """Pixel format R10."""
    R12: Final = 17826081
    """Pixel format R12."""
    G10: Final = 17826082
    """Pixel format G10."""
    G12: Final = 17826083
    """Pixel format G12."""
    B10: Final = 17826084
    """Pixel format B10."""
    B12: Final = 17826085
    """Pixel format B12."""
    Coord3D_A32f: Final = 18874557
    """Pixel format Coord3D_A32f."""
    Coord3D_B32f: Final = 18874558
    """Pixel format Coord3D_B32f."""
    Coord3D_C32f: Final = 18874559
    """Pixel format Coord3D_C32f."""
    Confidence32f: Final = 18874568
    """Pixel format Confidence32f."""
    Mono32: Final = 18874641
    """Pixel format Mono32."""
    Data32: Final = 18874650
    """Pixel format Data32."""
    Data32s: Final = 18874651
    """Pixel format Data32s."""
    Data32f: Final = 18874652
    """Pixel format Data32f."""
    Data64: Final = 20971805
    """Pixel format Data64."""
    Data64s: Final = 20971806
    """Pixel format Data64s."""
    Data64f: Final = 20971807
    """Pixel format Data64f."""
    YUV411_8_UYYVYY: Final = 34340894
    """Pixel format YUV411_8_UYYVYY."""
    YCbCr411_8_CbYYCrYY: Final = 34340924
    """Pixel format YCbCr411_8_CbYYCrYY."""
    YCbCr601_411_8_CbYYCrYY: Final = 34340927
    """Pixel format YCbCr601_411_8_CbYYCrYY."""
    YCbCr709_411_8_CbYYCrYY: Final = 34340930
    """Pixel format YCbCr709_411_8_CbYYCrYY."""
    YCbCr411_8: Final = 34340954
    """Pixel format YCbCr411_8."""
    YCbCr2020_411_8_CbYYCrYY: Final = 34341113
    """Pixel format YCbCr2020_411_8_CbYYCrYY."""
    YCbCr420_8_YY_CbCr_Semiplanar: Final = 34341138
    """Pixel format YCbCr420_8_YY_CbCr_Semiplanar."""
    YCbCr420_8_YY_CrCb_Semiplanar: Final = 34341140
    """Pixel format YCbCr420_8_YY_CrCb_Semiplanar."""
    YUV422_8_UYVY: Final = 34603039
    """Pixel format YUV422_8_UYVY."""
    YUV422_8: Final = 34603058
    """Pixel format YUV422_8."""
    RGB565p: Final = 34603061
    """Pixel format RGB565p."""
    BGR565p: Final = 34603062
    """Pixel format BGR565p."""
    YCbCr422_8: Final = 34603067
    """Pixel format YCbCr422_8."""
    YCbCr601_422_8: Final = 34603070
    """Pixel format YCbCr601_422_8."""
    YCbCr709_422_8: Final = 34603073
    """Pixel format YCbCr709_422_8."""
    YCbCr422_8_CbYCrY: Final = 34603075
    """Pixel format YCbCr422_8_CbYCrY."""
    YCbCr601_422_8_CbYCrY: Final = 34603076
    """Pixel format YCbCr601_422_8_CbYCrY."""
    YCbCr709_422_8_CbYCrY: Final = 34603077
    """Pixel format YCbCr709_422_8_CbYCrY."""
    BiColorRGBG8: Final = 34603173
    """Pixel format BiColorRGBG8."""
    BiColorBGRG8: Final = 34603174
    """Pixel format BiColorBGRG8."""
    Coord3D_AC8: Final = 34603188
    """Pixel format Coord3D_AC8."""
    Coord3D_AC8_Planar: Final = 34603189
    """Pixel format Coord3D_AC8_Planar."""
    YCbCr2020_422_8: Final = 34603258
    """Pixel format YCbCr2020_422_8."""
    YCbCr2020_422_8_CbYCrY: Final = 34603259
    """Pixel format YCbCr2020_422_8_CbYCrY."""
    YCbCr422_8_YY_CbCr_Semiplanar: Final = 34603283
    """Pixel format YCbCr422_8_YY_CbCr_Semiplanar."""
    YCbCr422_8_YY_CrCb_Semiplanar: Final = 34603285
    """Pixel format YCbCr422_8_YY_CrCb_Semiplanar."""
    YCbCr422_10p: Final = 34865287
    """Pixel format YCbCr422_10p."""
    YCbCr601_422_10p: Final = 34865294
    """Pixel format YCbCr601_422_10p."""
    YCbCr709_422_10p: Final = 34865302
    """Pixel format YCbCr709_422_10p."""
    YCbCr422_10p_CbYCrY: Final = 34865306
    """Pixel format YCbCr422_10p_CbYCrY."""
    YCbCr601_422_10p_CbYCrY: Final = 34865310
    """Pixel format YCbCr601_422_10p_CbYCrY."""
    YCbCr709_422_10p_CbYCrY: Final = 34865314
    """Pixel format YCbCr709_422_10p_CbYCrY."""
    BiColorRGBG10p: Final = 34865320
    """Pixel format BiColorRGBG10p."""
    BiColorBGRG10p: Final = 34865322
    """Pixel format BiColorBGRG10p."""
    Coord3D_AC10p: Final = 34865392
    """Pixel format Coord3D_AC10p."""
    Coord3D_AC10p_Planar: Final = 34865393
    """Pixel format Coord3D_AC10p_Planar."""
    YCbCr2020_422_10p: Final = 34865406
    """Pixel format YCbCr2020_422_10p."""
    YCbCr2020_422_10p_CbYCrY: Final = 34865407
    """Pixel format YCbCr2020_422_10p_CbYCrY."""
    RGB8: Final = 35127316
    """Pixel format RGB8."""
    BGR8: Final = 35127317
    """Pixel format BGR8."""
    YUV8_UYV: Final = 35127328
    """Pixel format YUV8_UYV."""
    RGB8_Planar: Final = 35127329
    """Pixel format RGB8_Planar."""
    YCbCr8_CbYCr: Final = 35127354
    """Pixel format YCbCr8_CbYCr."""
    YCbCr601_8_CbYCr: Final = 35127357
    """Pixel format YCbCr601_8_CbYCr."""
    YCbCr709_8_CbYCr: Final = 35127360
    """Pixel format YCbCr709_8_CbYCr."""
    YCbCr8: Final = 35127387
    """Pixel format YCbCr8."""
    YCbCr422_12p: Final = 35127432
    """Pixel format YCbCr422_12p."""
    YCbCr601_422_12p: Final = 35127440
    """Pixel format YCbCr601_422_12p."""
    YCbCr709_422_12p: Final = 35127448
    """Pixel format YCbCr709_422_12p."""
    YCbCr422_12p_CbYCrY: Final = 35127452
    """Pixel format YCbCr422_12p_CbYCrY."""
    YCbCr601_422_12p_CbYCrY: Final = 35127456
    """Pixel format YCbCr601_422_12p_CbYCrY."""
    YCbCr709_422_12p_CbYCrY: Final = 35127460
    """Pixel format YCbCr709_422_12p_CbYCrY."""
    BiColorRGBG12p: Final = 35127468
    """Pixel format BiColorRGBG12p."""
    BiColorBGRG12p: Final = 35127470
    """Pixel format BiColorBGRG12p."""
    Coord3D_ABC8: Final = 35127474
    """Pixel format Coord3D_ABC8."""
    Coord3D_ABC8_Planar: Final = 35127475
    """Pixel format Coord3D_ABC8_Planar."""
    Coord3D_AC12p: Final = 35127538
    """Pixel format Coord3D_AC12p."""
    Coord3D_AC12p_Planar: Final = 35127539
    """Pixel format Coord3D_AC12p_Planar."""
    YCbCr2020_8_CbYCr: Final = 35127540
    """Pixel format YCbCr2020_8_CbYCr."""
    YCbCr2020_422_12p: Final = 35127554
    """Pixel format YCbCr2020_422_12p."""
    YCbCr2020_422_12p_CbYCrY: Final = 35127555
    """Pixel format YCbCr2020_422_12p_CbYCrY."""
    BGR10p: Final = 35520584
    """Pixel format BGR10p."""
    RGB10p: Final = 35520604
    """Pixel format RGB10p."""
    YCbCr10p_CbYCr: Final = 35520644
    """Pixel format YCbCr10p_CbYCr."""
    YCbCr601_10p_CbYCr: Final = 35520650
    """Pixel format YCbCr601_10p_CbYCr."""
    YCbCr709_10p_CbYCr: Final = 35520658
    """Pixel format YCbCr709_10p_CbYCr."""
    Coord3D_ABC10p: Final = 35520731
    """Pixel format Coord3D_ABC10p."""
    Coord3D_ABC10p_Planar: Final = 35520732
    """Pixel format Coord3D_ABC10p_Planar."""
    YCbCr2020_10p_CbYCr: Final = 35520758
    """Pixel format YCbCr2020_10p_CbYCr."""
    RGBa8: Final = 35651606
    """Pixel format RGBa8."""
    BGRa8: Final = 35651607
    """Pixel format BGRa8."""
    RGB10V1Packed: Final = 35651612
    """Pixel format RGB10V1Packed."""
    RGB10p32: Final = 35651613
    """Pixel format RGB10p32."""
    YCbCr422_10: Final = 35651685
    """Pixel format YCbCr422_10."""
    YCbCr422_12: Final = 35651686
    """Pixel format YCbCr422_12."""
    YCbCr601_422_10: Final = 35651725
    """Pixel format YCbCr601_422_10."""
    YCbCr601_422_12: Final = 35651727
    """Pixel format YCbCr601_422_12."""
    YCbCr709_422_10: Final = 35651733
    """Pixel format YCbCr709_422_10."""
    YCbCr709_422_12: Final = 35651735
    """Pixel format YCbCr709_422_12."""
    YCbCr422_10_CbYCrY: Final = 35651737
    """Pixel format YCbCr422_10_CbYCrY."""
    YCbCr422_12_CbYCrY: Final = 35651739
    """Pixel format YCbCr422_12_CbYCrY."""
    YCbCr601_422_10_CbYCrY: Final = 35651741
    """Pixel format YCbCr601_422_10_CbYCrY."""
    YCbCr601_422_12_CbYCrY: Final = 35651743
    """Pixel format YCbCr601_422_12_CbYCrY."""
    YCbCr709_422_10_CbYCrY: Final = 35651745
    """Pixel format YCbCr709_422_10_CbYCrY."""
    YCbCr709_422_12_CbYCrY: Final = 35651747
    """Pixel format YCbCr709_422_12_CbYCrY."""
    BiColorRGBG10: Final = 35651751
    """Pixel format BiColorRGBG10."""
    BiColorBGRG10: Final = 35651753
    """Pixel format BiColorBGRG10."""
    BiColorRGBG12: Final = 35651755
    """Pixel format BiColorRGBG12."""
    BiColorBGRG12: Final = 35651757
    """Pixel format BiColorBGRG12."""
    Coord3D_AC16: Final = 35651771
    """Pixel format Coord3D_AC16."""
    Coord3D_AC16_Planar: Final = 35651772
    """Pixel format Coord3D_AC16_Planar."""
    YCbCr2020_422_10: Final = 35651836
    """Pixel format YCbCr2020_422_10."""
    YCbCr2020_422_10_CbYCrY: Final = 35651837
    """Pixel format YCbCr2020_422_10_CbYCrY."""
    YCbCr2020_422_12: Final = 35651840
    """Pixel format YCbCr2020_422_12."""
    YCbCr2020_422_12_CbYCrY: Final = 35651841
    """Pixel format YCbCr2020_422_12_CbYCrY."""
    RGB12V1Packed: Final = 35913780
    """Pixel format RGB12V1Packed."""
    BGR12p: Final = 35913801
    """Pixel format BGR12p."""
    RGB12p: Final = 35913821
    """Pixel format RGB12p."""
    YCbCr12p_CbYCr: Final = 35913862
    """Pixel format YCbCr12p_CbYCr."""
    YCbCr601_12p_CbYCr: Final = 35913868
    """Pixel format YCbCr601_12p_CbYCr."""
    YCbCr709_12p_CbYCr: Final = 35913876
    """Pixel format YCbCr709_12p_CbYCr."""
    Coord3D_ABC12p: Final = 35913950
    """Pixel format Coord3D_ABC12p."""
    Coord3D_ABC12p_Planar: Final = 35913951
    """Pixel format Coord3D_ABC12p_Planar."""
    YCbCr2020_12p_CbYCr: Final = 35913976
    """Pixel format YCbCr2020_12p_CbYCr."""
    BGRa10p: Final = 36175949
    """Pixel format BGRa10p."""
    RGBa10p: Final = 36175968
    """Pixel format RGBa10p."""
    RGB10: Final = 36700184
    """Pixel format RGB10."""
    BGR10: Final = 36700185
    """Pixel format BGR10."""
    RGB12: Final = 36700186
    """Pixel format RGB12."""
    BGR12: Final = 36700187
    """Pixel format BGR12."""
    RGB10_Planar: Final = 36700194
    """Pixel format RGB10_Planar."""
    RGB12_Planar: Final = 36700195
    """Pixel format RGB12_Planar."""
    RGB16_Planar: Final = 36700196
    """Pixel format RGB16_Planar."""
    RGB16: Final = 36700211
    """Pixel format RGB16."""
    BGR14: Final = 36700234
    """Pixel format BGR14."""
    BGR16: Final = 36700235
    """Pixel format BGR16."""
    BGRa12p: Final = 36700239
    """Pixel format BGRa12p."""
    RGB14: Final = 36700254
    """Pixel format RGB14."""
    RGBa12p: Final = 36700258
    """Pixel format RGBa12p."""
    YCbCr10_CbYCr: Final = 36700291
    """Pixel format YCbCr10_CbYCr."""
    YCbCr12_CbYCr: Final = 36700293
    """Pixel format YCbCr12_CbYCr."""
    YCbCr601_10_CbYCr: Final = 36700297
    """Pixel format YCbCr601_10_CbYCr."""
    YCbCr601_12_CbYCr: Final = 36700299
    """Pixel format YCbCr601_12_CbYCr."""
    YCbCr709_10_CbYCr: Final = 36700305
    """Pixel format YCbCr709_10_CbYCr."""
    YCbCr709_12_CbYCr: Final = 36700307
    """Pixel format YCbCr709_12_CbYCr."""
    Coord3D_ABC16: Final = 36700345
    """Pixel format Coord3D_ABC16."""
    Coord3D_ABC16_Planar: Final = 36700346
    """Pixel format Coord3D_ABC16_Planar."""
    YCbCr2020_10_CbYCr: Final = 36700405
    """Pixel format YCbCr2020_10_CbYCr."""
    YCbCr2020_12_CbYCr: Final = 36700407
    """Pixel format YCbCr2020_12_CbYCr."""
    BGRa10: Final = 37748812
    """Pixel format BGRa10."""
    BGRa12: Final = 37748814
    """Pixel format BGRa12."""
    BGRa14: Final = 37748816
    """Pixel format BGRa14."""
    BGRa16: Final = 37748817
    """Pixel format BGRa16."""
    RGBa10: Final = 37748831
    """Pixel format RGBa10."""
    RGBa12: Final = 37748833
    """Pixel format RGBa12."""
    RGBa14: Final = 37748835
    """Pixel format RGBa14."""
    RGBa16: Final = 37748836
    """Pixel format RGBa16."""
    Coord3D_AC32f: Final = 37748930
    """Pixel format Coord3D_AC32f."""
    Coord3D_AC32f_Planar: Final = 37748931
    """Pixel format Coord3D_AC32f_Planar."""
    Coord3D_ABC32f: Final = 39846080
    """Pixel format Coord3D_ABC32f."""
    Coord3D_ABC32f_Planar: Final = 39846081
    """Pixel format Coord3D_ABC32f_Planar."""

class Point2D:
    """A position in pixels, fractions allowed.

    Iterates as (x, y).
    """
    def __new__(cls, x: float = 0.0, y: float = 0.0) -> Self:
        """Instantiates a Point2D object.

        Parameters
        ----------
        x : float
            Distance from the left in pixels.

        y : float
            Distance from the top in pixels.
        """
    def __iter__(self) -> Iterator[float]: ...
    __hash__: ClassVar[None]  # type: ignore[assignment]
    @property
    def x(self) -> float:
        """Gets or sets the distance from the left in pixels."""
    @x.setter
    def x(self, value: float) -> None: ...
    @property
    def y(self) -> float:
        """Gets or sets the distance from the top in pixels."""
    @y.setter
    def y(self, value: float) -> None: ...

class Size2D:
    """A size in pixels, fractions allowed.

    Iterates as (width, height).
    """
    def __new__(cls, width: float = 0.0, height: float = 0.0) -> Self:
        """Instantiates a Size2D object.

        Parameters
        ----------
        width : float
            Width in pixels.

        height : float
            Height in pixels.
        """
    def __iter__(self) -> Iterator[float]: ...
    __hash__: ClassVar[None]  # type: ignore[assignment]
    @property
    def width(self) -> float:
        """Gets or sets the width in pixels."""
    @width.setter
    def width(self, value: float) -> None: ...
    @property
    def height(self) -> float:
        """Gets or sets the height in pixels."""
    @height.setter
    def height(self, value: float) -> None: ...

class Stream:
    """Source of images."""

class Visibility:
    """For whom a feature is meant."""

    Beginner: Final = 0
    """For everybody."""
    Expert: Final = 1
    """For experts."""
    Guru: Final = 2
    """For those who know what it does to the device."""
    Invisible: Final = 3
    """Not shown in user interfaces."""

class BufferImage(Image):
    """Image in a buffer."""

class DeviceImage(Image):
    """Image of a device."""

class EmuImage(Image):
    """Image of an emulated device."""

class MultiPartImage(Image):
    """Part of a multi-part buffer."""

class RingBufferImage(Image):
    """Image in a ring buffer."""

class StreamImage(Image):
    """Image of a stream."""

class VideoImage(Image):
    """Image of a video."""

class VinImage(Image):
    """Image of a driver."""

class WrappedImage(Image):
    """Image over the memory of another object."""
    @staticmethod
    def from_buffer(obj: object, color_model: int | None = None) -> WrappedImage:
        """Wraps the memory of an object with the buffer protocol, without a copy.

        The buffer stays exported until the image is gone.

        Parameters
        ----------
        obj : object
            Array of shape (height, width) or (height, width, planes), any strides; integers of 8, 16 or
            32 bits, or floats of 32 or 64 bits.

        color_model : Optional[int]
            How the planes make a color (see tarn.ColorModel); by the number of planes if None.

        Returns
        -------
        tarn.WrappedImage
            The image.
        """
