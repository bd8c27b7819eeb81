"""The page in a real browser, as a person uses it, built by scripts/web.sh."""

import base64
import io
import json
import os
import re
import shutil
import struct
import subprocess
import sys
import time
import zlib
from pathlib import Path

import numpy as np
import pytest
from PIL import Image, ImageCms, ImageOps, JpegImagePlugin

from conftest import build, load, program, psnr, root, run, save

page = root / "build/web/page"


def why_not():
    """Why the page can't be tested as it is, if it can't."""
    if not shutil.which("chromedriver"):
        return "no chromium-driver"
    for name, targets in (("single", ["kt7_web", "kt7_portable"]), ("threads", ["kt7_web"])):
        folder = page.parent / name
        if not (folder / "build.ninja").exists():
            return "needs scripts/web.sh --build"
        left = run("ninja", "-C", folder, "-n", *targets)
        if "no work to do" not in left:
            return "older than its sources; needs scripts/web.sh --build"
    return ""


reason = why_not()
pytestmark = pytest.mark.skipif(reason != "", reason=reason)
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
        self.driver_process = str(service.process.pid)
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
    events = [json.loads(m["message"])["message"] for m in log]
    asked = [e["params"]["request"]["url"] for e in events
             if e["method"] == "Network.requestWillBeSent"]  # fmt: skip
    assert asked
    for address in asked:
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


def test_jpeg_goes_out_as_it_came_in(browser, tmp_path, photo):
    exif = Image.Exif()
    exif[0x010F] = "A camera"
    exif[0x0112] = 6
    profile = bytes(range(256)) * 300  # more than one segment
    file, thumbnail = tmp_path / "a.jpg", save(tmp_path / "thumbnail.jpg", photo[:60, :80])
    Image.fromarray(photo).save(file, quality=83, subsampling=2, exif=exif, icc_profile=profile,
                                dpi=(240, 240), comment="a comment")  # fmt: skip
    run("exiftool", "-q", "-overwrite_original", f"-ThumbnailImage<={thumbnail}", file)
    noisy_pixels = thumbnail.read_bytes()[-1000:]
    assert noisy_pixels in file.read_bytes()
    assert browser.choose(file) == ""
    assert "240 by 320" in browser.js("return document.getElementById('picture').ariaLabel")
    assert "Lost: comments" in browser.text("lost")
    browser.set("quality", 0)
    browser.denoise()
    data = browser.save()
    kept, source = Image.open(io.BytesIO(data)), Image.open(file)
    assert kept.format == "JPEG" and kept.info["icc_profile"] == profile
    assert kept.quantization == source.quantization and kept.info["dpi"] == source.info["dpi"]
    assert JpegImagePlugin.get_sampling(kept) == JpegImagePlugin.get_sampling(source) == 2
    assert dict(kept.getexif()) == dict(source.getexif()) and kept.getexif()[0x0112] == 6
    assert noisy_pixels not in data
    browser.set("format", 95)
    assert JpegImagePlugin.get_sampling(Image.open(io.BytesIO(browser.save()))) == 0


@pytest.mark.parametrize("name", ["grey16.png", "grey16.tif", "lzw.tif", "alpha.tif", "alpha.png"])
def test_every_bit_and_the_profile_are_kept(browser, tmp_path, photo, name):
    profile = ImageCms.ImageCmsProfile(ImageCms.createProfile("sRGB")).tobytes()
    alpha = np.arange(320, dtype=np.uint8)[None, :, None].repeat(240, 0)
    given = {"grey16": (np.asarray(photo[:, :, 1], np.uint16) << 8) + np.arange(320, dtype=np.uint16),
             "lzw": photo, "alpha": np.concatenate([photo, alpha], axis=2)}[name.split(".")[0]]  # fmt: skip
    words = {"compression": "tiff_lzw"} if name == "lzw.tif" else {}
    if given.ndim == 3:
        words["icc_profile"] = profile
    Image.fromarray(given).save(tmp_path / name, **words)
    assert browser.choose(tmp_path / name) == ""
    assert f"{8 * given.itemsize} bits" in browser.text("status")
    assert ("Lost: Exif, XMP and IPTC" in browser.text("lost")) == name.endswith("tif")
    browser.set("quality", 0)
    browser.set("amount", 0)
    browser.denoise()
    data = browser.save()
    browser.set("amount", 100)
    assert (samples(data) == given).all()
    assert Image.open(io.BytesIO(data)).info.get("icc_profile") == words.get("icc_profile")
    browser.denoise()
    assert len(np.unique(samples(browser.save()))) > (1000 if given.itemsize == 2 else 50)


