"""Writes a multi-page 16-bit greyscale TIFF with OME spacing, as a microscope's acquisition
software would: make_tiff16.py OUT WIDTH HEIGHT DEPTH [DESCRIPTION]. Beads on a background of
100. DESCRIPTION replaces the OME one: ImageJ's lines joined by ';' (e.g.
"ImageJ=1.11a;images=16;channels=2;slices=8"), or '' for none."""

import struct
import sys

import numpy as np

out, width, height, depth = sys.argv[1], *map(int, sys.argv[2:5])
rng = np.random.default_rng(5)
stack = rng.poisson(100.0, size=(depth, height, width)).astype(np.uint16)
stack[depth // 2, height // 3, width // 3] += 900
stack[depth // 2, 2 * height // 3, width // 2] += 700
ome = ('<?xml version="1.0"?><OME><Image><Pixels PhysicalSizeX="0.1" PhysicalSizeY="0.1" '
       f'PhysicalSizeZ="0.25" SizeX="{width}" SizeY="{height}" SizeZ="{depth}"/></Image></OME>')
text = sys.argv[5].replace(";", "\n") + "\n" if len(sys.argv) > 5 else ome
description = text.encode() + b"\0"

# Layout: header, description, then per page its pixels followed by its directory.
data = bytearray(b"II*\0" + struct.pack("<I", 0))
description_offset = len(data)
data += description
previous_link = 4
for z in range(depth):
    if len(data) % 2:
        data += b"\0"
    pixels_offset = len(data)
    data += stack[z].tobytes()
    if len(data) % 2:
        data += b"\0"
    directory = len(data)
    struct.pack_into("<I", data, previous_link, directory)
    entries = [(256, 4, 1, width), (257, 4, 1, height), (258, 3, 1, 16), (259, 3, 1, 1),
               (262, 3, 1, 1), (273, 4, 1, pixels_offset), (277, 3, 1, 1), (278, 4, 1, height),
               (279, 4, 1, width * height * 2)]
    if z == 0 and len(description) > 2:
        entries.insert(5, (270, 2, len(description), description_offset))
    data += struct.pack("<H", len(entries))
    for tag, kind, count, value in entries:
        packed = struct.pack("<H", value) + b"\0\0" if kind == 3 else struct.pack("<I", value)
        data += struct.pack("<HHI", tag, kind, count) + packed
    previous_link = len(data)
    data += struct.pack("<I", 0)
with open(out, "wb") as f:
    f.write(data)
