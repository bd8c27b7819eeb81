"""The two shared libraries: finding them, their records, their results as exceptions."""

from __future__ import annotations

import ctypes
import functools
import os
from ctypes import c_double, c_float, c_int32, c_int64, c_uint32, c_void_p
from pathlib import Path


class Error(RuntimeError):
    """A failure inside the library; what is wrong with an argument is a ValueError or TypeError."""


class Cancelled(Error):
    """The progress callable returned False; nothing was written."""


class LibraryNotFound(Error, ImportError):
    """libkt7photo or kt7lib is not installed where the loader or KT7_LIBRARY_PATH finds it."""


class Levels(ctypes.Structure):
    """Noise levels: standard deviations where 1 is full scale.

    luma_mid, luma_low, luma_high: brightness noise in the midtones, at black, at white;
    chroma_u, chroma_v: colour noise of (B - Y) * 0.492 and (R - Y) * 0.877;
    noise_grain: 0 for white noise, up to 2 for noise whose fine frequencies were lost.
    """

    _fields_ = [
        ("luma_mid", c_float),
        ("chroma_u", c_float),
        ("chroma_v", c_float),
        ("luma_low", c_float),
        ("luma_high", c_float),
        ("noise_grain", c_float),
    ]

    def __repr__(self) -> str:
        return "Levels(%s)" % ", ".join(f"{n}={getattr(self, n):.5g}" for n, _ in self._fields_)


class Plane(ctypes.Structure):
    _fields_ = [("data", c_void_p), ("pixel_bytes", c_int64), ("row_bytes", c_int64)]


class Record(ctypes.Structure):
    """A struct that starts with its own size."""

    def __init__(self, **values: object) -> None:
        super().__init__(size=ctypes.sizeof(self), **values)


class PhotoImage(Record):
    _fields_ = [
        ("size", c_uint32),
        ("sample_type", c_int32),
        ("colours", c_int32),
        ("alpha_kind", c_int32),
        ("width", c_int32),
        ("height", c_int32),
        ("planes", Plane * 3),
        ("alpha", Plane),
    ]


class PhotoNoise(Record):
    _fields_ = [
        ("size", c_uint32),
        ("estimate", Levels),
        ("levels", Levels),
        ("chroma_smooth", c_float),
        ("white", c_float),
        ("emptied", c_float),
        ("noise_like", c_float),
        ("feature_count", c_int32),
        ("features", c_float * 16),
        ("spectrum", c_float * 8 * 8 * 3),
        ("intensity", c_float * 6),
        ("gain", c_float * 6 * 3),
        ("luma_weight", c_float),
        ("colour_weight", c_float),
        ("rounds", c_int32),
    ]


class PhotoMask(Record):
    _fields_ = [("size", c_uint32), ("sample_type", c_int32), ("plane", Plane)]


Progress = ctypes.CFUNCTYPE(c_int32, c_double, c_void_p)


class PhotoSettings(Record):
    _fields_ = [
        ("size", c_uint32),
        ("quality", c_int32),
        ("strength", c_float),
        ("luma", c_float),
        ("colour", c_float),
        ("amount", c_float),
        ("luma_smooth", c_float),
        ("chroma_smooth", c_float),
        ("sharpen", c_float),
        ("grain", c_float),
        ("chroma_median", c_int32),
        ("threads", c_int32),
        ("noise", ctypes.POINTER(PhotoNoise)),
        ("mask", ctypes.POINTER(PhotoMask)),
        ("progress", Progress),
        ("user_data", c_void_p),
    ]


class HostImage(ctypes.Structure):
    _fields_ = [
        ("format", c_int32),
        ("data", c_void_p),
        ("row_bytes", c_int32),
        ("width", c_int32),
        ("height", c_int32),
    ]


class IccProfiles(ctypes.Structure):
    _fields_ = [
        ("source", ctypes.c_char_p),
        ("source_size", c_int32),
        ("target", ctypes.c_char_p),
        ("target_size", c_int32),
    ]


def _load(*names: str) -> ctypes.CDLL:
    folders = [Path(f) for f in os.environ.get("KT7_LIBRARY_PATH", "").split(os.pathsep) if f]
    tried = [str(folder / name) for folder in folders for name in names]
    for name in [path for path in tried if os.path.exists(path)] + list(names):
        try:
            return ctypes.CDLL(name)
        except OSError as error:
            reason = error
    raise LibraryNotFound(
        f"{names[0]} can't be loaded ({reason}); install it or set KT7_LIBRARY_PATH to its folder"
    )


@functools.lru_cache(maxsize=None)
def photo_library() -> ctypes.CDLL:
    """libkt7photo, loaded at the first call."""
    library = _load("libkt7photo.so.1", "libkt7photo.so")
    pointer = ctypes.POINTER
    library.kt7PhotoVersion.restype = c_uint32
    library.kt7PhotoResultText.restype = ctypes.c_char_p
    library.kt7PhotoFeatureName.restype = ctypes.c_char_p
    library.kt7PhotoDefaults.argtypes = [pointer(PhotoSettings)]
    library.kt7PhotoSetLevels.argtypes = [pointer(PhotoNoise), pointer(Levels)]
    library.kt7PhotoMeasure.argtypes = [
        pointer(PhotoImage),
        pointer(PhotoSettings),
        pointer(PhotoNoise),
    ]
    library.kt7PhotoDenoise.argtypes = [
        pointer(PhotoImage),
        pointer(PhotoImage),
        pointer(PhotoSettings),
    ]
    return library


@functools.lru_cache(maxsize=None)
def host_library() -> ctypes.CDLL:
    """kt7lib, loaded at the first call."""
    photo_library()  # brings the kt7lib that it was built with
    library = _load("kt7lib.so", "libkt7lib.so")
    library.PSImage2QImage.argtypes = [
        ctypes.POINTER(HostImage), c_void_p, c_int32, c_int32, c_int32, c_float,
    ]  # fmt: skip
    library.PSImageICC2QImage.argtypes = [
        ctypes.POINTER(IccProfiles), ctypes.POINTER(HostImage), c_void_p, c_int32, c_int32, c_int32,
        c_float,
    ]  # fmt: skip
    library.qxPreviewAutoLevel.argtypes = [c_void_p, c_int32, c_int32, c_int32, c_float]
    for name in ("qxRGBAutoLevel", "qxRGB2YCbCrAutoLevel", "qxRGB2GDbDrAutoLevel"):
        getattr(library, name).argtypes = [c_void_p] + [c_int32] * 5
    return library


def version() -> str:
    """Version of the kt7photo library that runs."""
    number = photo_library().kt7PhotoVersion()
    return f"{number >> 16}.{number >> 8 & 255}.{number & 255}"


DONE, CANCELLED, NO_MEMORY, BAD_SETTINGS, BAD_NOISE = 1, 0, -1, -6, -8


def check(result: int) -> None:
    """Raises what a result other than 'done' stands for."""
    if result == DONE:
        return
    text = photo_library().kt7PhotoResultText(result).decode()
    if result == CANCELLED:
        raise Cancelled(text)
    if result == NO_MEMORY:
        raise MemoryError(text)
    if -9 <= result <= -2:
        raise ValueError(text)
    raise Error(text)
