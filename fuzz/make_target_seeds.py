#!/usr/bin/env python3
"""Writes the seed corpora of the fuzz targets format_fuzz, rtmsg_fuzz,
cmdp_fuzz, cmd_service_fuzz and config_fuzz into corpus/<target>/ (the packet-path target has
make_seed_corpus.py). Each target's input layout is described at the top of
its source file. Run from anywhere; the output is the same every time.
"""
import os
import struct

HERE = os.path.dirname(os.path.abspath(__file__))
REPO = os.path.dirname(HERE)


def write(target, name, data):
    d = os.path.join(HERE, "corpus", target)
    os.makedirs(d, exist_ok=True)
    with open(os.path.join(d, name), "wb") as f:
        f.write(data)


# ---- format_fuzz: flags, room, typed text ------------------------------------------------

FORMATS = [
    b"'%portname:%svlan.%cvlan'",
    b"'%hostname eth %slot/%port:%svlan.%cvlan'",
    b"'%accessnode %rack/%frame/%slot/%subslot/%port:%onuid'",
    b"'%portmac'",
    b"'%sysname %devicename %portname'",
    b"'%8portname%4svlan'",
    b"'%16portname:%5svlan'",
    b"0x01 %8slot %8port %16svlan",
    b"0x0102 %16cvlan 258 %32onuid",
    b"'abc' 0x10 %8port 'def'",
    b"'\\'quoted\\' %port'",
    b"'%svlan%cvlan'",
    b"'%unknownword'",
    b"'unterminated %port",
    b"0xZZ",
    b"%8portname",
    b"'" + b"x" * 250 + b"'",
    b"'" + b"%portname " * 30 + b"'",
    b"0x" + b"f" * 40,
    b"4294967296 %8port",
    b"''",
    b"",
    b"'%oltmac %oltonlymac %ponid %onumac'",
    b"'%255portname'",
    b"'%256portname'",
    b"0x01 %7port",
    b"0x01 %40port",
]

for i, text in enumerate(FORMATS):
    for flags, room in ((0x00, 0), (0x01, 0), (0x02, 40), (0x07, 0), (0x2C, 17), (0x50, 0), (0x23, 1)):
        write("format_fuzz", "f%02d-%02x-%03d.bin" % (i, flags, room), bytes([flags, room]) + text)


# ---- rtmsg_fuzz: flags, one route socket read ---------------------------------------------

RTM_NEWLINK, RTM_DELLINK, RESETPORT, RESETPROTO, DONE, ERROR = 0x20, 0x21, 0x144, 0x168, 3, 2


def rt_header(length, mtype):
    return struct.pack(">IH", length, mtype) + b"\0" * 18


def rt_link(mtype, unit, change=0, attrs=b"", master=0):
    body = struct.pack(">BBHiIII", 0, 0, 1, unit, 0x1043, change, master) + b"\0" * 4 + attrs
    return rt_header(24 + len(body), mtype)[:24] + body


def rt_attr(atype, value):
    a = struct.pack(">HH", 4 + len(value), atype) + value
    return a + b"\0" * ((4 - len(a) % 4) % 4)


def rt_fix(msg):
    return struct.pack(">I", len(msg)) + msg[4:]


