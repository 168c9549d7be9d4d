#!/usr/bin/python3
"""Makes the image files beside it, once; they are committed.

Needs the `vips` command (Debian: libvips-tools). The name of each file says the size a viewer shows.
"""
import pathlib
import struct
import subprocess
import zlib

HERE = pathlib.Path(__file__).parent


def png(width, height):
    def chunk(kind, body):
        return (struct.pack(">I", len(body)) + kind + body
                + struct.pack(">I", zlib.crc32(kind + body)))
    rows = b"".join(b"\0" + bytes((x * 5 + y * 3) & 0xFF for x in range(width) for _ in range(3))
                    for y in range(height))
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0))
            + chunk(b"IDAT", zlib.compress(rows)) + chunk(b"IEND", b""))


def exif(orientation):
    """An EXIF block in big-endian TIFF form with the one tag Orientation."""
    return b"Exif\0\0MM\0*" + struct.pack(">IHHHIHHI", 8, 1, 0x0112, 3, 1, orientation, 0, 0)


def with_exif(jpeg, orientation):
    body = exif(orientation)
    return jpeg[:2] + b"\xff\xe1" + struct.pack(">H", len(body) + 2) + body + jpeg[2:]


def gif(width, height, frames):
    out = b"GIF89a" + struct.pack("<HHBBB", width, height, 0x80, 0, 0) + bytes((0, 0, 0, 255, 255, 255))
    for frame in range(frames):
        # Codes of 3 bits: a clear code before every two pixels keeps them from growing.
        codes = []
        for pixel in range(width * height):
            if pixel % 2 == 0:
                codes.append(4)
            codes.append((pixel + frame) & 1)
        codes.append(5)
        bits = sum(code << (3 * i) for i, code in enumerate(codes))
        data = bits.to_bytes((3 * len(codes) + 7) // 8, "little")
        out += b"\x21\xf9\x04\0\x0a\0\0\0," + struct.pack("<HHHHB", 0, 0, width, height, 0) + b"\x02"
        for i in range(0, len(data), 255):
            out += bytes((len(data[i:i + 255]),)) + data[i:i + 255]
        out += b"\0"
    return out + b";"


def vips(*arguments):
    subprocess.run(("vips",) + arguments, cwd=HERE, check=True)


(HERE / "png-40x30.png").write_bytes(png(40, 30))
vips("copy", "png-40x30.png", "plain.jpg[Q=60,strip]")
plain = (HERE / "plain.jpg").read_bytes()
(HERE / "jpeg-40x30.jpg").write_bytes(plain)
for orientation, size in ((3, "40x30"), (5, "30x40"), (6, "30x40"), (8, "30x40")):
    (HERE / f"jpeg-orientation-{orientation}-{size}.jpg").write_bytes(with_exif(plain, orientation))
(HERE / "gif-animated-24x18.gif").write_bytes(gif(24, 18, 3))
vips("copy", "png-40x30.png", "webp-40x30.webp[Q=50]")
vips("copy", "gif-animated-24x18.gif[n=-1]", "webp-animated-24x18.webp[Q=50]")
vips("copy", "png-40x30.png", "tiff-40x30.tif[compression=deflate]")
vips("copy", "jpeg-orientation-6-30x40.jpg", "tiff-orientation-6-30x40.tif[compression=deflate]")
for suffix, compression in (("avif", "av1"), ("heic", "hevc")):
    vips("heifsave", "png-40x30.png", f"{suffix}-40x30.{suffix}", "--Q", "40",
         "--compression", compression)
(HERE / "plain.jpg").unlink()
