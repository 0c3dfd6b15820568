#!/usr/bin/env python3
"""make-icon.py [FILE]: draws the program's icon, by default Updater/Resources/Updater.ico.

A play sign inside a turning arrow, white on larkspur blue, drawn afresh at each size from 16 to 256 pixels so
that no size is a shrunken other. The result is part of the sources (a build needs no Python); run this after
a change of the drawing. Only Python's own library is used, and the same machine gives the same bytes.
"""
import math
import os
import struct
import sys
import zlib

SIZES = (16, 20, 24, 32, 40, 48, 64, 128, 256)
# Larger images are stored as PNG, which Windows Vista and later read.
LARGEST_BITMAP = 64

TOP = (112, 104, 232)
BOTTOM = (58, 44, 158)
SIGN = (255, 255, 255)


def half_plane(x, y, px, py, degrees):
    """Distance beyond the line through (px, py) whose outward normal points to that angle (0 is right, 90 down)."""
    a = math.radians(degrees)
    return (x - px) * math.cos(a) + (y - py) * math.sin(a)


def tile(x, y):
    half, radius = 0.47, 0.20
    dx, dy = abs(x - 0.5) - half + radius, abs(y - 0.5) - half + radius
    return math.hypot(max(dx, 0), max(dy, 0)) + min(max(dx, dy), 0) - radius


def turning_arrow(x, y):
    ring = abs(math.hypot(x - 0.48, y - 0.52) - 0.27) - 0.05
    # The ring is open to the upper right, between the angles -62 and -2.
    opening = max(half_plane(x, y, 0.48, 0.52, -152), half_plane(x, y, 0.48, 0.52, 88))
    # The head stands on the ring's lower end of the opening and points up.
    tip_x, tip_y, base_y, half = 0.75, 0.33, 0.52, 0.135
    slope = math.degrees(math.atan2(half, base_y - tip_y))
    head = max(y - base_y, half_plane(x, y, tip_x, tip_y, -slope), half_plane(x, y, tip_x, tip_y, 180 + slope))
    return min(max(ring, -opening), head)


def play_sign(x, y):
    left, middle, half, length = 0.395, 0.52, 0.115, 0.175
    slope = math.degrees(math.atan2(half, length))
    return max(left - x,
               half_plane(x, y, left + length, middle, -90 + slope),
               half_plane(x, y, left + length, middle, 90 - slope))


def draw(size):
    """Rows from the top of (blue, green, red, alpha)."""
    def cover(distance):
        return min(max(0.5 - distance * size, 0.0), 1.0)

    rows = []
    for row in range(size):
        y = (row + 0.5) / size
        ground = [t + (b - t) * y for t, b in zip(TOP, BOTTOM)]
        pixels = []
        for column in range(size):
            x = (column + 0.5) / size
            sign = cover(min(turning_arrow(x, y), play_sign(x, y)))
            red, green, blue = (round(g + (s - g) * sign) for g, s in zip(ground, SIGN))
            pixels.append((blue, green, red, round(255 * cover(tile(x, y)))))
        rows.append(pixels)
    return rows


def as_bitmap(rows):
    size = len(rows)
    mask_stride = (size + 31) // 32 * 4
    header = struct.pack('<IiiHHIIiiII', 40, size, size * 2, 1, 32, 0, size * size * 4 + mask_stride * size, 0, 0, 0, 0)
    colours = b''.join(struct.pack('4B', *pixel) for row in reversed(rows) for pixel in row)
    mask = b''
    for row in reversed(rows):
        bits = sum(1 << (mask_stride * 8 - 1 - i) for i, pixel in enumerate(row) if pixel[3] == 0)
        mask += bits.to_bytes(mask_stride, 'big')
    return header + colours + mask


def as_png(rows):
    def chunk(kind, data):
        return struct.pack('>I', len(data)) + kind + data + struct.pack('>I', zlib.crc32(kind + data))

    size = len(rows)
    raw = b''.join(b'\0' + b''.join(bytes((r, g, b, a)) for b, g, r, a in row) for row in rows)
    return (b'\x89PNG\r\n\x1a\n' + chunk(b'IHDR', struct.pack('>IIBBBBB', size, size, 8, 6, 0, 0, 0))
            + chunk(b'IDAT', zlib.compress(raw, 9)) + chunk(b'IEND', b''))


def icon_file():
    images = [as_bitmap(draw(size)) if size <= LARGEST_BITMAP else as_png(draw(size)) for size in SIZES]
    offset = 6 + 16 * len(SIZES)
    directory = struct.pack('<HHH', 0, 1, len(SIZES))
    for size, image in zip(SIZES, images):
        directory += struct.pack('<BBBBHHII', size % 256, size % 256, 0, 0, 1, 32, len(image), offset)
        offset += len(image)
    return directory + b''.join(images)


if __name__ == '__main__':
    root = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    target = sys.argv[1] if len(sys.argv) > 1 else os.path.join(root, 'Updater', 'Resources', 'Updater.ico')
    with open(target, 'wb') as file:
        file.write(icon_file())
