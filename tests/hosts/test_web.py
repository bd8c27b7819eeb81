"""The page in a real browser, as a person uses it, built by scripts/web.sh."""

import io
import os
import shutil
import subprocess
import sys
import time

import numpy as np
import pytest
from PIL import Image, ImageCms

from conftest import build, load, program, psnr, root, run, save

page = root / "build/web/page"
pytestmark = pytest.mark.skipif(
    not ((page / "kt7.wasm").exists() and shutil.which("chromedriver")),
    reason="needs scripts/web.sh --build, and chromium-driver",
)
webdriver = pytest.importorskip("selenium.webdriver", reason="no python3-selenium")


def wait(what, seconds=120):
    end = time.monotonic() + seconds
    while not what():
        assert time.monotonic() < end, "waited in vain"
        time.sleep(0.05)


class Page:
    def __init__(self, folder, *words, dark=False):
        self.server = subprocess.Popen(
            [sys.executable, root / "hosts/web/serve.py", page, "0", *words],
            stdout=subprocess.PIPE, text=True,
        )  # fmt: skip
        self.address = self.server.stdout.readline().strip()
        self.downloads = folder / "downloads"
        self.downloads.mkdir()
        options = webdriver.ChromeOptions()
        for word in ("--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--disable-gpu",
                     "--window-size=1200,800", "--disable-background-networking"):  # fmt: skip
            options.add_argument(word)
        options.set_capability("goog:loggingPrefs", {"performance": "ALL", "browser": "ALL"})
        options.add_experimental_option(
            "prefs", {"download.default_directory": str(self.downloads)}
        )
        service = webdriver.chrome.service.Service(shutil.which("chromedriver"))
        self.driver = webdriver.Chrome(service=service, options=options)
        self.driver.set_script_timeout(60)
        self.driver.get(self.address)
        wait(lambda: self.data("ready"))

    def close(self):
        self.driver.quit()
        self.server.terminate()
        self.server.wait()

    def js(self, code, *words):
        return self.driver.execute_script(code, *words)

    def data(self, name):
        return self.js("return document.documentElement.dataset[arguments[0]]", name)

    def text(self, name):
        return self.js("return document.getElementById(arguments[0]).textContent", name)

    def press(self, name):
        self.driver.find_element("id", name).click()

    def choose(self, *files):
        self.js("document.getElementById('status').textContent = ''")
        self.driver.find_element("id", "files").send_keys("\n".join(str(f) for f in files))
        wait(lambda: "Ready to" in self.text("status") or self.text("error"))
        return self.text("error")

    def set(self, name, value):
        self.js("""const e = document.getElementById(arguments[0]); e.value = arguments[1];
            for (const kind of ['input', 'change']) e.dispatchEvent(new Event(kind, {bubbles: true}))""",
                name, str(value))  # fmt: skip

    def denoise(self):
        self.press("denoise")
        wait(lambda: "Done in" in self.text("status") or self.text("error"), 300)
        assert self.text("error") == ""

    def save(self):
        """The bytes of the one file that is downloaded."""
        for old in self.downloads.iterdir():
            old.unlink()
        self.press("save")
        wait(lambda: self.text("error")
             or [f for f in self.downloads.iterdir() if f.suffix in (".png", ".jpg")])  # fmt: skip
        assert self.text("error") == ""
        (file,) = self.downloads.iterdir()
        size = -1
        while size != file.stat().st_size:
            size = file.stat().st_size
            time.sleep(0.1)
        return file.read_bytes()


@pytest.fixture(scope="module", params=["threads", "alone"])
def browser(request, tmp_path_factory):
    words = ["--alone"] if request.param == "alone" else []
    opened = Page(tmp_path_factory.mktemp("page"), *words)
    assert opened.js("return crossOriginIsolated") == (request.param == "threads")
    yield opened
    # Whatever the tests did, nothing was asked of another origin and nothing broke a policy.
    log = opened.driver.get_log("performance")
    asked = [m["message"] for m in log if '"Network.requestWillBeSent"' in m["message"]]
    assert asked
    for message in asked:
        address = message.split('"url":"')[1].split('"')[0]
        assert address.startswith((opened.address, "blob:" + opened.address)), address
    assert not [m for m in opened.driver.get_log("browser") if "Content Security" in m["message"]]
    opened.close()


def samples(data):
    return np.asarray(Image.open(io.BytesIO(data)))


