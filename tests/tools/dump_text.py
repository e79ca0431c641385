"""Dumps written by hand, right and wrong."""

HEAD = b"qx dump 1\nversion 120\nmodulo 3\nframe-size 1024\nthreshold 204\nsize-lock 0\n"


def crc_step(value, bits):
    for _ in range(bits):
        value = value >> 1 ^ (0xC96C5795D7870F42 if value & 1 else 0)
    return value


CRC = [crc_step(byte, 8) for byte in range(256)]


def checksum(text):
    """CRC-64 as XZ has it."""
    value = 2**64 - 1
    for byte in text:
        value = value >> 8 ^ CRC[(value ^ byte) & 255]
    return b"%016X" % (value ^ 2**64 - 1)


def dump(*records, head=HEAD, count=None):
    text = head + b"".join(b"=" + record + b"\n" for record in records)
    return text + b"end %d %s\n" % (len(records) if count is None else count, checksum(text))


def dump_of(records):
    """The dump of these records, with every byte escaped."""
    return dump(*[b"\t".join(b"".join(b"\\%02X" % byte for byte in part) for part in record)
                  for record in records.items()])
