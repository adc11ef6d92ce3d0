"""Test problems of Hock and Schittkowski, Test Examples for Nonlinear Programming Codes (1981).

Each entry: start, bounds as (lower, upper) or a list of them, objective, equations (= 0),
inequalities (>= 0), least objective value.
"""

from math import pi
from math import sqrt as root

from nalora import cos, exp, sin
from nalora import log as ln

FREE = (-1e20, 1e20)
POSITIVE = (0, 1e20)


def rosenbrock(x):
    return 100 * (x[1] - x[0] ** 2) ** 2 + (1 - x[0]) ** 2


def sum_of_squares(x, value):
    return sum(xi**2 for xi in x) - value


def hs51(x):
    return (x[0] - x[1]) ** 2 + (x[1] + x[2] - 2) ** 2 + (x[3] - 1) ** 2 + (x[4] - 1) ** 2


def hs78_rows(x):
    return [
        sum_of_squares(x, 10),
        x[1] * x[2] - 5 * x[3] * x[4],
        x[0] ** 3 + x[1] ** 3 + 1,
    ]


def hs114_rows(x):
    within = [
        (35.82 - 0.222 * x[9], 0.9, x[8]),
        (-133 + 3 * x[6], 0.99, x[9]),
        (1.12 * x[0] + 0.13167 * x[0] * x[7] - 0.00667 * x[0] * x[7] ** 2, 0.99, x[3]),
        (57.425 + 1.098 * x[7] - 0.038 * x[7] ** 2 + 0.325 * x[5], 0.99, x[6]),
    ]
    return [row for g, a, y in within for row in (g - a * y, y / a - g)]


HS78_BOUNDS = [(-2.3, 2.3)] * 2 + [(-3.2, 3.2)] * 3


def none(x):
    return []


