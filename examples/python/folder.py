"""Denoises a folder of photos on one machine or many, through Dask.

    folder.py IN_FOLDER OUT_FOLDER                       two workers on this machine
    folder.py IN_FOLDER OUT_FOLDER --workers 8           eight
    folder.py IN_FOLDER OUT_FOLDER --scheduler HOST:8786 a cluster whose machines see the folders

Dask hands the photos out, repeats what failed and reports it; the others go on. A worker runs the
kt7 program, one photo at a time, so its memory is that of one photo.
"""

import argparse
import subprocess
import sys
from pathlib import Path

from distributed import Client, LocalCluster, as_completed

photos = {".jpg", ".jpeg", ".png", ".tif", ".tiff", ".webp", ".heic", ".avif", ".jxl"}


def denoise(kt7: str, source: str, target: str, threads: int) -> str:
    """Runs on a worker. Raises RuntimeError with what kt7 said when it fails."""
    command = [kt7, "denoise", "--quiet", "--force", f"--threads={threads}", "--", source, target]
    done = subprocess.run(command, capture_output=True, text=True)
    if done.returncode != 0:
        raise RuntimeError(done.stderr.strip() or f"kt7 ended with {done.returncode}")
    return target


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("source", type=Path)
    parser.add_argument("target", type=Path)
    parser.add_argument("--scheduler", help="address of a running scheduler")
    parser.add_argument("--workers", type=int, default=2, help="on this machine, without a scheduler")
    parser.add_argument("--threads", type=int, default=1, help="of each kt7")
    parser.add_argument("--kt7", default="kt7", help="the program")
    options = parser.parse_args()
    files = sorted(f for f in options.source.iterdir() if f.suffix.lower() in photos)
    options.target.mkdir(parents=True, exist_ok=True)

    cluster = options.scheduler or LocalCluster(
        n_workers=options.workers, threads_per_worker=1, dashboard_address=":0"
    )
    failed = 0
    with Client(cluster) as client:
        work = {
            client.submit(
                denoise, options.kt7, str(file), str(options.target / file.name), options.threads,
                pure=False, retries=2,
            ): file
            for file in files
        }  # fmt: skip
        for future in as_completed(work):
            error = future.exception()
            failed += error is not None
            print(f"{work[future].name}: {error or 'done'}", flush=True)
    if not options.scheduler:
        cluster.close()
    print(f"{len(files) - failed} done, {failed} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
