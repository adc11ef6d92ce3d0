from os import PathLike
from typing import Any, Callable, ClassVar, Iterable, Mapping, Sequence, overload

import numpy as np
from typing_extensions import TypeAlias

from . import sparse as sparse

__version__: str

# The types of expressions, accessors and terms are no attributes of the module: they are the
# results of operations. The names below exist in these stubs only.

_Scalar: TypeAlias = _Operand | float
_Array: TypeAlias = np.ndarray[Any, Any]
_Name: TypeAlias = str | bytes
_Path: TypeAlias = str | bytes | PathLike[str]
_Column: TypeAlias = int | str | var
_Row: TypeAlias = int | str | constraint

class _Operand:
    """What variables, terms and expressions have in common: arithmetic and comparison.

    Arithmetic never changes an operand. Comparisons (<=, >=, ==) make constraints; <, > and != are
    refused, so that a variable is not usable where Python compares for equality.
    """

    __hash__: ClassVar[Any]
    @overload
    def __add__(self, other: _Scalar, /) -> _Operand: ...
    @overload
    def __add__(self, other: _Array, /) -> _Array: ...
    @overload
    def __radd__(self, other: _Scalar, /) -> _Operand: ...
    @overload
    def __radd__(self, other: _Array, /) -> _Array: ...
    @overload
    def __sub__(self, other: _Scalar, /) -> _Operand: ...
    @overload
    def __sub__(self, other: _Array, /) -> _Array: ...
    @overload
    def __rsub__(self, other: _Scalar, /) -> _Operand: ...
    @overload
    def __rsub__(self, other: _Array, /) -> _Array: ...
    @overload
    def __mul__(self, other: _Scalar, /) -> _Operand: ...
    @overload
    def __mul__(self, other: _Array, /) -> _Array: ...
    @overload
    def __rmul__(self, other: _Scalar, /) -> _Operand: ...
    @overload
    def __rmul__(self, other: _Array, /) -> _Array: ...
    @overload
    def __truediv__(self, other: _Scalar, /) -> _Operand: ...
    @overload
    def __truediv__(self, other: _Array, /) -> _Array: ...
    @overload
    def __rtruediv__(self, other: _Scalar, /) -> _Operand: ...
    @overload
    def __rtruediv__(self, other: _Array, /) -> _Array: ...
    @overload
    def __pow__(self, other: _Scalar, mod: None = ..., /) -> _Operand: ...
    @overload
    def __pow__(self, other: _Array, mod: None = ..., /) -> _Array: ...
    @overload
    def __rpow__(self, other: _Scalar, mod: None = ..., /) -> _Operand: ...
    @overload
    def __rpow__(self, other: _Array, mod: None = ..., /) -> _Array: ...
    @overload
    def __iadd__(self, other: _Scalar, /) -> _Operand: ...
    @overload
    def __iadd__(self, other: _Array, /) -> _Array: ...
    @overload
    def __isub__(self, other: _Scalar, /) -> _Operand: ...
    @overload
    def __isub__(self, other: _Array, /) -> _Array: ...
    @overload
    def __imul__(self, other: _Scalar, /) -> _Operand: ...
    @overload
    def __imul__(self, other: _Array, /) -> _Array: ...
    @overload
    def __itruediv__(self, other: _Scalar, /) -> _Operand: ...
    @overload
    def __itruediv__(self, other: _Array, /) -> _Array: ...
    def __neg__(self) -> _Operand: ...
    def __array_ufunc__(self, ufunc: Any, method: str, /, *inputs: Any, **kwargs: Any) -> Any: ...
    @overload
    def __le__(self, other: _Scalar, /) -> constraint: ...
    @overload
    def __le__(self, other: _Array, /) -> _Array: ...
    @overload
    def __ge__(self, other: _Scalar, /) -> constraint: ...
    @overload
    def __ge__(self, other: _Array, /) -> _Array: ...
    @overload  # type: ignore[override]
    def __eq__(self, other: _Scalar, /) -> constraint: ...
    @overload
    def __eq__(self, other: _Array, /) -> _Array: ...
    def extractLinear(self) -> tuple[list[var], list[float]]:
        """The linear terms: variables and coefficients."""
    def extractQuadratic(self) -> tuple[list[var], list[var], list[float]]:
        """The quadratic terms: first variables, second variables and coefficients."""

