#!/usr/bin/env python3
"""bmp_golden.py — regenerates the bitmap corpus and the colour table of the image tests.

Writes tests/data/bmp/*.bmp (made with Pillow, netpbm's ppmtobmp, and byte-built variants for
what neither writes: top-down rows, 16 bits, bit masks, V4/V5 headers, short palettes), decodes
every file with Pillow, netpbm's bmptopnm and stb_image, and keeps the agreed RGBA pixels as
tests/data/bmp/<name>.rgba beside an index (tests/data/bmp/index.txt). The decoders disagree
where the format is loose; each such file names the decoder whose reading the library follows,
and the index lists every decoder that gave the same pixels. Also writes
tests/data/colour_golden.txt, conversions by Python's colorsys on a seeded grid.

Needs Pillow (Debian: python3-pil), netpbm and stb_image (libstb-dev); the library and its
tests never do. Run: python3 tools/bmp_golden.py
"""
import colorsys
import os
import random
import struct
import subprocess
import sys
import tempfile

from PIL import Image

HERE = os.path.dirname(os.path.abspath(__file__))
DATA = os.path.join(HERE, "..", "tests", "data")
OUT = os.path.join(DATA, "bmp")
WIDTHS = (1, 2, 3, 5, 7)
HEIGHT = 3


def pattern(w, h, seed):
    rnd = random.Random(seed)
    return [[(rnd.randrange(256), rnd.randrange(256), rnd.randrange(256), rnd.randrange(256))
             for _ in range(w)] for _ in range(h)]


# --- the writers ---

def pillow_bmp(mode, w, h, seed):
    px = pattern(w, h, seed)
    img = Image.new("RGBA", (w, h))
    img.putdata([p for row in px for p in row])
    if mode == "RGBA":
        out = img
    elif mode == "P":
        out = img.convert("RGB").quantize(colors=200)
    else:
        out = img.convert(mode)
    path = os.path.join(tempfile.gettempdir(), "krbmp.bmp")
    out.save(path, "BMP")
    return open(path, "rb").read()


def netpbm_bmp(bpp, w, h, seed):
    rnd = random.Random(seed)
    colours = [(rnd.randrange(256), rnd.randrange(256), rnd.randrange(256))
               for _ in range(2 if bpp == 1 else 12)]
    ppm = b"P6 %d %d 255\n" % (w, h) + b"".join(
        bytes(rnd.choice(colours)) for _ in range(w * h))
    return subprocess.run(["ppmtobmp", "-windows", "-bpp=%d" % bpp], input=ppm,
                          capture_output=True, check=True).stdout


def bmp(width, height, bpp, rows, compression=0, header=40, masks=(), palette=(),
        clr_used=None, off_extra=0):
    """A BMP from packed rows (bottom-up order when height > 0), padded here."""
    stride = (width * bpp + 31) // 32 * 4
    pixels = b"".join(r + b"\0" * (stride - len(r)) for r in rows)
    mask_bytes = b"".join(struct.pack("<I", m) for m in masks)
    info = struct.pack("<IiiHHIIiiII", header, width, height, 1, bpp, compression,
                       len(pixels), 2835, 2835,
                       len(palette) if clr_used is None else clr_used, 0)
    if header == 40:
        info += mask_bytes
    else:
        info += (mask_bytes + b"\0" * header)[:header - 40]
        if header >= 108:
            info = info[:56] + struct.pack("<I", 0x73524742) + info[60:]
    pal = b"".join(struct.pack("<BBBB", b, g, r, 0) for r, g, b in palette)
    off = 14 + len(info) + len(pal) + off_extra
    head = b"BM" + struct.pack("<IHHI", off + len(pixels), 0, 0, off)
    return head + info + pal + b"\0" * off_extra + pixels


def masked(width, height, bpp, masks, seed, compression=3, header=40, alpha_zero=False):
    rnd = random.Random(seed)
    fmt = "<H" if bpp == 16 else "<I"
    allbits = sum(masks)
    rows = []
    for _ in range(height):
        vals = [rnd.getrandbits(bpp) & allbits for _ in range(width)]
        if alpha_zero and len(masks) > 3:
            vals = [v & ~masks[3] for v in vals]
        rows.append(b"".join(struct.pack(fmt, v) for v in vals))
    return bmp(width, height, bpp, rows, compression, header, masks if compression else ())


