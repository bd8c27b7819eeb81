"""kt7:denoise through the real gegl program."""

import os
import shutil

import numpy as np
import pytest

import kt7
from conftest import build, load, psnr, run, save

plugin = build / "lib/gegl-0.4"
pytestmark = pytest.mark.skipif(
    not (plugin.exists() and shutil.which("gegl")), reason="built without GEGL"
)


@pytest.fixture(scope="module", autouse=True)
def gegl_path():
    with pytest.MonkeyPatch.context() as patch:
        system = run("pkg-config", "--variable=pluginsdir", "gegl-0.4").strip()
        patch.setenv("GEGL_PATH", f"{system}{os.pathsep}{plugin}")
        yield


def gegl(folder, samples, *operations):
    """What the program makes of samples, and what it says."""
    said = run("gegl", save(folder / "in.png", samples), "-o", folder / "out.png", "--", *operations)
    return load(folder / "out.png"), said


def test_gives_what_the_library_gives(tmp_path, photo, truth):
    result, _ = gegl(tmp_path, photo, "kt7:denoise")
    assert result.shape == photo.shape
    assert psnr(result / 255, truth) > psnr(photo / 255, truth) + 5
    assert psnr(result / 255, kt7.denoise(photo) / 255.0) > 45  # but for the search's own spread


@pytest.mark.parametrize(
    "change",
    [
        lambda p: p[:, :, 1],
        lambda p: np.dstack([p, p[:, :, 0]]),
        lambda p: np.uint16(p[:, :, 1]) * 257,
    ],
)
def test_grey_alpha_and_16_bits(tmp_path, photo, change):
    samples = change(photo)
    result, _ = gegl(tmp_path, samples, "kt7:denoise", "quality=fast")
    same, _ = gegl(tmp_path, samples, "kt7:denoise", "strength=0")
    expected = kt7.denoise(samples, "fast")
    if result.ndim == 3:
        assert (result[:, :, 3:] == samples[:, :, 3:]).all()
    top = 65535 if result.dtype != np.uint8 else 255
    flat = result.reshape(*samples.shape[:2], -1)[:, :, :1] / top
    wanted = expected.reshape(*samples.shape[:2], -1)[:, :, :1] / np.iinfo(samples.dtype).max
    assert psnr(flat, wanted) > 45
    assert psnr(same.reshape(flat.shape[:2] + (-1,))[:, :, :1] / top,
                samples.reshape(flat.shape[:2] + (-1,))[:, :, :1] / np.iinfo(samples.dtype).max) > 90


def test_two_filters_in_one_graph(tmp_path, photo, truth):
    result, _ = gegl(tmp_path, photo, "kt7:denoise", "quality=fast", "kt7:denoise", "quality=fast")
    assert psnr(result / 255, truth) > psnr(photo / 255, truth) + 5


def test_levels_by_hand_and_a_region(tmp_path, photo):
    none = [f"{level}=0" for level in ("luma-mid", "luma-low", "luma-high", "chroma-u", "chroma-v")]
    kept, _ = gegl(tmp_path, photo, "kt7:denoise", "blind=false", *none)
    assert np.abs(kept.astype(int) - photo).max() <= 1
    whole, _ = gegl(tmp_path, photo, "kt7:denoise")
    part, _ = gegl(tmp_path, photo, "kt7:denoise", "gegl:crop", "x=64", "y=64", "width=90", "height=80")
    assert part.shape[:2] == (80, 90)
    assert psnr(part[:, :, :3] / 255, whole[64:144, 64:154] / 255.0) > 45