class var(_Operand):
    """A decision variable; it belongs to no problem until a problem's addVariable."""

    def __init__(
        self,
        name: _Name = ...,
        lb: float = 0.0,
        ub: float = 1e20,
        threshold: float = -1e20,
        vartype: int = 0,
    ) -> None: ...
    def __copy__(self) -> var: ...
    def __deepcopy__(self, memo: Any, /) -> var: ...
    name: Any
    lb: float
    ub: float
    threshold: float
    vartype: int

class constraint:
    """A body with a lower and an upper bound, made by a comparison or from keywords."""

    def __init__(
        self,
        constraint: constraint = ...,
        body: Any = ...,
        lb: float = -2e20,
        ub: float = 2e20,
        sense: int = 0,
        rhs: float = -2e20,
        name: _Name = ...,
    ) -> None: ...
    name: Any
    lb: float
    ub: float
    @property
    def body(self) -> _Scalar: ...
    def copy(self) -> constraint:
        """Return a copy of the constraint as a new object"""

    def __copy__(self) -> constraint: ...
    def __deepcopy__(self, memo: Any, /) -> constraint: ...

class sos:
    """A special ordered set of type 1 or 2: a list of variables and a list of weights."""

    def __init__(
        self,
        indices: list[Any],
        weights: list[float],
        type: int = 1,
        name: str = ...,
    ) -> None: ...
    @property
    def name(self) -> str: ...
    def copy(self) -> sos:
        """Return a copy of the SOS as a new object"""

    def __copy__(self) -> sos: ...
    def __deepcopy__(self, memo: Any, /) -> sos: ...

class _Accessor:
    def __getattr__(self, name: str, /) -> Any: ...

class _Control(_Accessor):
    """Controls by name: p.controls.miptol = 1e-6"""

    def __setattr__(self, name: str, value: float | str, /) -> None: ...

class _Attribute(_Accessor):
    """Attributes by name: p.attributes.rows"""

