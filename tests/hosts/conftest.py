"""What the tests of the hosts share: a noisy picture with its truth, and the programs built."""

import os
import subprocess
import sys
from pathlib import Path

import numpy as np
import pytest
from PIL import Image

root = Path(__file__).resolve().parents[2]
build = Path(os.environ["KT7_BUILD"])
os.environ["KT7_LIBRARY_PATH"] = str(build / "lib")
os.environ["PYTHONPATH"] = str(root / "hosts/python")
sys.path.insert(0, os.environ["PYTHONPATH"])
program = build / "bin/kt7"
photo_size = 180  # a side of a small photo, for commands whose result is not looked at


@pytest.fixture(scope="session")
def truth():
    """(240, 320, 3) floats in 0..1: slopes, edges, texture."""
    y, x = np.mgrid[0:240, 0:320] / 240.0
    picture = np.stack([0.25 + 0.4 * x, 0.3 + 0.4 * y, 0.55 + 0.2 * np.sin(7 * x * y)], axis=2)
    picture[60:120, 50:160] *= 0.5
    picture[150:200, 200:280] += 0.1 * np.sin(np.arange(80))[None, :, None]
    return picture


@pytest.fixture(scope="session")
def noisy(truth):
    return truth + np.random.default_rng(3).normal(0, 0.05, truth.shape)


@pytest.fixture(scope="session")
def photo(noisy):
    return np.uint8(np.clip(noisy, 0, 1) * 255 + 0.5)


def psnr(picture, truth):
    return -10 * np.log10(np.mean((np.asarray(picture, float) - truth) ** 2))


def run(*command, **options):
    """Runs a program and gives what it said; fails the test when it fails."""
    done = subprocess.run(
        [str(word) for word in command], capture_output=True, text=True, timeout=300, **options
    )
    assert done.returncode == 0, done.stdout + done.stderr
    return done.stdout + done.stderr


def save(path, samples):
    Image.fromarray(samples).save(path)
    return path


def load(path):
    return np.asarray(Image.open(path))
