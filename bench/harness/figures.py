"""Medians, quartiles, and what they say of a target."""

from dataclasses import dataclass

NOISY = 0.10  # quartiles further apart than this, as a part of the median, say nothing


def quantile(values, part):
    """Interpolated between the two values around it."""
    ordered = sorted(values)
    at = part * (len(ordered) - 1)
    below = int(at)
    above = min(below + 1, len(ordered) - 1)
    return ordered[below] + (ordered[above] - ordered[below]) * (at - below)


@dataclass(frozen=True)
class Spread:
    """A figure as the rounds gave it."""
    median: float
    low: float   # the quartiles
    high: float

    @property
    def noisy(self):
        return self.high - self.low > NOISY * abs(self.median)


def spread(values):
    values = list(values)
    return Spread(quantile(values, 0.5), quantile(values, 0.25), quantile(values, 0.75))


def ratios(above, below):
    """The ratio within each round, so that what slows a round slows both."""
    return spread(a / b for a, b in zip(above, below))


def verdict(figure, at_most=None, at_least=None):
    """"met", "missed", or "noisy" where the rounds disagree too much to tell."""
    if figure.noisy:
        return "noisy"
    met = figure.median <= at_most if at_most is not None else figure.median >= at_least
    return "met" if met else "missed"