PROBLEMS = {
    1: ([-2, 1], [FREE, (-1.5, 1e20)], rosenbrock, none, none, 0),
    4: (
        [1.125, 0.125],
        [(1, 1e20), POSITIVE],
        lambda x: (x[0] + 1) ** 3 / 3 + x[1],
        none,
        none,
        8 / 3,
    ),
    6: ([-1.2, 1], FREE, lambda x: (1 - x[0]) ** 2, lambda x: [10 * (x[1] - x[0] ** 2)], none, 0),
    9: (
        [0, 0],
        FREE,
        lambda x: sin(pi * x[0] / 12) * cos(pi * x[1] / 16),
        lambda x: [4 * x[0] - 3 * x[1]],
        none,
        -0.5,
    ),
    11: (
        [4.9, 0.1],
        FREE,
        lambda x: (x[0] - 5) ** 2 + x[1] ** 2 - 25,
        none,
        lambda x: [-(x[0] ** 2) + x[1]],
        -8.498464223,
    ),
    14: (
        [2, 2],
        FREE,
        lambda x: (x[0] - 2) ** 2 + (x[1] - 1) ** 2,
        lambda x: [x[0] - 2 * x[1] + 1],
        lambda x: [-0.25 * x[0] ** 2 - x[1] ** 2 + 1],
        9 - 2.875 * root(7),
    ),
    18: (
        [2, 2],
        [(2, 50), (0, 50)],
        lambda x: 0.01 * x[0] ** 2 + x[1] ** 2,
        none,
        lambda x: [x[0] * x[1] - 25, x[0] ** 2 + x[1] ** 2 - 25],
        5,
    ),
    21: (
        [-1, -1],
        [(2, 50), (-50, 50)],
        lambda x: 0.01 * x[0] ** 2 + x[1] ** 2 - 100,
        none,
        lambda x: [10 * x[0] - x[1] - 10],
        -99.96,
    ),
    23: (
        [3, 1],
        (-50, 50),
        lambda x: x[0] ** 2 + x[1] ** 2,
        none,
        lambda x: [
            x[0] + x[1] - 1,
            x[0] ** 2 + x[1] ** 2 - 1,
            9 * x[0] ** 2 + x[1] ** 2 - 9,
            x[0] ** 2 - x[1],
            x[1] ** 2 - x[0],
        ],
        2,
    ),
    26: (
        [-2.6, 2, 2],
        FREE,
        lambda x: (x[0] - x[1]) ** 2 + (x[1] - x[2]) ** 4,
        lambda x: [(1 + x[1] ** 2) * x[0] + x[2] ** 4 - 3],
        none,
        0,
    ),
    28: (
        [-4, 1, 1],
        FREE,
        lambda x: (x[0] + x[1]) ** 2 + (x[1] + x[2]) ** 2,
        lambda x: [x[0] + 2 * x[1] + 3 * x[2] - 1],
        none,
        0,
    ),
    30: (
        [1, 1, 1],
        [(1, 10), (-10, 10), (-10, 10)],
        lambda x: x[0] ** 2 + x[1] ** 2 + x[2] ** 2,
        none,
        lambda x: [x[0] ** 2 + x[1] ** 2 - 1],
        1,
    ),
    32: (
        [0.1, 0.7, 0.2],
        POSITIVE,
        lambda x: (x[0] + 3 * x[1] + x[2]) ** 2 + 4 * (x[0] - x[1]) ** 2,
        lambda x: [1 - x[0] - x[1] - x[2]],
        lambda x: [6 * x[1] + 4 * x[2] - x[0] ** 3 - 3],
        1,
    ),
    36: (
        [10, 10, 10],
        [(0, 20), (0, 11), (0, 42)],
        lambda x: -x[0] * x[1] * x[2],
        none,
        lambda x: [72 - x[0] - 2 * x[1] - 2 * x[2]],
        -3300,
    ),
    38: (
        [-3, -1, -3, -1],
        (-10, 10),
        lambda x: (
            rosenbrock(x)
            + 90 * (x[3] - x[2] ** 2) ** 2
            + (1 - x[2]) ** 2
            + 10.1 * ((x[1] - 1) ** 2 + (x[3] - 1) ** 2)
            + 19.8 * (x[1] - 1) * (x[3] - 1)
        ),
        none,
        none,
        0,
    ),
    40: (
        [0.8] * 4,
        FREE,
        lambda x: -x[0] * x[1] * x[2] * x[3],
        lambda x: [x[0] ** 3 + x[1] ** 2 - 1, x[0] ** 2 * x[3] - x[2], x[3] ** 2 - x[1]],
        none,
        -0.25,
    ),
    42: (
        [1, 1, 1, 1],
        FREE,
        lambda x: sum((x[i] - i - 1) ** 2 for i in range(4)),
        lambda x: [x[0] - 2, x[2] ** 2 + x[3] ** 2 - 2],
        none,
        28 - 10 * root(2),
    ),
    45: (
        [2] * 5,
        [(0, i + 1) for i in range(5)],
        lambda x: 2 - x[0] * x[1] * x[2] * x[3] * x[4] / 120,
        none,
        none,
        1,
    ),
    48: (
        [3, 5, -3, 2, -2],
        FREE,
        lambda x: (x[0] - 1) ** 2 + (x[1] - x[2]) ** 2 + (x[3] - x[4]) ** 2,
        lambda x: [sum(x) - 5, x[2] - 2 * (x[3] + x[4]) + 3],
        none,
        0,
    ),
    50: (
        [35, -31, 11, 5, -5],
        FREE,
        lambda x: (x[0] - x[1]) ** 2 + (x[1] - x[2]) ** 2 + (x[2] - x[3]) ** 4 + (x[3] - x[4]) ** 2,
        lambda x: [x[i] + 2 * x[i + 1] + 3 * x[i + 2] - 6 for i in range(3)],
        none,
        0,
    ),
    53: (
        [2] * 5,
        (-10, 10),
        hs51,
        lambda x: [x[0] + 3 * x[1], x[2] + x[3] - 2 * x[4], x[1] - x[4]],
        none,
        176 / 43,
    ),
    60: (
        [2, 2, 2],
        (-10, 10),
        lambda x: (x[0] - 1) ** 2 + (x[0] - x[1]) ** 2 + (x[1] - x[2]) ** 4,
        lambda x: [x[0] * (1 + x[1] ** 2) + x[2] ** 4 - 4 - 3 * root(2)],
        none,
        0.03256820025,
    ),
    62: (
        [0.7, 0.2, 0.1],
        (0, 1),
        lambda x: (
            -8204.37 * ln((x[0] + x[1] + x[2] + 0.03) / (0.09 * x[0] + x[1] + x[2] + 0.03))
            - 9008.72 * ln((x[1] + x[2] + 0.03) / (0.07 * x[1] + x[2] + 0.03))
            - 9330.46 * ln((x[2] + 0.03) / (0.13 * x[2] + 0.03))
        ),
        lambda x: [x[0] + x[1] + x[2] - 1],
        none,
        -26272.51448,
    ),
    64: (
        [1, 1, 1],
        (1e-5, 1e20),
        lambda x: 5 * x[0] + 50000 / x[0] + 20 * x[1] + 72000 / x[1] + 10 * x[2] + 144000 / x[2],
        none,
        lambda x: [1 - 4 / x[0] - 32 / x[1] - 120 / x[2]],
        6299.842428,
    ),
    66: (
        [0, 1.05, 2.9],
        [(0, 100), (0, 100), (0, 10)],
        lambda x: 0.2 * x[2] - 0.8 * x[0],
        none,
        lambda x: [x[1] - exp(x[0]), x[2] - exp(x[1])],
        0.5181632741,
    ),
    77: (
        [2] * 5,
        FREE,
        lambda x: (
            (x[0] - 1) ** 2
            + (x[0] - x[1]) ** 2
            + (x[2] - 1) ** 2
            + (x[3] - 1) ** 4
            + (x[4] - 1) ** 6
        ),
        lambda x: [
            x[0] ** 2 * x[3] + sin(x[3] - x[4]) - 2 * root(2),
            x[1] + x[2] ** 4 * x[3] ** 2 - 8 - root(2),
        ],
        none,
        0.24150513,
    ),
    79: (
        [2] * 5,
        FREE,
        lambda x: (
            (x[0] - 1) ** 2
            + (x[0] - x[1]) ** 2
            + (x[1] - x[2]) ** 2
            + (x[2] - x[3]) ** 4
            + (x[3] - x[4]) ** 4
        ),
        lambda x: [
            x[0] + x[1] ** 2 + x[2] ** 3 - 2 - 3 * root(2),
            x[1] - x[2] ** 2 + x[3] + 2 - 2 * root(2),
            x[0] * x[4] - 2,
        ],
        none,
        0.0787768209,
    ),
    81: (
        [-2, 2, 2, -1, -1],
        HS78_BOUNDS,
        lambda x: exp(x[0] * x[1] * x[2] * x[3] * x[4]) - 0.5 * (x[0] ** 3 + x[1] ** 3 + 1) ** 2,
        hs78_rows,
        none,
        0.0539498478,
    ),
    114: (
        [1745, 12000, 110, 3048, 1974, 89.2, 92.8, 8, 3.6, 145],
        [(1e-5, most) for most in (2000, 16000, 120, 5000, 2000)]
        + [(85, 93), (90, 95), (3, 12), (1.2, 4), (145, 162)],
        lambda x: 5.04 * x[0] + 0.035 * x[1] + 10 * x[2] + 3.36 * x[4] - 0.063 * x[3] * x[6],
        lambda x: [
            1.22 * x[3] - x[0] - x[4],
            98000 * x[2] / (x[3] * x[8] + 1000 * x[2]) - x[5],
            (x[1] + x[4]) / x[0] - x[7],
        ],
        hs114_rows,
        -1768.80696,
    ),
}