def test_computes_what_the_portable_kernels_do(tmp_path):
    """With one thread the search's random numbers are the same in both builds. The best quality divides
    by an approximate reciprocal on x86."""
    wasm = root / "build/web/single/tests/hosts/kt7_portable.js"
    node = ["node", "--no-experimental-fetch", wasm]  # the old Emscripten would fetch a path
    programs = {"wasm": (node, "1"), "native": ([build / "bin/kt7_portable"], "1"),
                "again": ([build / "bin/kt7_portable"], "2")}  # fmt: skip
    told, pictures = {}, {}
    for name, (command, threads) in programs.items():
        folder = tmp_path / name
        folder.mkdir()
        said = run(*command, folder, env={**os.environ, "OMP_NUM_THREADS": threads})
        told[name] = dict(line.split(": ") for line in said.splitlines())
        pictures[name] = {f.stem: np.fromfile(f, np.uint8) / 255 for f in folder.iterdir()}
    assert {"measurement", "quick", "thorough", "best"} < set(told["native"]) == set(told["wasm"])
    differ = {part for part in told["native"] if told["native"][part] != told["wasm"][part]}
    assert differ <= {"best"}
    native, other = pictures["native"]["best"], pictures["again"]["best"]
    assert psnr(pictures["wasm"]["best"], native) > max(70, psnr(other, native) + 3)
    assert psnr(native, pictures["native"]["noisy"]) < 40


@pytest.mark.parametrize("quality,name", [(None, "best"), (1, "full"), (0, "fast")])
def test_result_is_that_of_the_tool(browser, tmp_path, photo, truth, quality, name):
    file = save(tmp_path / "photo.png", photo)
    browser.driver.refresh()  # back to the settings that a visitor finds
    wait(lambda: browser.data("ready"))
    assert browser.choose(file) == ""
    if quality is not None:
        browser.set("quality", quality)
    browser.denoise()
    result = samples(browser.save())
    wanted = []
    for copy in (tmp_path / "1.png", tmp_path / "2.png"):
        run(program, "denoise", "--quality", name, file, copy)
        wanted.append(load(copy).astype(int))
    spread = np.abs(wanted[0] - wanted[1])
    assert result.shape == photo.shape
    assert psnr(result / 255, truth) > psnr(photo / 255, truth) + 4
    apart = np.abs(result - wanted[0])
    assert apart.mean() < 1.2 * spread.mean() and apart.max() <= 4 * spread.max() + 4


def test_metadata_and_16_bits_are_kept(browser, tmp_path, photo):
    exif = Image.Exif()
    exif[0x010F] = "A camera"
    profile = bytes(range(256)) * 300  # more than one segment
    picture = Image.fromarray(photo)
    picture.save(tmp_path / "a.jpg", quality=95, exif=exif, icc_profile=profile)
    assert browser.choose(tmp_path / "a.jpg") == ""
    browser.set("quality", 0)
    browser.denoise()
    kept = Image.open(io.BytesIO(browser.save()))
    assert kept.format == "JPEG" and kept.info["icc_profile"] == profile
    assert kept.info["exif"] == Image.open(tmp_path / "a.jpg").info["exif"]
    profile = ImageCms.ImageCmsProfile(ImageCms.createProfile("sRGB")).tobytes()
    picture.save(tmp_path / "b.jpg", quality=95, exif=exif, icc_profile=profile)
    assert browser.choose(tmp_path / "b.jpg") == ""
    browser.set("format", 0)
    browser.denoise()
    moved = Image.open(io.BytesIO(browser.save()))
    assert moved.format == "PNG" and moved.getexif()[0x010F] == "A camera"
    assert moved.info["icc_profile"] == profile

    wide = (np.asarray(photo[:, :, 1], np.uint16) << 8) + np.arange(320, dtype=np.uint16)
    Image.fromarray(wide).save(tmp_path / "wide.png")
    assert browser.choose(tmp_path / "wide.png") == "" and "16 bits" in browser.text("status")
    browser.denoise()
    result = samples(browser.save())
    assert len(np.unique(result)) > 1000 and abs(result.mean() - wide.mean()) < 100
    browser.set("amount", 0)
    browser.denoise()
    assert (samples(browser.save()) == wide).all()
    browser.set("amount", 100)


def test_cancel_leaves_the_page_at_work(browser, tmp_path, photo):
    Image.fromarray(np.tile(photo, (4, 4, 1))).save(tmp_path / "large.png")
    assert browser.choose(tmp_path / "large.png") == ""
    browser.set("quality", 1)
    browser.press("denoise")
    wait(lambda: browser.js("return document.getElementById('progress').value") > 0)
    browser.press("cancel")
    wait(lambda: browser.text("status") != "Cancelling…", 20)
    assert browser.text("error") == "" and browser.text("status") == "Cancelled."
    wait(lambda: browser.js("return !document.getElementById('denoise').disabled"))
    browser.set("quality", 0)
    browser.denoise()


