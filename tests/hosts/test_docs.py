"""Every command and snippet of the pages for people is run, each block in a folder of its own.

A fenced block names its language. What another test or a script runs names that: ```sh run-by=FILE.
What builds everything anew is marked ```sh long and runs in a clone, with KT7_LONG_DOCS=1,
as .ci/run has it.
"""

import os
import re
import shutil
import subprocess
import sys

import numpy as np
import pytest
from PIL import Image

from conftest import build, load, photo_size, program, psnr, root, run, save

pages = ["README.md", "CONTRIBUTING.md", *(f"docs/{p}.md" for p in
         ("photographers", "python", "hosts", "hosting", "development"))]  # fmt: skip


def blocks():
    for page in pages:
        text = (root / page).read_text()
        for number, found in enumerate(re.finditer(r"^```(.*)\n((?:.*\n)*?)```$", text, re.M), 1):
            yield pytest.param(page, *found.groups(), id=f"{page}-{number}")


@pytest.fixture
def folder(tmp_path, photo):
    """What the pages speak of: the tree as it is when built, and some photos."""
    for name in ("examples", "hosts", "scripts", "docs"):
        (tmp_path / name).symlink_to(root / name)
    for preset in ("release", "ci"):
        (tmp_path / "build").mkdir(exist_ok=True)
        (tmp_path / "build" / preset).symlink_to(build)
    (tmp_path / "photos").mkdir()
    small = photo[:photo_size, :photo_size]
    for name in ("IN.jpg", "IN.png", "IN.ppm", "a.tif", "b.tif", "c.jpg", "photos/1.jpg", "photos/2.jpg"):
        save(tmp_path / name, small)
    mask = np.zeros(small.shape[:2], np.uint8)
    mask[:, :90] = 255
    save(tmp_path / "M.png", mask)
    return tmp_path


def environment(folder):
    made = folder / "pkgconfig"
    made.mkdir(exist_ok=True)
    # The libraries as they lie in the build tree.
    (made / "kt7photo.pc").write_text(
        f"Name: kt7photo\nDescription: -\nVersion: 0\nCflags: -I{root}/include\n"
        f"Libs: -L{build}/lib -Wl,-rpath,{build}/lib -Wl,-rpath-link,{build}/lib -lkt7photo\n"
    )
    return {
        **os.environ,
        "PATH": f"{build}/bin{os.pathsep}{os.environ['PATH']}",
        "PKG_CONFIG_PATH": str(made),
    }


def run_shell(folder, text, timeout=600):
    if "kt7:denoise" in text and not (shutil.which("gegl") and (build / "lib/gegl-0.4").exists()):
        pytest.skip("no gegl")
    if "parallel " in text and not shutil.which("parallel"):
        pytest.skip("no GNU parallel")
    if "folder.py" in text or "workerMemory.py" in text:
        pytest.importorskip("distributed")
    text = text.replace("host1,host2", ":").replace("python3", sys.executable)
    done = subprocess.run(
        ["bash", "-euo", "pipefail", "-c", text], cwd=folder, env=environment(folder),
        stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=timeout,
    )  # fmt: skip
    assert done.returncode == 0, f"{text}\n{done.stdout}{done.stderr}"


def run_commands(folder, text, saved):
    """Lines that each begin with kt7 don't follow each other: each finds the folder as it was."""
    lines = text.splitlines()
    if not all(line.startswith("kt7 ") for line in lines):
        for snippet, name in saved:
            (folder / name).write_text(snippet)
        run_shell(folder, text)
        return
    kept = set(folder.rglob("*"))
    for line in lines:
        command = re.sub(r"\b(IN|OUT)\b(?!\.)", r"\1.jpg", line)
        run_shell(folder, command)
        new = [path for path in folder.rglob("*") if path not in kept and path.name != "pkgconfig"]
        assert any(path.is_file() and path.suffix != ".pc" for path in new) or " estimate " in command, line
        for path in sorted(new, reverse=True):
            if path.suffix != ".pc":
                path.rmdir() if path.is_dir() else path.unlink()


def run_in_clone(folder, text):
    """The first commands of a fresh machine: what they leave must be the scene, and a cleaner photo."""
    clone, scene = folder / "clone", folder / "scene"
    run("git", "clone", "-q", root, clone)
    run(program, "demo", "--size", "400x300", scene)
    truth = load(scene / "clean.png") / 255
    Image.open(scene / "noisy.png").save(clone / "IN.jpg", quality=95, subsampling=0)
    run_shell(clone, text, timeout=1500)
    assert psnr(load(clone / "OUT.jpg") / 255, truth) > psnr(load(clone / "IN.jpg") / 255, truth) + 3
    made = clone / "demo"
    noisy, denoised = (psnr(load(made / f"{n}.png"), load(made / "clean.png")) for n in ("noisy", "denoised"))
    assert denoised > noisy + 3 and (made / "side-by-side.png").exists()


def run_python(folder, text):
    done = subprocess.run(
        [sys.executable, "-c", text], cwd=folder, env=environment(folder), capture_output=True,
        text=True, timeout=300,
    )  # fmt: skip
    assert done.returncode == 0, done.stderr


def compile_c(folder, text):
    """A fragment stands in a function that has what it speaks of."""
    if "int main(" not in text:
        callback = "__typeof__(((QxProgress*)0)->callback)"
        text = f"""#include <kt7lib/kt7lib.h>
            void fragment(void* rgb, int rowBytes, int width, int height, {callback} callback,
                          void* userData) {{ {text} }}"""
    (folder / "snippet.c").write_text(text)
    run("cc", "-Wall", "-Werror", "-fsyntax-only", f"-I{root}/include", folder / "snippet.c")


@pytest.mark.parametrize("page, info, text", blocks())
def test_block(folder, page, info, text):
    language, _, other = info.partition(" run-by=")
    if other:
        # The script must hold each of the block's programs, or read the page.
        words = (root / other).read_text()
        for line in text.splitlines() if page not in words else []:
            assert os.path.basename(line.removeprefix("sudo ").split()[0]) in words, (page, other, line)
        return
    if info == "sh long":
        if not os.environ.get("KT7_LONG_DOCS"):
            pytest.skip("builds everything anew; KT7_LONG_DOCS=1 runs it")
        run_in_clone(folder, text)
    elif language == "sh":
        saved = re.findall(
            r"^```c\n((?:.*\n)*?)```\n+Saved as `(.*?)`", (root / page).read_text(), re.M
        )
        run_commands(folder, text, saved)
    elif language == "python":
        run_python(folder, text)
    elif language == "c":
        compile_c(folder, text)
    else:
        pytest.fail(f"{page}: a block of {language or 'no language'}, which nothing runs")


def test_licences_name_everything_linked():
    """Each library that something built here asks for is in LICENSES.md by its Debian package."""
    listed = (root / "LICENSES.md").read_text()
    built = [build / "bin/kt7", *(build / "lib").glob("*kt7*.so*"), *(build / "lib/gegl-0.4").glob("*.so")]
    needed = set(re.findall(r"\(NEEDED\).*\[(.*)\]", run("readelf", "-d", *built)))
    missing = []
    for library in sorted(needed):
        if "kt7" in library:
            continue
        found = run("dpkg", "-S", f"*/{library}").splitlines()
        if not any(re.search(rf"\b{re.escape(line.split(':')[0])}\b", listed) for line in found):
            missing.append((library, found))
    assert len(needed) > 10 and not missing
