"""Folders of photos through other people's engines, and darktable's exports."""

import shutil
import subprocess
import sys

import numpy as np
import pytest

from conftest import build, load, program, psnr, root, run, save


@pytest.fixture
def folder(tmp_path, photo):
    (tmp_path / "in").mkdir()
    for k in range(3):
        save(tmp_path / "in" / f"photo {k}.png", np.roll(photo, k, axis=1))
    return tmp_path


def check(folder, photo):
    for k in range(3):
        result = load(folder / "out" / f"photo {k}.png")
        assert (result != np.roll(photo, k, axis=1)).mean() > 0.5


def test_dask_reports_what_failed_and_goes_on(folder, photo):
    pytest.importorskip("distributed")
    (folder / "in" / "broken.jpg").write_bytes(b"no photo")
    done = subprocess.run(
        [sys.executable, root / "examples/python/folder.py", folder / "in", folder / "out", "--kt7",
         program],
        capture_output=True, text=True, timeout=300,
    )  # fmt: skip
    assert done.returncode == 1, done.stderr
    assert "broken.jpg: kt7" in done.stdout and "3 done, 1 failed" in done.stdout
    check(folder, photo)


@pytest.mark.skipif(not shutil.which("parallel"), reason="no GNU parallel")
def test_gnu_parallel(folder, photo):
    (folder / "out").mkdir()
    run("parallel", "--will-cite", "-j2", "--retries", "2", program, "denoise", "--quiet", "{}",
        str(folder / "out") + "/{/}", ":::", *sorted((folder / "in").iterdir()))  # fmt: skip
    check(folder, photo)


@pytest.mark.skipif(not shutil.which("darktable-cli"), reason="no darktable")
def test_darktable_exports_are_denoised(tmp_path, photo, truth):
    def export(name, *conf):
        run("darktable-cli", save(tmp_path / "in.png", photo), tmp_path / name,
            "--apply-custom-presets", "false", "--core", "--configdir", tmp_path / ("config" + name),
            "--cachedir", tmp_path / "cache", *conf, "--luacmd",
            f"package.path = '{root}/hosts/darktable/?.lua;' .. package.path; require 'kt7'")  # fmt: skip
        return load(tmp_path / name) / 255

    plain = export("plain.png", "--conf", "lua/kt7/pause=TRUE")
    tagged = export("tagged.png", "--conf", f"lua/kt7/program={program}", "--conf", "lua/kt7/tag=kt7")
    clean = export("it's clean.png", "--conf", f"lua/kt7/program={program}")
    assert psnr(clean, truth) > psnr(plain, truth) + 4
    assert (tagged == plain).all()
    broken = export("kept.png", "--conf", "lua/kt7/program=" + str(build / "no such program"))
    assert (broken == plain).all()
