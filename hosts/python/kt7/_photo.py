"""Measuring and denoising: arrays in, arrays out."""

from __future__ import annotations

import contextlib
import ctypes
import signal
import threading
from typing import Any, Callable, Iterator, Mapping, Optional

import numpy as np

from . import _library
from ._library import Levels

_sample_types = {"uint8": 1, "uint16": 2, "float16": 4, "float32": 5}
_qualities = {"fast": 0, "full": 1, "best": 2}
_alpha_kinds = {"straight": 1, "premultiplied": 2}


def as_array(image: Any) -> np.ndarray:
    """An image as a NumPy array: an array as it is, a Pillow image as a copy."""
    if is_pillow(image) and image.mode not in ("L", "LA", "RGB", "RGBA", "I;16"):
        raise ValueError(f"Pillow image of mode {image.mode}: convert it to RGB, RGBA or L first")
    array = np.asarray(image)
    if array.dtype.name not in (*_sample_types, "float64"):
        raise TypeError(
            f"an image of {array.dtype.name}: uint8, uint16, float16, float32 or float64 are taken"
        )
    if array.ndim not in (2, 3) or array.ndim == 3 and not 1 <= array.shape[2] <= 4:
        raise ValueError(
            f"an image of shape {array.shape}: (height, width) or (height, width, 1 to 4) is taken"
        )
    if 0 in array.shape:
        raise ValueError(f"an empty image of shape {array.shape}")
    return array


def is_pillow(image: Any) -> bool:
    return type(image).__module__.partition(".")[0] == "PIL" and hasattr(image, "getbands")


def _in_library_samples(array: np.ndarray) -> np.ndarray:
    """Native byte order, no double precision, every sample at an address of its own."""
    wanted = np.dtype("float32" if array.dtype.name == "float64" else array.dtype.name)
    if array.dtype == wanted and 0 not in array.strides:
        return array
    return np.array(array, dtype=wanted, order="C")


def _plane(array: np.ndarray) -> _library.Plane:
    """(height, width) samples with whatever steps they have."""
    return _library.Plane(array.__array_interface__["data"][0], array.strides[1], array.strides[0])


def _record(array: np.ndarray, bgr: bool, alpha: str) -> _library.PhotoImage:
    height, width = array.shape[:2]
    channels = [array] if array.ndim == 2 else [array[:, :, c] for c in range(array.shape[2])]
    colours = 3 if len(channels) > 2 else 1
    has_alpha = len(channels) > colours
    order = (2, 1, 0) if bgr and colours == 3 else range(colours)
    record = _library.PhotoImage(
        sample_type=_sample_types[array.dtype.name],
        colours=colours,
        alpha_kind=_choice("alpha", alpha, _alpha_kinds) if has_alpha else 0,
        width=width,
        height=height,
    )
    for place, channel in enumerate(order):
        record.planes[place] = _plane(channels[channel])
    if has_alpha:
        record.alpha = _plane(channels[-1])
    return record


def _set(settings: _library.PhotoSettings, name: str, value: Any) -> None:
    setattr(settings, name, value)
    if isinstance(getattr(settings, name), int) and getattr(settings, name) != value:
        raise ValueError(f"{name} {value}: out of its range")  # ctypes keeps the lower bits only


def _choice(name: str, value: str, choices: Mapping[str, int]) -> int:
    if value not in choices:
        raise ValueError(f"{name} {value!r}: one of {', '.join(choices)} is taken")
    return choices[value]


class _Reports:
    """The progress callable as the library calls it; what leaves it cancels, and is raised after the
    call. There is one even without a callable, since it is where Ctrl-C is noticed."""

    def __init__(self, progress: Optional[Callable[[float], Any]]) -> None:
        self._raised: Optional[BaseException] = None

        def report(done: float, _: Any) -> int:
            try:
                go_on = progress is None or progress(done) is not False
            except BaseException as error:
                self._raised = error
            return int(self._raised is None and go_on)

        self.function = _library.Progress(report)

    def run(self, function: Any, *arguments: Any) -> None:
        """Calls the library and raises what the result, the callable or Ctrl-C stand for."""
        with self._interruptible():
            result = function(*arguments)
        if self._raised is not None:
            raise self._raised
        _library.check(result)

    @contextlib.contextmanager
    def _interruptible(self) -> Iterator[None]:
        """Python would raise KeyboardInterrupt wherever it next runs, which may be at the door of the
        callback, where it is lost; so it is noted here, unless the host handles it in its own way."""
        if (
            threading.current_thread() is not threading.main_thread()
            or signal.getsignal(signal.SIGINT) is not signal.default_int_handler
        ):
            yield
            return

        def note(*_: Any) -> None:
            self._raised = KeyboardInterrupt()

        signal.signal(signal.SIGINT, note)
        try:
            yield
        finally:
            signal.signal(signal.SIGINT, signal.default_int_handler)