def top_down(data):
    """The same image with its rows stored first row first and a negative height."""
    off, = struct.unpack_from("<I", data, 10)
    w, h = struct.unpack_from("<ii", data, 18)
    bpp, = struct.unpack_from("<H", data, 28)
    stride = (w * bpp + 31) // 32 * 4
    rows = [data[off + k * stride:off + (k + 1) * stride] for k in range(h)]
    head = bytearray(data[:off])
    struct.pack_into("<i", head, 22, -h)
    return bytes(head) + b"".join(reversed(rows))


def corpus():
    files = {}  # name -> (bytes, reference decoder, tolerance)
    for w in WIDTHS:
        for kind, mode in (("p1", "1"), ("p8", "P"), ("p24", "RGB"), ("p32", "RGBA")):
            files["%s_w%d" % (kind, w)] = (pillow_bmp(mode, w, HEIGHT, w * 10 + len(kind)),
                                           "pil", 0)
        for bpp in (1, 4, 8):
            files["n%d_w%d" % (bpp, w)] = (netpbm_bmp(bpp, w, HEIGHT, w * 100 + bpp), "pil", 0)
        files["m555_w%d" % w] = (masked(w, HEIGHT, 16, (0x7C00, 0x3E0, 0x1F), w, 0), "stb", 1)
        files["m565_w%d" % w] = (masked(w, HEIGHT, 16, (0xF800, 0x7E0, 0x1F), w), "stb", 1)
    files["v4_bgra"] = (masked(5, 4, 32, (0xFF0000, 0xFF00, 0xFF, 0xFF000000), 7, 3, 108),
                        "pil", 0)
    files["v5_rgba_order"] = (masked(6, 3, 32, (0xFF, 0xFF00, 0xFF0000, 0xFF000000), 8, 3, 124),
                              "stb", 0)
    files["v5_alpha_zero"] = (masked(4, 3, 32, (0xFF0000, 0xFF00, 0xFF, 0xFF000000), 9, 3, 124,
                                     alpha_zero=True), "stb", 0)
    files["m444_alpha4"] = (masked(5, 2, 16, (0xF00, 0xF0, 0xF, 0xF000), 12, 3, 108), "stb", 1)
    # A 4-entry palette that clrUsed says has 256 entries: the rest would be pixel data.
    pal4 = [(255, 0, 0), (0, 255, 0), (0, 0, 255), (255, 255, 0)]
    rows = [bytes([(x + y) % 4 for x in range(5)]) for y in range(3)]
    files["pal_overlap"] = (bmp(5, 3, 8, rows, palette=pal4, clr_used=256), "stb", 0)
    # Indices past a 2-entry palette read as opaque black.
    files["pal_short"] = (bmp(5, 3, 8, rows, palette=pal4[:2]), "stb", 0)
    # Pixel data that starts a few bytes after the palette.
    files["gap_offbits"] = (bmp(5, 3, 8, rows, palette=pal4, off_extra=6), "pil", 0)
    for name in list(files):
        data, ref, tol = files[name]
        if struct.unpack_from("<I", data, 30)[0] in (0, 3, 6):
            files[name + "_td"] = (top_down(data), ref, tol)
    return files


# --- the decoders ---

def decode_pil(path):
    try:
        img = Image.open(path)
        img.load()
        return img.size, img.convert("RGBA").tobytes()
    except Exception:  # a decoder that refuses the file simply does not vote
        return None


def decode_stb(path, stb):
    r = subprocess.run([stb, path], capture_output=True)
    if r.returncode != 0:
        return None
    head, _, body = r.stdout.partition(b"\n")
    w, h = map(int, head.split())
    return (w, h), body


