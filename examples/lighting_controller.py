"""A controller for four lamps, a GenICam device without images: runs until Ctrl+C."""

import argparse
import contextlib
import random
import threading
from typing import TypeVar

import tarn
import tarn.gevserver as gev

AnyNode = TypeVar("AnyNode", bound=gev.Node)


def build(tree: gev.NodeMap) -> None:
    """Describe the device: registers hold the values, features over them are what clients show."""

    def put(node: AnyNode, parent: gev.Node | None = None, **settings: object) -> AnyNode:
        tree.add_node(node)
        for name, value in settings.items():
            setattr(node, name, value)
        if parent:
            parent.add(node, gev.NodeList.Child)
        return node

    lights = put(gev.CategoryNode.create("Lights"), tree.Root, tool_tip="Four lamps, two presets")

    # What clients look at: one lamp in one preset.
    lamp = put(gev.Int32RegNode.create("LAMP", gev.NameSpace.Private), is_signed=False)
    lamps = put(gev.IntegerNode.create("Lamp"), lights, value_config_as_node=lamp, max_config_as_int=3)
    preset = put(gev.Int32RegNode.create("PRESET", gev.NameSpace.Private))
    presets = put(gev.EnumerationNode.create("Preset"), lights, value_config_as_node=preset)
    for number, name in enumerate(("Day", "Night")):
        presets.add(entry := gev.EnumEntryNode.create(name), gev.NodeList.Child)
        entry.numeric_value = number

    # Registers that move with lamp and preset: to the constant address comes what the formula gives.
    # A formula calls its variables by the nodes' names, in capital letters.
    offset = put(gev.IntSwissKnifeNode.create("LampOffset", gev.NameSpace.Private))
    offset.add(preset, gev.NodeList.Child)
    offset.add(lamp, gev.NodeList.Child)
    offset.formula = "(PRESET * 4 + LAMP) * 4"
    lit_value = put(gev.Int32RegNode.create("LampOnValue", gev.NameSpace.Private, address=0x20000))
    level = put(gev.Int32RegNode.create("LEVEL", gev.NameSpace.Private, address=0x20100))
    lit = put(gev.BooleanNode.create("LampOn"), lights, value_config_as_node=lit_value)
    brightness = put(gev.IntegerNode.create("Brightness"), lights, value_config_as_node=level)
    brightness.min_config_as_int, brightness.max_config_as_int, brightness.increment_config_as_int = 0, 100, 5
    for register, feature in ((lit_value, lit), (level, brightness)):
        register.add(offset, gev.NodeList.Addresses)
        lamps.add(feature, gev.NodeList.Selected)
        presets.add(feature, gev.NodeList.Selected)

    # A command, and what the device counts and measures itself.
    fire = put(gev.Int32RegNode.create("FlashValue"), cache_mode=tarn.CacheMode.NoCache)
    flash = put(gev.CommandNode.create("Flash"), lights, value_config_as_node=fire, is_available_config=lit)
    measured = {"access_mode": tarn.AccessMode.ReadOnly, "cache_mode": tarn.CacheMode.NoCache}
    count = put(gev.Int64RegNode.create("FlashCount"), lights, **measured)
    flash.register_event_written_updated(lambda _: setattr(count, "value", count.value + 1))
    sensor = put(gev.Float32RegNode.create("Temperature"), lights, polling_time=1000, **measured)
    sensor.register_event_on_read_updated(lambda node: setattr(node, "value", random.uniform(30, 50)))

    # Settings that stay; the length of the pulse cannot be changed while the lamp is lit.
    length = put(gev.Float64RegNode.create("PulseLengthValue"), value=100.0)
    pulse = put(gev.FloatNode.create("PulseLength"), lights, value_config_as_node=length, unit="us")
    pulse.min_config_as_float, pulse.max_config_as_float, pulse.is_locked_config = 0.5, 1e4, lit
    label = put(gev.StringRegNode.create("LabelValue", length=32), value="bench 3")
    put(gev.StringNode.create("Label"), lights, value_config_as_node=label, is_streamable=True)


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("address", nargs="?", default="127.0.0.1", help="of the network interface")
    parser.add_argument("--seconds", type=float, help="end after this time")
    arguments = parser.parse_args()
    server = gev.Server.create_non_streaming()
    build(server.node_map)
    server.start(arguments.address)
    try:
        with contextlib.suppress(KeyboardInterrupt):
            threading.Event().wait(arguments.seconds)
    finally:
        server.stop()