def test_photo_chosen_meanwhile(browser, tmp_path, photo):
    """The photo that was chosen last is the one that is opened, and what is saved keeps its name."""
    large = save(tmp_path / "large.png", np.tile(photo, (8, 8, 1)))
    small = save(tmp_path / "small.png", photo)
    chooser = browser.driver.find_element("id", "files")

    def opened(name):
        return browser.text("status").startswith(name + ": ") or browser.text("error")

    for order in ((large, small), (small, large, small)):
        browser.js("document.getElementById('status').textContent = ''")
        for file in order:
            chooser.send_keys(str(file))
        wait(lambda: opened("small.png"))
        time.sleep(0.5)  # what was under way could still fail
        assert browser.text("error") == "" and opened("small.png")
    browser.set("quality", 0)
    browser.set("format", 0)
    browser.denoise()
    assert samples(browser.save()).shape == photo.shape

    assert browser.choose(large) == ""
    browser.press("denoise")
    chooser.send_keys(str(small))
    assert "still being denoised" in browser.text("error")
    wait(lambda: "Done in" in browser.text("status"))
    for old in browser.downloads.iterdir():
        old.unlink()
    browser.set("format", 0)
    browser.press("save")
    chooser.send_keys(str(small))
    wait(lambda: list(browser.downloads.glob("*.png")))
    assert [f.name for f in browser.downloads.iterdir()] == ["large_clean.png"]
    wait(lambda: opened("small.png"))


def test_workers_are_held_to_the_policy_of_the_page(browser):
    """A worker takes it from a header only, so those who serve the page have to send it."""
    policy = re.search('"Content-Security-Policy" content="([^"]+)', (page / "index.html").read_text())
    sent = browser.driver.execute_async_script("""const tell = arguments[0];
        fetch('worker.js').then((r) => tell(r.headers.get('content-security-policy')))""")
    assert sent == policy[1] + "; frame-ancestors 'none'"
    assert f'add_header Content-Security-Policy "{sent}"' in (root / "docs/web.md").read_text()


def chunk(kind, data):
    return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))


def test_png_keeps_its_colours_and_resolution(browser, tmp_path, photo):
    coded = io.BytesIO()
    Image.fromarray(photo).save(coded, "PNG", dpi=(300, 240))
    data = coded.getvalue()
    primaries = [31270, 32900, 68000, 32000, 26500, 69000, 15000, 6000]
    extra = {b"gAMA": struct.pack(">I", 100000), b"cHRM": struct.pack(">8I", *primaries),
             b"cICP": bytes([9, 16, 0, 1])}  # fmt: skip
    (tmp_path / "linear.png").write_bytes(
        data[:33] + b"".join(chunk(kind, value) for kind, value in extra.items()) + data[33:]
    )
    assert browser.choose(tmp_path / "linear.png") == ""
    browser.set("quality", 0)
    browser.denoise()
    told = browser.save()
    for kind, value in extra.items():
        assert chunk(kind, value) in told, kind
    assert [round(v) for v in Image.open(io.BytesIO(told)).info["dpi"]] == [300, 240]
    browser.set("format", 95)
    jpeg = Image.open(io.BytesIO(browser.save()))
    assert [round(v) for v in jpeg.info["dpi"]] == [300, 240]
    assert "gamma and primaries" in browser.text("lost")


def corners(browser):
    """The colours at the corners of the photo, as they are shown, from the top left by rows."""
    return browser.js("""const c = document.getElementById('picture'), g = c.getContext('2d');
        const [w, h] = c.ariaLabel.match(/\\d+(?= by)|\\d+(?= pixels)/g).map(Number);
        const s = Math.min(c.width / w, c.height / h) * 0.45;
        return [[-1, -1], [1, -1], [-1, 1], [1, 1]].map(([x, y]) =>
            [...g.getImageData(c.width / 2 + x * s * w, c.height / 2 + y * s * h, 1, 1).data.slice(0, 3)])""")  # fmt: skip


def test_shown_upright_and_by_its_profile(browser, tmp_path):
    blocks = np.zeros((200, 300, 3), np.uint8)
    blocks[:100, :150], blocks[:100, 150:] = (200, 0, 0), (0, 200, 0)
    blocks[100:, :150], blocks[100:, 150:] = (0, 0, 200), (200, 200, 0)
    picture = Image.fromarray(blocks)
    # A profile of a device whose red and blue are exchanged.
    profile = ImageCms.ImageCmsProfile(ImageCms.createProfile("sRGB")).tobytes()
    exchanged = profile.replace(b"rXYZ", b"?XYZ", 1).replace(b"bXYZ", b"rXYZ", 1)
    exchanged = exchanged.replace(b"?XYZ", b"bXYZ", 1)
    for orientation in range(1, 9):
        exif = Image.Exif()
        exif[0x0112] = orientation
        picture.save(tmp_path / "turned.png", exif=exif, **(
            {"icc_profile": exchanged} if orientation > 4 else {}))  # fmt: skip
        assert browser.choose(tmp_path / "turned.png") == ""
        time.sleep(0.3)  # for the picture to be drawn
        wanted = np.asarray(ImageOps.exif_transpose(Image.open(tmp_path / "turned.png")))
        wanted = wanted[[10, 10, -10, -10], [10, -10, 10, -10]].astype(int)
        if orientation > 4:
            wanted = wanted[:, ::-1]
        assert np.abs(np.array(corners(browser)) - wanted).max() < 12, orientation


