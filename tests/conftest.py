"""What tests in several folders need."""

import gc
import sys

import pytest

import nalora


def allocated():
    """Pieces of memory in use: the interpreter's and the module's. What repeats must not add any.

    Under the sanitizers the interpreter counts none, the module counts its objects.
    """
    return sys.getallocatedblocks() + nalora.naloralib._live_cells()


def growth(work, rounds=50, before=20):
    """Pieces of memory that are in use after some more rounds of the same work."""
    for _ in range(before):
        work()
    gc.collect()
    used = allocated()
    for _ in range(rounds):
        work()
    gc.collect()
    return allocated() - used


@pytest.fixture
def silent():
    nalora.setOutputEnabled(False)
    yield
    nalora.setOutputEnabled(True)
