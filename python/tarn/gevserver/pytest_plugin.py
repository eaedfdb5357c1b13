"""Fixtures for pytest, which finds them where this package is installed: ``-p no:tarn`` leaves them out."""

import contextlib
from collections.abc import Callable, Iterator
from typing import TYPE_CHECKING, Any

import pytest

if TYPE_CHECKING:
    from tarn.gevserver.testing import RunningCamera


@pytest.fixture
def make_gev_camera() -> "Iterator[Callable[..., RunningCamera]]":
    """Makes started cameras, with the arguments of `tarn.gevserver.testing.camera`; stopped in the end."""
    from tarn.gevserver.testing import camera  # not in test runs that use no camera

    with contextlib.ExitStack() as cameras:

        def make(*arguments: Any, **options: Any) -> "RunningCamera":
            return cameras.enter_context(camera(*arguments, **options))

        yield make


@pytest.fixture
def gev_camera(make_gev_camera: "Callable[..., RunningCamera]") -> "RunningCamera":
    """A started camera of 64x48 Mono8; see `tarn.gevserver.testing.RunningCamera`."""
    return make_gev_camera()
