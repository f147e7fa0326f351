#!/usr/bin/env python3
"""Checks the program's bitmaps: converts every art source with mkbmp.py
into a scratch directory and reads the .bmp files back.

usage: check_bitmaps.py ART_DIR MKBMP_PY
"""

import os
import struct
import subprocess
import sys
import tempfile

MAGENTA = 0xFF00FF

# name, width, height, bits per pixel: the drawing code depends on these.
SIZES = [
    ("menubar",    32, 16, 4),
    ("background", 240, 20, 8),
    ("alarm",      8,  8,  8),
    ("notes",      9,  8,  4),
    ("caticons",   351, 9, 8),
    ("yearprev",   6,  11, 4),
    ("yearnext",   6,  11, 4),
    ("badge",      5,  5,  4),
    ("dayheader",  232, 18, 8),
    ("popuptitle", 32, 14, 4),
    ("delete",     24, 24, 4),
    ("settings",   16, 16, 4),   # the settings sheet's icon, also made as an .ico
]

ICON_COUNT = 39
ICON_SIZE = 9

failures = []
passed = 0


def check(ok, message):
    global passed
    if ok:
        passed += 1
    else:
        failures.append(message)
    return ok


def convert(mkbmp, src, out, *extra):
    return subprocess.run([sys.executable, mkbmp, *extra, src, out],
                          capture_output=True, text=True)


