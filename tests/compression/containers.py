# SPDX-License-Identifier: MIT
"""Reads and writes compressed files of brixlib without brixlib.

    containers.py read FILE            the plain bytes go to stdout
    containers.py write NAME FILE      a compressed file of FILE goes to stdout
"""
import hashlib
import struct
import sys
import zlib

import lz4.block

PIECE = 131072


def encode_lz4(data):
    return struct.pack(">I", len(data)) + lz4.block.compress(data, store_size=False)


def decode_lz4(block):
    (size,) = struct.unpack_from(">I", block)
    return lz4.block.decompress(block[4:], uncompressed_size=size)


def encode_zip(data):
    return struct.pack(">I", len(data)) + zlib.compress(data, 1)


def decode_zip(block):
    (size,) = struct.unpack_from(">I", block)
    data = zlib.decompress(block[4:])
    assert len(data) == size, "the plain size is wrong"
    return data


CODECS = {"lz4": (encode_lz4, decode_lz4), "zip": (encode_zip, decode_zip)}


def name_hash(name):
    return hashlib.sha1(name.encode()).digest()


def read_frames(stream, decode):
    data = b""
    while stream:
        (length,) = struct.unpack_from(">I", stream)
        assert 0 < length <= len(stream) - 4, "the length of a block is wrong"
        data += decode(stream[4:4 + length])
        stream = stream[4 + length:]
    return data


def read(container):
    (crc,) = struct.unpack_from(">I", container, 20)
    stream = container[24:]
    if container[:20] == name_hash("uncompressed"):
        data = stream
    else:
        (decode,) = [codec[1] for name, codec in CODECS.items() if container[:20] == name_hash(name)]
        data = read_frames(stream, decode)
    assert zlib.crc32(data) == crc, "the checksum is wrong"
    return data


def write(name, data):
    container = name_hash(name) + struct.pack(">I", zlib.crc32(data))
    if name == "uncompressed":
        return container + data
    for at in range(0, len(data), PIECE):
        block = CODECS[name][0](data[at:at + PIECE])
        container += struct.pack(">I", len(block)) + block
    return container


def content(path):
    with open(path, "rb") as file:
        return file.read()


if __name__ == "__main__":
    if sys.argv[1] == "read":
        sys.stdout.buffer.write(read(content(sys.argv[2])))
    else:
        sys.stdout.buffer.write(write(sys.argv[2], content(sys.argv[3])))
