"""What tests in several folders need."""

import sys

import pytest

import nalora


def allocated():
    """Pieces of memory in use: the interpreter's and the module's. What repeats must not add any.

    Under the sanitizers the interpreter counts none, the module counts its objects.
    """
    return sys.getallocatedblocks() + nalora.naloralib._live_cells()


@pytest.fixture
def silent():
    nalora.setOutputEnabled(False)
    yield
    nalora.setOutputEnabled(True)
