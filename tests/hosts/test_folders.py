"""Folders of photos through other people's engines, and darktable's exports."""

import contextlib
import json
import re
import shutil
import subprocess
import sys
import time

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


@pytest.fixture
def shaky(folder):
    """A kt7 that keeps a list of its calls, and fails at the first for "photo 1.png"."""
    script = folder / "kt7"
    script.write_text(f"""#!/bin/sh
        for word; do case $word in *.png|*.jpg) name=$(basename "$word") ;; esac; done
        if [ "$name" = "photo 1.png" ] && ! grep -q "$name" "{folder}/calls"; then
            echo "$name" >>"{folder}/calls"
            echo "kt7: out of luck" >&2
            exit 1
        fi
        echo "$name" >>"{folder}/calls"
        exec "{program}" "$@"
        """)
    script.chmod(0o755)
    (folder / "calls").touch()
    (folder / "in" / "broken.jpg").write_bytes(b"no photo")
    return script


def check_calls(folder, tries):
    calls = (folder / "calls").read_text().splitlines()
    assert {name: calls.count(name) for name in calls} == {
        "photo 0.png": 1, "photo 1.png": 2, "photo 2.png": 1, "broken.jpg": tries,
    }  # fmt: skip
    assert not (folder / "out" / "broken.jpg").exists()


@pytest.fixture(params=["workers of its own", "a scheduler elsewhere"])
def cluster(request, tmp_path):
    """Options of folder.py for a cluster: none, or the address of one whose parts were started apart."""
    pytest.importorskip("distributed")
    if request.param == "workers of its own":
        yield []
        return
    if not (shutil.which("dask-scheduler") and shutil.which("dask-worker")):
        pytest.skip("no dask-scheduler and dask-worker")
    place = tmp_path / "scheduler.json"
    file = ["--scheduler-file", place]
    commands = [["dask-scheduler", "--port", "0", "--dashboard-address", ":0", *file]]
    commands += [["dask-worker", "--nthreads", "1", "--no-nanny", "--no-dashboard", *file]] * 2
    with contextlib.ExitStack() as started:
        for command in commands:
            part = subprocess.Popen(command, cwd=tmp_path, stderr=subprocess.DEVNULL)
            started.callback(part.wait)
            started.callback(part.terminate)
        for _ in range(600):
            if place.exists() and place.stat().st_size:
                break
            time.sleep(0.1)
        yield ["--scheduler", json.loads(place.read_text())["address"]]


def test_dask_tries_again_reports_what_failed_and_goes_on(folder, photo, shaky, cluster):
    done = subprocess.run(
        [sys.executable, root / "examples/python/folder.py", folder / "in", folder / "out", "--kt7",
         shaky, *cluster],
        capture_output=True, text=True, timeout=300,
    )  # fmt: skip
    assert done.returncode == 1, done.stderr
    assert "broken.jpg: kt7" in done.stdout and "3 done, 1 failed" in done.stdout
    check(folder, photo)
    check_calls(folder, tries=3)


def test_the_memory_of_a_dask_worker_is_bounded():
    """By the documented figure, however many photos there are."""
    pytest.importorskip("distributed")
    page = (root / "docs/hosts.md").read_text()
    base, slope = map(int, re.search(r"(\d+) MB and (\d+) MB for each megapixel", page).groups())
    said = run(sys.executable, root / "scripts/workerMemory.py", program, "1", "--photos", "2", "6")
    few, many = (int(line.split()[-1]) for line in said.splitlines()[-2:])
    assert many < 1.1 * few
    assert 0.5 * (base + slope) < many <= base + slope


@pytest.mark.skipif(not shutil.which("parallel"), reason="no GNU parallel")
def test_gnu_parallel_tries_again_reports_what_failed_and_goes_on(folder, photo, shaky):
    (folder / "out").mkdir()
    done = subprocess.run(
        ["parallel", "--will-cite", "-j2", "--retries", "2", shaky, "denoise", "--quiet", "--out-dir",
         folder / "out", "{}", ":::", *sorted((folder / "in").iterdir())],
        capture_output=True, text=True, timeout=300,
    )  # fmt: skip
    assert done.returncode == 1 and "broken.jpg" in done.stderr
    check(folder, photo)
    check_calls(folder, tries=2)


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
