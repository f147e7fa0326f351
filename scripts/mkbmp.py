#!/usr/bin/env python3
"""Convert Lanternfields text pixel art into Windows .bmp files (or .png previews).

Source format (resources/art/NAME.txt), '#' starts a comment anywhere
outside the pixel rows and whole-line comments are allowed between rows:

    width  9
    height 8
    bpp    4            # 4 or 8
    palette
    .  FF00FF           # key, colour as RRGGBB (0x prefix optional)
    B  0x2050B0
    pixels
    ..BBBBB..
    ...

Palette keys are single printable characters other than '#' and space; a
key's index in the BMP colour table is its position in the palette list.
Each pixel row must be exactly `width` characters long and there must be
exactly `height` rows.

Usage:
    mkbmp.py SRC.txt OUT.bmp
    mkbmp.py --ico SRC.txt OUT.ico   (magenta FF00FF is transparent)
    mkbmp.py --png SRC.txt OUT.png [scale]
"""

import struct
import sys
import zlib


class ArtError(Exception):
    """A problem in an art source; str() names the file and line."""

    def __init__(self, path, line, message):
        super().__init__(f"{path}:{line}: error: {message}")
        self.path = path
        self.line = line


class Art:
    def __init__(self, path, width, height, bpp, palette, rows):
        self.path = path
        self.width = width
        self.height = height
        self.bpp = bpp
        self.palette = palette  # list of (key, 0xRRGGBB)
        self.rows = rows        # list of lists of palette indices, top row first

    def rgb(self, x, y):
        return self.palette[self.rows[y][x]][1]


def _strip_comment(text):
    pos = text.find("#")
    return text if pos < 0 else text[:pos]


def parse(path, text=None):
    if text is None:
        try:
            with open(path, "r", encoding="utf-8") as f:
                text = f.read()
        except OSError as e:
            raise ArtError(path, 0, f"cannot read: {e.strerror}")
        except UnicodeDecodeError:
            raise ArtError(path, 0, "not UTF-8 text")

    header = {}
    palette = []
    keys = {}
    rows = []
    section = "header"
    last_line = 0

    for lineno, raw in enumerate(text.splitlines(), 1):
        last_line = lineno
        if section == "pixels":
            row = raw.rstrip()
            if not row or row.lstrip().startswith("#"):
                continue
            if len(rows) >= header["height"]:
                raise ArtError(path, lineno,
                               f"too many pixel rows: expected {header['height']}")
            if len(row) != header["width"]:
                raise ArtError(path, lineno,
                               f"pixel row {len(rows)} is {len(row)} characters wide,"
                               f" expected {header['width']}")
            indices = []
            for col, ch in enumerate(row):
                idx = keys.get(ch)
                if idx is None:
                    raise ArtError(path, lineno,
                                   f"unknown palette key {ch!r} at column {col}")
                indices.append(idx)
            rows.append(indices)
            continue

        line = _strip_comment(raw).strip()
        if not line:
            continue
        words = line.split()

        if section == "header":
            word = words[0].lower()
            if word in ("width", "height", "bpp"):
                if len(words) != 2 or not words[1].isdigit():
                    raise ArtError(path, lineno, f"expected '{word} NUMBER'")
                if word in header:
                    raise ArtError(path, lineno, f"'{word}' given twice")
                header[word] = int(words[1])
                continue
            if word == "palette" and len(words) == 1:
                for need in ("width", "height", "bpp"):
                    if need not in header:
                        raise ArtError(path, lineno, f"'{need}' must come before the palette")
                if header["bpp"] not in (4, 8):
                    raise ArtError(path, lineno,
                                   f"bits per pixel must be 4 or 8, not {header['bpp']}")
                if header["width"] < 1 or header["height"] < 1:
                    raise ArtError(path, lineno, "width and height must be at least 1")
                section = "palette"
                continue
            raise ArtError(path, lineno, f"unexpected {words[0]!r} in header"
                                         " (want width, height, bpp, palette)")

        # palette section
        if words[0].lower() == "pixels" and len(words) == 1:
            if not palette:
                raise ArtError(path, lineno, "palette is empty")
            section = "pixels"
            continue
        if len(words) != 2 or len(words[0]) != 1:
            raise ArtError(path, lineno, "palette entry must be 'KEY RRGGBB'"
                                         " with a single-character key")
        key, value = words
        if value.lower().startswith("0x"):
            value = value[2:]
        if len(value) != 6 or any(c not in "0123456789abcdefABCDEF" for c in value):
            raise ArtError(path, lineno, f"bad colour {words[1]!r} (want RRGGBB)")
        if key in keys:
            raise ArtError(path, lineno, f"palette key {key!r} defined twice")
        limit = 1 << header["bpp"]
        if len(palette) >= limit:
            raise ArtError(path, lineno,
                           f"too many colours: {header['bpp']} bpp allows at most {limit}")
        keys[key] = len(palette)
        palette.append((key, int(value, 16)))

    if section != "pixels":
        raise ArtError(path, last_line, "missing 'pixels' section"
                       if section == "palette" else "missing 'palette' section")
    if len(rows) != header["height"]:
        raise ArtError(path, last_line,
                       f"found {len(rows)} pixel rows, expected {header['height']}")
    return Art(path, header["width"], header["height"], header["bpp"], palette, rows)


