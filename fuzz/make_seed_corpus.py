#!/usr/bin/env python3
"""Writes the seed corpus of the packet-path fuzz target into corpus/pkt/.

Each seed is three configuration bytes, a format text and a frame from the
PPPoE header on (the layout is described in pkt_fuzz_target.h). The frames are
the ten of the shared capture "discovery-real.pcap" (a pcapng file; given as
the first argument, or found at ../../shared/testdata/ from this folder) under
several configurations, and hand-made frames for every rule of the parser,
the tag policies, the PON line id, the format engine and lengths that lie.
"""
import os
import struct
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
OUT = os.path.join(HERE, "corpus", "pkt")


def read_pcapng(path):
    data = open(path, "rb").read()
    off, frames = 0, []
    while off + 8 <= len(data):
        block_type, block_len = struct.unpack_from("<II", data, off)
        if block_type == 6:  # enhanced packet block
            cap_len = struct.unpack_from("<I", data, off + 20)[0]
            frames.append(data[off + 28 : off + 28 + cap_len])
        off += block_len
    return frames


def tag(t, value, length=None):
    return struct.pack(">HH", t, len(value) if length is None else length) + value


def frame(code, session, payload, length=None, vt=0x11):
    return bytes([vt, code]) + struct.pack(">HH", session, len(payload) if length is None else length) + payload


def vs(vendor, subs):
    v = struct.pack(">I", vendor)
    for code, text in subs:
        v += bytes([code, len(text)]) + text
    return tag(0x0105, v)


def seed(flags, formats, text, body):
    return bytes([flags, formats, len(text)]) + text + body


PADI, PADO, PADR, PADS, PADT = 0x09, 0x07, 0x19, 0x65, 0xA7
SN = tag(0x0101, b"isp")
EOL = tag(0x0000, b"")


