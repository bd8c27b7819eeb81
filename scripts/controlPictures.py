"""Draws the pictures of photographers.md: what each control does to a piece of the demo scene.

    PYTHONPATH=hosts/python KT7_LIBRARY_PATH=build/release/lib scripts/controlPictures.py build/release/bin/kt7 docs/controls
"""

import subprocess
import sys
import tempfile
from pathlib import Path

import numpy as np
from PIL import Image, ImageDraw

import kt7

piece = (470, 250, 630, 390)  # the house, its fence and the water: edges, texture and smooth places
controls = {
    "quality": [(f"quality {q}", dict(quality=q)) for q in ("fast", "full", "best")],
    "strength": [(f"strength {s}", dict(strength=s)) for s in (0.3, 1, 3)],
    "luma-colour": [
        ("luma 0: colour noise only", dict(luma=0)),
        ("colour 0: brightness only", dict(colour=0)),
        ("both at 1", {}),
    ],
    "amount": [(f"amount {a}", dict(amount=a)) for a in (0.4, 0.7, 1)],
    "sharpen": [(f"sharpen {s}", dict(sharpen=s)) for s in (0, 0.4, 1)],
    "grain": [(f"grain {g}", dict(grain=g)) for g in (0, 0.01, 0.03)],
}


def strip(parts):
    """The pieces side by side at twice their size, each with a caption below."""
    width, height = 2 * (piece[2] - piece[0]), 2 * (piece[3] - piece[1])
    out = Image.new("RGB", (len(parts) * (width + 6) - 6, height + 18), "white")
    draw = ImageDraw.Draw(out)
    for k, (caption, picture) in enumerate(parts):
        at = k * (width + 6)
        out.paste(picture.crop(piece).resize((width, height), Image.Resampling.NEAREST), (at, 0))
        draw.text((at + 4, height + 3), caption, "black")
    return out


def main(program, folder):
    with tempfile.TemporaryDirectory() as scratch:
        subprocess.run([program, "demo", scratch], check=True, stdout=subprocess.DEVNULL)
        noisy = Image.open(Path(scratch) / "noisy.png").convert("RGB")
    noise = kt7.measure(noisy)
    Path(folder).mkdir(parents=True, exist_ok=True)
    for name, settings in controls.items():
        parts = [(caption, kt7.denoise(noisy, noise=noise, **s)) for caption, s in settings]
        strip([("as it was", noisy), *parts]).save(Path(folder) / f"{name}.jpg", quality=85)


if __name__ == "__main__":
    main(*sys.argv[1:])
