#!/usr/bin/env python3
"""Writes the fuzzers' seeds: small inputs that are as they should be, from which a fuzzer departs.

    tests/fuzz/make_seeds.py        writes tests/fuzz/seeds/FUZZER/NAME
"""

import json
import pathlib
import struct

SEEDS = pathlib.Path(__file__).resolve().parent / "seeds"


def write(fuzzer, name, data):
    file = SEEDS / fuzzer / name
    file.parent.mkdir(parents=True, exist_ok=True)
    file.write_bytes(data if isinstance(data, bytes) else data.encode())
    assert file.stat().st_size < 4096, file


# Streams: a setting byte, packet size, payload size / 8; steps of length, milliseconds, datagram; lengths from 240 are acts.

CAN_RESEND, TELLS_PAYLOAD, PATTERNED, ATTENTIVE = 1, 2, 4, 8
MAKE_BUFFER, RETRIEVE, DESTROY, REQUEUE, REQUEUE_OTHER, ABORT, WAIT = range(240, 247)


class Block:
    """The packets of a block of 80 bytes, in packets of 58 bytes."""

    packet_bytes = 58

    def __init__(self, number, extended=False, data=bytes(range(80))):
        self.number, self.extended, self.data = number, extended, data
        self.step = self.packet_bytes - (48 if extended else 36)

    def header(self, kind, packet, status=0):
        if self.extended:
            return struct.pack(">HHBBHQI", status, 0, kind | 0x80, 0, 0, self.number, packet)
        return struct.pack(">HHI", status, self.number, kind << 24 | packet)

    def leader(self):
        return self.header(1, 0) + struct.pack(">HHQIIIIIHH", 0, 1, 1000 + self.number, 0x01080001, len(self.data), 1, 0,
                                               0, 0, 0)

    def payload(self):
        return [self.header(3, 1 + at // self.step) + self.data[at:at + self.step]
                for at in range(0, len(self.data), self.step)]

    def trailer(self):
        return self.header(2, 1 + len(self.payload())) + struct.pack(">HHI", 0, 1, 1)

    def packets(self):
        return [self.leader(), *self.payload(), self.trailer()]


def steps(*parts):
    return b"".join(bytes([len(part), 1]) + part if isinstance(part, bytes) else bytes(part) for part in parts)


def stream(settings, *parts, payload=80):
    return bytes([settings, Block.packet_bytes, payload // 8]) + steps(*parts)


def chunked(size):
    data = bytes(range(16)) + struct.pack(">II", 0xD001, 16) + bytes(8) + struct.pack(">II", 0xD002, 8)
    return data.rjust(size, b"\x11")


def gvsp_packets():
    one, two, three = Block(1), Block(2), Block(3)
    write("gvsp_packets", "two_blocks", stream(TELLS_PAYLOAD | PATTERNED, *one.packets(), *two.packets(), [RETRIEVE, 0],
                                               [REQUEUE, 0], *three.packets()))
    lost = [part for at, part in enumerate(one.packets()) if at not in (2, 3)]
    write("gvsp_packets", "resend", stream(CAN_RESEND | TELLS_PAYLOAD, *lost, [WAIT, 5], one.packets()[2], [WAIT, 5],
                                           one.packets()[3], [RETRIEVE, 0]))
    gone = one.header(3, 2, 0x800C)
    write("gvsp_packets", "gone", stream(CAN_RESEND, *lost, [WAIT, 5], gone, [WAIT, 30], *two.packets(), [WAIT, 255]))
    crossed = [part for pair in zip(one.packets(), two.packets()) for part in pair]
    write("gvsp_packets", "crossed", stream(PATTERNED | ATTENTIVE, *crossed, *two.packets()))
    long = Block(1 << 40, extended=True)
    write("gvsp_packets", "long_ids", stream(TELLS_PAYLOAD | PATTERNED, *long.packets(), *Block(7).packets()))
    last, first = Block(0xFFFF), Block(1)
    write("gvsp_packets", "ids_go_round", stream(PATTERNED, *last.packets(), *first.packets()))
    write("gvsp_packets", "too_small", stream(0, [DESTROY, 0], [DESTROY, 0], [MAKE_BUFFER, 3], *one.packets(),
                                              *two.packets(), payload=40))
    write("gvsp_packets", "acts", stream(CAN_RESEND, *one.packets()[:3], [DESTROY, 0], *one.packets()[3:], [ABORT, 0],
                                         [RETRIEVE, 0], [REQUEUE_OTHER, 0, 20], *two.packets(), [RETRIEVE, 0]))
    write("gvsp_packets", "chunks", stream(0, *Block(1, data=chunked(80)).packets(), [RETRIEVE, 0]))


def chunk_trailers():
    picture = bytes(range(40))
    chunks = struct.pack("<d", 2.5) + struct.pack(">II", 0x1010, 8) + struct.pack("<Q", 77) + struct.pack(">II", 0x1011, 8)
    write("chunk_trailers", "after_picture", struct.pack(">H", len(picture)) + picture + chunks)
    write("chunk_trailers", "picture_is_chunk",
          struct.pack(">H", len(picture)) + picture + struct.pack(">II", 1, len(picture)) + chunks)
    write("chunk_trailers", "size_unknown", struct.pack(">H", 0) + chunks)
    write("chunk_trailers", "none", struct.pack(">H", len(picture)) + picture)


def answer(kind, payload, number=1, status=0):
    return struct.pack(">HHHH", status, kind, len(payload), number) + payload


def network(*events):
    """Each a byte of what happens and a datagram of an even length."""
    return b"".join(bytes([len(data) // 2, what]) + data for what, data in events)


def gvcp_acknowledges():
    refused, error, fitting = 1, 2, 4
    value = answer(0x81, struct.pack(">I", 2))
    identity = bytearray(248)
    for at, text in ((0x48, b"JAI Corporation"), (0x68, b"GO-5100M-PGE"), (0x88, b"1.0"), (0xD8, b"A42"), (0xE8, b"eye")):
        identity[at:at + len(text)] = text
    write("gvcp_acknowledges", "value", network((0, value), (0, answer(0x81, bytes(4), 2))))
    write("gvcp_acknowledges", "refusal", network((0, answer(0x81, b"", status=0x8006)), (fitting, value)))
    write("gvcp_acknowledges", "errors", network((error, b""), (refused, b""), (refused, b""), (refused, b"")))
    write("gvcp_acknowledges", "wrong_number", network((0, answer(0x81, bytes(4), 9)), (0, value)))
    write("gvcp_acknowledges", "identity", network((fitting, answer(3, bytes(identity)))))


def command(kind, payload, what=0, wait=0):
    data = struct.pack(">BBHHH", 0x42, 1, kind, len(payload), 7) + payload
    data += bytes(-len(data) % 3)
    return bytes([what | 8, len(data) // 3, wait]) + data


def gvcp_commands():
    take, of_register = 32, 16
    discovery, forceip, resend, readreg, writereg, readmem, writemem, _ = range(8)  # as the fuzzer counts them
    control = command(writereg, struct.pack(">II", 0xA00, 2))
    write("gvcp_commands", "discovery", b"\0" + command(discovery, b"") + command(discovery, b"", 4))
    write("gvcp_commands", "force_ip", b"\0" + command(forceip, bytes(56)))
    write("gvcp_commands", "control", b"\1" + control + command(readreg, struct.pack(">II", 0xA00, 0x938), 1)
          + command(writereg, struct.pack(">II", 0x938, 500)) + command(readreg, struct.pack(">I", 0), 2, 200))
    write("gvcp_commands", "memory", b"\0" + command(readmem, struct.pack(">II", 0x200, 512))
          + command(writemem, struct.pack(">I", 0xE8) + b"left eye".ljust(16, b"\0"), take))
    write("gvcp_commands", "stream", b"\2" + control + command(writereg, struct.pack(
        ">IIIIII", 0xD18, 0x7F000001, 0xD00, 50000, 0xD04, 1400))
        + command(resend, struct.pack(">HHIII", 0, 1, 0, 5, 0)[:12]))
    registers = b"".join(struct.pack(">II", place, 1) for place in range(0, 60))
    write("gvcp_commands", "features", b"\4" + command(writereg, registers, take | of_register)
          + command(readreg, b"".join(struct.pack(">I", place) for place in range(100)), of_register))
    # Reads a limit or value of every register of eight bytes, writes it back, and starts whatever is a command.
    wide = b"".join(command(writemem, struct.pack(">Id", place, 1000.0), take | of_register) for place in range(0, 90, 3))
    write("gvcp_commands", "wide_registers", b"\0" + wide)
    write("gvcp_commands", "everything_is_one", b"\0" + b"".join(
        command(writereg, struct.pack(">II", place, 1), take | of_register) for place in range(0, 120)))


DESCRIPTION_HEAD = ('<RegisterDescription ModelName="M" VendorName="V" StandardNameSpace="None" SchemaMajorVersion="1" '
                    'SchemaMinorVersion="1" SchemaSubMinorVersion="0" MajorVersion="1" MinorVersion="0" '
                    'SubMinorVersion="0" xmlns="http://www.genicam.org/GenApi/Version_1_1">')
DESCRIPTION_TAIL = '<Port Name="Device"/></RegisterDescription>'
REGISTER = ('<Address>{address}</Address><Length>{length}</Length><AccessMode>RW</AccessMode><pPort>Device</pPort>'
            '{more}<Endianess>{end}Endian</Endianess>')


def register(address, length=4, more="<Sign>Unsigned</Sign>", end="Big"):
    return REGISTER.format(address=address, length=length, more=more, end=end)


def description(name, *nodes, memory=bytes(8)):
    write("camera_description", name, memory + (DESCRIPTION_HEAD + "".join(nodes) + DESCRIPTION_TAIL).encode())


def camera_description():
    int_reg = f'<IntReg Name="R">{register("0x100")}</IntReg>'
    description("integer", '<Integer Name="I"><pValue>R</pValue><Min>1</Min><Max>99</Max><Inc>2</Inc></Integer>', int_reg)
    description("linked_limits", '<Integer Name="I"><pValue>R</pValue><pMin>L</pMin><pMax>H</pMax><pInc>L</pInc></Integer>',
                '<Integer Name="L"><Value>1</Value></Integer><Integer Name="H"><Value>64</Value></Integer>', int_reg)
    description("masked", '<MaskedIntReg Name="I">', register("0x100", more="<LSB>15</LSB><MSB>8</MSB><Sign>Signed</Sign>"),
                '</MaskedIntReg>', memory=b"\xff\x01\x80\x00\x7f\xff\x00\x01")
    description("float", '<Float Name="F"><pValue>R</pValue><Min>-1.5</Min><Max>100.25</Max></Float>',
                f'<FloatReg Name="R">{register("0x100", 8, "")}</FloatReg>', memory=b"\x40\x09\x21\xfb\x54\x44\x2d\x18")
    description("converter", '<Converter Name="C"><pVariable Name="X">R</pVariable><FormulaTo>FROM * 10</FormulaTo>'
                '<FormulaFrom>TO / X</FormulaFrom><pValue>R</pValue></Converter>', int_reg)
    description("formula", '<IntSwissKnife Name="K"><pVariable Name="X">R</pVariable>'
                '<Formula>(X &gt; 3) ? (X &lt;&lt; 2) : (X % 5 + ~X)</Formula></IntSwissKnife>'
                '<SwissKnife Name="S"><pVariable Name="X">R</pVariable><Formula>SQRT(X) / 4.0 + SIN(X)</Formula></SwissKnife>',
                int_reg)
    description("boolean", '<Boolean Name="B"><pValue>R</pValue><OnValue>7</OnValue><OffValue>0</OffValue></Boolean>', int_reg)
    description("command", '<Command Name="C"><pValue>R</pValue><CommandValue>48</CommandValue></Command>', int_reg)
    description("text", f'<StringReg Name="T">{register("0x48", 32, "")}</StringReg>', memory=b"a text\0!")
    description("enumeration", '<Enumeration Name="E"><EnumEntry Name="First"><Value>0</Value></EnumEntry>'
                '<EnumEntry Name="Sometimes"><pIsAvailable>R</pIsAvailable><Value>10</Value></EnumEntry>'
                '<EnumEntry Name="Never"><pIsImplemented>Z</pIsImplemented><Value>40</Value></EnumEntry>'
                '<pValue>R</pValue></Enumeration><Integer Name="Z"><Value>0</Value></Integer>', int_reg)
    description("states", '<Integer Name="I"><pIsLocked>R</pIsLocked><pIsAvailable>R</pIsAvailable>'
                '<ImposedAccessMode>RO</ImposedAccessMode><pValue>R</pValue></Integer>', int_reg)
    description("cached", f'<IntReg Name="R">{register("0x100")}<Cachable>WriteThrough</Cachable>'
                '<pInvalidator>S</pInvalidator><PollingTime>100</PollingTime></IntReg>',
                f'<IntReg Name="S">{register("0x104", end="Little")}</IntReg>')
    description("indexed", '<IntReg Name="R"><pAddress>A</pAddress><pIndex Offset="4">X</pIndex><Length>4</Length>'
                '<AccessMode>RW</AccessMode><pPort>Device</pPort></IntReg><Integer Name="A"><Value>0x200</Value></Integer>'
                '<Integer Name="X"><Value>3</Value></Integer>'
                '<Integer Name="V"><pIndex>X</pIndex><ValueIndexed Index="3">5</ValueIndexed>'
                '<ValueDefault>9</ValueDefault></Integer>')
    description("packet_size", '<Integer Name="GevSCPSPacketSize"><pValue>R</pValue><Min>576</Min><Max>9000</Max>'
                '<Inc>4</Inc></Integer><Integer Name="GevStreamChannelSelector"><Value>0</Value></Integer>', int_reg)
    description("struct", '<StructReg Comment="S"><Address>0x100</Address><Length>4</Length><AccessMode>RW</AccessMode>'
                '<pPort>Device</pPort><StructEntry Name="A"><Bit>3</Bit></StructEntry>'
                '<StructEntry Name="B"><LSB>4</LSB><MSB>7</MSB></StructEntry></StructReg>')
    description("group", f'<Group Comment="G"><IntReg Name="R">{register("0x100", 8)}</IntReg></Group>'
                '<Category Name="Root"><pFeature>R</pFeature></Category>')


def configuration_file():
    write("configuration_file", "empty", "")
    write("configuration_file", "camera", '[camera]\nmodel = "GO-5100M"\nserial = "A\\u00e42"\n'
          '[image]\nwidth = 640\nheight = 480\noffset_x = 8\noffset_y = 2\nformat = "mono12p"\nrotate = 180\n'
          '[transport]\npacket_size = "auto"\n')
    write("configuration_file", "automatic", '[exposure]\nmode = "auto"\nlimits_us = [100, 2000.5]\n[gain]\nmode = "auto"\n'
          'limits_db = [0.0, 12.0]\n[auto]\nbrightness = 40\narea = "middle"\n[timing]\nframe_rate = 25.0\n'
          'clock_correction = -3\n')
    write("configuration_file", "manual", 'exposure = {mode = "manual", time_us = 1e3}\n[gain]\nmode = "manual"\ndb = 6\n'
          '[tone]\nenable = true\ngamma = 0.45\ncontrast_limit = 3.5\npercentiles = [1, 99.5]\n')
    write("configuration_file", "table", '[tone]\nenable = true\nlut = "curve.csv"\nlut_bits = 12\n')
    write("configuration_file", "lines", '[[line]]\npin = "Out1"\nsource = "exposure_active"\ninverted = true\n'
          '[[line]]\npin = "Out2"\nsource = "low"\n')
    write("configuration_file", "running", '[memory]\nbuffers = 8\nexport_buffers = 4\n[run]\nframes = 100\n'
          'grace_time_s = 2.5\nretry_interval_s = 1\ngive_up_after = "never"\n[output]\ndirectory = "a/b"\nformat = "bigtiff"\n'
          'compression = "deflate"\n[control]\nsocket = "none"\n[log]\nlevel = "debug"\nsinks = ["stdout", "syslog"]\n'
          'instance = 3\n')
    write("configuration_file", "spellings", "# comment\n'image'.\"width\" = 0x280\nimage.height = 0o740 # octal\n"
          'timing.frame_rate = inf\nlog.level = """\\\n  info"""\nrun.frames = 1_000\nexposure.time_us = nan\n'
          "output.directory = '''a\n\\b'''\nx = 1979-05-27T07:32:00Z\n")


def control_request():
    def request(*settings, **more):
        return json.dumps({"set": settings, **more}) + "\n"

    write("control_request", "one", request("gain.db=6"))
    write("control_request", "several", request("gain.db=6.5", "exposure.time_us=2000", "timing.frame_rate=25", timeout_s=5))
    write("control_request", "text", request("tone.gamma=0.45", 'gain.mode="auto"', "exposure.mode=auto"))
    write("control_request", "not_while_running", request("image.width=640", "log.level=debug"))
    write("control_request", "table", request("tone.lut=/nonexistent/curve.csv", "tone.lut_bits=12"))
    write("control_request", "limits", request("gain.limits_db=[0, 12]", "auto.brightness=40", timeout_s=0.25))
    write("control_request", "answer", json.dumps({"status": 9, "lines": ["gain.db: asked for 6, the camera has 5.9"]}))


def tiff(bits, entries, big=False):
    order = ">" if big else "<"
    data = b"".join(struct.pack(order + ("B" if bits == 8 else "H"), each) for each in entries)
    tags = [(256, 4, len(entries)), (257, 4, 1), (258, 3, bits), (259, 3, 1), (262, 3, 1), (273, 4, 8), (277, 3, 1),
            (278, 4, 1), (279, 4, len(data))]
    fields = b"".join(
        struct.pack(order + "HHI", tag, kind, 1) + struct.pack(order + ("HH" if kind == 3 else "I"), *([value, 0] if kind == 3 else [value]))
        for tag, kind, value in tags)
    return (b"MM\0*" if big else b"II*\0") + struct.pack(order + "I", 8 + len(data)) + data + struct.pack(
        order + "H", len(tags)) + fields + bytes(4)


def npy(kind, data, shape, version=1):
    text = f"{{'descr': '{kind}', 'fortran_order': False, 'shape': ({shape},), }}"
    text = text.ljust(117) + "\n"
    return b"\x93NUMPY" + bytes([version, 0]) + struct.pack("<H" if version == 1 else "<I", len(text)) + text.encode() + data


def lookup_table_file():
    csv, tif, numpy = b"\0", b"\1", b"\2"
    values = [each * 16 for each in range(256)]
    write("lookup_table_file", "csv", csv + "\n".join(map(str, values)).encode())
    write("lookup_table_file", "csv_indexed", csv + b"index;value # counted\n" + b"".join(b"%d, %d\n" % (i, i) for i in range(256)))
    write("lookup_table_file", "csv_fractions", csv + b" ".join(b"%.3f" % (i / 299) for i in range(300)))
    write("lookup_table_file", "tiff8", tif + tiff(8, range(256)))
    write("lookup_table_file", "tiff16", bytes([1 + 3 * 5]) + tiff(16, values, big=True))
    write("lookup_table_file", "npy_u1", numpy + npy("|u1", bytes(range(256)), 256))
    write("lookup_table_file", "npy_u2", bytes([2 + 3 * 5]) + npy(">u2", struct.pack(">256H", *values), 256, 2))
    write("lookup_table_file", "npy_f4", numpy + npy("<f4", struct.pack("<257f", *[i / 256 for i in range(257)]), 257))
    write("lookup_table_file", "npy_f8", numpy + npy("<f8", struct.pack("<256d", *[i / 255 for i in range(256)]), 256, 3))


for make in (gvsp_packets, chunk_trailers, gvcp_acknowledges, gvcp_commands, camera_description, configuration_file,
             control_request, lookup_table_file):
    make()
