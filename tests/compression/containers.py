# SPDX-License-Identifier: MIT
"""Reads and writes compressed files of brixlib without brixlib.

    containers.py read FILE            the plain bytes go to stdout
    containers.py write NAME FILE      a compressed file of FILE goes to stdout
    containers.py decode NAME FILE     the plain bytes of a block without frame go to stdout
    containers.py encode NAME FILE     a block of FILE, packed as well as can be, goes to stdout

A NAME is lz4 or zip, for a compressed file also uncompressed, for a block also stream: zlib's alone.
"""
import hashlib
import struct
import sys
import zlib

import lz4.block

PIECE = 131072


def encode_lz4(data):
    return struct.pack(">I", len(data)) + lz4.block.compress(data, store_size=False)


def encode_best_lz4(data):
    block = lz4.block.compress(data, mode="high_compression", compression=12, store_size=False)
    return struct.pack(">I", len(data)) + block


def decode_lz4(block):
    (size,) = struct.unpack_from(">I", block)
    return lz4.block.decompress(block[4:], uncompressed_size=size)


def encode_zip(data):
    return struct.pack(">I", len(data)) + zlib.compress(data, 1)


def encode_best_zip(data):
    return struct.pack(">I", len(data)) + zlib.compress(data, 9)


def decode_zip(block):
    (size,) = struct.unpack_from(">I", block)
    data = zlib.decompress(block[4:])
    assert len(data) == size, "the plain size is wrong"
    return data


def encode_best_stream(data):
    return zlib.compress(data, 9)


def encode_packbits(data):
    # As simple as can be: all bytes as they are.
    packets = b""
    for at in range(0, len(data), 128):
        literal = data[at:at + 128]
        packets += bytes([len(literal) - 1]) + literal
    return packets


def decode_packbits(block):
    data = b""
    at = 0
    while at < len(block):
        n = block[at]
        stored = n + 1 if n < 128 else 0 if n == 128 else 1
        content = block[at + 1:at + 1 + stored]
        assert len(content) == stored, "a packet is cut"
        data += content if n < 128 else content * (257 - n)
        at += 1 + stored
    return data


CODECS = {
    "lz4": (encode_lz4, decode_lz4),
    "zip": (encode_zip, decode_zip),
    "packbits": (encode_packbits, decode_packbits),
}
BLOCKS = {
    "lz4": (encode_best_lz4, decode_lz4),
    "zip": (encode_best_zip, decode_zip),
    "stream": (encode_best_stream, zlib.decompress),
}


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


def answer(command, *arguments):
    data = content(arguments[-1])
    if command == "read":
        return read(data)
    if command == "write":
        return write(arguments[0], data)
    encode, decode = BLOCKS[arguments[0]]
    return encode(data) if command == "encode" else decode(data)


if __name__ == "__main__":
    sys.stdout.buffer.write(answer(*sys.argv[1:]))