class Noise:
    """The noise of a photo, to look at or to hand back to denoise(). Powers are squares of standard
    deviations on the scale 0..255, whatever the photo's type.

    levels: the noise levels that the photo is denoised with at strength 1, a Levels
    estimate: the noise levels as first read off, a Levels
    white, emptied, noise_like: 0..1, how white the noise is; how far an encoder has emptied the fine
        colour; how certain it is that this is noise and not texture
    features: dict of the numbers that the rule went by
    spectrum: (3, 8, 8) float32, power of the noise per coefficient of an orthonormal 8x8 DCT, in the
        planes (R+G+B)/sqrt 3, (R-B)/sqrt 2, (R-2G+B)/sqrt 6
    intensity: (6,) float32, mean brightness 0..255 of the bands of gain
    gain: (3, 6) float32, the power at that brightness over the spectrum
    """

    def __init__(self, record: _library.PhotoNoise) -> None:
        self._record = record

    @property
    def levels(self) -> Levels:
        return Levels.from_buffer_copy(self._record.levels)

    @property
    def estimate(self) -> Levels:
        return Levels.from_buffer_copy(self._record.estimate)

    @property
    def white(self) -> float:
        return self._record.white

    @property
    def emptied(self) -> float:
        return self._record.emptied

    @property
    def noise_like(self) -> float:
        return self._record.noise_like

    @property
    def features(self) -> dict[str, float]:
        name = _library.photo_library().kt7PhotoFeatureName
        count = self._record.feature_count
        return {name(k).decode(): self._record.features[k] for k in range(count)}

    @property
    def spectrum(self) -> np.ndarray:
        return np.array(self._record.spectrum)

    @property
    def intensity(self) -> np.ndarray:
        return np.array(self._record.intensity)

    @property
    def gain(self) -> np.ndarray:
        return np.array(self._record.gain)

    def with_levels(self, levels: Levels) -> Noise:
        """The same noise at other levels; the spectrum follows.

        Raises ValueError for a level that is negative or not finite, TypeError for other than Levels."""
        if not isinstance(levels, Levels):
            raise TypeError(f"levels of type {type(levels).__name__}: Levels are taken")
        record = _library.PhotoNoise.from_buffer_copy(self._record)
        _library.check(_library.photo_library().kt7PhotoSetLevels(record, levels))
        return Noise(record)

    def __reduce__(self) -> tuple:
        return _noise_of, (bytes(self._record),)

    def __repr__(self) -> str:
        return f"Noise({self.levels!r}, white={self.white:.2f}, noise_like={self.noise_like:.2f})"


def _noise_of(block: bytes) -> Noise:
    return Noise(_library.PhotoNoise.from_buffer_copy(block))


def measure(
    image: Any,
    *,
    bgr: bool = False,
    alpha: str = "straight",
    threads: int = 0,
    progress: Optional[Callable[[float], Any]] = None,
) -> Noise:
    """Measures the noise of a photo.

    image, bgr, alpha, threads, progress: as for denoise(); the image is not written.
    Raises what denoise() raises."""
    samples = _in_library_samples(as_array(image))
    reports = _Reports(progress)
    settings = _library.PhotoSettings()
    library = _library.photo_library()
    library.kt7PhotoDefaults(settings)
    _set(settings, "threads", threads)
    settings.progress = reports.function
    noise = _library.PhotoNoise()
    record = _record(samples, bgr, alpha)
    reports.run(library.kt7PhotoMeasure, record, settings, noise)
    return Noise(noise)


def _mask_record(mask: Any, shape: tuple[int, ...]) -> tuple[_library.PhotoMask, np.ndarray]:
    if is_pillow(mask) and mask.mode not in ("1", "L", "I;16", "F"):
        raise ValueError(f"a mask of Pillow mode {mask.mode}: convert it to L first")
    array = np.asarray(mask)
    if array.dtype == bool:
        array = array.astype(np.uint8) * np.uint8(255)
    if array.dtype.name not in (*_sample_types, "float64"):
        raise TypeError(f"a mask of {array.dtype.name}: bool, uint8, uint16 or floats are taken")
    if array.shape != shape[:2]:
        raise ValueError(f"a mask of shape {array.shape} for an image of shape {shape}")
    samples = _in_library_samples(array)
    kind = _sample_types[samples.dtype.name]
    return _library.PhotoMask(sample_type=kind, plane=_plane(samples)), samples


