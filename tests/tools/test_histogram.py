"""Percentiles of counts beside exact ones of all values."""
import math
import os
import random
import subprocess
import unittest
from fractions import Fraction

PROGRAM = os.environ["HISTOGRAM_PROGRAM"]
PERCENTILES = ("0", "1", "25", "50", "75", "90", "95", "99", "99.9", "99.99", "100")
GREATEST = 2 ** 42 - 1


def counted(values):
    """(percentiles, least, greatest, mean, rows of ten to a power, rows of three)"""
    result = subprocess.run([PROGRAM, *PERCENTILES], input=" ".join(map(str, values)), capture_output=True, text=True,
                            timeout=60, check=True)
    lines = result.stdout.splitlines()
    count = len(PERCENTILES)
    rows = [tuple(map(int, line.split())) for line in lines[count + 3:]]
    return (list(map(int, lines[:count])), int(lines[count]), int(lines[count + 1]), float(lines[count + 2]),
            [row[1:] for row in rows if not row[0]], [row[1:] for row in rows if row[0]])


class HistogramTest(unittest.TestCase):
    def check(self, values):
        percentiles, least, greatest, mean, ten, three = counted(values)
        values = sorted(values)
        self.assertEqual((least, greatest), (values[0], values[-1]))
        self.assertAlmostEqual(mean, sum(values) / len(values), delta=max(mean * 1e-9, 1e-6))
        for text, seen in zip(PERCENTILES, percentiles):
            exact = values[max(math.ceil(Fraction(text) / 100 * len(values)), 1) - 1]
            self.assertLessEqual(exact, seen, text)
            self.assertLessEqual(seen - exact, exact // 1000, text)    # three digits; up to 2,047 to the letter
            self.assertLessEqual(seen, greatest, text)
        for rows in ten, three:
            self.assertEqual(sum(count for _, _, count in rows), len(values))
            self.assertEqual([below for _, below, _ in rows[:-1]], [start for start, _, _ in rows[1:]])
            self.assertGreater(rows[0][2] * rows[-1][2], 0)
            for start, below, count in rows:
                sure = sum(start * 1.001 <= value < below * 0.999 for value in values)
                maybe = sum(start * 0.999 <= value < below * 1.001 for value in values)
                self.assertTrue(sure <= count <= maybe, (start, below, count, sure, maybe))

    def test_random_values(self):
        chance = random.Random(1)
        self.check([chance.randrange(2048) for _ in range(10000)])
        self.check([int(chance.lognormvariate(6, 2)) for _ in range(10000)])
        self.check([int(2 ** chance.uniform(0, 42)) for _ in range(10000)])
        self.check([100 + chance.randrange(50) for _ in range(9999)] + [3000000])

    def test_edges(self):
        self.check([0])
        self.check([GREATEST])
        self.check([value for power in range(11, 42) for value in (2 ** power - 1, 2 ** power, 2 ** power + 1)])
        self.check([1, 2, 5, 10, 12, 16, 20, 25, 31, 40, 50, 63, 80, 100, 200, 500, 1000, 1250, 2000])

    def test_what_is_too_large_counts_as_the_greatest(self):
        self.assertEqual(counted([2 ** 42, 2 ** 64 - 1])[:3], ([GREATEST] * len(PERCENTILES), GREATEST, GREATEST))

    def test_nothing(self):
        self.assertEqual(counted([]), ([0] * len(PERCENTILES), 0, 0, 0.0, [], []))


if __name__ == "__main__":
    unittest.main()
