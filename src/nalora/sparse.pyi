from typing import Any

import numpy as np

__all__ = ["dot"]

def dot(A: Any, x: Any) -> np.ndarray[Any, Any]:
    """Product of a sparse matrix with an array of variables, expressions or numbers."""