def denoise(
    image: Any,
    quality: str = "best",
    strength: float = 1.0,
    *,
    luma: float = 1.0,
    colour: float = 1.0,
    amount: float = 1.0,
    mask: Any = None,
    noise: Optional[Noise] = None,
    luma_smooth: float = 0.0,
    chroma_smooth: float = 0.0,
    sharpen: float = 0.0,
    grain: float = 0.0,
    chroma_median: int = 0,
    alpha: str = "straight",
    bgr: bool = False,
    threads: int = 0,
    progress: Optional[Callable[[float], Any]] = None,
) -> Any:
    """Takes the noise out of a photo and returns the result; the image itself is not written.

    image: (height, width) grey, or (height, width, channels) with 1 (grey), 2 (grey, alpha), 3 (RGB)
        or 4 (RGB, alpha) channels, of uint8 (0..255), uint16 (0..65535), float16, float32 or float64
        (0..1; values beyond are kept); any strides. Or a Pillow image of mode L, LA, RGB, RGBA or
        I;16.
    quality: "fast", "full" (a more thorough search) or "best" (then a filter fitted to the noise)
    strength: how much of the noise to take out, 0..100; 0 returns the same pixels
    luma, colour: strengths for brightness and colour noise on top of that, 0..100
    amount: how much of the result to use, 0..1
    mask: (height, width) of bool, uint8, uint16 or floats (0..1), or a Pillow image of mode 1, L, I;16
        or F: where to denoise; None everywhere
    noise: what measure() returned, of this photo or another of the same camera and setting
    luma_smooth, chroma_smooth: edge-preserving smoothing, 0 off, usually 0.01 to 0.05
    sharpen: radius of the blur to take out in pixels, less 0.3; 0 off, usually 0.2 to 1
    grain: standard deviation of grain to add, where 1 is full scale; 0 off
    chroma_median: 1 or 2 runs a median over colour first
    alpha: "straight" or "premultiplied", for images with alpha, which stays as it is
    bgr: channels are blue, green, red, as OpenCV has them
    threads: 0 for up to 4
    progress: called with the part that is done, 0..1, on the calling thread; it cancels by returning
        False. What it raises cancels too and is raised by denoise(), as is KeyboardInterrupt.

    Returns an array of the image's shape and dtype, or a Pillow image of its mode.
    Raises TypeError for a dtype or a type of argument that is not taken, ValueError for any other
    argument that can't be used, Cancelled, MemoryError, or Error for an internal failure."""
    array = as_array(image)
    samples = _in_library_samples(array)
    result = np.empty(samples.shape, samples.dtype)
    reports = _Reports(progress)
    library = _library.photo_library()
    settings = _library.PhotoSettings()
    library.kt7PhotoDefaults(settings)
    settings.quality = _choice("quality", quality, _qualities)
    for name, value in (
        ("strength", strength),
        ("luma", luma),
        ("colour", colour),
        ("amount", amount),
        ("luma_smooth", luma_smooth),
        ("chroma_smooth", chroma_smooth),
        ("sharpen", sharpen),
        ("grain", grain),
        ("chroma_median", chroma_median),
        ("threads", threads),
    ):
        _set(settings, name, value)
    if noise is not None:
        if not isinstance(noise, Noise):
            raise TypeError(f"noise of type {type(noise).__name__}: what measure() returned is taken")
        settings.noise = ctypes.pointer(noise._record)
    if mask is not None:
        mask_record, _kept = _mask_record(mask, samples.shape)
        settings.mask = ctypes.pointer(mask_record)
    settings.progress = reports.function
    source, target = _record(samples, bgr, alpha), _record(result, bgr, alpha)
    reports.run(library.kt7PhotoDenoise, source, target, settings)
    if result.dtype.name != array.dtype.name:  # double precision stays where nothing was changed
        result = np.where(result == samples, array, result)
    result = result.astype(array.dtype, copy=False)
    if not is_pillow(image):
        return result
    out = image.copy()
    out.frombytes(result.tobytes())
    return out
