#!/usr/bin/python3
"""Writes kovatmcvt_tab.inc: Gregorian days with their Hebrew and Islamic dates according to the
Debian package python3-convertdate, one for each month of common and of leap years."""
import random
from convertdate import gregorian, hebrew, islamic

random.seed(5784)
wanted = {}


def add(name, key, row):
    rows = wanted.setdefault((name,) + key, [])
    if not rows:
        rows.append('    {%d, %d, %d, %s, %d, %d, %d},' % (row[0] + (name,) + row[1]))


def rows_of_day(jd):
    day = gregorian.from_jd(jd)
    year, month, mday = hebrew.from_jd(jd)
    leap = hebrew.leap(year)
    index = month if leap and month > 11 else (month + 5) % 12
    add('hebrew', (leap, index), (day, (year, index, mday)))
    if day >= (622, 7, 18):
        # The package begins with Friday, the civil first day; Kova with the Thursday before.
        year, month, mday = islamic.from_jd(jd + 1)
        add('islamic', ((11 * year + 14) % 30 < 11, month), (day, (year, month - 1, mday)))


first, last = gregorian.to_jd(1, 1, 1), gregorian.to_jd(9999, 12, 31)
while len(wanted) < 12 + 13 + 2 * 12 or not all(wanted.values()):
    rows_of_day(first + random.randrange(int(last - first)))
with open('kovatmcvt_tab.inc', 'w') as out:
    print('// tests$ ./kovatmcvt_tab.py', file=out)
    for key in sorted(wanted):
        print('\n'.join(wanted[key]), file=out)