class problem:
    """An optimization problem: problem(*elements, name=..., sense=...).

    The elements are variables, constraints, sets and one objective, singly or in (nested)
    collections, and at most one string, the problem's name.
    """

    def __init__(self, *elements: Any, name: str = ..., sense: int = 1) -> None: ...
    @property
    def controls(self) -> _Control: ...
    @property
    def attributes(self) -> _Attribute: ...
    # Objects of the problem
    @overload
    def getVariable(self, index: int) -> var: ...
    @overload
    def getVariable(
        self, index: Iterable[Any] | None = ..., first: int = -1, last: int = -1
    ) -> list[var]: ...
    @overload
    def getConstraint(self, index: int) -> constraint: ...
    @overload
    def getConstraint(
        self, index: Iterable[Any] | None = ..., first: int = -1, last: int = -1
    ) -> list[constraint]: ...
    @overload
    def getSOS(self, index: int) -> sos: ...
    @overload
    def getSOS(
        self, index: Iterable[Any] | None = ..., first: int = -1, last: int = -1
    ) -> list[sos]: ...
    def getIndex(self, obj: var | constraint | sos, /) -> int:
        """The index of a variable, constraint or set in this problem."""
    def getIndexFromName(self, type: int, name: str) -> int:
        """The index of the row (type 1), column (2) or set (3) of a name."""
    def name(self) -> str: ...
    def reset(self) -> None:
        """Empty the problem."""
    def copy(self) -> problem:
        """A new problem over the same modeling objects."""

    def __copy__(self) -> problem: ...
    def __deepcopy__(self, memo: Any, /) -> problem: ...
    # Building
    def addVariable(self, *args: Any) -> None: ...
    def addConstraint(self, *args: Any) -> None: ...
    def addSOS(self, *args: Any) -> None: ...
    def addIndicator(self, *args: Any) -> None:
        """addIndicator(x == 1, constraint), or any number of such pairs as tuples."""
    def delVariable(self, index: Any = ..., first: int = -1, last: int = -1) -> None: ...
    def delConstraint(self, index: Any = ..., first: int = -1, last: int = -1) -> None: ...
    def delSOS(self, index: Any = ..., first: int = -1, last: int = -1) -> None: ...
    def setObjective(self, objective: Any, sense: int | None = ...) -> None: ...
    def read(self, filename: _Path, options: str = "") -> None: ...
    def write(self, filename: _Path, flags: str = "") -> None: ...
    # Solving
    def solve(self, flags: _Name = ...) -> None: ...
    def getProbStatus(self) -> int: ...
    def getProbStatusString(self) -> str: ...
    def getObjVal(self) -> float: ...
    def getSolution(self, *args: Any, flatten: bool = False) -> Any:
        """Values of the arguments in the solution, in their nesting; without any, a list."""
    @overload
    def getDual(self, index: _Row, /) -> float: ...
    @overload
    def getDual(self, *args: Any) -> list[float]: ...
    @overload
    def getSlack(self, index: _Row, /) -> float: ...
    @overload
    def getSlack(self, *args: Any) -> list[float]: ...
    @overload
    def getRCost(self, index: _Column, /) -> float: ...
    @overload
    def getRCost(self, *args: Any) -> list[float]: ...
    # Controls and attributes
    @overload
    def setControl(self, name: str, value: float | str, /) -> None: ...
    @overload
    def setControl(self, values: Mapping[str, float | str], /) -> None: ...
    def getControl(self, *args: Any) -> Any: ...
    def getAttrib(self, *args: Any) -> Any: ...
    # The optimizer's own functions
    def lpoptimize(self, flags: str | None = ...) -> None: ...
    def mipoptimize(self, flags: str | None = ...) -> None: ...
    def interrupt(self, reason: int) -> None: ...
    def getlpsol(
        self,
        x: list[float] | None = ...,
        slack: list[float] | None = ...,
        dual: list[float] | None = ...,
        dj: list[float] | None = ...,
    ) -> None: ...
    def nlpoptimize(self, flags: str | None = ...) -> None: ...
    def getslpsol(
        self,
        x: list[float] | None = ...,
        slack: list[float] | None = ...,
        dual: list[float] | None = ...,
        dj: list[float] | None = ...,
    ) -> None: ...
    def chgvar(
        self,
        colindex: _Column | None = ...,
        detrow: int | None = ...,
        initstepbound: float | None = ...,
        stepbound: float | None = ...,
        penalty: float | None = ...,
        damp: float | None = ...,
        initvalue: float | None = ...,
        value: float | None = ...,
        tolset: int | None = ...,
        history: int | None = ...,
        converged: int | None = ...,
        vartype: int | None = ...,
    ) -> None: ...
    def getvar(
        self, colindex: _Column
    ) -> tuple[
        int,
        float,
        float,
        float,
        float,
        float,
        float,
        int,
        int,
        int,
        int,
        int,
        int,
        int,
        float,
    ]: ...
    def evaluateformula(
        self, parsed: int, type: Sequence[int], value: Sequence[float]
    ) -> float: ...
    def evaluatecoef(self, rowindex: _Row, colindex: _Column) -> float: ...
    def validate(self) -> None: ...
    def validatevector(self, vector: Sequence[float]) -> tuple[float, float, float]: ...
    def getmipsol(self, x: list[float] | None = ..., slack: list[float] | None = ...) -> None: ...
    def addmipsol(
        self,
        mipsolval: Sequence[float],
        mipsolcol: Sequence[_Column] | None = ...,
        solname: str | None = ...,
    ) -> None: ...
    def chgbounds(
        self, mindex: Sequence[_Column], qbtype: Sequence[str], bnd: Sequence[float]
    ) -> None: ...
    def chgrhs(self, mindex: Sequence[_Row], rhs: Sequence[float]) -> None: ...
    def chgobj(self, mindex: Sequence[_Column], obj: Sequence[float]) -> None: ...
    def chgcoef(self, irow: _Row, icol: _Column, dval: float) -> None: ...

class branchobj:
    """A branching object of the optimizer's search."""

    def __init__(self, *args: Any, **kwargs: Any) -> None: ...