def test_drop_and_paste(browser, photo):
    whole = io.BytesIO()
    Image.fromarray(photo).save(whole, "PNG")
    text = base64.b64encode(whole.getvalue()).decode()
    for kind in ("drop", "paste"):
        browser.js("""const [kind, text] = arguments, data = new DataTransfer();
            document.getElementById('status').textContent = '';
            const bytes = Uint8Array.from(atob(text), (c) => c.charCodeAt(0));
            data.items.add(new File([bytes], kind + 'ed.png', {type: 'image/png'}));
            const words = {bubbles: true, cancelable: true, dataTransfer: data, clipboardData: data};
            const event = new (kind === 'drop' ? DragEvent : ClipboardEvent)(kind, words);
            document.getElementById('stage').dispatchEvent(event)""", kind, text)  # fmt: skip
        wait(lambda: f"{kind}ed.png: 320 × 240" in browser.text("status"))


def test_cancel_leaves_the_page_at_work(browser, tmp_path, photo):
    large = save(tmp_path / "large.png", np.tile(photo, (4, 4, 1)))
    assert browser.choose(large) == ""
    browser.set("quality", 0)
    browser.denoise()
    browser.set("quality", 1)
    for _ in range(2):
        browser.press("denoise")
        wait(lambda: 0 < browser.js("return document.getElementById('progress').value") < 1)
        browser.press("cancel")
        wait(lambda: browser.text("status") != "Cancelling…", 60)
        assert browser.text("error") == "" and browser.text("status") == "Cancelled."
        wait(lambda: browser.js("return !document.getElementById('denoise').disabled"))
        # With shared memory the engine hears of it and keeps the result that there was.
        saves = browser.js("return !document.getElementById('save').disabled")
        assert saves == browser.js("return crossOriginIsolated")
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


@pytest.mark.parametrize("name", ["broken.jpg", "cut.png", "huge.png", "text.jpg", "empty.png",
                                  "cut.tif", "damaged.jpg", "large.jpg", "moving.png"])
