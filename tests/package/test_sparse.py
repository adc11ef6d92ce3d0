"""nalora.sparse: products of SciPy's sparse matrices with modeling objects."""

import subprocess
import sys
import time

import numpy as np
import pytest

import nalora
from nalora import ModelError, naloralib


def texts(a):
    return [str(e) for e in np.ravel(a)]


def test_importing_the_package_imports_no_scipy():
    code = "import sys, nalora; nalora.sparse.dot; sys.exit('scipy' in sys.modules)"
    assert subprocess.run([sys.executable, "-c", code], timeout=60).returncode == 0


def test_dense_matrices_are_refused():
    with pytest.raises(TypeError, match="must be a sparse matrix of SciPy, not ndarray"):
        nalora.sparse.dot(np.ones((2, 2)), nalora.vars(2))


@pytest.mark.parametrize(
    ("indices", "starts"),
    [([0, 2], [0, 2]), ([0, -1], [0, 2]), ([0, 1], [0, 3]), ([0, 1], [2, 0]), ([0, 1], [-1, 2])],
)
def test_indices_out_of_range_are_refused(indices, starts):
    with pytest.raises(ModelError, match="out of range"):
        naloralib._sparse_dot(np.ones(2), np.array(indices), np.array(starts), nalora.vars(2))


class TestWithSciPy:
    @pytest.fixture(autouse=True)
    def scipy_sparse(self):
        self.sparse = pytest.importorskip("scipy.sparse")

    @pytest.mark.parametrize("form", ["csr", "csc", "coo", "bsr", "dia", "dok", "lil"])
    @pytest.mark.parametrize("shape", [(5,), (5, 3), (5, 0)])
    def test_every_format(self, form, shape):
        dense = np.array([[0, 1, 0, 0, 2], [0, 0, 0, 0, 0], [3, 0, 4, 0, -1]], dtype=float)
        a = self.sparse.csr_matrix(dense).asformat(form)
        x = nalora.vars(*shape) if 0 not in shape else np.empty(shape, dtype=nalora.npvar)
        result = nalora.sparse.dot(a, x)
        expected = nalora.Dot(dense, x)
        assert result.dtype == nalora.npexpr and result.shape == expected.shape
        assert texts(result) == texts(expected)

    def test_elements_of_all_kinds(self):
        a = self.sparse.eye(4, format="csc", dtype="i8") * 2
        x, y = nalora.var(name="x"), nalora.var(name="y")
        items = [3, 2 * x * y, x + y - 1, x**3]
        expected = nalora.Dot(a.toarray(), np.array(items))
        assert texts(nalora.sparse.dot(a, items)) == texts(expected)
        entries = (np.array([1.0, 2.0, 4.0]), (np.array([0, 0, 0]), np.array([1, 1, 0])))
        repeated = self.sparse.coo_matrix(entries, shape=(1, 2))
        assert texts(nalora.sparse.dot(repeated, [x, y])) == ["4 x +3 y"]
        numbers = nalora.sparse.dot(a, [[1, 2]] * 4)
        assert numbers.dtype == float and (numbers == np.array([[2.0, 4.0]] * 4)).all()

    def test_refused_factors(self):
        x = nalora.vars(3)
        a = self.sparse.csr_matrix(np.ones((2, 3)))
        for bad in [x[:2], nalora.vars(2, 3), x[0], nalora.vars(3, 1, 1), a]:
            with pytest.raises(ModelError, match=r"two dimensions|must match the elements"):
                nalora.sparse.dot(a, bad)
        for matrix, bad in [(a, [x[0], x[1], "a"]), (a.astype(complex), x), (a, np.ones(3) * 1j)]:
            with pytest.raises(ModelError, match="must be between long, double"):
                nalora.sparse.dot(matrix, bad)

    def test_time_grows_with_the_entries_only(self):
        def seconds(n):
            row = np.random.default_rng(1).integers(0, n, 5 * n)
            cells = (row, np.tile(np.arange(n), 5))
            a = self.sparse.csr_matrix((np.ones(5 * n), cells), shape=(n, n))
            x = nalora.vars(n, name="")
            start = time.process_time()
            p = nalora.problem(x, nalora.sparse.dot(a, x) <= 1)
            took = time.process_time() - start
            assert p.attributes.elems == a.nnz
            return took

        assert seconds(80_000) < 40 * max(seconds(10_000), 0.005)
