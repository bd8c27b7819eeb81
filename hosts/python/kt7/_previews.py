"""What an editor shows: screen buffers and views of one aspect of a preview."""

from __future__ import annotations

import ctypes
from typing import Any, Optional

import numpy as np

from . import _library
from ._photo import as_array

# View, name of the exported function, mode.
_views = {
    "rgb": ("qxRGBAutoLevel", 0),
    "red": ("qxRGBAutoLevel", 1),
    "green": ("qxRGBAutoLevel", 2),
    "blue": ("qxRGBAutoLevel", 3),
    "luma": ("qxRGB2YCbCrAutoLevel", 1),
    "cbcr": ("qxRGB2YCbCrAutoLevel", 2),
    "cb": ("qxRGB2YCbCrAutoLevel", 3),
    "cr": ("qxRGB2YCbCrAutoLevel", 4),
    "dbdr": ("qxRGB2GDbDrAutoLevel", 2),
    "db": ("qxRGB2GDbDrAutoLevel", 3),
    "dr": ("qxRGB2GDbDrAutoLevel", 4),
}


def _rgb(image: Any, bgr: bool) -> np.ndarray:
    array = as_array(image)
    if array.ndim != 3 or array.shape[2] != 3:
        raise ValueError(f"an image of shape {array.shape}: (height, width, 3) is taken")
    return array[:, :, ::-1] if bgr else array


def screen(
    image: Any,
    scale: float = 1.0,
    *,
    profile: Optional[bytes] = None,
    screen_profile: Optional[bytes] = None,
    bgr: bool = False,
) -> np.ndarray:
    """Makes a screen buffer of a photo, resized and taken from its colours to the screen's.

    image: (height, width, 3) of uint8, uint16 or floats in 0..1, or a Pillow image of mode RGB
    scale: above 0; resized by linear interpolation unless within 0.99..1.01
    profile, screen_profile: ICC profiles of RGB devices; one that is missing stands for sRGB, with
        none the colours stay as they are
    bgr: the image is blue, green, red

    Returns (int(height * scale), int(width * scale), 4) of uint8: blue, green, red, 255.
    Raises TypeError or ValueError for what can't be used, a profile included; MemoryError; Error."""
    array = _rgb(image, bgr)
    if array.dtype.name == "uint8":
        samples, code = np.ascontiguousarray(array), 1
    else:
        top = 65535 if array.dtype.name == "uint16" else 1
        fifteen = np.clip(np.nan_to_num(array.astype(np.float32)) * (32768 / top), 0, 32768)
        samples, code = np.ascontiguousarray(np.rint(fifteen).astype(np.uint16)), 3
    height, width = samples.shape[:2]
    factor = float(scale)
    fits = 0 < factor < 1e6
    out_width, out_height = (int(width * factor), int(height * factor)) if fits else (0, 0)
    if not (1 <= out_width < 2**27 and 1 <= out_height < 2**27):
        raise ValueError(f"scale {scale}: the screen buffer would have no or too many pixels")
    out = np.zeros((out_height, out_width, 4), np.uint8)
    host = _library.HostImage(code, samples.ctypes.data, samples.strides[0], width, height)
    place = (out.ctypes.data, out.strides[0], out_width, out_height, factor)
    library = _library.host_library()
    if profile is None and screen_profile is None:
        result = library.PSImage2QImage(host, *place)
    else:
        profiles = _library.IccProfiles(
            profile, len(profile or b""), screen_profile, len(screen_profile or b"")
        )
        result = library.PSImageICC2QImage(ctypes.byref(profiles), host, *place)
    if result == 1:
        return out
    if result == 0:
        raise ValueError("a colour profile that can't be used")
    if result in (-500, -1001):
        raise MemoryError("memory ran out")
    raise _library.Error(f"internal failure {result}")


def auto_level(image: Any, view: str = "rgb", target: int = 128, *, bgr: bool = False) -> np.ndarray:
    """Shows one aspect of a preview, brightened or stretched towards a target level.

    image: (height, width, 3) of uint8, or a Pillow image of mode RGB; not written
    view: "rgb", "red", "green", "blue", "luma", "cbcr", "cb", "cr", "dbdr", "db" or "dr"
    target: 0..255; 1 or less leaves the level of the view as it is
    bgr: the image, and the result, are blue, green, red

    Returns (height, width, 3) of uint8.
    Raises TypeError or ValueError for what can't be used."""
    array = _rgb(image, bgr)
    if array.dtype.name != "uint8":
        raise TypeError(f"a preview of {array.dtype.name}: uint8 is taken")
    if view not in _views:
        raise ValueError(f"view {view!r}: one of {', '.join(_views)} is taken")
    if not 0 <= target <= 255:
        raise ValueError(f"target {target}: 0 to 255 is taken")
    name, mode = _views[view]
    out = np.array(array, order="C")
    height, width = out.shape[:2]
    function = getattr(_library.host_library(), name)
    if function(out.ctypes.data, out.strides[0], width, height, mode, int(target)) != 1:
        raise _library.Error("the view could not be made")
    return out[:, :, ::-1] if bgr else out