def test_bad_files_are_told_and_lived_with(browser, tmp_path, photo, name):
    whole = io.BytesIO()
    Image.fromarray(photo).save(whole, "PNG")
    png = bytearray(whole.getvalue())
    huge = bytearray(png[:33])
    huge[16:24] = bytes([0, 1, 0x86, 0xA0] * 2)  # 100000 by 100000
    huge[29:33] = struct.pack(">I", zlib.crc32(bytes(huge[12:29])))
    moving = png[:33] + chunk(b"acTL", bytes([0, 0, 0, 1, 0, 0, 0, 0])) + png[33:]
    others = {}
    for kind in ("JPEG", "TIFF"):
        coded = io.BytesIO()
        Image.fromarray(photo).save(coded, kind)
        others[kind] = coded.getvalue()
    jpeg = bytearray(others["JPEG"])
    jpeg[len(jpeg) // 2 : len(jpeg) // 2 + 40] = b"\xff\xd5" * 20
    contents = {"cut.tif": others["TIFF"][:100000], "damaged.jpg": jpeg, "broken.jpg": b"\xff\xd8\xff\xe0" + b"x" * 500, "cut.png": png[: len(png) // 2],
                "huge.png": huge + png[33:], "text.jpg": b"no picture", "empty.png": b"", "moving.png": moving}  # fmt: skip
    (tmp_path / name).write_bytes(bytes(contents.get(name, b"\xff\xd8\xff")))
    if name == "large.jpg":
        os.truncate(tmp_path / name, 501_000_000)
    said = browser.choose(tmp_path / name)
    assert said.startswith(name + ": ") and len(said) > len(name) + 12, said
    (tmp_path / "good.png").write_bytes(bytes(png))
    assert browser.choose(tmp_path / "good.png") == ""


def renderer_bytes(browser):
    """What the page's process holds of its own, after a collection."""
    browser.driver.execute_cdp_cmd("HeapProfiler.collectGarbage", {})
    parents, held = {}, {}
    for folder in Path("/proc").glob("[0-9]*"):
        try:
            parents[folder.name] = (folder / "stat").read_text().rsplit(")")[-1].split()[1]
            if "--type=renderer" in (folder / "cmdline").read_text():
                text = (folder / "smaps_rollup").read_text()
                held[folder.name] = int(re.search(r"Private_Dirty: +(\d+) kB", text)[1]) << 10
        except OSError:  # it has ended
            continue

    def ours(process):
        while process in parents and process != browser.driver_process:
            process = parents[process]
        return process == browser.driver_process

    return max(size for process, size in held.items() if ours(process))


def test_twenty_photos_in_a_row_take_no_more_memory(browser, tmp_path, photo):
    browser.set("quality", 0)
    engine, process = [], []
    wide = np.tile(photo, (2, 2, 1))
    for k in range(20):
        file = save(tmp_path / f"{k}.png", np.roll(wide, k, axis=1))
        assert browser.choose(file) == ""
        browser.denoise()
        engine.append(int(browser.data("memory")))
        process.append(renderer_bytes(browser))
    assert engine[-1] == engine[4]
    # Rises and falls with the collections; a photo kept each time would add ten.
    assert min(process[10:]) < min(process[:10]) + 8 * wide.nbytes


def test_keyboard_reaches_everything(browser, tmp_path, photo):
    assert browser.choose(save(tmp_path / "p.png", photo)) == ""
    browser.denoise()
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


layout_faults = """
    const faults = [], channel = (v) => (v /= 255) <= 0.03928 ? v / 12.92 : ((v + 0.055) / 1.055) ** 2.4;
    const numbers = (colour) => colour.match(/[\\d.]+/g).map(Number);
    const light = ([r, g, b]) => 0.2126 * channel(r) + 0.7152 * channel(g) + 0.0722 * channel(b);
    if (document.documentElement.scrollWidth > innerWidth) faults.push('scrolls sideways');
    for (const e of document.querySelectorAll('body *')) {
        const box = e.getBoundingClientRect(), style = getComputedStyle(e);
        if (box.width * box.height < 4 || e.matches(':disabled, option')) continue;
        const name = e.tagName + ' ' + (e.id || e.textContent.trim().slice(0, 20));
        if (box.left < 0 || box.right > innerWidth) faults.push(name + ' leaves the page');
        if (e.matches('button, .button, select, input[type=range]') && box.height < 16) faults.push(name + ' is too small');
        if (e.matches('button') && e.scrollWidth > e.clientWidth) faults.push(name + ' is cut off');
        if (![...e.childNodes].some((n) => n.nodeType === 3 && n.data.trim())) continue;
        let back = e;
        while (back && numbers(getComputedStyle(back).backgroundColor)[3] === 0) back = back.parentElement;
        const shades = [style.color, getComputedStyle(back).backgroundColor].map((c) => light(numbers(c)) + 0.05);
        const contrast = Math.max(...shades) / Math.min(...shades);
        if (contrast < 4.5) faults.push(name + ' has a contrast of ' + contrast.toFixed(1));
    }
    return faults;"""


@pytest.mark.parametrize("width,height", [(1200, 800), (820, 1100), (360, 740)])
@pytest.mark.parametrize("scheme", ["light", "dark"])
def test_layout(browser, tmp_path, photo, scheme, width, height):
    assert browser.choose(save(tmp_path / "a photo with a long name.png", photo)) == ""
    cdp = browser.driver.execute_cdp_cmd
    try:
        cdp("Emulation.setDeviceMetricsOverride", {
            "width": width, "height": height, "deviceScaleFactor": 1, "mobile": width < 500})  # fmt: skip
        cdp("Emulation.setEmulatedMedia", {
            "features": [{"name": "prefers-color-scheme", "value": scheme}]})  # fmt: skip
        browser.js("document.getElementById('error').textContent = 'photo.png: what is wrong with it'")
        time.sleep(0.3)  # for the new sizes
        assert browser.js(layout_faults) == []
        shot = browser.driver.get_screenshot_as_png()
        if "KT7_SHOTS" in os.environ:  # to be looked at
            name = f"{scheme}-{width}-{browser.data('ready')}.png"
            (Path(os.environ["KT7_SHOTS"]) / name).write_bytes(shot)
        corner = samples(shot)[2, 2, :3].mean()
        assert corner > 200 if scheme == "light" else corner < 60
    finally:
        browser.js("document.getElementById('error').textContent = ''")
        cdp("Emulation.clearDeviceMetricsOverride", {})
        cdp("Emulation.setEmulatedMedia", {"features": []})


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
