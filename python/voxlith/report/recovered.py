"""The recovered bodies as a report shows them: a table, sums for the summary, and what makes them doubtful."""

from __future__ import annotations

import math
from dataclasses import dataclass, field

from ..bodies import body_remark, distribution, doubts, excess_unit, find_bodies, top_of, weaker_sign_text
from ..checks.results import model_norm
from ..codes import unit_text
from ..errors import MissingPackageError
from ..model import Model
from ..run import Run
from ..stacked_run import bounded_models

_MOST_BODIES = 10


@dataclass
class Recovered:
    """What is shown.

    Attributes
    ----------
    bodies : list of list of str
        A row per body: model, number, x, y, elevation, depth, volume, peak, excess, remark.
    sums : list of list of str
        Rows of the summary.
    warnings, notes : list of str
    """

    bodies: list[list[str]] = field(default_factory=list)
    sums: list[list[str]] = field(default_factory=list)
    warnings: list[str] = field(default_factory=list)
    notes: list[str] = field(default_factory=list)


def recovered_bodies(run: Run, models: list[Model]) -> Recovered:
    """Bodies of the models of a run. `models` are those of :meth:`Run.models`; without a model there is no body."""
    shown = Recovered()
    if not models:
        return shown
    found, limits = bounded_models(run, models=models)
    norm = model_norm(run)
    for model, bounds in zip(found, limits):
        unit, whole = excess_unit(model), distribution(model, bounds)
        core, factor = whole.core, unit.factor
        title = f"{unit.name[:1].upper()}{unit.name[1:]} of the core" + (f", {model.name}" if len(found) > 1 else "")
        shown.sums.append([title, f"{core.net * factor:.4g} {unit_text(unit.unit)} net, {core.positive * factor:.4g} above 0, "
                                  f"{core.negative * factor:.4g} below 0"])
        shown.warnings += [f"{model.name[:1].upper()}{model.name[1:]}: {text}" for text in doubts(whole, norm)]
        try:
            bodies = find_bodies(model, ground=top_of(model))
        except MissingPackageError as error:
            shown.notes.append(f"The bodies are not listed: {error}")
            continue
        weaker = weaker_sign_text(model)
        if weaker:
            shown.notes.append(f"{model.name[:1].upper()}{model.name[1:]}, {weaker}.")
        for number, one in enumerate(bodies[:_MOST_BODIES], 1):
            shown.bodies.append([model.name, str(number), *(f"{value:.0f}" for value in one.centre),
                                 "" if math.isnan(one.depth) else f"{one.depth:.0f}", f"{one.volume * 1.0e-6:.4g}",
                                 f"{one.peak:.4g} {unit_text(model.unit)}", f"{one.excess * factor:.4g} {unit_text(unit.unit)}",
                                 body_remark(model, one, bounds)])
        if len(bodies) > _MOST_BODIES:
            shown.notes.append(f"The table of bodies shows {_MOST_BODIES} of {len(bodies)}; voxlith-tools bodies lists all.")
    return shown