def decode_pnm(path):
    r = subprocess.run(["bmptopnm", path], capture_output=True)
    if r.returncode != 0:
        return None
    data = r.stdout
    magic = data[:2]
    count = 3 if magic == b"P4" else 4  # a PBM has no maxval
    tokens, i = [], 2
    while len(tokens) < count - 1:
        while data[i:i + 1].isspace():
            i += 1
        j = i
        while j < len(data) and not data[j:j + 1].isspace():
            j += 1
        tokens.append(int(data[i:j]))
        i = j
    i += 1
    w, h = tokens[0], tokens[1]
    body = data[i:]
    out = bytearray()
    if magic == b"P4":
        stride = (w + 7) // 8
        for y in range(h):
            for x in range(w):
                v = 0 if body[y * stride + x // 8] >> (7 - x % 8) & 1 else 255
                out += bytes((v, v, v, 255))
        return (w, h), bytes(out)
    maxval = tokens[2]
    chans = 3 if magic == b"P6" else 1
    for k in range(w * h):
        px = body[k * chans:(k + 1) * chans] * (3 // chans)
        out += bytes(round(v * 255 / maxval) for v in px) + b"\xff"
    return (w, h), bytes(out)


def same(a, b, tol, alpha=True):
    if a is None or b is None or a[0] != b[0]:
        return False
    for k in range(len(a[1])):
        if (alpha or k % 4 != 3) and abs(a[1][k] - b[1][k]) > tol:
            return False
    return True


def colour_table(path):
    rnd = random.Random(1138)
    grid = [0.0, 0.25, 0.5, 0.75, 1.0]
    inputs = [(r, g, b) for r in grid for g in grid for b in grid]
    inputs += [(rnd.random(), rnd.random(), rnd.random()) for _ in range(75)]
    with open(path, "w") as f:
        f.write("# colorsys (Python %d.%d) on a seeded grid: tools/bmp_golden.py\n"
                % sys.version_info[:2])
        f.write("# from: rgb r g b yiq y i q hsv h s v hls h l s\n")
        f.write("# to: kind x y z r g b (yiq, hsv or hls to rgb)\n")
        for r, g, b in inputs:
            vals = (r, g, b) + colorsys.rgb_to_yiq(r, g, b) + colorsys.rgb_to_hsv(r, g, b) + \
                colorsys.rgb_to_hls(r, g, b)
            f.write("from " + " ".join(repr(v) for v in vals) + "\n")
        for x, y, z in inputs:
            f.write("yiq %r %r %r %r %r %r\n" % ((x, y - 0.5, z - 0.5) + colorsys.yiq_to_rgb(
                x, y - 0.5, z - 0.5)))
            f.write("hsv %r %r %r %r %r %r\n" % ((x, y, z) + colorsys.hsv_to_rgb(x, y, z)))
            f.write("hls %r %r %r %r %r %r\n" % ((x, y, z) + colorsys.hls_to_rgb(x, y, z)))


def main():
    os.makedirs(OUT, exist_ok=True)
    work = tempfile.mkdtemp()
    stb = os.path.join(work, "stb_decode")
    subprocess.run([os.environ.get("CC", "cc"), "-O2", os.path.join(HERE, "bmp_stb_decode.c"),
                    "-o", stb, "-lm"], check=True)
    index = ["# name width height tolerance reference agreeing-decoders (tools/bmp_golden.py)"]
    for name, (data, ref, tol) in sorted(corpus().items()):
        path = os.path.join(OUT, name + ".bmp")
        with open(path, "wb") as f:
            f.write(data)
        got = {"pil": decode_pil(path), "stb": decode_stb(path, stb), "pnm": decode_pnm(path)}
        golden = got[ref]
        if golden is None:
            print("note: %s: left out, the reference decoder %s refuses it" % (name, ref))
            os.remove(path)
            continue
        agree = [d for d in ("pil", "stb", "pnm") if same(got[d], golden, tol, d != "pnm")]
        if len(agree) < 2:
            print("note: %s: only %s agree" % (name, agree))
        with open(os.path.join(OUT, name + ".rgba"), "wb") as f:
            f.write(golden[1])
        index.append("%s %d %d %d %s %s" % (name, golden[0][0], golden[0][1], tol, ref,
                                            ",".join(agree)))
    with open(os.path.join(OUT, "index.txt"), "w") as f:
        f.write("\n".join(index) + "\n")
    colour_table(os.path.join(DATA, "colour_golden.txt"))
    print("wrote %d bitmaps to %s" % (len(index) - 1, OUT))


if __name__ == "__main__":
    main()
