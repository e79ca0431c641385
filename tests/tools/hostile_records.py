"""Records that are hard on whatever writes them down."""
import random


def hostile_records(seed=None):
    """Keys and data of all bytes, delimiters of all kinds among them, empty and over many frames; the seed is printed."""
    seed = random.randrange(2**32) if seed is None else seed
    print(f"seed {seed}")
    generator = random.Random(seed)
    every = bytes(range(256))
    records = {bytes([byte]): bytes([byte]) * generator.choice([0, 1, 100, 5000]) for byte in every}
    records |= {b"\xfe".join([bytes([byte])] * 3): every for byte in every}
    records |= {b"": b"of the empty key", every: b"", every * 20: every * 1000, b"a\nb": b"\n", b"a\xfe": b"\xfe\xfe",
                b'"': b'"a","b"', b"=": b"=\t=", b"end": b"end 1 0", b"\\FE": b"\\\\FE"}
    alphabet = every + b'",\r\n\t\\\xfe\x00' * 20
    for _ in range(200):
        records[bytes(generator.choices(alphabet, k=generator.randrange(1, 40)))] = bytes(
            generator.choices(alphabet, k=generator.randrange(3000)))
    return records
