"""Statistics of samples that are given in parts."""

from __future__ import annotations

import math
from typing import Any

import numpy as np


class Moments:
    """Count, minimum, maximum, mean and deviation of samples; NaNs are left out.

    Parts are joined by their means and sums of squared deviations, without the cancellation that a sum of
    squares has.
    """

    def __init__(self, count: int = 0, low: float = math.inf, high: float = -math.inf, mean: float = 0.0,
                 deviations: float = 0.0) -> None:
        self.count, self.low, self.high, self.mean, self.deviations = count, low, high, mean, deviations

    def add(self, samples: np.ndarray) -> None:
        """Add samples of any type."""
        if samples.dtype.kind == "f":
            samples = samples[~np.isnan(samples)]
        if len(samples) == 0:
            return
        values = samples.astype(np.float64, copy=False)
        mean = float(values.mean())
        deviations = float(np.square(values - mean).sum())
        self.merge(Moments(len(samples), samples.min().item(), samples.max().item(), mean, deviations))

    def merge(self, other: Moments) -> None:
        """Add the samples of another object."""
        if other.count == 0:
            return
        count = self.count + other.count
        delta, share = other.mean - self.mean, other.count / count
        self.deviations += other.deviations + delta * delta * self.count * share
        self.mean += delta * share
        self.low, self.high = min(self.low, other.low), max(self.high, other.high)
        self.count = count

    @property
    def std(self) -> float:
        return math.sqrt(self.deviations / self.count) if self.count else math.nan

    def to_dict(self) -> dict[str, Any]:
        """All values, for JSON."""
        if self.count == 0:
            return {"count": 0}
        return {"count": self.count, "min": self.low, "max": self.high, "mean": self.mean,
                "deviations": self.deviations}

    @staticmethod
    def from_dict(values: dict[str, Any]) -> Moments:
        """The object that `to_dict` described."""
        if values["count"] == 0:
            return Moments()
        return Moments(values["count"], values["min"], values["max"], values["mean"], values["deviations"])

    def summary(self) -> dict[str, Any]:
        """For users: count, min, max, mean, std; None without samples."""
        if self.count == 0:
            return {"count": 0, "min": None, "max": None, "mean": None, "std": None}
        return {"count": self.count, "min": self.low, "max": self.high, "mean": self.mean, "std": self.std}
