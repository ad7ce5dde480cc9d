#!/usr/bin/env python3
"""Python's own reader of the zone files names the same seconds, in every zone: at random moments, and around the
changes of the clock, where an hour is left out or comes twice."""
import datetime
import random
import subprocess
import sys
import zoneinfo

UTC = datetime.timezone.utc
random.seed(5)


def changes(zone, year):
    """The seconds of a year before which the zone's clock was changed, found by halving."""
    offset = lambda second: datetime.datetime.fromtimestamp(second, zone).utcoffset()
    start = int(datetime.datetime(year, 1, 1, tzinfo=UTC).timestamp())
    for low in range(start, start + 366 * 86400, 7 * 86400):
        high = low + 7 * 86400
        if offset(low) == offset(high):
            continue
        while high - low > 1:
            middle = (low + high) // 2
            low, high = (low, middle) if offset(middle) != offset(low) else (middle, high)
        yield high


def moments(zone):
    for _ in range(10):
        yield datetime.datetime(random.randint(1902, 2500), 1, 1) + datetime.timedelta(seconds=random.randrange(365 * 86400))
    for year in random.sample(range(1971, 2037), 4):
        for change in changes(zone, year):
            shown = datetime.datetime.fromtimestamp(change, UTC).replace(tzinfo=None)
            for offset in {zone.utcoffset(shown - datetime.timedelta(days=2)), zone.utcoffset(shown + datetime.timedelta(days=2))}:
                for minutes in (-90, -30, 0, 30, 90):
                    yield shown + offset + datetime.timedelta(minutes=minutes)


def main(driver):
    asked = []
    for name in sorted(zoneinfo.available_timezones()):
        if name.startswith(("right/", "posix")) or name == "localtime":
            continue
        zone = zoneinfo.ZoneInfo(name)
        for moment in moments(zone):
            second = int(moment.replace(tzinfo=zone, fold=0).timestamp())
            asked.append((f"{name} {moment:%m/%d/%Y %H:%M:%S}", second,
                          f"{datetime.datetime.fromtimestamp(second, zone):%m/%d/%Y %H:%M:%S}"))
    if len(asked) < 1000:
        print("no zone files are installed")
        return 77
    told = subprocess.run([driver], input="".join(line + "\n" for line, _, _ in asked), capture_output=True,
                          text=True, check=True).stdout.splitlines()
    assert len(told) == len(asked), (len(told), len(asked))
    wrong = [f"{line}: {answer}, not {second} {shown}" for (line, second, shown), answer in zip(asked, told)
             if answer != f"{second} {shown}"]
    print(f"{len(asked)} moments, {len(wrong)} wrong", *wrong[:20], sep="\n")
    return 1 if wrong else 0


sys.exit(main(sys.argv[1]))
