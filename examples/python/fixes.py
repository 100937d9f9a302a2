#!/usr/bin/python3
"""Prints the fixes of satnavd: fixes.py [HOST [PORT]]"""
import sys

import paho.mqtt.client as mqtt
from google.protobuf.message import DecodeError

import nvxproto_pb2 as pb

HEADER_LENGTH = 18

def fix_of(payload):
    """Returns the body after the envelope. Raises DecodeError if there is none."""
    header = pb.NVXHeader.FromString(payload[:HEADER_LENGTH]).header
    if header & 0xFFFF == 0 or header >> 16 & 0xFFFF != HEADER_LENGTH or header >> 32 > len(payload) - HEADER_LENGTH:
        raise DecodeError("bad envelope")
    return pb.GnssData.FromString(payload[HEADER_LENGTH:HEADER_LENGTH + (header >> 32)])

def on_message(_client, _data, message):
    try:
        fix = fix_of(message.payload)
    except DecodeError as error:
        return print("fixes: dropped a message:", error, file=sys.stderr, flush=True)
    if fix.status != 3:  # 3: valid, with a date
        return print("no valid fix, status", fix.status, flush=True)
    position = f"{fix.latitude:.6f} {fix.longitude:.6f} {fix.speed:.1f} km/h"
    print(f"{fix.utc_time_us / 1e6:.3f} {position}", flush=True)

client = mqtt.Client()
client.on_connect = lambda *_: client.subscribe("system/gnss/data")  # again after each outage
client.on_message = on_message
try:
    client.connect(sys.argv[1] if len(sys.argv) > 1 else "127.0.0.1", int(sys.argv[2]) if len(sys.argv) > 2 else 1883)
    client.loop_forever()
except KeyboardInterrupt:
    sys.exit(130)
except (OSError, ValueError) as error:
    sys.exit(f"fixes: {error}")
