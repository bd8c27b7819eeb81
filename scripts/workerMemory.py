"""Measures the memory of Dask workers that denoise folders of photos (examples/python/folder.py).

    workerMemory.py KT7 [MEGAPIXELS..]   KT7 is the program; 3, 12 and 24 megapixels when none are named
    workerMemory.py KT7 --photos 2 8     folders of so many photos

Two workers go through each folder. A line for each gives the photos' size and number, and what the
greatest worker held at any moment: resident memory, in MB of a million bytes, of the worker's own
process, of the kt7 it runs with all its processes, and of both together. Read from /proc every 20 ms while they work.
"""

import argparse
import os
import signal
import subprocess
import sys
import tempfile
import time
from pathlib import Path

from PIL import Image

root = Path(__file__).resolve().parents[1]
page = os.sysconf("SC_PAGE_SIZE")


def processes():
    """(number, resident bytes) of the children of every process, by its number."""
    children = {}
    for entry in Path("/proc").iterdir():
        if entry.name.isdigit():
            try:
                parent = int((entry / "stat").read_text().rpartition(")")[2].split()[1])
                resident = int((entry / "statm").read_text().split()[1]) * page
            except OSError:
                continue  # it has ended
            children.setdefault(parent, []).append((int(entry.name), resident))
    return children


def below(children, number):
    """Resident bytes of all processes below one."""
    return sum(resident + below(children, child) for child, resident in children.get(number, ()))


def workers(leader):
    """(own, kt7's) resident bytes of every worker of the process leader."""
    children = processes()
    return [(own, below(children, worker)) for worker, own in children.get(leader, ())]


def measure(kt7, photo, count, folder):
    """Greatest (own, kt7's, both together) of any worker, over a folder of count photos."""
    source, target = folder / "in", folder / "out"
    source.mkdir()
    for k in range(count):
        (source / f"{k}.jpg").hardlink_to(photo)
    engine = subprocess.Popen(
        [sys.executable, root / "examples/python/folder.py", source, target, "--kt7", kt7],
        stdout=subprocess.PIPE, text=True,
    )  # fmt: skip
    greatest = [0, 0, 0]
    try:
        while engine.poll() is None:
            for own, program in workers(engine.pid):
                greatest = [max(pair) for pair in zip(greatest, (own, program, own + program))]
            time.sleep(0.02)
    finally:
        if engine.poll() is None:
            engine.send_signal(signal.SIGINT)
        said = engine.communicate()[0]
    if engine.returncode:
        sys.exit(f"folder.py failed:\n{said}")
    return greatest


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("kt7", type=Path)
    parser.add_argument("megapixels", type=float, nargs="*", default=[3, 12, 24])
    parser.add_argument("--photos", type=int, nargs="+", default=[2, 6])
    options = parser.parse_args()
    kt7 = options.kt7.resolve()
    print("megapixels photos worker kt7 together")
    for megapixels in options.megapixels:
        height = round((megapixels * 1e6 / 1.5) ** 0.5)
        width = round(height * 1.5)
        with tempfile.TemporaryDirectory() as work:
            work = Path(work)
            subprocess.run(
                [kt7, "demo", "--size", "1200x800", work / "scene"], check=True, stdout=subprocess.DEVNULL
            )
            # The scene over and over: its noise is that of a photo, wherever it lies.
            scene = Image.open(work / "scene/noisy.png").convert("RGB")
            photo = Image.new("RGB", (width, height))
            for y in range(0, height, scene.height):
                for x in range(0, width, scene.width):
                    photo.paste(scene, (x, y))
            photo.save(work / "photo.jpg", quality=95)
            for count in options.photos:
                folder = work / str(count)
                folder.mkdir()
                figures = measure(kt7, work / "photo.jpg", count, folder)
                print(f"{megapixels:g} {count}", *(f"{f / 1e6:.0f}" for f in figures), flush=True)


if __name__ == "__main__":
    main()
