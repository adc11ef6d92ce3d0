"""Modelling and solving of linear, mixed integer, quadratic and nonlinear optimisation problems.

>>> import nalora
>>> x, y = nalora.var(name="x", ub=4), nalora.var(name="y", vartype=nalora.integer)
>>> p = nalora.problem(x, y, x + 2 * y <= 7, 3 * x + y, sense=nalora.maximize)
>>> p.solve()
>>> p.getSolution(x, y)

All names come from the compiled module `nalora.naloralib`.
"""

from . import naloralib
from . import sparse as sparse

__version__ = "0.1.0.dev0"

# Without the built-in vars, which has a namesake here when the package is loaded again.
__all__ = [name for name in naloralib.__dict__ if not name.startswith("_")]
globals().update((name, naloralib.__dict__[name]) for name in __all__)
