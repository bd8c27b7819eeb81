"""Takes the noise out of photographs.

    import kt7
    clean = kt7.denoise(photo)              # uint8, uint16 or float array, grey to RGBA
    noise = kt7.measure(photo)              # what the noise is like
    clean = kt7.denoise(other, noise=noise) # the same for a photo of the same camera and setting

Arrays are (height, width) or (height, width, channels) as NumPy, scikit-image, imageio and OpenCV
(``bgr=True``) hold them; Pillow images are taken as well, and given back as Pillow images. All
functions may be called from several threads at once. Values are meant as the eye sees them (sRGB or
another gamma), not linear light.
"""

from ._library import Cancelled, Error, LibraryNotFound, version
from ._photo import Levels, Noise, denoise, measure
from ._previews import auto_level, screen

__version__ = "0.1.0"
__all__ = [
    "Cancelled",
    "Error",
    "Levels",
    "LibraryNotFound",
    "Noise",
    "auto_level",
    "denoise",
    "measure",
    "screen",
    "version",
]
