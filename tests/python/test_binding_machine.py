"""Whatever Python code hands to the binding, the process goes on and node maps agree with themselves."""

import sys

import pytest
from hypothesis import HealthCheck, settings
from hypothesis.stateful import run_state_machine_as_test

from binding_machine import BindingMachine


@pytest.fixture(autouse=True)
def nothing_left_behind() -> None:
    """Not here: what is registered at random may hold its own server, which then stays, as documented."""


@pytest.mark.filterwarnings("ignore::pytest.PytestUnraisableExceptionWarning")  # of hostile objects that go
def test_random_calls_with_hostile_arguments(
    request: pytest.FixtureRequest, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setattr(sys, "unraisablehook", lambda error: None)
    run_state_machine_as_test(
        BindingMachine,
        settings=settings(
            max_examples=request.config.getoption("--binding-runs"),
            stateful_step_count=40,
            deadline=None,
            suppress_health_check=list(HealthCheck),
        ),
    )
