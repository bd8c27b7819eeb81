"""kt7:denoise through the real gegl program."""

import os
import shutil
import threading

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


def test_a_failure_is_a_warning_and_the_unchanged_picture(tmp_path, photo, monkeypatch):
    source = tmp_path / "failing.c"
    source.write_text("int kt7PhotoDenoise(void) { return -1; }\n")
    run("cc", "-shared", "-fPIC", source, "-o", tmp_path / "failing.so")
    monkeypatch.setenv("LD_PRELOAD", str(tmp_path / "failing.so"))
    result, said = gegl(tmp_path, photo, "kt7:denoise")
    assert (result == photo).all()
    assert "WARNING" in said and "kt7:denoise: memory ran out; the picture stays as it is" in said


def test_the_picture_is_worked_on_in_its_own_colours(tmp_path, photo):
    # Casts leave the numbers as they are. Taken to sRGB, colours this strong would be cut off.
    strong = photo.copy()
    strong[:, :, 2] //= 8
    cast = ["gegl:cast-space", "name=ProPhoto"], ["gegl:cast-space", "name=sRGB"]
    result, _ = gegl(tmp_path, strong, *cast[0], "kt7:denoise", *cast[1])
    assert psnr(result / 255, kt7.denoise(strong) / 255.0) > 45


class Graph:
    """A graph of GEGL in this process: a buffer, kt7:denoise, and what comes out."""

    def __init__(self, samples, form, **properties):
        gi = pytest.importorskip("gi")
        try:
            gi.require_version("Gegl", "0.4")
        except ValueError as missing:
            pytest.skip(str(missing))
        from gi.repository import Gegl

        Gegl.init(None)
        self.form, self.shape, self.dtype, self.gegl = form, samples.shape, samples.dtype, Gegl
        self.bounds = Gegl.Rectangle.new(0, 0, samples.shape[1], samples.shape[0])
        self.input = Gegl.Buffer.new(form, 0, 0, samples.shape[1], samples.shape[0])
        self.input.set(self.bounds, form, np.ascontiguousarray(samples).tobytes())
        self.output = Gegl.Buffer.new(form, 0, 0, samples.shape[1], samples.shape[0])
        self.root = Gegl.Node()
        source = self.root.create_child("gegl:buffer-source")
        source.set_property("buffer", self.input)
        self.filter = self.root.create_child("kt7:denoise")
        for name, value in properties.items():
            self.filter.set_property(name.replace("_", "-"), value)
        self.sink = self.root.create_child("gegl:write-buffer")
        self.sink.set_property("buffer", self.output)
        source.link(self.filter)
        self.filter.link(self.sink)

    def run(self):
        self.sink.process()
        pixels = self.output.get(self.bounds, 1.0, self.form, self.gegl.AbyssPolicy.NONE)
        return np.frombuffer(bytes(pixels), self.dtype).reshape(self.shape)


@pytest.mark.parametrize(
    "form, dtype, channels",
    [
        ("R'G'B' u8", np.uint8, 3),
        ("R'G'B'A u8", np.uint8, 4),
        ("R'G'B' u16", np.uint16, 3),
        ("R'G'B'A u16", np.uint16, 4),
        ("Y' u16", np.uint16, 1),
        ("Y'A float", np.float32, 2),
        ("R'G'B'A float", np.float32, 4),
    ],
)
def test_buffers_of_every_kind(noisy, form, dtype, channels):
    top = 1 if dtype == np.float32 else np.iinfo(dtype).max
    colours = noisy[:, :, : 3 if channels > 2 else 1]
    alpha = np.linspace(0.1, 1, noisy[:, :, 0].size).reshape(noisy.shape[:2] + (1,))
    held = np.dstack([colours, alpha])[:, :, : channels if channels != 1 else 1]
    samples = np.ascontiguousarray((np.clip(held, 0, 1) * top).astype(dtype))
    result = Graph(samples, form).run()
    expected = kt7.denoise(samples)
    count = colours.shape[2]
    assert psnr(result[:, :, :count] / top, expected[:, :, :count] / top) > 45
    assert (result[:, :, count:] == samples[:, :, count:]).all()
    assert psnr(result[:, :, :count] / top, samples[:, :, :count] / top) < 40


def test_floats_beyond_the_range_are_kept(noisy):
    samples = np.float32(noisy * 1.8)
    result = Graph(samples, "R'G'B' float").run()
    bright = samples > 1.3
    assert bright.mean() > 0.01 and np.abs(result - samples)[bright].max() < 0.4
    assert result[bright].mean() > 1.2


def test_progress_rises_and_cancelling_keeps_the_picture(photo):
    graph, seen = Graph(photo, "R'G'B' u8"), []
    graph.filter.connect("progress", lambda node, done: seen.append(done))
    assert (graph.run() != photo).mean() > 0.5
    assert len(seen) > 10 and seen == sorted(seen) and seen[-1] == 1

    graph, late = Graph(photo, "R'G'B' u8"), []

    def cancel(node, done):
        late.append(done)
        if done > 0.3:
            node.set_property("cancel", True)

    graph.filter.connect("progress", cancel)
    assert (graph.run() == photo).all()
    assert 0.3 < max(late) < 0.9


def test_properties_show_what_was_measured(photo):
    graph = Graph(photo, "R'G'B' u8")
    graph.run()
    levels = kt7.measure(photo).levels
    for name in ("luma_mid", "luma_low", "luma_high", "chroma_u", "chroma_v"):
        shown = graph.filter.get_property(name.replace("_", "-"))
        assert shown == pytest.approx(getattr(levels, name), rel=0.02, abs=1e-6)


def test_filters_at_once_each_get_their_result(photo):
    strengths = {"full": 1.0, "weak": 0.3, "colour": 1.0}
    graphs = {
        name: Graph(photo, "R'G'B' u8", strength=strength, luma=0.0 if name == "colour" else 1.0)
        for name, strength in strengths.items()
    }
    results = {}

    def work(name):
        results[name] = graphs[name].run()

    threads = [threading.Thread(target=work, args=(name,)) for name in graphs]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    wanted = {"full": {}, "weak": {"strength": 0.3}, "colour": {"luma": 0.0}}
    for name, settings in wanted.items():
        own = psnr(results[name] / 255, kt7.denoise(photo, **settings) / 255.0)
        others = [psnr(results[o] / 255, kt7.denoise(photo, **settings) / 255.0) for o in wanted if o != name]
        assert own > 45 and max(others) < own - 3, name


def test_two_filters_in_one_graph_of_two_branches(tmp_path, photo):
    # One branch is moved aside and laid over the other.
    wide = ["gegl:over", "aux=[", "ref=in", "kt7:denoise", "strength=0.2", "gegl:translate", "x=320", "]"]
    result, _ = gegl(tmp_path, photo, "id=in", "kt7:denoise", *wide)
    assert result.shape[1] == 640
    assert psnr(result[:, :320, :3] / 255, kt7.denoise(photo) / 255.0) > 45
    assert psnr(result[:, 320:, :3] / 255, kt7.denoise(photo, strength=0.2) / 255.0) > 45
