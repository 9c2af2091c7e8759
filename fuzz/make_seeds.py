#!/usr/bin/env python3
"""Writes the seed corpora of the fuzz targets: one well-formed message of each
kind the target takes, in the form the target reads (selector byte, length
mode byte, extra byte, payload). Run from the repository root."""
import os
import struct

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "corpus")


def put(target, name, data):
    d = os.path.join(ROOT, target)
    os.makedirs(d, exist_ok=True)
    with open(os.path.join(d, name), "wb") as f:
        f.write(data)


def msg(selector, payload, mode=0, extra=0):
    return bytes([selector, mode, extra]) + payload


def can_frame(can_id, data):
    return bytes(12) + struct.pack("<I", can_id) + bytes(4) + data


def j1939_table(rows):
    out = bytearray(6048)
    for i, (rid, length, pgn, startbit, startbyte, offset, res) in enumerate(rows):
        struct.pack_into("<IiIII", out, 84 * i, rid, length, 1, pgn, 0)
        struct.pack_into("<II", out, 84 * i + 24, startbit, startbyte)
        struct.pack_into("<dd", out, 84 * i + 36, offset, res)
    return bytes(out)


# fuzz_signals: selector = index of the handler in its table.
signals = [
    ("io", 0, struct.pack("<I", 0x0005)),
    ("panic", 1, bytes([0x31, 1, 0, 0])),
    ("acc", 2, bytes(6) + struct.pack("<HHH", 0x0500, 0x8180, 0x0100) + bytes(28)),
    ("gps", 3, bytes(8) + bytes([2]) + bytes(43)),
    ("speed", 4, bytes([0, 0, 0, 0]) + struct.pack("<I", 100) + bytes(4)),
    ("vehicle", 5, struct.pack("<IH", 0x0B, 3) + bytes(6) + struct.pack("<hh", 45, 50) + bytes(4)
     + struct.pack("<hh", 40, 25) + struct.pack("<I", 1) + bytes([12, 34]) + bytes(18)
     + struct.pack("<I", 9) + bytes([1]) + bytes(11)),
    ("alpr", 6, bytes(8) + bytes([0x1F, 1, 2, 3, 4, 5]) + bytes(2)),
    ("motion", 7, bytes(32) + bytes([1] * 16)),
    ("ipc", 8, bytes(8) + b"".join(bytes([i % 2, 0, 0, 0, 0, 0, 3]) + bytes(193) for i in range(16))),
    ("j1939table", 9, j1939_table([(0, 16, 65265, 0, 1, 0.0, 1 / 256.0),
                                   (1, 16, 61444, 0, 3, 0.0, 0.125)])),
    ("can", 10, can_frame(0x18FEF100, bytes([0xFF, 0x00, 0x32, 0, 0, 0, 0, 0]))),
]
for name, sel, payload in signals:
    put("fuzz_signals", name, msg(sel, payload))
put("fuzz_signals", "speed-claims-more", msg(4, bytes(12), mode=1, extra=3))

# fuzz_storage: write reply, size reply, announcement, state query.
put("fuzz_storage", "write-ok", msg(0, bytes(8)))
put("fuzz_storage", "write-fd", msg(0, bytes([0, 0xFD]) + bytes(6)))
put("fuzz_storage", "size", msg(1, bytes(24) + struct.pack("<Q", 144)))
put("fuzz_storage", "announce", msg(2, bytes(4)))
put("fuzz_storage", "query", msg(3, b""))

# fuzz_provisioning: bit 7 of the selector picks 6796 over 39564.
rules = (b'{"DUMMY100":[{"ID":7,"ATLEAST":5,"SPEED":{"GT":60.0}},'
         b'{"ID":8,"STARTIME":"0/0/0 08:00:00","ENDTIME":"0/0/0 17:00:00","IN1":{"EQ":1.0}}],'
         b'"CIRCLE100":[{"ID":8}],"LINE100":[],"POLY100":[],"RECT100":[]}')
