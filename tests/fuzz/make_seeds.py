#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Writes the fuzzers' seeds: small valid inputs, which the fuzzers mutate.

    tests/fuzz/make_seeds.py        writes tests/fuzz/seeds/FUZZER/NAME
"""

import io
import json
import pathlib
import struct
import zipfile

SEEDS = pathlib.Path(__file__).resolve().parent / "seeds"


def write(fuzzer, name, data):
    file = SEEDS / fuzzer / name
    file.parent.mkdir(parents=True, exist_ok=True)
    file.write_bytes(data if isinstance(data, bytes) else data.encode())
    assert file.stat().st_size < 4096, file


# Streams: setting flags, packet size, payload size / 8; steps of length, milliseconds, datagram; lengths from 240 are actions.

CAN_RESEND, KNOWN_PAYLOAD, PATTERNED, POLL_ALWAYS = 1, 2, 4, 8
MAKE_BUFFER, RETRIEVE, DESTROY, REQUEUE, REQUEUE_OTHER, ABORT, WAIT = range(240, 247)


class Block:
    """A block of 80 bytes, in packets of 58 bytes."""

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
    write("gvsp_packets", "two_blocks", stream(KNOWN_PAYLOAD | PATTERNED, *one.packets(), *two.packets(), [RETRIEVE, 0],
                                               [REQUEUE, 0], *three.packets()))
    lost = [part for at, part in enumerate(one.packets()) if at not in (2, 3)]
    write("gvsp_packets", "resend", stream(CAN_RESEND | KNOWN_PAYLOAD, *lost, [WAIT, 5], one.packets()[2], [WAIT, 5],
                                           one.packets()[3], [RETRIEVE, 0]))
    gone = one.header(3, 2, 0x800C)
    write("gvsp_packets", "unavailable", stream(CAN_RESEND, *lost, [WAIT, 5], gone, [WAIT, 30], *two.packets(), [WAIT, 255]))
    crossed = [part for pair in zip(one.packets(), two.packets()) for part in pair]
    write("gvsp_packets", "crossed", stream(PATTERNED | POLL_ALWAYS, *crossed, *two.packets()))
    long = Block(1 << 40, extended=True)
    write("gvsp_packets", "long_ids", stream(KNOWN_PAYLOAD | PATTERNED, *long.packets(), *Block(7).packets()))
    last, first = Block(0xFFFF), Block(1)
    write("gvsp_packets", "ids_wrap", stream(PATTERNED, *last.packets(), *first.packets()))
    write("gvsp_packets", "too_small", stream(0, [DESTROY, 0], [DESTROY, 0], [MAKE_BUFFER, 3], *one.packets(),
                                              *two.packets(), payload=40))
    write("gvsp_packets", "acts", stream(CAN_RESEND, *one.packets()[:3], [DESTROY, 0], *one.packets()[3:], [ABORT, 0],
                                         [RETRIEVE, 0], [REQUEUE_OTHER, 0, 20], *two.packets(), [RETRIEVE, 0]))
    write("gvsp_packets", "chunks", stream(0, *Block(1, data=chunked(80)).packets(), [RETRIEVE, 0]))


def chunk_trailers():
    image = bytes(range(40))
    chunks = struct.pack("<d", 2.5) + struct.pack(">II", 0x1010, 8) + struct.pack("<Q", 77) + struct.pack(">II", 0x1011, 8)
    write("chunk_trailers", "after_image", struct.pack(">H", len(image)) + image + chunks)
    write("chunk_trailers", "image_is_chunk",
          struct.pack(">H", len(image)) + image + struct.pack(">II", 1, len(image)) + chunks)
    write("chunk_trailers", "size_unknown", struct.pack(">H", 0) + chunks)
    write("chunk_trailers", "none", struct.pack(">H", len(image)) + image)


def answer(kind, payload, number=1, status=0):
    return struct.pack(">HHHH", status, kind, len(payload), number) + payload


def control_channel():
    correct, pending, unreachable, silent, fitting, code, unsendable, error = (1 << bit for bit in range(8))
    first_id = 0

    def access(kind, address, count, responses, flow):
        return bytes([responses, kind, address, count]) + flow

    readreg, writereg, readmem, writemem, no_writemem = 0, 1, 2, 3, 0x20
    start = bytes([first_id])
    write("control_channel", "registers", start + access(readreg, 8, 0, 1, bytes([correct, correct]))
          + access(writereg, 8, 0, 1, bytes([correct, correct])))
    write("control_channel", "memory", start + access(readmem, 0, 200, 1, bytes([correct] * 4))
          + access(writemem, 2, 9, 1, bytes([correct] * 4)) + access(writemem | no_writemem, 4, 4, 1, bytes([correct] * 8)))
    write("control_channel", "pending", start + access(readreg, 8, 0, 3, bytes([pending, 60, pending, 60, correct, correct])))
    write("control_channel", "refused", start + access(readreg, 8, 0, 1, bytes([correct | error, 6, correct])))
    write("control_channel", "unreachable", start + access(readreg, 8, 0, 1, bytes([unreachable] * 6 + [unsendable | unreachable])))
    other = answer(0x81, bytes(4))
    other += bytes(-len(other) % 3)
    write("control_channel", "duplicates", start + access(readreg, 8, 0, 4, bytes([correct, correct])
          + bytes([fitting | code, len(other) // 3]) + other + bytes([silent])))


def discovery():
    def step(sender, flags, content, offset=None):
        return bytes([sender, flags, len(content)]) + (b"" if offset is None else bytes([offset])) + content

    write("discovery", "identity", b"\0" + step(1, 1, b"JAI Corporation", 0x48) + step(1, 1, b"\x00\x11\x1c\x01\x02\x03", 0x0A))
    write("discovery", "flood", b"\xff" + b"".join(step(sender, 1, b"GO\x1b[2J", 0x68) for sender in range(3)))
    write("discovery", "other", b"\0" + step(1, 0, answer(3, bytes(240))) + step(2, 0, b""))


def zip_of(*entries, method=zipfile.ZIP_DEFLATED):
    memory = io.BytesIO()
    with zipfile.ZipFile(memory, "w", method) as made:
        for name, content in entries:
            made.writestr(zipfile.ZipInfo(name), content, method)
    return memory.getvalue()


def camera_xml():
    for name, text in (("xml", "Local:camera.xml;8000;1F00"), ("zip", "local:///camera.zip;0x8000;0x1f00?SchemaVersion=1.1.0"),
                       ("file", "File:///dev/zero"), ("wild", "Local:x.xml;100000;7FFFFFFFFFFFFFFF"), ("http", "http://a/b.xml")):
        write("xml_url", name, text)
    archives = {"deflated": zip_of(("camera.xml", "<xml/>" * 20)), "stored": zip_of(("camera.xml", "<xml/>"), method=0),
                "two": zip_of(("readme", "a"), ("camera.XML", "<xml/>")), "ratio": zip_of(("a.xml", " " * 200000)), "empty": zip_of()}
    for name, content in archives.items():
        write("xml_archive", name, content)

    def download(first, second, delay, troubles, content):
        return bytes([len(first)]) + first + bytes([len(second)]) + second + bytes([delay, troubles]) + content

    xml = b"<a b='&#27;'/>"
    zipped = archives["deflated"]
    write("xml_download", "xml", download(b"Local:a.xml;1000;E", b"", 0, 0, xml))
    write("xml_download", "second", download(b"File:///dev/zero", b"Local:a.xml;1000;E", 0, 0, xml))
    write("xml_download", "zip", download(b"Local:a.zip;1000;%X" % len(zipped), b"", 0, 0, zipped))
    write("xml_download", "slow", download(b"Local:a.xml;1000;10000", b"", 200, 1, xml))
    write("xml_download", "refused", download(b"Local:a.xml;1000;10000", b"", 1, 2, xml))


def command(kind, payload, what=0, wait=0):
    data = struct.pack(">BBHHH", 0x42, 1, kind, len(payload), 7) + payload
    data += bytes(-len(data) % 3)
    return bytes([what | 8, len(data) // 3, wait]) + data


def gvcp_commands():
    take, of_register = 32, 16
    discovery, forceip, resend, readreg, writereg, readmem, writemem, _ = range(8)  # indices in the fuzzer's table
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
    # Writes 1000.0 to every third register.
    wide = b"".join(command(writemem, struct.pack(">Id", place, 1000.0), take | of_register) for place in range(0, 90, 3))
    write("gvcp_commands", "wide_registers", b"\0" + wide)
    write("gvcp_commands", "all_registers_are_one", b"\0" + b"".join(
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
    write("configuration_file", "long_socket", f'control.socket = "{"d" * 100}"\n')  # longer with the directory of the file
    write("configuration_file", "camera", '[camera]\nmodel = "GO-5100M"\nserial = "A\\u00e42"\n'
          '[image]\nwidth = 640\nheight = 480\noffset_x = 8\noffset_y = 2\nformat = "Mono12Packed"\nrotation_deg = 180\n'
          '[transport]\npacket_size_bytes = "auto"\n')
    write("configuration_file", "automatic", '[exposure]\nauto = "Continuous"\nlimits_us = [100, 2000.5]\n[gain]\nauto = "Continuous"\n'
          'limits_db = [0.0, 12.0]\n[auto]\nbrightness = 0.4\narea = true\n[timing]\nframe_rate_hz = 25.0\n'
          'clock_correction_ppb = -3\n')
    write("configuration_file", "manual", 'exposure = {auto = "Off", time_us = 1e3}\n[gain]\nauto = "Off"\ndb = 6\n'
          '[tone]\nenable = true\ngamma = 0.45\ncontrast_limit = 3.5\npercentiles = [1, 99.5]\n')
    write("configuration_file", "table", '[tone]\nenable = true\nlut = "curve.csv"\nlut_bits = 12\n')
    write("configuration_file", "lines", '[[line]]\npin = "Out1"\nsource = "ExposureActive"\ninverted = true\n'
          '[[line]]\npin = "Out2"\nsource = "Low"\n')
    write("configuration_file", "running", '[memory]\nbuffers = 8\nexport_buffers = 4\n[run]\nframes = 100\n'
          'grace_time_s = 2.5\nretry_interval_s = 1\ngive_up_after = "never"\n[output]\ndirectory = "a/b"\nformat = "bigtiff"\n'
          'compression = "deflate"\n[control]\nsocket = "none"\n[log]\nlevel = "debug"\nsinks = ["stdout", "syslog"]\n'
          'instance = 3\n')
    write("configuration_file", "spellings", "# comment\n'image'.\"width\" = 0x280\nimage.height = 0o740 # octal\n"
          'timing.frame_rate_hz = inf\nlog.level = """\\\n  info"""\nrun.frames = 1_000\nexposure.time_us = nan\n'
          "output.directory = '''a\n\\b'''\nx = 1979-05-27T07:32:00Z\n")


def control_request():
    def request(*settings, **more):
        return json.dumps({"set": settings, **more}) + "\n"

    write("control_request", "one", request("gain.db=6"))
    write("control_request", "several", request("gain.db=6.5", "exposure.time_us=2000", "timing.frame_rate_hz=25", timeout_s=5))
    write("control_request", "text", request("tone.gamma=0.45", 'gain.auto="Continuous"', "exposure.auto=Continuous"))
    write("control_request", "not_while_running", request("image.width=640", "log.level=debug"))
    write("control_request", "table", request("tone.lut=/nonexistent/curve.csv", "tone.lut_bits=12"))
    write("control_request", "limits", request("gain.limits_db=[0, 12]", "auto.brightness=0.4", timeout_s=0.25))
    write("control_request", "answer", json.dumps({"status": 9, "lines": ["gain.db: requested 6, but the camera has 5.9"]}))


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


# Formulas: four variables of 8 bytes, the formula, its sub-expressions, a line each.


def formula():
    edges = struct.pack("<qqqq", -2**63, -1, 0, 2**63 - 1)
    small = struct.pack("<dddd", 1.5, -2.25, 0.0, 1e300)
    for name, text in {
        "arithmetic": "A / B + C % D - A * B ** C",
        "bits": "~A & B | C ^ D << 3 >> 64",
        "conditions": "A = B ? C : D <> A && B || C < D ? 1 : 0",
        "comparisons": "(A <= B) + (A >= B) + (A > C) + (A == D) + (B != C)",
        "hostile": "(1<<63)/(0-1)\n1 % 0\n2 ** 0x7FFFFFFFFFFFFFFF",
        "functions": "SGN(A) + NEG(B) + ABS(C) + TRUNC(D) + FLOOR(0.5) + CEIL(A) + ROUND(B, 2) + ROUND(C)",
        "transcendental": "SIN(A) + COS(B) * TAN(C) - ASIN(D) + ACOS(A) + ATAN(B) + EXP(C) + LN(D) + LG(A) + SQRT(B) + PI + E",
        "expressions": "S * 2 + T\nA + 1\nS - U\n0xFF",
        "nested": "((((A + 1) * 2) - (B / (C + (D - 1)))))",
    }.items():
        write("formula", name, (small if name == "transcendental" else edges) + text.encode())


for make in (gvsp_packets, chunk_trailers, control_channel, discovery, camera_xml, gvcp_commands, camera_description, formula, configuration_file,
             control_request, lookup_table_file):
    make()
