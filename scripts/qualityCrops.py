#!/usr/bin/python3
"""Draws docs/qualityCrops.png: six places of the demo scene at 1:1, noisy, denoised and clean.

scripts/qualityCrops.py [LIBRARY_FOLDER]   build/ci/lib when not given; needs numpy and Pillow
"""
import os
import pathlib
import subprocess
import sys
import tempfile

import numpy as np
from PIL import Image

root = pathlib.Path(__file__).resolve().parent.parent
library = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else root / "build/ci/lib").resolve()
os.environ["KT7_LIBRARY_PATH"] = str(library)
sys.path.insert(0, str(root / "hosts/python"))
import kt7  # noqa: E402

side, gap = 150, 6
places = [(40, 20), (300, 60), (560, 120), (60, 300), (300, 330), (590, 330)]  # x, y

with tempfile.TemporaryDirectory() as folder:
    subprocess.run([library.parent / "bin/kt7", "demo", folder], check=True)
    noisy, clean = (
        np.asarray(Image.open(f"{folder}/{name}.png").convert("RGB")) for name in ("noisy", "clean")
    )
    denoised = kt7.denoise(np.ascontiguousarray(noisy), quality="best")
step = side + gap
sheet = np.full((3 * step - gap, 6 * step - gap, 3), 245, np.uint8)
for number, (x, y) in enumerate(places):
    row, column = divmod(number, 2)
    for i, picture in enumerate((noisy, denoised, clean)):
        left = (3 * column + i) * step
        sheet[row * step : row * step + side, left : left + side] = picture[
            y : y + side, x : x + side
        ]
Image.fromarray(sheet).save(root / "docs/qualityCrops.png", optimize=True)