put("fuzz_provisioning", "ruleset", msg(0x40, rules))
put("fuzz_provisioning", "arealine", msg(0x40, b'{"AREALINE":[{"ID":8}]}'))
put("fuzz_provisioning", "add", msg(0xC0, b'{"SOURCE":100,"CMD":1,"DUMMY":[{"ID":9,"PANIC":{"EQ":1.0}}],"RECT":[{"ID":9}]}'))
put("fuzz_provisioning", "delete", msg(0xC0, b'{"SOURCE":100,"CMD":3,"DUMMYIDS":[{"ID":7}]}'))
put("fuzz_provisioning", "delete-all", msg(0xC0, b'{"SOURCE":100,"CMD":4}'))
put("fuzz_provisioning", "cover", msg(0xC0, b'{"SOURCE":100,"CMD":5,"DUMMY":[{"ID":8,"SPEED":{"LT":10.0}}]}'))

# fuzz_areas: bit 0 of the selector picks 6795 over 6689.
put("fuzz_areas", "fence-state", msg(0, bytes([1, 0, 0, 0]) + struct.pack("<I", 8) + bytes(3344)))
put("fuzz_areas", "fence-event", msg(1, b'{"SOURCE":100,"EVENT":1,"ID":8}'))

# fuzz_datetime and fuzz_rule_parser take the text as it is.
for i, text in enumerate([b"2021/06/15 08:30:00", b"0/0/0 0:0:0", b"2021/1a/05 00:00:5x",
                          b"2100/01/01 00:00:00"]):
    put("fuzz_datetime", "text%d" % i, text)
put("fuzz_rule_parser", "ruleset", rules)
put("fuzz_rule_parser", "add", b'{"DUMMY":[{"ID":1,"GT":5,"SPEED":{"GT":5,"LT":2.5}},[1],"x",{"ID":"2"}],"CIRCLE":[3,{"ID":4}]}')

# fuzz_bus: byte 0 picks the broker (0) or the client (1); then records of a
# sender byte, a u16 length and the frame (wire layout in BusProtocol.h).


def frame(op, peer, session, id_word, payload, length_delta=0):
    return struct.pack("<IIIII", op, peer, session, id_word,
                       len(payload) + length_delta) + payload


def words(*ws):
    return struct.pack("<%dI" % len(ws), *ws)


def records(*recs):
    return b"".join(bytes([who]) + struct.pack("<H", len(f)) + f for who, f in recs)


put("fuzz_bus", "subscribe-send", bytes([0]) + records(
    (0, words(1, 1289)), (0, words(2, 0x441, 0xc8f)), (1, frame(4, 0, 1, 0x441, bytes(48))),
    (1, frame(4, 0, 2, 0x10000 | 0xc8f, b"request"))))
put("fuzz_bus", "respond", bytes([0]) + records(
    (1, words(2, 0x200)), (0, frame(4, 0, 7, 0x10200, b"ask")),
    (1, frame(5, 1, 7, 0x8200, b"answer")), (1, frame(5, 99, 7, 0x8200, b"nobody"))))
put("fuzz_bus", "unsubscribe", bytes([0]) + records(
    (0, words(2, 5, 6)), (0, words(3, 5)), (1, frame(4, 0, 1, 5, b"gone")),
    (1, frame(4, 0, 2, 6, b"kept"))))
put("fuzz_bus", "broker-malformed", bytes([0]) + records(
    (0, b"\x04\x00"), (0, words(9)), (0, words(1)), (0, words(2, 0x10000)),
    (0, frame(4, 0, 1, 0x441, b"long", 1)), (0, frame(4, 0, 1, 0x441, b"short", -1)),
    (0, frame(4, 0, 1, 0x30000, b"id")), (0, frame(6, 0, 1, 0x441, b"deliver"))))
put("fuzz_bus", "client-deliveries", bytes([1]) + records(
    (0, frame(6, 9, 1, 0x441, bytes(28))), (0, frame(6, 9, 2, 0xc8f, bytes(40))),
    (0, frame(6, 9, 3, 0x8441, b"")), (0, frame(6, 9, 4, 0x441, b"x", 1)),
    (0, frame(4, 9, 5, 0x441, b"sent")), (0, b"\x06\x00\x00\x00\x09")))
