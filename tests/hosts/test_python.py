"""The Python package, as its users call it."""

import os
import pickle
import runpy
import signal
import threading

import numpy as np
import pytest
from PIL import Image

import kt7
from conftest import psnr, root

scales = {"uint8": 255, "uint16": 65535, "float16": 1, "float32": 1, "float64": 1}


def samples(noisy, dtype):
    scale = scales[dtype]
    held = noisy if scale == 1 else np.clip(noisy, 0, 1) * scale + 0.5
    return held.astype(dtype)


@pytest.mark.parametrize("dtype", scales)
def test_every_type_and_layout_is_denoised(truth, noisy, dtype):
    image = samples(noisy, dtype)
    scale = scales[dtype]
    before = psnr(image / scale, truth)
    alpha = image[:, :, :1] * 0 + image.max()
    wide = np.zeros((240, 640, 4), dtype)
    wide[:, ::2, 2::-1] = image
    layouts = {
        "rgb": (image, lambda a: a, {}),
        "rgba": (np.dstack([image, alpha]), lambda a: a[:, :, :3], {}),
        "bgr": (image[:, :, ::-1], lambda a: a[:, :, ::-1], {"bgr": True}),
        "upside down, every other pixel": (wide[::-1, ::2, :3], lambda a: a[::-1, :, ::-1], {"bgr": True}),
        "planes": (image.transpose(2, 0, 1).copy().transpose(1, 2, 0), lambda a: a, {}),
        "big-endian": (image.astype(image.dtype.newbyteorder(">")), lambda a: a, {}),
    }
    for name, (given, rgb, options) in layouts.items():
        kept = given.copy()
        result = kt7.denoise(given, "fast", **options)
        assert (result.dtype, result.shape) == (given.dtype, given.shape), name
        assert psnr(rgb(result) / scale, truth) > before + 5, name
        assert (given == kept).all(), name
        assert (kt7.denoise(given, strength=0, **options) == kept).all(), name


@pytest.mark.parametrize("mode", ["L", "LA", "RGB", "RGBA"])
def test_pillow_images_come_back_as_such(photo, mode):
    image = Image.fromarray(photo).convert(mode)
    image.info["comment"] = "kept"
    result = kt7.denoise(image, "fast")
    assert (result.mode, result.size, result.info["comment"]) == (mode, image.size, "kept")
    assert (np.asarray(result) != np.asarray(image)).mean() > 0.3


@pytest.mark.parametrize("name", ["cv2", "skimage.io", "skimage.util", "imageio"])
def test_what_other_libraries_hold_is_taken(tmp_path, photo, name):
    """Each library's own array goes in as it is and comes back as that library writes it."""
    library = pytest.importorskip(name)
    path = str(tmp_path / "photo.png")
    Image.fromarray(photo).save(path)
    if name == "cv2":
        library.imwrite(path, kt7.denoise(library.imread(path), "fast", bgr=True))
        result = np.asarray(Image.open(path)) / 255.0
    elif name == "skimage.util":
        result = kt7.denoise(library.img_as_float(photo), "fast")
        assert result.dtype == np.float64
    else:
        result = kt7.denoise(library.imread(path), "fast") / 255.0
    assert psnr(result, kt7.denoise(photo, "fast") / 255.0) > 45


def test_package_and_library_are_of_one_version():
    assert kt7.__version__ == kt7.version()


def test_pillow_of_16_bits(noisy):
    grey = np.uint16(np.clip(noisy[:, :, 1], 0, 1) * 65535)
    result = kt7.denoise(Image.fromarray(grey), "fast")
    assert result.mode == "I;16"
    assert psnr(np.asarray(result) / 65535, kt7.denoise(grey, "fast") / 65535.0) > 45


def test_masks_and_amount_keep_pixels(photo):
    mask = np.zeros(photo.shape[:2], bool)
    mask[:, 160:] = True
    for given in (mask, np.uint8(mask) * 255, np.uint16(mask) * 65535, np.float64(mask)):
        result = kt7.denoise(photo, "fast", mask=given)
        assert (result[:, :160] == photo[:, :160]).all()
        assert (result[:, 160:] != photo[:, 160:]).mean() > 0.5
    assert (kt7.denoise(photo, "fast", amount=0) == photo).all()