def main():
    pcap = sys.argv[1] if len(sys.argv) > 1 else os.path.join(HERE, "..", "..", "shared", "testdata", "discovery-real.pcap")
    seeds = {}
    for i, f in enumerate(read_pcapng(pcap)):
        body = f[14:]
        seeds["real-%02d-replace" % i] = seed(0x03, 0x00, b"", body)
        seeds["real-%02d-pon-onu" % i] = seed(0x13, 0x10, b"", body)
        seeds["real-%02d-trace" % i] = seed(0x43, 0x60, b"", body)

    client_vs = vs(0x0DE9, [(1, b"onu-circuit"), (2, b"onu-remote")])
    for policy, name in ((1, "keep"), (2, "drop"), (3, "replace"), (0, "default")):
        seeds["vs-" + name] = seed(policy, 0x00, b"", frame(PADR, 0, SN + client_vs + EOL))
        seeds["vs-port-" + name] = seed(policy << 2, 0x00, b"", frame(PADI, 0, client_vs + SN))
    seeds["eol-insert"] = seed(0x03, 0x60, b"", frame(PADI, 0, SN + EOL))
    seeds["padding"] = seed(0x03, 0x00, b"", frame(PADI, 0, SN) + b"\x5a" * 30)
    seeds["pon-line-id"] = seed(0x13, 0x10, b"", frame(PADI, 0, vs(0x0DE9, [(1, b"ab cd/1:eth 7")]) + EOL))
    seeds["pon-line-id-long"] = seed(0x13, 0x10, b"", frame(PADI, 0, tag(0x0105, b"\0\0\x0d\xe9\x01\xff x:eth")))
    seeds["pon-line-id-atm"] = seed(0x53, 0x10, b"", frame(PADR, 0, vs(1, [(1, b"0/0/1:atm 2"), (2, b"r")])))

    formats = [
        (0x05, b"'%N:%s.%c'"),
        (0x05, b"'%010s|%3N'"),
        (0x05, b"0x01 %16s %c 0x0a0b 300"),
        (0x05, b"'%D' '%D'"),
        (0x05, b"'%a/%r/%f/%S/0/%p/%m %b %U %Z %J %Y %H %d %C %R'"),
        (0x15, b"%8f %16p %32H %a %C %J %m %Y 0xdeadbeef 4294967295 1a !x"),
        (0x0A, b"ascii text as it stands"),
        (0x0F, b"'%:' %40s 0x '%300N' '\\'q' %"),
        (0x85, b"'%255s'"),
        (0x01, b"'%12"),
    ]
    for i, (fmt_bits, text) in enumerate(formats):
        seeds["format-%02d" % i] = seed(0x03, fmt_bits | 0x70, text, frame(PADI, 0, SN))
        seeds["format-pon-%02d" % i] = seed(0x13, fmt_bits | 0x10, text, frame(PADR, 0, SN + EOL))

    seeds["wrap-sum"] = seed(0x03, 0, b"", frame(PADI, 0, b"", length=0xFFFA))
    seeds["wrap-jump-outside"] = seed(0x03, 0, b"", frame(PADI, 0, tag(0x0101, b"", 0xFFF2), length=0xFFFA))
    seeds["wrap-jump-exact"] = seed(0x03, 0, b"", frame(PADI, 0, tag(0x0101, b"", 0xFFF7), length=0xFFFB))
    seeds["wrap-forward"] = seed(0x03, 0, b"", frame(PADI, 0, b"\x01\x01\xff\xff\x01\x00\x00"))
    seeds["wrap-still"] = seed(0x03, 0, b"", frame(PADI, 0, tag(0x0101, b"\0" * 8, 0xFFFC)))
    seeds["wrap-cycle"] = seed(0x03, 0, b"", frame(PADI, 0, tag(0x0101, b"") + tag(0x0102, b"", 0xFFF8) + b"3" * 8))
    seeds["vs-count-256"] = seed(0x03, 0, b"", frame(PADI, 0, tag(0x0105, b"") * 256))
    seeds["vs-two"] = seed(0x03, 0, b"", frame(PADI, 0, vs(1, [(1, b"a")]) + vs(2, [(1, b"b")])))
    seeds["eol-not-last"] = seed(0x43, 0, b"", frame(PADI, 0, EOL + SN))
    seeds["eol-length"] = seed(0x43, 0, b"", frame(PADI, 0, SN + tag(0, b"\0\0")))
    seeds["tag-past-payload"] = seed(0x43, 0, b"", frame(PADI, 0, SN + tag(0x0103, b"\1\2\3", 10)))
    seeds["version"] = seed(0x43, 0, b"", frame(PADI, 0, b"", vt=0x21))
    seeds["session"] = seed(0x43, 0, b"", frame(PADI, 1, SN))
    seeds["padt-tags"] = seed(0x43, 0, b"", frame(PADT, 9, SN))
    seeds["full-1390"] = seed(0x03, 0, b"", frame(PADI, 0, tag(0x0101, b"x" * 1380)))
    seeds["full-replace"] = seed(0x03, 0, b"", frame(PADI, 0, tag(0x0105, b"\0") + tag(0x0101, b"x" * 1380)))
    seeds["forward-malformed"] = seed(0x80, 0, b"", b"\x42\x99\xff\xff\x10\x00\x01")
    seeds["short"] = seed(0x03, 0, b"", b"\x11\x09")
    seeds["server-pado"] = seed(0x03, 0, b"", frame(PADO, 0, SN + client_vs))
    seeds["server-pads"] = seed(0x03, 0, b"", frame(PADS, 5, SN))

    os.makedirs(OUT, exist_ok=True)
    for name in os.listdir(OUT):
        if name.endswith(".bin"):
            os.remove(os.path.join(OUT, name))
    for name, data in sorted(seeds.items()):
        with open(os.path.join(OUT, name + ".bin"), "wb") as f:
            f.write(data)
    print("%d seeds in %s" % (len(seeds), OUT))


if __name__ == "__main__":
    main()
