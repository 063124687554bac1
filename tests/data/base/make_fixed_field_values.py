# Writes fixed_field_values.txt: the bits of doubles that are hard to round or to fit, and of doubles drawn at random. The
# draw is always the same.
import math
import random
import struct


def bits(value):
    return "%016X" % struct.unpack("<Q", struct.pack("<d", value))[0]


values = [0.0, -0.0, 0.123, -0.123, 0.5, 1.5, 2.5, -2.5, 0.125, 0.375, 1.005, 9.9999995, 99.995, 999.995, 9999999.99,
          -999999.99, 1e6, 1e7, 99999999.994, 99999999.995, 1e8, -1e7, 1e100, -1.0e32, -1.0e30, 1e99, 9.9999995e99, 1e-99,
          9.9999994e-100, 9.9999996e-100, 1e-100, 1e-101, 1.5e-5, 0.001, -0.001, 0.005, -0.005, 0.0049, 0.0005, -0.0005,
          5e-324, -5e-324, 2.2250738585072014e-308, 1.7976931348623157e308, -1.7976931348623157e308, math.inf, -math.inf,
          math.nan, struct.unpack("<f", struct.pack("<f", -1.0e32))[0], 0.95, 0.15, 0.25, 0.35, 123456.5, 1234565.0,
          12345650.0, 1234575.0, 2.0 ** 53, 2.0 ** 63, 2.0 ** 64, 1e9, 999999999.9999999, 1e15, 1e16, 1e17, 1e22, 1e23]
values += [10.0 ** p for p in range(-12, 13, 3)]
draw = random.Random(4)
for _ in range(40):  # exact ties in the last place of one of the formats
    values.append((draw.randint(1, 10 ** 6) * 2 + 1) / 2.0 ** draw.randint(1, 12))
    values.append(-draw.randint(100000, 999999) - 0.5)
for _ in range(60):
    values.append(draw.choice([-1, 1]) * 10 ** draw.uniform(-8, 10))
for _ in range(60):
    values.append(struct.unpack("<d", struct.pack("<Q", draw.getrandbits(64)))[0])
with open("fixed_field_values.txt", "w") as out:
    for value in values:
        out.write(bits(value) + "\n")