class poolcut:
    """A cut in the optimizer's cut pool."""

    def __init__(self, *args: Any, **kwargs: Any) -> None: ...

class ModelError(Exception):
    """An error in the user's model or in arguments given as modeling objects."""

class InterfaceError(Exception):
    """Misuse of the interface, or a failure of the optimizer's environment."""

class SolverError(Exception):
    """A failure that the optimizer reported on a problem."""

# Element types of arrays

npvar: np.dtype[Any]
npexpr: np.dtype[Any]
npconstraint: np.dtype[Any]

# Module functions

def Sum(*terms: Any) -> Any:
    """Sum of all elements, or of the elements of the only argument."""

def Prod(*factors: Any) -> Any:
    """Product of all elements, or of the elements of the only argument."""

def vars(
    *indices: Any,
    name: str = "x",
    lb: float = 0.0,
    ub: float = 1e20,
    threshold: float = ...,
    vartype: int = 0,
) -> Any:
    """New variables: an array for sizes, a dictionary for lists of labels."""

def getlasterror() -> tuple[int, str]:
    """Code and text of the last error of the optimizer's environment."""

def getversion() -> str: ...
def getbanner(*args: Any) -> str: ...
def getcheckedmode() -> bool: ...
def setcheckedmode(checked_mode: bool) -> None: ...
def setarchconsistency(ifArchConsistent: bool | None) -> None: ...
def setdefaultcontrol(ipar: str) -> None:
    """Forget the module-wide default of a control."""

def setdefaults() -> None:
    """Forget the module-wide defaults of all controls."""

def addcbmsghandler(msghandler: Callable[..., Any], data: Any, priority: int) -> None: ...
def removecbmsghandler(msghandler: Callable[..., Any] | None = ..., data: Any = ...) -> None: ...
def init() -> None:
    """Start the optimizer's environment."""

def free() -> None:
    """Stop the optimizer's environment."""

def evaluate(
    *expressions: Any,
    problem: problem | None = ...,
    solution: dict[var, float] | list[float] | np.ndarray[Any, Any] | None = ...,
) -> Any:
    """Values of expressions for given values of the variables."""

def Dot(*factors: Any, out: np.ndarray[Any, Any] | None = ...) -> Any:
    """Product of arrays of numbers and modeling objects, from left to right."""

@overload
def sin(x: float, /) -> float: ...
@overload
def sin(x: _Operand, /) -> _Operand: ...
@overload
def sin(x: _Array, /) -> _Array: ...
@overload
def cos(x: float, /) -> float: ...
@overload
def cos(x: _Operand, /) -> _Operand: ...
@overload
def cos(x: _Array, /) -> _Array: ...
@overload
def tan(x: float, /) -> float: ...
@overload
def tan(x: _Operand, /) -> _Operand: ...
@overload
def tan(x: _Array, /) -> _Array: ...
@overload
def asin(x: float, /) -> float: ...
@overload
def asin(x: _Operand, /) -> _Operand: ...
@overload
def asin(x: _Array, /) -> _Array: ...
@overload
def acos(x: float, /) -> float: ...
@overload
def acos(x: _Operand, /) -> _Operand: ...
@overload
def acos(x: _Array, /) -> _Array: ...
@overload
def atan(x: float, /) -> float: ...
@overload
def atan(x: _Operand, /) -> _Operand: ...
@overload
def atan(x: _Array, /) -> _Array: ...
@overload
def exp(x: float, /) -> float: ...
@overload
def exp(x: _Operand, /) -> _Operand: ...
@overload
def exp(x: _Array, /) -> _Array: ...
@overload
def log(x: float, /) -> float: ...
@overload
def log(x: _Operand, /) -> _Operand: ...
@overload
def log(x: _Array, /) -> _Array: ...
@overload
def log10(x: float, /) -> float: ...
@overload
def log10(x: _Operand, /) -> _Operand: ...
@overload
def log10(x: _Array, /) -> _Array: ...
@overload
def abs(x: float, /) -> float: ...
@overload
def abs(x: _Operand, /) -> _Operand: ...
@overload
def abs(x: _Array, /) -> _Array: ...
@overload
def sqrt(x: float, /) -> float: ...
@overload
def sqrt(x: _Operand, /) -> _Operand: ...
@overload
def sqrt(x: _Array, /) -> _Array: ...
@overload
def sign(x: float, /) -> float: ...
@overload
def sign(x: _Operand, /) -> _Operand: ...
@overload
def sign(x: _Array, /) -> _Array: ...
@overload
def erf(x: float, /) -> float: ...
@overload
def erf(x: _Operand, /) -> _Operand: ...
@overload
def erf(x: _Array, /) -> _Array: ...
@overload
def erfc(x: float, /) -> float: ...
@overload
def erfc(x: _Operand, /) -> _Operand: ...
@overload
def erfc(x: _Array, /) -> _Array: ...
def max(*operands: Any) -> Any:
    """The largest of the operands, as a nonlinear expression."""

