"""What hosts had at rest as they grew old: build/soak/BUILD.csv, and soak.png of all those."""

from __future__ import annotations

import csv
from pathlib import Path

FOLDER = Path(__file__).resolve().parents[2] / "build" / "soak"


def keep(build, samples):
    """Of the host that was watched longest."""
    longest = max(samples, key=lambda sample: sample[1], default=(0,))[0]
    rows = [(f"{age:.0f}", *gauges.values()) for life, age, gauges in samples if life == longest]
    FOLDER.mkdir(parents=True, exist_ok=True)
    with open(FOLDER / f"{build}.csv", "w", newline="") as file:
        csv.writer(file).writerows([("seconds", "MiB", "threads", "handles"), *rows])
    draw()


def draw():
    """Does nothing without the drawing library."""
    try:
        import matplotlib
    except ImportError:
        return
    matplotlib.use("Agg")
    from matplotlib import pyplot

    figure, plots = pyplot.subplots(3, 1, sharex=True, figsize=(9, 7))
    for path in sorted(FOLDER.glob("*.csv")):
        with open(path, newline="") as file:
            (_, *names), *rows = csv.reader(file)
        for number, (plot, name) in enumerate(zip(plots, names), 1):
            plot.plot([float(row[0]) / 60 for row in rows], [float(row[number]) for row in rows],
                      label=path.stem, linewidth=0.8)
            plot.set_ylabel(name)
    for plot in plots:
        plot.set_ylim(bottom=0)
    plots[0].legend()
    plots[-1].set_xlabel("minutes of one host, at rest each time")
    figure.tight_layout()
    figure.savefig(FOLDER / "soak.png", dpi=90)
    pyplot.close(figure)
