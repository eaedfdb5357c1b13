"""IPv4 addresses: those of this machine, and ranges of them."""

import ipaddress

from tarn.gevserver import LogicalNetworkInterface


def local_networks() -> list[ipaddress.IPv4Interface]:
    """Addresses of this machine with their networks, as the system lists them."""
    return [
        ipaddress.IPv4Interface(f"{interface.ip_address}/{interface.ipv4_mask}")
        for interface in LogicalNetworkInterface.get_all_available()
    ]


def consecutive(first: str, count: int) -> list[str]:
    """As many addresses as given, each one above the one before.

    Raises
    ------
    ValueError
        The first is no IPv4 address, or the last would be beyond the end of all addresses.
    """
    start = ipaddress.IPv4Address(first)
    return [str(start + step) for step in range(count)]
