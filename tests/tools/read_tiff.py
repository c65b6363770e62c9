"""Reads the uncompressed, one-strip-per-page TIFF stacks that ovd writes, without any TIFF
library: read(path) gives (pages as a numpy array (page, y, x), first page's description)."""

import struct

import numpy as np


def read(path):
    data = open(path, "rb").read()
    order = {b"II": "<", b"MM": ">"}[data[:2]]
    offset = struct.unpack(order + "I", data[4:8])[0]
    pages, description = [], ""
    while offset:
        count = struct.unpack(order + "H", data[offset:offset + 2])[0]
        tags = {}
        for i in range(count):
            entry = data[offset + 2 + 12 * i:offset + 14 + 12 * i]
            tag, kind, n = struct.unpack(order + "HHI", entry[:8])
            value = struct.unpack(order + ("H" if kind == 3 and n == 1 else "I"), entry[8:10 if kind == 3 and n == 1 else 12])[0]
            tags[tag] = (n, value)
        if 270 in tags and not pages:
            n, value = tags[270]
            description = data[value:value + n].rstrip(b"\0").decode("utf-8")
        width, height, bits = tags[256][1], tags[257][1], tags[258][1]
        dtype = {(16, 1): "u2", (32, 3): "f4", (8, 1): "u1"}[(bits, tags.get(339, (1, 1))[1])]
        strip = tags[273][1]
        pages.append(np.frombuffer(data, order + dtype, width * height, strip).reshape(height, width))
        offset = struct.unpack(order + "I", data[offset + 2 + 12 * count:offset + 6 + 12 * count])[0]
    return np.array(pages), description
