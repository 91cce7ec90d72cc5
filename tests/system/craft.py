#!/usr/bin/python3
"""Sends crafted PPPoE discovery frames (and marker frames) with scapy.

Usage: craft.py IFACE FRAME...

Each FRAME is a comma-separated list of key=value words:
  code=padi|pado|padr|pads|padt|marker|0xNN   (default padi; marker is an
                              Ethernet frame of type 0x88b5 that a bridge forwards)
  src=MAC  dst=MAC            (dst defaults to the broadcast address)
  outer=VID[:PRI]             one VLAN tag (0x8100), or the outer one (0x88a8)
  inner=VID[:PRI]             the inner tag of a double-tagged frame (0x8100)
  session=N                   PPPoE session id (default 0)
  uniq=HEX                    a Host-Uniq tag with these bytes
  vs=HEX                      a Vendor-Specific tag with these bytes (vendor id first)
  eol=1                       an End-of-List tag at the end
All frames go out in the order given, on one socket.
"""
import sys

from scapy.all import Dot1Q, Ether, PPPoED, PPPoED_Tags, PPPoETag, Raw, conf, sendp

CODES = {"padi": 0x09, "pado": 0x07, "padr": 0x19, "pads": 0x65, "padt": 0xA7}


def vlan(text):
    vid, _, pri = text.partition(":")
    return int(vid, 0), int(pri or "0", 0)


def build(description):
    words = dict(w.split("=", 1) for w in description.split(",") if w)
    src = words.get("src", "02:00:00:00:0c:00")
    dst = words.get("dst", "ff:ff:ff:ff:ff:ff")
    code = words.get("code", "padi")
    if code == "marker":
        return Ether(src=src, dst=dst, type=0x88B5) / Raw(b"pppoeplus system test marker")
    outer = vlan(words["outer"]) if "outer" in words else None
    inner = vlan(words["inner"]) if "inner" in words else None
    if outer and inner:
        frame = Ether(src=src, dst=dst, type=0x88A8) / Dot1Q(vlan=outer[0], prio=outer[1], type=0x8100)
        frame = frame / Dot1Q(vlan=inner[0], prio=inner[1])
    elif outer:
        frame = Ether(src=src, dst=dst) / Dot1Q(vlan=outer[0], prio=outer[1])
    else:
        frame = Ether(src=src, dst=dst)
    tags = [PPPoETag(tag_type=0x0101, tag_value=b"")]  # Service-Name, empty: any service
    if "uniq" in words:
        tags.append(PPPoETag(tag_type=0x0103, tag_value=bytes.fromhex(words["uniq"])))
    if "vs" in words:
        tags.append(PPPoETag(tag_type=0x0105, tag_value=bytes.fromhex(words["vs"])))
    if words.get("eol") == "1":
        tags.append(PPPoETag(tag_type=0x0000, tag_value=b""))
    number = CODES.get(code)
    if number is None:
        number = int(code, 0)
    return frame / PPPoED(code=number, sessionid=int(words.get("session", "0"), 0)) / PPPoED_Tags(tag_list=tags)


def main():
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    conf.verb = 0
    frames = [build(d) for d in sys.argv[2:]]
    sendp(frames, iface=sys.argv[1], verbose=False)


if __name__ == "__main__":
    main()
