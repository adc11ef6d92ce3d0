"""Random fits and feasible models: solved, and by an independent judgement."""

import pytest
import random_models

pytestmark = pytest.mark.usefixtures("silent")


@pytest.mark.parametrize("judge", [random_models.fit, random_models.feasible])
def test_random_models_are_solved(judge):
    assert [(seed, wrong) for seed in range(50) if (wrong := judge(seed))] == []