def read_bmp(path):
    """Returns (width, height, bpp, colours used, rows of 0xRRGGBB top row first)
    after checking the headers are self-consistent; raises ValueError."""
    with open(path, "rb") as f:
        data = f.read()
    if len(data) < 54 or data[:2] != b"BM":
        raise ValueError("not a BMP file")
    file_size, _, _, offset = struct.unpack_from("<IHHI", data, 2)
    (size, width, height, planes, bpp, compression, image_size,
     _, _, used, _) = struct.unpack_from("<IiiHHIIiiII", data, 14)
    if file_size != len(data):
        raise ValueError(f"bfSize {file_size} but file is {len(data)} bytes")
    if size != 40 or planes != 1 or compression != 0:
        raise ValueError(f"want BITMAPINFOHEADER, 1 plane, BI_RGB; got {size}, {planes}, {compression}")
    if height <= 0:
        raise ValueError("rows must be stored bottom-up (positive height)")
    if bpp not in (4, 8) or not 1 <= used <= (1 << bpp):
        raise ValueError(f"bad depth {bpp} or colour count {used}")
    stride = ((width * bpp + 31) // 32) * 4
    if offset != 54 + 4 * used or image_size != stride * height \
            or len(data) != offset + image_size:
        raise ValueError("offset, image size and colour table do not add up")
    table = [struct.unpack_from("<BBBB", data, 54 + 4 * i) for i in range(used)]
    colours = [(r << 16) | (g << 8) | b for b, g, r, _ in table]
    rows = []
    for y in range(height):
        line = data[offset + (height - 1 - y) * stride: offset + (height - y) * stride]
        row = []
        for x in range(width):
            index = line[x] if bpp == 8 else (line[x // 2] >> (4 if x % 2 == 0 else 0)) & 15
            if index >= used:
                raise ValueError(f"pixel ({x},{y}) uses colour {index} of {used}")
            row.append(colours[index])
        if any(line[(width * bpp + 7) // 8:]):
            raise ValueError(f"row {y} padding is not zero")
        rows.append(row)
    return width, height, bpp, used, rows


def check_art(art_dir, mkbmp, scratch):
    sources = sorted(f[:-4] for f in os.listdir(art_dir) if f.endswith(".txt"))
    check(sources == sorted(n for n, *_ in SIZES),
          f"art sources {sources} do not match the size table")

    images = {}
    for name, width, height, bpp in SIZES:
        out = os.path.join(scratch, name + ".bmp")
        result = convert(mkbmp, os.path.join(art_dir, name + ".txt"), out)
        if not check(result.returncode == 0, f"{name}: conversion failed: {result.stderr.strip()}"):
            continue
        try:
            got_w, got_h, got_bpp, _, rows = read_bmp(out)
        except ValueError as e:
            check(False, f"{name}: {e}")
            continue
        check((got_w, got_h, got_bpp) == (width, height, bpp),
              f"{name}: {got_w}x{got_h}x{got_bpp}, want {width}x{height}x{bpp}")
        images[name] = rows
    return images


def icon(rows, i):
    return tuple(tuple(rows[y][ICON_SIZE * i: ICON_SIZE * (i + 1)]) for y in range(ICON_SIZE))


def border(pixels):
    n = len(pixels)
    return [pixels[y][x] for y in range(n) for x in range(len(pixels[0]))
            if y in (0, n - 1) or x in (0, len(pixels[0]) - 1)]


def check_icons(images):
    rows = images.get("caticons")
    if rows is None:
        return
    icons = [icon(rows, i) for i in range(ICON_COUNT)]
    for i in range(ICON_COUNT):
        for j in range(i + 1, ICON_COUNT):
            check(icons[i] != icons[j], f"caticons: icons {i} and {j} are identical")
    for i, pixels in enumerate(icons):
        check(any(c != MAGENTA for row in pixels for c in row), f"caticons: icon {i} is empty")


def check_transparency(images):
    # Art drawn over the list or cell colours: its edges must show through.
    cases = [("notes", None)] + [("caticons", i) for i in range(ICON_COUNT)]
    for name, index in cases:
        rows = images.get(name)
        if rows is None:
            continue
        pixels = icon(rows, index) if index is not None else rows
        label = name if index is None else f"{name} icon {index}"
        check(MAGENTA in border(pixels), f"{label}: no transparent magenta on its border")
    rows = images.get("notes")
    if rows:
        corners = [rows[0][0], rows[0][-1], rows[-1][0], rows[-1][-1]]
        check(all(c == MAGENTA for c in corners), "notes: corners are not transparent")


def check_roundtrip(mkbmp, scratch):
    # Odd widths exercise nibble packing and row padding.
    cases = [
        ("4bpp odd width", 4, ["ab.", ".ba"],
         [[0x112233, 0x445566, 0xFFFFFF], [0xFFFFFF, 0x445566, 0x112233]]),
        ("4bpp one column", 4, ["a", "b", "a"], [[0x112233], [0x445566], [0x112233]]),
        ("8bpp width 5", 8, ["ab.ab", "....."],
         [[0x112233, 0x445566, 0xFFFFFF, 0x112233, 0x445566], [0xFFFFFF] * 5]),
    ]
    for name, bpp, pixel_rows, want in cases:
        src = os.path.join(scratch, "roundtrip.txt")
        with open(src, "w") as f:
            f.write(f"width {len(pixel_rows[0])}\nheight {len(pixel_rows)}\nbpp {bpp}\n"
                    "palette\n. FFFFFF\na 0x112233  # comment\nb 445566\npixels\n"
                    + "\n".join(pixel_rows) + "\n")
        out = os.path.join(scratch, "roundtrip.bmp")
        result = convert(mkbmp, src, out)
        if not check(result.returncode == 0, f"{name}: {result.stderr.strip()}"):
            continue
        try:
            _, _, got_bpp, used, rows = read_bmp(out)
        except ValueError as e:
            check(False, f"{name}: {e}")
            continue
        check((got_bpp, used, rows) == (bpp, 3, want),
              f"{name}: read back {got_bpp} bpp, {used} colours, {rows}")


def check_rejects(mkbmp, scratch):
    good_head = "width 3\nheight 2\nbpp 4\npalette\n. FFFFFF\nx 000000\npixels\n"
    many = "".join(f"{c} {i:06X}\n" for i, c in enumerate("0123456789ABCDEFG"))
    # name, source, line the message must name, words it must contain
    cases = [
        ("row too long", good_head + "...\n..x.\n", 9, "4 characters wide"),
        ("row too short", good_head + "..\n...\n", 8, "expected 3"),
        ("unknown key", good_head + "...\n.q.\n", 9, "unknown palette key 'q'"),
        ("too few rows", good_head + "...\n", 8, "expected 2"),
        ("too many rows", good_head + "...\n...\n...\n", 10, "too many pixel rows"),
        ("too many colours", "width 1\nheight 1\nbpp 4\npalette\n" + many + "pixels\n0\n", 21,
         "at most 16"),
        ("bad depth", "width 1\nheight 1\nbpp 24\npalette\n. 000000\npixels\n.\n", 4,
         "4 or 8"),
        ("bad colour", "width 1\nheight 1\nbpp 8\npalette\n. 12345\npixels\n.\n", 5,
         "bad colour"),
        ("duplicate key", "width 1\nheight 1\nbpp 8\npalette\n. 000000\n. 111111\npixels\n.\n",
         6, "defined twice"),
    ]
    for name, text, line, words in cases:
        src = os.path.join(scratch, "bad.txt")
        with open(src, "w") as f:
            f.write(text)
        out = os.path.join(scratch, "bad.bmp")
        if os.path.exists(out):
            os.remove(out)
        result = convert(mkbmp, src, out)
        message = result.stderr.strip()
        check(result.returncode != 0, f"{name}: accepted a bad source")
        check(f"{src}:{line}:" in message and words in message,
              f"{name}: message {message!r} should name line {line} and say {words!r}")
        check(not os.path.exists(out), f"{name}: left an output file behind")


def check_png(art_dir, mkbmp, scratch):
    out = os.path.join(scratch, "badge.png")
    result = convert(mkbmp, os.path.join(art_dir, "badge.txt"), out, "--png")
    ok = result.returncode == 0 and os.path.exists(out)
    if ok:
        with open(out, "rb") as f:
            data = f.read(24)
        ok = data[:8] == b"\x89PNG\r\n\x1a\n" and struct.unpack(">II", data[16:24]) == (40, 40)
    check(ok, f"png preview: {result.stderr.strip() or 'wrong header or size'}")


def check_ico(art_dir, mkbmp, scratch):
    """The sheet's icon: one 16 x 16 image whose magenta corners are see-through in the mask."""
    out = os.path.join(scratch, "settings.ico")
    result = convert(mkbmp, os.path.join(art_dir, "settings.txt"), out, "--ico")
    if not check(result.returncode == 0, f"settings.ico: {result.stderr.strip()}"):
        return
    with open(out, "rb") as f:
        data = f.read()
    reserved, kind, count = struct.unpack_from("<HHH", data, 0)
    w, h, _, _, planes, bpp, size, offset = struct.unpack_from("<BBBBHHII", data, 6)
    check((reserved, kind, count, w, h, bpp, offset) == (0, 1, 1, 16, 16, 4, 22)
          and offset + size == len(data), "settings.ico: header")
    _, _, dib_h, _, dib_bpp = struct.unpack_from("<IiiHH", data, offset)
    check((dib_h, dib_bpp) == (32, 4), "settings.ico: image is twice as high for its mask")
    mask = data[offset + 40 + 64 + 16 * 8:]
    # Mask rows are bottom-up, 4 bytes each: the top row is the last; its first pixel is clear
    # (magenta), the lantern's ring at x 6 is not.
    top = mask[15 * 4: 16 * 4]
    check(len(mask) == 64 and top[0] & 0x80 and not top[0] & 0x02,
          "settings.ico: the mask shows through at the corner and not on the ring")


def main(argv):
    if len(argv) != 2:
        print(__doc__.strip().splitlines()[-1], file=sys.stderr)
        return 2
    art_dir, mkbmp = argv
    with tempfile.TemporaryDirectory() as scratch:
        images = check_art(art_dir, mkbmp, scratch)
        check_icons(images)
        check_transparency(images)
        check_roundtrip(mkbmp, scratch)
        check_rejects(mkbmp, scratch)
        check_png(art_dir, mkbmp, scratch)
        check_ico(art_dir, mkbmp, scratch)
    for message in failures:
        print("FAIL:", message)
    print(f"{passed} passed, {len(failures)} failed")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
