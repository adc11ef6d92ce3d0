"""Products of SciPy's sparse matrices with arrays of variables and expressions.

>>> import nalora
>>> import numpy as np
>>> import scipy.sparse
>>> A = scipy.sparse.random(1000, 1000, density=0.01, format="csr")
>>> x = nalora.vars(1000, name="x")
>>> p = nalora.problem(x, nalora.sparse.dot(A, x) <= 1)

SciPy is needed by nothing but the matrices themselves.
"""

import numpy as np

from .naloralib import ModelError, _sparse_dot

__all__ = ["dot"]


def dot(A, x):  # noqa: N803 - the name in formulas
    """Product of a sparse matrix with an array, in time that grows with its non-zeros only.

    A is a sparse matrix or array of SciPy, in any of its formats, of shape (m, n); x is an array,
    or a list, of shape (n,) or (n, k) of variables, expressions and numbers. Entries that A has
    several times are added up. The result is an array of npexpr of shape (m,) or (m, k), a row
    without entries giving the expression 0, or an array of floats if x has numbers only.

    Raises TypeError if A is not sparse, ModelError if the shapes do not match or if there are
    elements that are neither numbers nor modeling objects.
    """
    if not hasattr(A, "tocsr"):
        name = type(A).__name__
        raise TypeError(
            f"A must be a sparse matrix of SciPy, not {name}: nalora.Dot takes NumPy arrays"
        )
    if len(A.shape) != 2:
        raise ModelError("The sparse factor of a dot product must have two dimensions")
    x = np.asarray(x)
    if x.ndim == 0 or x.shape[0] != A.shape[1]:
        raise ModelError(
            f"Dot product of a sparse matrix of shape {A.shape} with an array of shape {x.shape}: "
            "the columns of the first must match the elements of the second"
        )
    rows = A.tocsr()
    return _sparse_dot(rows.data, rows.indices, rows.indptr, x)
