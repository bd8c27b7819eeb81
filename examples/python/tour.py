"""A tour of the Python package, cell by cell; it makes its own noisy picture.

Run it as a program, or open it in an editor that knows "# %%" cells.
"""

# %% A picture with noise
import numpy as np

import kt7

y, x = np.mgrid[0:400, 0:600] / 400.0
clean = np.stack([0.2 + 0.5 * x / 1.5, 0.3 + 0.4 * y, 0.5 + 0.3 * np.sin(9 * x * y)], axis=2)
clean[100:200, 100:250] *= 0.5
noisy = clean + np.random.default_rng(1).normal(0, 0.04, clean.shape)
photo = np.uint8(np.clip(noisy, 0, 1) * 255 + 0.5)


def psnr(picture):
    """Decibels, against the picture without noise."""
    top = 255 if picture.dtype == np.uint8 else 1
    return -10 * np.log10(np.mean((picture / top - clean) ** 2))


# %% Measure the noise, and take it out
noise = kt7.measure(photo)
print(noise)
result = kt7.denoise(photo)
print(f"{psnr(photo):.1f} dB before, {psnr(result):.1f} dB after")

# %% Less of it, another quality, only where a mask says so
softer = kt7.denoise(photo, strength=0.5)
quick = kt7.denoise(photo, quality="fast", noise=noise)
left_half = kt7.denoise(photo, mask=x < 0.75)
assert (left_half[:, 400:] == photo[:, 400:]).all()

# %% Floats keep what eight bits can't hold
precise = kt7.denoise(np.float32(noisy))
print(f"{psnr(precise):.1f} dB in floating point")

# %% Progress, and giving up
try:
    kt7.denoise(photo, progress=lambda done: done < 0.5)
except kt7.Cancelled:
    print("given up half way")

# %% What an editor shows
screen = kt7.screen(result, 0.5)
colour = kt7.auto_level(result, "cbcr")
print(screen.shape, colour.shape)