def test_noise_can_be_looked_at_kept_and_handed_back(photo, truth):
    noise = kt7.measure(photo)
    assert noise.levels.luma_mid > 0.005 and noise.spectrum.shape == (3, 8, 8)
    assert noise.features and all(np.isfinite(v) for v in noise.features.values())
    again = pickle.loads(pickle.dumps(noise))
    assert (again.spectrum == noise.spectrum).all() and again.features == noise.features
    with_noise = psnr(kt7.denoise(photo, noise=again) / 255, truth)
    assert abs(with_noise - psnr(kt7.denoise(photo) / 255, truth)) < 0.3
    none = again.with_levels(kt7.Levels(0, 0, 0, 0, 0, 0))
    assert np.abs(kt7.denoise(photo, noise=none).astype(int) - photo).max() <= 1


@pytest.mark.parametrize(
    "error, change",
    [
        (TypeError, dict(image=np.zeros((9, 9, 3), np.int32))),
        (TypeError, dict(mask=np.zeros((240, 320), complex))),
        (TypeError, dict(noise=0.02)),
        (ValueError, dict(image=np.zeros((9, 9, 5), np.uint8))),
        (ValueError, dict(image=np.zeros((0, 9, 3), np.uint8))),
        (ValueError, dict(image=Image.new("P", (9, 9)))),
        (ValueError, dict(mask=np.zeros((2, 2)))),
        (ValueError, dict(mask=Image.new("P", (320, 240)))),
        (ValueError, dict(threads=2**32 + 1)),
        (ValueError, dict(quality="finest")),
        (ValueError, dict(strength=-1)),
        (ValueError, dict(strength=float("nan"))),
        (ValueError, dict(amount=1.5)),
        (ValueError, dict(alpha="none", image=np.zeros((9, 9, 4), np.uint8))),
    ],
)
def test_bad_arguments_are_refused(photo, error, change):
    with pytest.raises(error):
        kt7.denoise(**{"image": photo, **change})


def test_cancel_errors_and_interrupts_leave_the_call(photo):
    seen = []
    kt7.denoise(photo, progress=seen.append)
    assert seen == sorted(seen) and seen[-1] == 1
    with pytest.raises(kt7.Cancelled):
        kt7.denoise(photo, progress=lambda done: done < 0.3)
    with pytest.raises(ZeroDivisionError):
        kt7.denoise(photo, progress=lambda done: 1 / 0)
    with pytest.raises(KeyboardInterrupt):
        kt7.denoise(photo, progress=lambda done: os.kill(os.getpid(), signal.SIGINT))
    assert signal.getsignal(signal.SIGINT) is signal.default_int_handler


def test_threads_of_the_host_may_call_at_once(photo, truth):
    results = []
    threads = [
        threading.Thread(target=lambda: results.append(kt7.denoise(photo, "fast"))) for _ in range(4)
    ]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert [psnr(r / 255, truth) > psnr(photo / 255, truth) + 5 for r in results] == [True] * 4
    assert np.float32(1e-40) * np.float32(1) != 0, "the library changed the floating-point mode"


def test_previews(photo):
    screen = kt7.screen(photo)
    assert (screen[:, :, 2::-1] == photo).all() and (screen[:, :, 3] == 255).all()
    assert kt7.screen(np.float32(photo / 255), 0.5).shape == (120, 160, 4)
    assert (kt7.auto_level(photo, "red", 0) == photo[:, :, :1]).all()
    assert (kt7.auto_level(photo[:, :, ::-1], "red", 0, bgr=True) == photo[:, :, :1]).all()
    for bad in (dict(scale=0), dict(scale=np.inf), dict(profile=b"no profile")):
        with pytest.raises(ValueError):
            kt7.screen(photo, **bad)
    with pytest.raises(ValueError):
        kt7.auto_level(photo, "infrared")


def test_the_tour_runs():
    result = runpy.run_path(str(root / "examples/python/tour.py"))
    assert result["psnr"](result["result"]) > result["psnr"](result["photo"]) + 5