def packed_row(art, row):
    """One pixel row as stored: 8 or 4 bits a pixel, padded to whole 32-bit words."""
    stride = ((art.width * art.bpp + 31) // 32) * 4
    if art.bpp == 8:
        line = bytearray(row)
    else:
        line = bytearray()
        for x in range(0, art.width, 2):
            hi = row[x]
            lo = row[x + 1] if x + 1 < art.width else 0
            line.append((hi << 4) | lo)
    line.extend(b"\0" * (stride - len(line)))
    return line


def bmp_bytes(art):
    body = bytearray()
    for row in reversed(art.rows):  # BMP rows are stored bottom-up
        body += packed_row(art, row)
    colours = b"".join(struct.pack("<BBBB", c & 0xFF, (c >> 8) & 0xFF, (c >> 16) & 0xFF, 0)
                       for _, c in art.palette)
    offset = 14 + 40 + len(colours)
    info = struct.pack("<IiiHHIIiiII", 40, art.width, art.height, 1, art.bpp, 0,
                       len(body), 2835, 2835, len(art.palette), 0)
    head = struct.pack("<2sIHHI", b"BM", offset + len(body), 0, 0, offset)
    return head + info + colours + bytes(body)


TRANSPARENT = 0xFF00FF


def ico_bytes(art):
    """One-image .ico: the art as the colour image, magenta as the see-through mask."""
    colours = b"".join(struct.pack("<BBBB", c & 0xFF, (c >> 8) & 0xFF, (c >> 16) & 0xFF, 0)
                       if c != TRANSPARENT else b"\0\0\0\0"  # masked pixels must be black
                       for _, c in art.palette)
    colours += b"\0" * (4 * (1 << art.bpp) - len(colours))
    mask_stride = ((art.width + 31) // 32) * 4
    body = bytearray()
    mask = bytearray()
    for row in reversed(art.rows):
        body += packed_row(art, row)
        bits = bytearray(mask_stride)
        for x, idx in enumerate(row):
            if art.palette[idx][1] == TRANSPARENT:
                bits[x // 8] |= 0x80 >> (x % 8)
        mask += bits
    info = struct.pack("<IiiHHIIiiII", 40, art.width, art.height * 2, 1, art.bpp, 0,
                       len(body) + len(mask), 0, 0, 0, 0)
    image = info + colours + bytes(body) + bytes(mask)
    count = 0 if art.bpp == 8 else 1 << art.bpp
    head = struct.pack("<HHH", 0, 1, 1)
    entry = struct.pack("<BBBBHHII", art.width % 256, art.height % 256, count, 0, 1, art.bpp,
                        len(image), 6 + 16)
    return head + entry + image


def png_bytes(art, scale=1):
    raw = bytearray()
    for y in range(art.height):
        line = bytearray()
        for x in range(art.width):
            c = art.rgb(x, y)
            line += bytes(((c >> 16) & 0xFF, (c >> 8) & 0xFF, c & 0xFF)) * scale
        for _ in range(scale):
            raw.append(0)
            raw += line

    def chunk(kind, data):
        return (struct.pack(">I", len(data)) + kind + data
                + struct.pack(">I", zlib.crc32(kind + data) & 0xFFFFFFFF))

    ihdr = struct.pack(">IIBBBBB", art.width * scale, art.height * scale, 8, 2, 0, 0, 0)
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", ihdr)
            + chunk(b"IDAT", zlib.compress(bytes(raw), 9)) + chunk(b"IEND", b""))


def write(path, data):
    try:
        with open(path, "wb") as f:
            f.write(data)
    except OSError as e:
        raise ArtError(path, 0, f"cannot write: {e.strerror}")


def main(argv):
    usage = ("usage: mkbmp.py SRC.txt OUT.bmp\n       mkbmp.py --ico SRC.txt OUT.ico\n"
             "       mkbmp.py --png SRC.txt OUT.png [scale]")
    try:
        if argv and argv[0] == "--ico":
            if len(argv) != 3:
                print(usage, file=sys.stderr)
                return 2
            write(argv[2], ico_bytes(parse(argv[1])))
            return 0
        if argv and argv[0] == "--png":
            if len(argv) not in (3, 4):
                print(usage, file=sys.stderr)
                return 2
            scale = 8
            if len(argv) == 4:
                if not argv[3].isdigit() or not 1 <= int(argv[3]) <= 64:
                    print("mkbmp.py: scale must be a number from 1 to 64", file=sys.stderr)
                    return 2
                scale = int(argv[3])
            write(argv[2], png_bytes(parse(argv[1]), scale))
            return 0
        if len(argv) != 2:
            print(usage, file=sys.stderr)
            return 2
        write(argv[1], bmp_bytes(parse(argv[0])))
        return 0
    except ArtError as e:
        print(e, file=sys.stderr)
        return 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
