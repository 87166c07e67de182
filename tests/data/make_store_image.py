#!/usr/bin/env python3
"""Store images from the description of the format alone, with nothing of the library behind them.

<directory>/given.sto    as another program may write it: replaced properties, objects of a kind that stores don't keep
                         with properties of theirs, any encoding word, bytes behind the end marker
<directory>/written.sto  what a store writes that has read it
<directory>/listing.txt  what is in it, newest first: a line for each object, then one for each property
<directory>/made.sto     what a store writes that was filled through the interface, as the test does it
"""
import hashlib
import struct
import sys

CERTIFICATE, CRL, CTL = 32, 33, 34


def der(tag, *parts):
    content = b"".join(parts)
    size = len(content)
    if size < 0x80:
        return bytes([tag, size]) + content
    octets = size.to_bytes((size.bit_length() + 7) // 8, "big")
    return bytes([tag, 0x80 | len(octets)]) + octets + content


def name(text):
    return der(0x30, der(0x31, der(0x30, bytes.fromhex("0603550403"), der(0x0C, text.encode()))))


ALGORITHM = der(0x30, bytes.fromhex("06082A8648CE3D040302"))  # ecdsa-with-SHA256
KEY = bytes([4]) + bytes(range(64))
PUBLIC_KEY = der(0x30, der(0x30, bytes.fromhex("06072A8648CE3D020106082A8648CE3D030107")), der(3, b"\0", KEY))
VALIDITY = der(0x30, der(0x17, b"200101000000Z"), der(0x17, b"400101000000Z"))


def certificate(serial):
    body = der(0x30, der(0xA0, der(2, b"\2")), der(2, bytes([serial])), ALGORITHM, name("issuer"), VALIDITY,
               name("subject %d" % serial), PUBLIC_KEY)
    return der(0x30, body, ALGORITHM, der(3, b"\0", bytes(8)))


def crl(number):
    crl_number = der(0x30, bytes.fromhex("0603551D14"), der(4, der(2, bytes([number]))))
    body = der(0x30, der(2, b"\1"), ALGORITHM, name("issuer %d" % number), der(0x17, b"200101000000Z"),
               der(0xA0, der(0x30, crl_number)))
    return der(0x30, body, ALGORITHM, der(3, b"\0", bytes(8)))


def padded(data):
    return data + bytes(-len(data) % 8)


def key_provider(container, provider, parameters, kind, flags, spec):
    at = 28 + 16 * len(parameters)
    headers, data = b"", b""
    for which, value in parameters:
        headers += struct.pack("<4I", which, at + len(data) if value else 0, len(value), 0)
        data += padded(value)
    names, offsets = b"", []
    for text in (container, provider):
        offsets.append(at + len(data) + len(names) if text is not None else 0)
        if text is not None:
            names += padded(text.encode("utf-16-le") + bytes(2))
    head = struct.pack("<7I", *offsets, kind, flags, len(parameters), 28 if parameters else 0, spec)
    return head + headers + data + names


def record(identifier, body, encoding=1):
    return struct.pack("<3I", identifier, encoding, len(body)) + body


def element(kind, encoded, properties, encoding=1):
    return b"".join(record(*each, encoding) for each in properties) + record(kind, encoded, encoding)


def image(*elements):
    return bytes(4) + b"CERT" + b"".join(elements) + bytes(12)


def wide(text):
    return text.encode("utf-32-le") + bytes(4)


def sha1(data):
    return hashlib.sha1(data).digest()


OBJECTS = [
    (CERTIFICATE, certificate(1), []),
    (CERTIFICATE, certificate(2), [
        (11, wide("Имя \U0001F511")),
        (2, key_provider("\U0001F511 container", "Provider", [(33, b"12345"), (34, b""), (35, b"12345678")], 80, 0x20, 1)),
        (35, b"a property among the objects"),
        (3, sha1(certificate(2))),
    ]),
    (CERTIFICATE, certificate(3), [(19, b""), (4096, bytes(range(256)) * 257), (0xFFFFFFFF, b"\0"), (64, b"x")]),
    (CRL, crl(1), [(3, sha1(crl(1))), (101, b"\1")]),
    (CRL, crl(2), []),
]


def listing():
    lines = []
    for kind in (CERTIFICATE, CRL):
        for each, encoded, properties in reversed(OBJECTS):
            if each == kind:
                lines.append("%d %s" % (kind, encoded.hex().upper()))
                lines += [" %d %s" % (key, value.hex().upper()) for key, value in properties]
    return "".join(line + "\n" for line in lines)


def given():
    elements = []
    for kind, encoded, properties in OBJECTS:
        early = [(key, b"replaced") for key, _ in properties[:2]]
        elements.append(element(CTL, b"no store keeps it", [(11, b"nor this")]))
        elements.append(element(kind, encoded, early + properties, encoding=0x10001))
        elements.append(element(63, b"", []))
    return image(*elements) + b"behind the end"


def made():
    """Identity first, which an addition computes; then what was set, a property that was set again at the end."""
    first, crl_first = certificate(1), crl(1)
    key_identifier = sha1(KEY)
    provider = key_provider("container", None, [(1, b"abc")], 75, 0, 2)
    return image(
        element(CERTIFICATE, first, [(3, sha1(first)), (20, key_identifier), (2, provider), (11, wide("two"))]),
        element(CERTIFICATE, certificate(2), [(3, sha1(certificate(2))), (20, key_identifier)]),
        element(CRL, crl_first, [(3, sha1(crl_first)), (200, b"raw")]))


def main():
    directory = sys.argv[1]
    files = {
        "given.sto": given(),
        "written.sto": image(*(element(*each) for each in OBJECTS)),
        "listing.txt": listing().encode(),
        "made.sto": made(),
    }
    for file, content in files.items():
        with open(directory + "/" + file, "wb") as out:
            out.write(content)


main()
