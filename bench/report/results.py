"""What the benchmarks wrote, as medians with their spread.

A ratio is that of one round, where the two variants ran one after the other. So its median and its
spread are those of the rounds' ratios: a machine that slows down between two rounds changes both
times of a round, and not their ratio.
"""
import json
import statistics
from dataclasses import dataclass, field


@dataclass
class Spread:
    """A median, with the quartiles around it."""
    low: float
    median: float
    high: float

    @staticmethod
    def of(samples):
        if len(samples) == 1:
            return Spread(samples[0], samples[0], samples[0])
        low, median, high = statistics.quantiles(samples, n=4, method="inclusive")
        return Spread(low, median, high)


@dataclass
class Variant:
    name: str
    role: str
    left_out: str
    samples: list

    @property
    def spread(self):
        return Spread.of(self.samples)


@dataclass
class Case:
    target: str
    name: str
    metric: str
    unit: str
    more_is_better: bool
    parameter: str
    value: int
    variants: list = field(default_factory=list)

    @property
    def title(self):
        """The name of the whole row of cases that differ only in their parameter."""
        return f"{self.name}: {self.metric}" if self.metric else self.name

    @property
    def text(self):
        return f"{self.title}, {self.value} {self.parameter}" if self.parameter else self.title

    def library(self):
        return next((v for v in self.variants if v.role == "library" and v.samples), None)

    def ratio(self, other):
        """How the library's value compares with another's; None where there is nothing to divide."""
        library = self.library()
        if library is None or not other.samples or 0 in other.samples:
            return None
        return Spread.of([a / b for a, b in zip(library.samples, other.samples)])


def case_of(target, row):
    variants = [Variant(v["name"], v["role"], v["left out"], v["samples"]) for v in row["variants"]]
    return Case(target, row["case"], row["metric"], row["unit"], row["more is better"],
                row["parameter"], row["value"], variants)


def read(paths):
    """Every case of the files, the compilers that made them, and whether all of them were quick."""
    cases, compilers, quick = [], set(), []
    for path in paths:
        with open(path, encoding="utf-8") as file:
            content = json.load(file)
        compilers.add(content["compiler"])
        quick.append(content["quick"])
        cases += [case_of(content["target"], row) for row in content["cases"]]
    return cases, sorted(compilers), any(quick)


def summary(cases):
    """The medians and spreads, for programs that read them."""
    def triple(spread):
        return None if spread is None else [spread.low, spread.median, spread.high]
    return [{"target": c.target, "case": c.title, "parameter": c.parameter, "value": c.value,
             "unit": c.unit, "more is better": c.more_is_better,
             "variants": {v.name: {"role": v.role, "quartiles": triple(v.spread),
                                   "library ratio": triple(c.ratio(v))}
                          for v in c.variants if v.samples},
             "left out": {v.name: v.left_out for v in c.variants if v.left_out}}
            for c in cases]


def groups(cases):
    """Rows of cases that differ only in their parameter, in the order of their first."""
    rows = {}
    for case in cases:
        rows.setdefault((case.target, case.title), []).append(case)
    return list(rows.values())
