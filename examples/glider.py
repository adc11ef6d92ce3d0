"""How far a hang glider comes with the help of one thermal: an optimal control problem.

The glider loses 100 m of height on its way. Its pilot chooses the lift coefficient at every moment:
how fast to fly before, in and after the rising air, which is around 250 m from the start.
The model is that of R. Bulirsch, E. Nerz, H. J. Pesch and O. von Stryk, "Combining direct and
indirect methods in optimal control: range maximization of a hang glider" (1993), who report a
range of 1248.03 m in 98.4 s.

The laws of motion hold between moments by the trapezoidal rule: each state is an array of variables
over time, each law an array of rows. In all 4,006 variables and 3,207 rows.
"""

import numpy as np

import nalora

STEPS = 800
MASS, WING, GRAVITY, AIR = 100.0, 14.0, 9.81, 1.13  # kg, m2, m/s2, kg/m3
DRAG, INDUCED_DRAG = 0.034, 0.069662
THERMAL_SPEED, THERMAL_RADIUS = 2.5, 100.0  # m/s, m


def accelerations(distance, speed, climb, lift):
    """Forward and upward, of the forces on a glider at some distances, speeds and lifts."""
    nearness = (distance / THERMAL_RADIUS - 2.5) ** 2
    rising_air = THERMAL_SPEED * (1 - nearness) * nalora.exp(-nearness)
    sink = climb - rising_air
    airspeed = nalora.sqrt(speed**2 + sink**2)
    pressure = 0.5 * AIR * WING / MASS * airspeed  # once more with the airspeed: force by mass
    drag = pressure * (DRAG + INDUCED_DRAG * lift**2)
    lifting = pressure * lift
    return -lifting * sink - drag * speed, lifting * speed - drag * sink - GRAVITY


def follows(state, rate, step):
    """Rows: a state changes between two moments by the mean of its rates there."""
    return state[1:] - state[:-1] == 0.5 * step * (rate[1:] + rate[:-1])


def start_at(p, variables, values):
    for variable, value in zip(variables.tolist(), values):
        p.chgvar(variable, initvalue=value)


def chart(distance, height, lift):
    print(f"{'distance':>9}{'height':>9}   lift coefficient")
    for i in range(0, STEPS + 1, STEPS // 20):
        print(f"{distance[i]:8.0f}m{height[i]:8.1f}m   {lift[i]:.2f} {'#' * round(30 * lift[i])}")


def main():
    n = STEPS + 1
    distance = nalora.vars(n, name="distance", ub=2000)
    height = nalora.vars(n, name="height", ub=1100)
    speed = nalora.vars(n, name="speed", ub=50)
    climb = nalora.vars(n, name="climb", lb=-20, ub=20)
    lift = nalora.vars(n, name="lift", ub=1.4)
    time = nalora.var(name="time", lb=10, ub=200)
    step = time * (1 / STEPS)
    forward, upward = accelerations(distance, speed, climb, lift)

    nalora.setOutputEnabled(False)
    p = nalora.problem(distance, height, speed, climb, lift, time, name="glider")
    p.addConstraint(
        follows(distance, speed, step),
        follows(height, climb, step),
        follows(speed, forward, step),
        follows(climb, upward, step),
        [distance[0] == 0, height[0] == 1000, height[-1] == 900],
        [speed[end] == 13.23 for end in (0, -1)],
        [climb[end] == -1.288 for end in (0, -1)],
    )
    p.setObjective(distance[-1], sense=nalora.maximize)

    # Where the search starts: a straight glide.
    share = np.linspace(0, 1, n)
    start_at(p, distance, 1248 * share)
    start_at(p, height, 1000 - 100 * share)
    for variables, value in ((speed, 13.23), (climb, -1.288), (lift, 0.7)):
        start_at(p, variables, np.full(n, value))
    p.chgvar(time, initvalue=95)
    p.solve()
    if p.getProbStatus() not in (nalora.nlp_locally_optimal, nalora.nlp_globally_optimal):
        raise SystemExit(f"not solved: {p.getProbStatusString()}")

    chart(*(p.getSolution(values) for values in (distance, height, lift)))
    print(f"range {p.getObjVal():.2f} m in {p.getSolution(time):.1f} s")


if __name__ == "__main__":
    main()