def min(*operands: Any) -> Any:
    """The smallest of the operands, as a nonlinear expression."""

def user(*arguments: Any, derivatives: bool = ...) -> _Operand:
    """An expression whose value a Python function computes: user(f, t1, ..., tn)."""

def pwl(pieces: dict[Any, _Scalar], /) -> _Operand:
    """A piecewise linear function: {(a, b): expression, ...}."""

def And(*operands: Any) -> Any:
    """Conjunction of binary expressions."""

def Or(*operands: Any) -> Any:
    """Disjunction of binary expressions."""

def getOutputEnabled() -> bool: ...
def setOutputEnabled(value: int, /) -> None:
    """Whether messages of the optimizer are written to sys.stdout."""

controls: _Control

# Constants

continuous: int
binary: int
integer: int
semicontinuous: int
semiinteger: int
partiallyinteger: int
minimize: int
maximize: int
leq: int
geq: int
eq: int
range: int
infinity: float
solinfo_absprimalinfeas: int
solinfo_relprimalinfeas: int
solinfo_absdualinfeas: int
solinfo_reldualinfeas: int
solinfo_maxmipfractional: int
basis_nonbasic_lower: int
basis_basic: int
basis_nonbasic_upper: int
basis_superbasic: int
lp_unstarted: int
lp_optimal: int
lp_infeas: int
lp_cutoff: int
lp_unfinished: int
lp_unbounded: int
lp_cutoff_in_dual: int
lp_unsolved: int
lp_nonconvex: int
mip_not_loaded: int
mip_lp_not_optimal: int
mip_lp_optimal: int
mip_no_sol_found: int
mip_solution: int
mip_infeas: int
mip_optimal: int
mip_unbounded: int
nlp_unstarted: int
nlp_solution: int
nlp_locally_optimal: int
nlp_globally_optimal: int
nlp_locally_infeasible: int
nlp_infeasible: int
nlp_unbounded: int
nlp_unfinished: int
stop_timelimit: int
stop_ctrlc: int
stop_nodelimit: int
stop_iterlimit: int
stop_mipgap: int
stop_sollimit: int
stop_user: int
type_notdefined: int
type_int: int
type_int64: int
type_double: int
type_string: int
colinfo_value: int
colinfo_rdj: int
colinfo_deltaindex: int
colinfo_delta: int
colinfo_deltadj: int
colinfo_updaterow: int
colinfo_sb: int
colinfo_sbdual: int
rowinfo_slack: int
rowinfo_dual: int
rowinfo_numpenaltyerrors: int
rowinfo_maxpenaltyerror: int
rowinfo_totalpenaltyerror: int
rowinfo_currentpenaltyerror: int
rowinfo_currentpenaltyfactor: int
rowinfo_penaltycolumnplus: int
rowinfo_penaltycolumnplusvalue: int
rowinfo_penaltycolumnplusdj: int
rowinfo_penaltycolumnminus: int
rowinfo_penaltycolumnminusvalue: int
rowinfo_penaltycolumnminusdj: int
msset_initialvalues: int
msset_initialfiltered: int
msset_solvers: int
msset_slp_basic: int
msset_slp_extended: int
msset_knitro_basic: int
msset_knitro_extended: int
gencons_max: int
gencons_min: int
gencons_and: int
gencons_or: int
gencons_abs: int
