"""The three encodings as python's struct and formatting see them: an oracle for the serializers.

usage: encodings.py pack ENCODING FILE    lines "TYPE VALUE" in FILE; the encoded bytes go to standard output
       encodings.py unpack ENCODING FILE  a first line of types, then encoded bytes in FILE; lines as above go out

Reals are given as the 16 hexadecimal digits of their bits and strings as hexadecimal bytes, so that nothing
is lost on the way. In text, which has no separators of its own, a line end follows every value.
"""
import re
import struct
import sys

ORDER = {'binary': '<', 'xdr': '>'}


def real(bits):
    return struct.unpack('>d', bytes.fromhex(bits))[0]


def pack(encoding, kind, value):
    order = ORDER[encoding]
    if kind == 'byte' or (kind == 'bool' and encoding == 'binary'):
        return struct.pack('B', int(value))
    if kind in ('int', 'bool'):
        return struct.pack(order + 'i', int(value))
    if kind == 'real':
        return struct.pack(order + 'd', real(value))
    text = bytes.fromhex(value)
    return struct.pack(order + 'i', len(text)) + text


def pack_text(kind, value):
    if kind == 'byte':
        return bytes([int(value)])
    if kind == 'int':
        return b'%d' % int(value)
    if kind == 'bool':
        return b'T' if int(value) else b'F'
    if kind == 'real':
        return b'%g' % real(value)
    return bytes.fromhex(value)


class Reader:
    def __init__(self, encoding, data):
        self.encoding, self.data, self.at = encoding, data, 0

    def take(self, count):
        self.at += count
        assert self.at <= len(self.data), 'the data ends within a value'
        return self.data[self.at - count:self.at]

    def number(self, code):
        code = ORDER[self.encoding] + code
        return struct.unpack(code, self.take(struct.calcsize(code)))[0]

    def value(self, kind):
        if self.encoding == 'text':
            return self.text_value(kind)
        if kind == 'byte' or (kind == 'bool' and self.encoding == 'binary'):
            return self.take(1)[0]
        if kind in ('int', 'bool'):
            return self.number('i')
        if kind == 'real':
            return struct.pack('>d', self.number('d')).hex()
        return self.take(self.number('i')).hex()

    def text_value(self, kind):
        field = re.compile(rb'([^\n]*)\n').match(self.data, self.at)
        self.at = field.end()
        field = field.group(1)
        if kind == 'byte':
            return field[0]
        if kind == 'int':
            return int(field)
        if kind == 'bool':
            return {b'T': 1, b'F': 0}[field]
        if kind == 'real':
            return struct.pack('>d', float(field)).hex()
        return field.hex()


def main():
    action, encoding, name = sys.argv[1:]
    with open(name, 'rb') as file:
        if action == 'pack':
            for line in file:
                kind, _, value = line.decode().strip().partition(' ')
                data = pack_text(kind, value) + b'\n' if encoding == 'text' else pack(encoding, kind, value)
                sys.stdout.buffer.write(data)
        else:
            kinds = file.readline().decode().split()
            reader = Reader(encoding, file.read())
            for kind in kinds:
                print(kind, reader.value(kind))
            assert reader.at == len(reader.data), 'bytes are left over'


main()