def proto_reset(ids):
    bits = bytearray(49)
    for p in ids:
        bits[p // 8] |= 0x80 >> (p % 8)
    msg = rt_header(0, RESETPROTO) + b"\0" * 12 + bytes(bits)
    return rt_fix(msg)


def port_reset(unit):
    return rt_fix(rt_header(0, RESETPORT) + struct.pack(">BBHi", 0, 0, 0, unit) + b"\0" * 8)


def pad4(m):
    return m + b"\0" * ((4 - len(m) % 4) % 4)


READS = {
    "new-eth": rt_link(RTM_NEWLINK, 6, 0xFFFFFFFF, rt_attr(3, b"eth0/6\0")),
    "new-member": rt_link(RTM_NEWLINK, 5, 0xFFFFFFFF),
    "new-agg": rt_link(RTM_NEWLINK, 2, 0xFFFFFFFF),
    "new-port0": rt_link(RTM_NEWLINK, 7, 0xFFFFFFFF),
    "new-unknown": rt_link(RTM_NEWLINK, 99, 0xFFFFFFFF),
    "join": rt_link(RTM_NEWLINK, 1, 0, rt_attr(0x34, struct.pack(">I", 2))),
    "quit": rt_link(RTM_NEWLINK, 5, 0, rt_attr(0x35, struct.pack(">I", 2))),
    "join-quit": rt_link(RTM_NEWLINK, 1, 0, rt_attr(0x34, struct.pack(">I", 2)) + rt_attr(0x35, struct.pack(">I", 2))),
    "attr-short": rt_link(RTM_NEWLINK, 1, 0, struct.pack(">HH", 2, 0x34)),
    "attr-long": rt_link(RTM_NEWLINK, 1, 0, struct.pack(">HH", 200, 0x34) + b"\0" * 4),
    "del-eth": rt_link(RTM_DELLINK, 1, 0),
    "del-uplink": rt_link(RTM_DELLINK, 10, 0),
    "reset-port": port_reset(1),
    "reset-port-uplink": port_reset(11),
    "reset-proto-141": proto_reset([141]),
    "reset-proto-other": proto_reset([19, 140, 142]),
    "done": rt_header(24, DONE),
    "error": rt_header(28, ERROR) + struct.pack(">i", 5),
    "short-header": b"\0\0\0\x10\0\x20",
    "length-past": struct.pack(">IH", 4000, RTM_DELLINK) + b"\0" * 30,
    "length-small": struct.pack(">IH", 8, RTM_DELLINK) + b"\0" * 30,
}
for name, msg in list(READS.items()):
    for flags in (0x3, 0x1, 0x7):
        write("rtmsg_fuzz", "%s-%d.bin" % (name, flags), bytes([flags]) + msg)
# Several messages in one read, padded to 4 bytes each.
many = b"".join(pad4(READS[n]) for n in ("new-eth", "join", "quit", "reset-port", "del-eth", "reset-proto-141"))
write("rtmsg_fuzz", "many-3.bin", bytes([3]) + many)
write("rtmsg_fuzz", "many-done-3.bin", bytes([3]) + pad4(READS["new-eth"]) + READS["done"] + READS["del-eth"])
write("rtmsg_fuzz", "full-read-3.bin", bytes([3]) + (pad4(READS["new-member"]) * 200)[:3840])


# ---- cmdp_fuzz: selector, body ----------------------------------------------------------------


def call_request(code, unit, cmd, kind, word, capacity=0, data=b""):
    return struct.pack(">IIIB3xIII", code, unit, cmd, kind, word, capacity, len(data)) + data


def call_reply(result, kind, word, data=b""):
    return struct.pack(">iB3xII", result, kind, word, len(data)) + data


def shell_request(name, args):
    return bytes([len(name)]) + name + bytes([len(args)]) + b"".join(struct.pack(">q", a) for a in args)


def shell_reply(status, result, flags, output):
    return struct.pack(">iiB3xI", status, result, flags, len(output)) + output


CMDP = {
    "header-call": (0, bytes.fromhex("5050010100 00001c00000001".replace(" ", ""))),
    "header-magic": (0, bytes.fromhex("4141010100000000000000ff")),
    "header-long": (0, bytes.fromhex("50500101ffffffff00000001")),
    "call-u32": (1, call_request(1, 0, 10, 1, 0)),
    "call-set-enable": (1, call_request(2, 0, 3, 1, 1)),
    "call-text": (1, call_request(2, 0, 6, 2, 25, 25, b"'%portname:%svlan.%cvlan'")),
    "call-text-get": (1, call_request(1, 0, 6, 2, 256, 256)),
    "call-raw": (1, call_request(1, 0, 18, 3, 0, 12, b"\0" * 12)),
    "call-iter": (1, call_request(5, 3, 0, 1, 0)),
    "call-cap-big": (1, call_request(2, 0, 6, 2, 5000, 5000, b"x" * 16)),
    "call-data-past": (1, call_request(2, 0, 6, 2, 4, 4, b"abcdefgh")),
    "call-kind-9": (1, call_request(2, 0, 6, 9, 0)),
    "shell-show": (2, shell_request(b"pppoeplusShow", [])),
    "shell-args": (2, shell_request(b"pppoeplusTestForwardSet", [1, -1, 2 ** 40])),
    "shell-var": (2, shell_request(b"gPppoeplusTestForward", [])),
    "shell-empty-name": (2, shell_request(b"", [])),
    "shell-11-args": (2, shell_request(b"pppoeplusShow", list(range(11)))),
    "event-port-unit": (3, bytes([1]) + struct.pack(">IB", 7, 0)),
    "event-port-name": (3, bytes([1]) + struct.pack(">IB", 0, 4) + b"eth1"),
    "event-proto": (3, bytes([2]) + struct.pack(">HHH", 2, 141, 19)),
    "event-proto-385": (3, bytes([2]) + struct.pack(">H", 1) + struct.pack(">H", 385)),
    "event-kind-7": (3, bytes([7, 0, 0, 0, 0])),
    "reply-call": (4, call_reply(0, 1, 3561)),
    "reply-call-text": (4, call_reply(0, 2, 5, b"hello")),
    "reply-shell": (5, shell_reply(0, 7, 0, b"pppoeplus show\r\n")),
    "reply-event": (6, struct.pack(">iI", 0, 1)),
    "reply-error": (7, struct.pack(">iH", 0x3E80004, 15) + b"malformed call."),
    "reply-error-long": (7, struct.pack(">iH", 1, 300) + b"x" * 300),
}
for name, (sel, body) in CMDP.items():
    write("cmdp_fuzz", name + ".bin", bytes([sel]) + body)


# ---- cmd_service_fuzz: the request frames of one connection ---------------------------------


def call_frame(seq, body, kind=1):
    return struct.pack(">HBBII", 0x5050, 1, kind, len(body), seq) + body


def calls(*bodies):
    return b"".join(call_frame(i + 1, b) for i, b in enumerate(bodies))


TEXT = b"'%portname:%svlan.%cvlan'"
SERVICE = {
    "get-enable": calls(call_request(1, 0, 3, 1, 0)),
    "enable-then-trust": calls(call_request(2, 0, 3, 1, 1), call_request(7, 10, 1, 1, 1),
                               call_request(6, 10, 1, 1, 0)),
    "format-set-get": calls(call_request(2, 0, 5, 1, 1), call_request(2, 0, 6, 2, len(TEXT), len(TEXT), TEXT),
                            call_request(1, 0, 6, 2, 256, 256)),
    "if-format": calls(call_request(7, 1, 5, 1, 1), call_request(7, 1, 8, 2, 12, 12, b"0x01 %16svlan"),
                       call_request(6, 1, 8, 2, 256, 256)),
    "format-256": calls(call_request(2, 0, 6, 2, 256, 256, b"x" * 256)),
    "format-257": calls(call_request(2, 0, 6, 2, 257, 257, b"x" * 257)),
    "nsr-12": calls(call_request(1, 0, 18, 2, 12, 16)),
    "nsr-4": calls(call_request(1, 0, 18, 2, 4, 4), call_request(1, 0, 3, 1, 0)),
    "version-small": calls(call_request(1, 0, 9, 2, 20, 20), call_request(1, 0, 9, 2, 64, 64)),
    "raw-pointer": calls(call_request(2, 0, 6, 3, 4, 16, struct.pack("<QI4x", 0x7F0000001000, 4))),
    "u32-for-text": calls(call_request(2, 0, 6, 1, 0x41414141)),
    "text-lies": calls(call_request(2, 0, 6, 2, 30, 30, b"abc")),
    "iterate": calls(call_request(4, 0, 0, 1, 0), call_request(5, 1, 0, 1, 0), call_request(5, 10, 0, 1, 0)),
    "clear": calls(call_request(7, 1, 17, 1, 0), call_request(6, 1, 11, 1, 0)),
    "enable-off": calls(call_request(2, 0, 3, 1, 2), call_request(4, 0, 0, 1, 0)),
    "shell-kind": call_frame(1, shell_request(b"pppoeplusShow", []), kind=2),
    "cut-short": call_frame(1, call_request(1, 0, 3, 1, 0))[:20],
}
for name, data in SERVICE.items():
    write("cmd_service_fuzz", name + ".bin", data)


# ---- config_fuzz: a configuration text ------------------------------------------------------

with open(os.path.join(REPO, "examples", "pppoeplus.conf"), "rb") as f:
    write("config_fuzz", "example.conf", f.read())
CONFIGS = {
    "lab": b"pppoeplus.defaultenable = true\npppoeplus.defaultportenable = true\nplatform.exclude = c1 s2\n"
           b"port.p1 = kind=eth slot=1 port=2\nplatform.hwrule = none\n",
    "junk": b"this line is wrong\n= value\nkey =\nunknown.key = 1\npppoeplus.nosuch = 2\nplatform.nosuch = 3\n"
            b"port.bad/name = kind=eth\nport.p1 = kind=ufo\nport.p2 = slot=x\nport.p3 =\n",
    "quotes": b'platform.devicename = "olt 1"\nplatform.sysname = "\nplatform.exclude = "eth0, mgmt*"\n',
    "numbers": b"pppoeplus.maxifnum = 0x14\npppoeplus.maxsubsysnum = 4294967296\nplatform.vendorid = 0xFFFFFFFF\n"
               b"platform.tpid.single = 0x88a8\n",
    "dupes": b"platform.hwrule = nft\nplatform.hwrule = none\nport.p1 = kind=eth\nport.p1 = kind=none\n",
    "crlf": b"pppoeplus.defaultenable = true\r\n# comment\r\n   \r\nplatform.rxring = no\r\n",
    "nul": b"platform.sysname = a\0b\nplatform.devicename = ok\n",
    "long-line": b"platform.sysname = " + b"x" * 1100 + b"\nplatform.devicename = " + b"y" * 600 + b"\n",
    "first-line-number": b"0x1F\n",
    "first-line-mac": b"02:00:00:00:00:01\n",
    "operational": b"agent.enable = on\nagent.policy = replace\nagent.debug = 0x9\nagent.vendor-id = 3561\n"
                   b"agent.circuit-id-type = userdefine\nagent.circuit-id-format = '%portname/%svlan'\n"
                   b"if.eth*.trust = off\nif.eth48.trust = on\nif.eth4[0-9].policy = keep\nif.eth0.100.ignore-pkt = on\n"
                   b"if.sw?p*.circuit-id-format = \" 'x' \"\nif.eth1.remote-id-type = ascii\n",
    "operational-junk": b"agent.version = 1\nagent.3 = on\nif.trust = on\nif.eth/1.trust = on\nif.eth1.nosuch = 1\n"
                        b"if.eth1.padi-rcv = 0\nif.eth1.policy = sometimes\nagent.circuit-id-format = " + b"a" * 300 +
                        b"\nif.eth1.policy = keep\nif.eth1.policy = drop\nif." + b"*" * 70 + b".trust = on\n",
    "first-line-port": b"kind=gpon sys=1 slot=2 port=3 subport=4\n",
}
for name, text in CONFIGS.items():
    write("config_fuzz", name + ".conf", text)


# ---- control_fuzz: a control request body ---------------------------------------------------

CONTROLS = {
    "get": b'{"op":"get","name":"fuzz-rate"}',
    "set": b'{"op":"set","name":"fuzz-rate","value":500}',
    "set-too-big": b'{"op":"set","name":"fuzz-rate","value":4294967296}',
    "set-negative": b'{"op":"set","name":"fuzz-rate","value":-1}',
    "set-text": b'{"op":"set","name":"fuzz-rate","value":"5"}',
    "set-if": b'{"op":"set","name":"fuzz-rate","if":"nosuch0","value":5}',
    "unknown": b'{"op":"nosuch"}',
    "root": b'{"op":"root-thing"}',
    "no-op": b'{"name":"fuzz-rate"}',
    "array": b'[1,2,3]',
    "deep": b'[' * 4000 + b']' * 4000,
    "broken": b'{"op":"get",',
    "bad-utf8": b'{"op":"\xff\xfe"}',
}
for name, text in CONTROLS.items():
    write("control_fuzz", name + ".json", text)