def test_strength_shows_at_once(browser, tmp_path, photo):
    Image.fromarray(photo).save(tmp_path / "p.png")
    assert browser.choose(tmp_path / "p.png") == ""
    browser.press("one")
    pixels = "const c = document.getElementById('picture'); return c.toDataURL()"
    before, shown = browser.js(pixels), int(browser.data("previews") or 0)
    browser.set("luma", 3)
    wait(lambda: int(browser.data("previews") or 0) > shown, 60)
    time.sleep(0.3)
    strong = browser.js(pixels)
    assert strong != before
    browser.set("luma", 1)


@pytest.mark.parametrize("name", ["broken.jpg", "cut.png", "huge.png", "text.jpg", "empty.png"])
def test_bad_files_are_told_and_lived_with(browser, tmp_path, photo, name):
    whole = io.BytesIO()
    Image.fromarray(photo).save(whole, "PNG")
    png = bytearray(whole.getvalue())
    huge = bytearray(png[:33])
    huge[16:24] = bytes([0, 1, 0x86, 0xA0] * 2)  # 100000 by 100000
    import struct
    import zlib

    huge[29:33] = struct.pack(">I", zlib.crc32(bytes(huge[12:29])))
    contents = {"broken.jpg": b"\xff\xd8\xff\xe0" + b"x" * 500, "cut.png": png[: len(png) // 2],
                "huge.png": huge + png[33:], "text.jpg": b"no picture", "empty.png": b""}  # fmt: skip
    (tmp_path / name).write_bytes(bytes(contents[name]))
    said = browser.choose(tmp_path / name)
    assert said.startswith(name + ": ") and len(said) > len(name) + 12, said
    (tmp_path / "good.png").write_bytes(bytes(png))
    assert browser.choose(tmp_path / "good.png") == ""


def test_twenty_photos_in_a_row_take_no_more_memory(browser, tmp_path, photo):
    browser.set("quality", 0)
    memory = []
    for k in range(20):
        Image.fromarray(np.roll(photo, k, axis=1)).save(tmp_path / f"{k}.png")
        assert browser.choose(tmp_path / f"{k}.png") == ""
        browser.denoise()
        memory.append(int(browser.data("memory")))
    assert memory[-1] == memory[4]


def test_keyboard_reaches_everything(browser):
    reached = set()
    keys = webdriver.common.keys.Keys
    browser.js("document.activeElement.blur()")
    for _ in range(30):
        webdriver.ActionChains(browser.driver).send_keys(keys.TAB).perform()
        reached.add(browser.js("return document.activeElement.id"))
    assert {"picture", "files", "divider", "fit", "one", "in", "out", "luma", "colour", "amount",
            "quality", "denoise", "format", "save"} <= reached  # fmt: skip
    nameless = browser.js("""return [...document.querySelectorAll('input, select, button, canvas, progress')]
        .filter(e => !(e.labels && e.labels.length) && !e.ariaLabel && !e.textContent.trim())
        .map(e => e.id)""")
    assert nameless == []


def test_narrow_and_dark(browser):
    browser.driver.set_window_size(500, 900)
    try:
        assert browser.js("return document.documentElement.scrollWidth <= innerWidth")
        colours = []
        for scheme in ("light", "dark"):
            browser.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {
                "features": [{"name": "prefers-color-scheme", "value": scheme}]})  # fmt: skip
            shot = samples(browser.driver.get_screenshot_as_png())
            colours.append(shot[5, 5, :3].astype(int).mean())
        assert colours[0] > 200 and colours[1] < 60
    finally:
        browser.driver.set_window_size(1200, 800)


def test_works_without_a_network(browser, tmp_path, photo):
    Image.fromarray(photo).save(tmp_path / "p.png")
    browser.driver.set_script_timeout(60)
    browser.driver.execute_async_script("navigator.serviceWorker.ready.then(arguments[0])")
    browser.driver.refresh()
    wait(lambda: browser.data("ready"))
    browser.server.terminate()
    browser.server.wait()
    browser.driver.refresh()
    wait(lambda: browser.data("ready"), 30)
    assert browser.choose(tmp_path / "p.png") == ""
    browser.set("quality", 0)
    browser.denoise()
