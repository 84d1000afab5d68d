#!/usr/bin/env python3
"""Takes the kernel out of a bzImage, as the emulator starts that three seconds sooner:
vmlinux.py VMLINUZ VMLINUX. The place of the compressed part is in the boot header
(Documentation/arch/x86/boot.rst)."""
import lzma
import struct
import sys

with open(sys.argv[1], "rb") as file:
    image = file.read()
sectors = image[0x1F1] or 4
offset, length = struct.unpack_from("<II", image, 0x248)
start = (sectors + 1) * 512 + offset
with open(sys.argv[2], "wb") as file:
    # The four bytes behind the stream are the size of what is packed.
    file.write(lzma.LZMADecompressor().decompress(image[start:start + length]))
