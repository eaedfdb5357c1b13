"""Features of a camera in a line each: a class whose attributes clients can read and write.

::

    class Lamp(FeatureSet):
        on = Boolean(tool_tip="Lights the lamp")
        level = Integer(50, min=0, max=100, step=5)
        temperature = Float(unit="C", read_only=True)

        @temperature.on_read
        def measure(self) -> float:
            return sensor.read()

        @on.on_write
        def switch(self, on: bool) -> None:
            relay.set(on)

    server = Server.create_non_streaming()
    lamp = Lamp(server)
    server.start("192.168.0.10")
    lamp.level = 20

Each attribute becomes a node that clients see (``server.node_map.Level``, also ``lamp.nodes["level"]``)
over a register that holds its value (``server.node_map.LevelValue``). They are ordinary nodes: what this
layer does not offer can be set on them while the server is in its configuration state.

Hooks run on a thread of the server, one after the other, while the client that caused them waits for its
answer. Only clients' accesses call them, not the program's own. What a hook raises goes to
``sys.unraisablehook``; the client gets what the register holds.

The server does not keep a feature set alive: hold the set as long as its hooks are to run. ``close()``, the
end of a ``with`` block and the end of the set itself unregister the hooks; the nodes stay in the camera.
"""

from tarn.gevserver.features.declaration import Options, ValueOptions
from tarn.gevserver.features.feature_set import FeatureSet
from tarn.gevserver.features.kinds import Boolean, Command, Enumeration, Float, Integer, String
from tarn.gevserver.features.pixel_formats import offer_pixel_formats

__all__ = [
    "Boolean",
    "Command",
    "Enumeration",
    "FeatureSet",
    "Float",
    "Integer",
    "Options",
    "String",
    "ValueOptions",
    "offer_pixel_formats",
]
