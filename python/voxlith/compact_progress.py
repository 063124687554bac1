"""What the rounds of ``voxlith-tools compact`` have reached: enough to go on after the last complete round."""

from __future__ import annotations

import json
import os
from dataclasses import asdict, dataclass, field
from pathlib import Path

from .errors import FileError, PathLike, UsageError
from .io.model_file import write_model_file
from .io.output import read_bytes, write_bytes
from .model import Model

_FORMAT = "voxlith compact 1"


@dataclass(frozen=True)
class Round:
    """Result of a round.

    Attributes
    ----------
    rms : tuple of float
        Misfit of each type of data.
    largest : tuple of float
        Largest amplitude of each group of properties, in its unit.
    change : float
        Norm of the change of the model over its norm.
    component_factors : tuple of float
        Factors of the misfits of the types of data; empty where they are all 1.
    """

    rms: tuple[float, ...]
    largest: tuple[float, ...]
    change: float
    component_factors: tuple[float, ...] = ()


@dataclass
class CompactProgress:
    """The rounds so far.

    Attributes
    ----------
    settings : dict
        Options that a continued sequence must have, too.
    rounds : list of Round
        Round 0 first.
    eps : tuple of float
        Of the last round; empty after round 0.
    factors : tuple of float
        Factors of the weights of each group of properties in the last round.
    model_file : str
        Name of the model of the last round, beside the progress file.
    """

    settings: dict[str, object]
    rounds: list[Round] = field(default_factory=list)
    eps: tuple[float, ...] = ()
    factors: tuple[float, ...] = ()
    model_file: str = ""

    def write(self, path: PathLike, model: Model) -> None:
        """Write progress and model after a round. A stop at any moment leaves those of this round or of the one before."""
        place, before = Path(path), self.model_file
        self.model_file = f"{place.stem}_round{len(self.rounds) - 1}.mod"
        write_model_file(place.parent / self.model_file, model.values, digits="full")
        write_bytes(place, (json.dumps({"format": _FORMAT, **asdict(self)}, indent=1) + "\n").encode())
        if before and before != self.model_file:
            (place.parent / before).unlink(missing_ok=True)

    @classmethod
    def read(cls, path: PathLike) -> CompactProgress:
        """Read what :meth:`write` has written. Raises FileError."""
        try:
            content = json.loads(read_bytes(path))
            if not isinstance(content, dict) or content.pop("format", None) != _FORMAT:
                raise FileError(path, f'expected "format": "{_FORMAT}", the file that voxlith-tools compact writes')
            rounds = [Round(tuple(map(float, one["rms"])), tuple(map(float, one["largest"])), float(one["change"]),
                            tuple(map(float, one.get("component_factors", ())))) for one in content["rounds"]]
            if not rounds or os.path.basename(content["model_file"]) != content["model_file"]:
                raise ValueError("no round")
            return cls(dict(content["settings"]), rounds, tuple(map(float, content["eps"])), tuple(map(float, content["factors"])),
                       content["model_file"])
        except (ValueError, KeyError, TypeError, RecursionError) as error:
            raise FileError(path, f"expected the file that voxlith-tools compact writes: {error}") from error

    def require(self, settings: dict[str, object], path: PathLike) -> None:
        """Raise UsageError where a setting differs from that of the rounds so far."""
        for name, value in settings.items():
            if self.settings.get(name) != value:
                raise UsageError(f"{os.fspath(path)}: the rounds so far have {name} {self.settings.get(name)}, found {value}; start anew without "
                                 "--continue")
