#!/usr/bin/env python3
"""Writes a calendar store whose series flood March 2020, for lfmonthpass.

floodstore.py seven OUT   seven five-minute series, each every minute from
                          1 March 2020 (44,000 times), a minute apart, and
                          one plain appointment on 10 March
floodstore.py mix OUT     three one-minute and three five-minute series every
                          minute (60,000 times), one every 30 seconds from
                          5 March to 10 April with no length, a daily all-day
                          series, and a meeting on each day of March
floodstore.py many OUT    forty series every one to three minutes, of one to
                          twenty minutes each, beside a meeting on each day
"""
import sys


def event(uid, start, end, rule=None, extra=""):
    lines = ["BEGIN:VEVENT", "UID:" + uid, "DTSTAMP:20200101T000000Z", "DTSTART" + start]
    if end:
        lines.append("DTEND" + end)
    if rule:
        lines.append("RRULE:" + rule)
    return "\r\n".join(lines) + "\r\n" + extra + "END:VEVENT\r\n"


def seven():
    return [event("flood%d@test" % i, ":20200301T00%02d00" % i, ":20200301T00%02d00" % (i + 5),
                  "FREQ=MINUTELY;COUNT=44000", "SUMMARY:minutely alarm %d\r\nCATEGORIES:Business\r\n" % i)
            for i in range(7)] + [event("plain@test", ":20200310T090000", ":20200310T100000", None,
                                        "SUMMARY:plain\r\n")]


def mix():
    out = []
    for i in range(3):
        out.append(event("min1-%d" % i, ":2020030%dT00%d000" % (1 + i, i), ":2020030%dT00%d100" % (1 + i, i),
                         "FREQ=MINUTELY;COUNT=60000",
                         "SUMMARY:minute alarm %d\r\nCATEGORIES:Business\r\n" % i))
    for i in range(3):
        out.append(event("min5-%d" % i, ":20200301T0%d0000" % i, ":20200301T0%d0500" % i,
                         "FREQ=MINUTELY;COUNT=60000", "SUMMARY:five minutes %d\r\n" % i))
    out.append(event("sec30", ":20200305T000000", None, "FREQ=SECONDLY;INTERVAL=30;UNTIL=20200410T000000",
                     "SUMMARY:typo\r\nCATEGORIES:Personal\r\n"))
    out.append(event("allday", ";VALUE=DATE:20200201", ";VALUE=DATE:20200202", "FREQ=DAILY",
                     "SUMMARY:every day\r\nCATEGORIES:Holiday\r\n"))
    for d in range(1, 29):
        out.append(event("plain-%d" % d, ":202003%02dT100000" % d, ":202003%02dT110000" % d, None,
                         "SUMMARY:meeting\r\nCATEGORIES:Travel\r\n"))
    return out


def many():
    out = []
    for i in range(40):
        start = "2020030%dT%02d%02d00" % (1 + i % 5, i % 24, (7 * i) % 60)
        length = 1 + (i * 7) % 20
        end = "2020030%dT%02d%02d00" % (1 + i % 5, (i % 24) + (((7 * i) % 60 + length) // 60),
                                        ((7 * i) % 60 + length) % 60)
        out.append(event("many-%d" % i, ":" + start, ":" + end,
                         "FREQ=MINUTELY;INTERVAL=%d;UNTIL=20200501T000000" % (1 + i % 3),
                         "SUMMARY:alarm %d\r\nCATEGORIES:%s\r\n" % (i, ("Business", "Personal", "")[i % 3])))
    for d in range(1, 29):
        out.append(event("plain-%d" % d, ":202003%02dT100000" % d, ":202003%02dT110000" % d, None,
                         "SUMMARY:meeting\r\nCATEGORIES:Travel\r\n"))
    return out


makers = {"seven": seven, "mix": mix, "many": many}
if len(sys.argv) != 3 or sys.argv[1] not in makers:
    sys.exit(__doc__)
events = makers[sys.argv[1]]()
with open(sys.argv[2], "w", newline="") as f:
    f.write("BEGIN:VCALENDAR\r\nVERSION:2.0\r\nPRODID:-//flood bench//EN\r\n" + "".join(events) + "END:VCALENDAR\r\n")
