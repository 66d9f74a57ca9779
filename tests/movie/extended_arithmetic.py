"""The daemon's arithmetic on exact fractions: a 64-bit mantissa, int32 and single precision.

Run by itself it checks itself against values worked out by hand.
"""

import math
import struct
import unittest
from fractions import Fraction

INT32_MIN = -(2**31)
INT32_MAX = 2**31 - 1


def roundToMantissa64(value: Fraction) -> Fraction:
    """The nearest number of 64 significant bits, ties to the even one.

    The exponent is unbounded: nothing formed here leaves the range of the 80-bit format.
    """
    if value == 0:
        return value
    exponent = abs(value.numerator).bit_length() - value.denominator.bit_length() - 64
    scaled = value / Fraction(2) ** exponent
    while abs(scaled) >= 2**64:
        scaled /= 2
        exponent += 1
    return round(scaled) * Fraction(2) ** exponent


def multiply(a: Fraction, b: float) -> Fraction:
    return roundToMantissa64(a * Fraction(b))


def divide(a: Fraction, b: Fraction) -> Fraction:
    return roundToMantissa64(a / b)


def truncateToInt32(value: Fraction) -> int:
    whole = math.trunc(value)
    return whole if INT32_MIN <= whole <= INT32_MAX else INT32_MIN


def wrapToInt32(value: int) -> int:
    return (value - INT32_MIN) % 2**32 + INT32_MIN


def quotientTowardZero(a: int, b: int) -> int:
    return math.trunc(Fraction(a, b))


def roundToFloat32(value: float) -> float:
    try:
        (narrowed,) = struct.unpack("f", struct.pack("f", value))
        return float(narrowed)
    except OverflowError:
        return math.copysign(math.inf, value)


class ArithmeticTest(unittest.TestCase):
    def testProductsStayBelowTheWholeNumberTheyAlmostAre(self) -> None:
        for factor, constant, expected in (
            (Fraction(800000), 0.96, 767999),
            (Fraction(1000000), 0.95, 949999),
            (Fraction(0.3), 1000.0, 299),
            (Fraction(2.01), 1000.0, 2009),
            (Fraction(12.3456), 1000.0, 12345),
            (Fraction(1.5), 1000.0, 1500),
            (Fraction(-0.3), 1000.0, -299),
            (Fraction(20000000), 0.95, 18999999),
        ):
            self.assertEqual(truncateToInt32(multiply(factor, constant)), expected)

    def testMantissaHas64Bits(self) -> None:
        self.assertEqual(divide(Fraction(1), Fraction(3)), Fraction(0xAAAAAAAAAAAAAAAB, 2**65))
        self.assertEqual(divide(Fraction(2), Fraction(3)), Fraction(0xAAAAAAAAAAAAAAAB, 2**64))
        self.assertEqual(divide(Fraction(1), Fraction(10)), Fraction(0xCCCCCCCCCCCCCCCD, 2**67))
        self.assertEqual(divide(Fraction(-1), Fraction(10)), Fraction(-0xCCCCCCCCCCCCCCCD, 2**67))
        for exact in (
            Fraction(0),
            Fraction(2**64 - 1),
            Fraction(-(2**63) - 1),
            Fraction(5, 2**80),
        ):
            self.assertEqual(roundToMantissa64(exact), exact)

    def testTiesGoToTheEvenNeighbour(self) -> None:
        self.assertEqual(roundToMantissa64(Fraction(2**64 + 1)), 2**64)
        self.assertEqual(roundToMantissa64(Fraction(2**64 + 3)), 2**64 + 4)
        self.assertEqual(roundToMantissa64(Fraction(2**65 + 2)), 2**65)
        self.assertEqual(
            roundToMantissa64(Fraction(2**65 + 2) + Fraction(1, 2**90)), 2**65 + 4
        )
        self.assertEqual(roundToMantissa64(Fraction(2**65 - 1)), 2**65)

    def testTruncationOutOfRangeGivesTheLowestNumber(self) -> None:
        self.assertEqual(truncateToInt32(Fraction(2**32 - 1, 2)), INT32_MAX)
        self.assertEqual(truncateToInt32(Fraction(2**31)), INT32_MIN)
        self.assertEqual(truncateToInt32(Fraction(-(2**32) - 1, 2)), INT32_MIN)
        self.assertEqual(truncateToInt32(Fraction(10**300)), INT32_MIN)
        self.assertEqual(truncateToInt32(Fraction(-19, 10)), -1)

    def testWholeNumbersWrapAndDivideTowardZero(self) -> None:
        self.assertEqual(wrapToInt32(INT32_MAX + 1), INT32_MIN)
        self.assertEqual(wrapToInt32(INT32_MIN - 4750), INT32_MAX - 4749)
        self.assertEqual(wrapToInt32(-5), -5)
        self.assertEqual(quotientTowardZero(-999, 1000), 0)
        self.assertEqual(quotientTowardZero(INT32_MIN, 1000), -2147483)

    def testSinglePrecision(self) -> None:
        self.assertEqual(roundToFloat32(29.97), 29.969999313354492)
        self.assertEqual(roundToFloat32(25.0000001), 25.0)
        self.assertEqual(roundToFloat32(1e39), math.inf)
        self.assertEqual(roundToFloat32(-1e-50), 0.0)


if __name__ == "__main__":
    unittest.main()
