#!/usr/bin/env python3
"""bmp_pillow_check.py — Pillow reads back every BMP that the library writes.

Runs the image suite's save test with KR_IMAGE_OUT set, which makes it save each test picture
as <name>.bmp beside the pixels it must decode to (<name>.rgba), then decodes every file with
Pillow and compares. Exit status 77 (skipped) where Pillow is not installed (Debian:
python3-pil). Usage: bmp_pillow_check.py <test_image program> <scratch directory>
"""
import glob
import os
import shutil
import subprocess
import sys

try:
    from PIL import Image
except ImportError:
    print("Pillow is not installed: skipped")
    sys.exit(77)


def main():
    program, work = sys.argv[1], sys.argv[2]
    shutil.rmtree(work, ignore_errors=True)
    os.makedirs(work)
    env = dict(os.environ, KR_IMAGE_OUT=work)
    subprocess.run([program, "--gtest_filter=Bitmap.SavedBytesAreFixedAndLoadBack"], env=env,
                   check=True, stdout=subprocess.DEVNULL)
    names = sorted(glob.glob(os.path.join(work, "*.bmp")))
    if not names:
        sys.exit("no file was written")
    bad = 0
    for path in names:
        want = open(path[:-4] + ".rgba", "rb").read()
        got = Image.open(path).convert("RGBA").tobytes()
        if got != want:
            print("%s: Pillow decodes other pixels" % os.path.basename(path))
            bad += 1
    print("%d files, %d decoded differently" % (len(names), bad))
    sys.exit(1 if bad else 0)


if __name__ == "__main__":
    main()
