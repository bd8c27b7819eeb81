"""Manual pages and completions hold what the tool's own help says, and the shells understand them."""

import re
import shutil
import subprocess

import pytest

from conftest import build, program, run

reference = build / "reference"
shells = {"bash": "kt7", "zsh": "_kt7", "fish": "kt7.fish"}


def commands():
    said = run(program, "--help").split("Subcommands:")[1]
    return re.findall(r"^  (\w+) ", said, re.M)


def options(command):
    names = re.findall(r"^  (-[-\w,]+)", run(program, "help", command), re.M)
    found = [name for line in names for name in line.split(",")]
    assert "--help" in found and len(found) > 2
    return found


def test_manual_pages_name_every_option():
    whole = (reference / "kt7.1").read_text()
    for command in commands():
        assert f"\\fB{command}\\fR" in whole
        page = (reference / f"kt7-{command}.1").read_text()
        for option in options(command):
            assert "\\fB" + option.replace("-", "\\-") + "\\fR" in page, (command, option)


@pytest.mark.skipif(not shutil.which("man"), reason="no man")
def test_manual_pages_are_sound():
    for page in sorted(reference.glob("*.1")):
        shown = subprocess.run(["man", "--warnings=w", "-l", page], capture_output=True, text=True)
        assert (shown.returncode, shown.stderr) == (0, ""), page
        assert page.stem in shown.stdout and "EXIT STATUS" in shown.stdout


def completed_by_bash(*words):
    script = f"""source {reference / "kt7"}
        COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _kt7; printf '%s\\n' "${{COMPREPLY[@]}}" """
    return run("bash", "-c", script, "bash", "kt7", *words).split("\n")[:-1]


def completed_by_fish(*words):
    line = " ".join(["kt7", *words])
    return [
        row.split("\t")[0]
        for row in run("fish", "-c", f"source {reference / 'kt7.fish'}; complete -C '{line}'").splitlines()
    ]


@pytest.mark.parametrize("shell", shells)
def test_shells_accept_completions(shell):
    if not shutil.which(shell):
        pytest.skip(f"no {shell}")
    assert run(shell, "-n", reference / shells[shell]) == ""


def test_bash_completes(tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    (tmp_path / "a photo.jpg").touch()
    (tmp_path / "a folder").mkdir()
    assert set(commands()) < set(completed_by_bash(""))
    assert completed_by_bash("den") == ["denoise"]
    assert completed_by_bash("help", "den") == ["denoise"]
    for command in commands():
        assert set(completed_by_bash(command, "-")) == set(options(command))
    assert completed_by_bash("denoise", "--stren") == ["--strength"]
    assert sorted(completed_by_bash("denoise", "a")) == ["a folder", "a photo.jpg"]
    assert completed_by_bash("denoise", "--out-dir", "a") == ["a folder"]
    assert completed_by_bash("denoise", "--out-dir", "=", "a") == ["a folder"]
    assert completed_by_bash("denoise", "--strength", "") == [""]


@pytest.mark.skipif(not shutil.which("fish"), reason="no fish")
def test_fish_completes():
    assert completed_by_fish("den") == ["denoise"]
    for command in commands():
        long = {name for name in options(command) if name.startswith("--")}
        assert long == set(completed_by_fish(command, "--"))


@pytest.mark.skipif(not shutil.which("zsh"), reason="no zsh")
def test_zsh_completes():
    # _arguments needs the line editor, so its specifications are caught instead: each must name its
    # options and be split by zsh's own rules.
    script = f"""_arguments() {{ [[ $1 = -C ]] && {{ state=rest; return }}; print -rl -- "$@" }}
        _describe() {{ }}
        words=("$1"); source {reference / "_kt7"}"""
    for command in commands():
        specifications = run("zsh", "-fc", script, "zsh", command)
        named = set(re.findall(r"^(?:\([^)]*\))?(-[-\w]+)\[", specifications, re.M))
        assert named == set(options(command)), command
