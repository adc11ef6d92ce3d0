"""What tests in several folders need."""

import sys

import nalora


def allocated():
    """Pieces of memory in use: the interpreter's and the module's. What repeats must not add any.

    0 where nothing counts them, as under the sanitizers.
    """
    return sys.getallocatedblocks() + nalora.naloralib._live_cells()
