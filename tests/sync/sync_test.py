#!/usr/bin/python3
"""Syncing with a CalDAV server, end to end, all on 127.0.0.1.

A Radicale server from a configuration of this test's own (one user with a password, a random
free port, a throw-away folder), a calendar made with MKCALENDAR, scripts/sync-connect run against
it, and the real program under Wine (sync_driver.exe, started through scripts/wine-run) on the
directory store vdirsyncer keeps. The script syncs and changes the server; the driver changes
the store through the program and checks what the running program shows. They take turns
through marker files: the driver writes NAME.done, this script NAME.go.

usage: sync_test.py DRIVER_EXE   (from ctest, inside scripts/with-wine)
"""
import os
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
import urllib.error
import urllib.request
import uuid
import xml.etree.ElementTree as ET

ROOT = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", ".."))
RADICALE = "/usr/bin/radicale"
VDIRSYNCER = "/usr/bin/vdirsyncer"
USER, PASSWORD = "alice", "lantern pass"

failures = []


def check(ok, what):
    if not ok:
        failures.append(what)
        print("FAILED: " + what, flush=True)
    return ok


def windows_path(p):
    return "Z:" + p.replace("/", "\\")


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


class Dav:
    def __init__(self, base, collection):
        self.base = base
        self.collection = collection  # path of the calendar, ending in /
        auth = urllib.request.HTTPBasicAuthHandler()
        auth.add_password(None, base, USER, PASSWORD)
        self.opener = urllib.request.build_opener(auth)
        import base64
        self.header = "Basic " + base64.b64encode(("%s:%s" % (USER, PASSWORD)).encode()).decode()

    def request(self, method, path, body=None, headers=None):
        req = urllib.request.Request(self.base + path, data=body.encode() if body is not None else None,
                                     method=method)
        req.add_header("Authorization", self.header)
        for k, v in (headers or {}).items():
            req.add_header(k, v)
        try:
            with urllib.request.urlopen(req, timeout=20) as r:
                return r.status, r.read().decode(), dict(r.headers)
        except urllib.error.HTTPError as e:
            return e.code, e.read().decode(errors="replace"), dict(e.headers)

    def resources(self):
        """href -> (etag, text) of every resource in the calendar."""
        status, body, _ = self.request("PROPFIND", self.collection,
                                       '<?xml version="1.0"?><propfind xmlns="DAV:"><prop><getetag/></prop></propfind>',
                                       {"Depth": "1", "Content-Type": "application/xml"})
        assert status == 207, (status, body)
        out = {}
        for resp in ET.fromstring(body).findall("{DAV:}response"):
            href = resp.find("{DAV:}href").text
            if href.rstrip("/") == self.collection.rstrip("/"):
                continue
            etag = resp.find(".//{DAV:}getetag")
            status, text, _ = self.request("GET", href)
            out[href] = (etag.text if etag is not None else "", text)
        return out

    def put(self, href, text, etag=None):
        headers = {"Content-Type": "text/calendar; charset=utf-8"}
        headers["If-Match" if etag else "If-None-Match"] = etag or "*"
        status, body, _ = self.request("PUT", href, text, headers)
        assert status in (201, 204), (href, status, body)

    def delete(self, href, etag):
        status, body, _ = self.request("DELETE", href, None, {"If-Match": etag})
        assert status in (200, 204), (href, status, body)


def event(uid, start, summary, extra=""):
    return ("BEGIN:VCALENDAR\r\nVERSION:2.0\r\nPRODID:-//Lanternfields tests//server side//EN\r\n"
            "BEGIN:VEVENT\r\nUID:%s\r\nDTSTAMP:20310101T000000Z\r\nDTSTART:%s\r\nDURATION:PT1H\r\n"
            "SUMMARY:%s\r\n%sEND:VEVENT\r\nEND:VCALENDAR\r\n" % (uid, start, summary, extra))


def unfolded(text):
    return re.sub(r"\r?\n[ \t]", "", text)


def summaries_of(resources, prefix):
    texts = "".join(t for _, t in resources.values())
    return sorted(s.replace("\\,", ",") for s in re.findall(r"^SUMMARY:(%s.*?)\r?$" % prefix, unfolded(texts), re.M))


def master_lines(text, names):
    """The named properties of the VEVENT without a RECURRENCE-ID, as written."""
    for block in re.findall(r"BEGIN:VEVENT\r?\n(.*?)END:VEVENT", unfolded(text), re.S):
        if "RECURRENCE-ID" in block:
            continue
        return sorted(l for l in block.splitlines() if re.split(r"[;:]", l, 1)[0] in names)
    return []


def with_summary(text, old, new, extra=""):
    """The text with the master's SUMMARY replaced (and a line added after it)."""
    old, new = (t.replace(",", "\\,") for t in (old, new))  # TEXT values escape their commas
    changed = re.sub(r"^SUMMARY:%s(\r?\n)" % re.escape(old), lambda m: "SUMMARY:%s%s%s" % (new, m.group(1), extra),
                     text, count=1, flags=re.M)
    assert changed != text, "no SUMMARY:%s in %s" % (old, text)
    return changed


def conflict_copies(tmp):
    """scripts/sync-conflict on its own: the local version of a series is kept whole under a
    fresh UID, a lone changed occurrence as an appointment of its own; the server's wins."""
    series = ("BEGIN:VCALENDAR\r\nVERSION:2.0\r\nPRODID:-//x//EN\r\n"
              "BEGIN:VEVENT\r\nUID:team\r\nDTSTART:20310301T090000\r\nRRULE:FREQ=DAILY;COUNT=5\r\n"
              "SUMMARY:Team\\, mine\r\nX-KEPT:1\r\nEND:VEVENT\r\n"
              "BEGIN:VEVENT\r\nUID:team\r\nRECURRENCE-ID:20310302T090000\r\nDTSTART:20310302T100000\r\n"
              "SUMMARY:Team later\r\nEND:VEVENT\r\nEND:VCALENDAR\r\n")
    lone = ("BEGIN:VCALENDAR\r\nVERSION:2.0\r\nPRODID:-//x//EN\r\n"
            "BEGIN:VEVENT\r\nUID:invited\r\nRECURRENCE-ID:20310305T090000\r\nDTSTART:20310305T100000\r\n"
            "SUMMARY:Invited once\r\nEND:VEVENT\r\nEND:VCALENDAR\r\n")
    for name, mine, rids in (("series", series, 1), ("lone occurrence", lone, 0)):
        store = tempfile.mkdtemp(dir=tmp)
        local, remote = os.path.join(tmp, "a"), os.path.join(tmp, "b")
        theirs = mine.replace("SUMMARY:", "SUMMARY:Server ", 1)
        for path, text in ((local, mine), (remote, theirs)):
            with open(path, "w", newline="") as f:
                f.write(text)
        r = subprocess.run([os.path.join(ROOT, "scripts", "sync-conflict"), store, local, remote],
                           capture_output=True, text=True)
        check(r.returncode == 0, "sync-conflict on a %s: %s" % (name, r.stderr))
        check(open(local, newline="").read() == theirs, "sync-conflict on a %s: the server's version wins" % name)
        kept = os.listdir(store)
        if not check(len(kept) == 1 and kept[0].endswith(".ics"), "sync-conflict on a %s kept %s" % (name, kept)):
            continue
        copy = open(os.path.join(store, kept[0]), newline="").read()
        uids = set(re.findall(r"^UID:(.*)\r$", copy, re.M))
        check(len(uids) == 1 and "team" not in uids and "invited" not in uids
              and copy.count("RECURRENCE-ID") == rids and copy.count("BEGIN:VEVENT") == mine.count("BEGIN:VEVENT")
              and re.sub(r"^(UID|RECURRENCE-ID)[;:].*\r\n", "", copy, flags=re.M)
              == re.sub(r"^(UID|RECURRENCE-ID)[;:].*\r\n", "", mine, flags=re.M),
              "sync-conflict on a %s: the local version under one fresh UID: %s" % (name, copy))


def main():
    if len(sys.argv) != 2:
        print(__doc__)
        return 2
    driver = sys.argv[1]
    started = time.monotonic()
    tmp = tempfile.mkdtemp(prefix="lf-sync-")
    store, home, turns = (os.path.join(tmp, n) for n in ("store", "sync", "turns"))
    os.makedirs(turns)
    port = free_port()
    with open(os.path.join(tmp, "radicale.conf"), "w") as f:
        f.write("[server]\nhosts = 127.0.0.1:%d\n[auth]\ntype = htpasswd\nhtpasswd_filename = %s\n"
                "htpasswd_encryption = plain\ndelay = 0\n[storage]\nfilesystem_folder = %s\n[logging]\nlevel = warning\n"
                % (port, os.path.join(tmp, "users"), os.path.join(tmp, "collections")))
    with open(os.path.join(tmp, "users"), "w") as f:
        f.write("%s:%s\n" % (USER, PASSWORD))
    conflict_copies(tmp)
    server = subprocess.Popen([RADICALE, "--config", os.path.join(tmp, "radicale.conf")],
                              stdout=open(os.path.join(tmp, "radicale.log"), "w"), stderr=subprocess.STDOUT)
    program = None
    program_log = os.path.join(tmp, "driver.log")

    def sync(what):
        r = subprocess.run([VDIRSYNCER, "-c", os.path.join(home, "config"), "sync"], stdin=subprocess.DEVNULL,
                           stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        check(r.returncode == 0, "sync (%s) failed: %s" % (what, r.stdout))
        print("sync (%s): %s" % (what, r.stdout.strip().replace("\n", "; ")), flush=True)
        return r.stdout

    def done(name, timeout=90):
        deadline = time.monotonic() + timeout
        while time.monotonic() < deadline:
            if os.path.exists(os.path.join(turns, name + ".done")):
                return True
            if program.poll() is not None:
                break
            time.sleep(0.05)
        raise RuntimeError("the program never did its step %s" % name)

    def go(name):
        open(os.path.join(turns, name + ".go"), "w").close()

    try:
        base = "http://127.0.0.1:%d" % port
        for _ in range(200):
            try:
                socket.create_connection(("127.0.0.1", port), 0.1).close()
                break
            except OSError:
                time.sleep(0.05)
        dav = Dav(base, "/%s/calendar/" % USER)
        status, body, _ = dav.request("MKCALENDAR", dav.collection)
        assert status == 201, (status, body)

        # Made on the server, under names that say nothing of their UIDs.
        made_href = dav.collection + uuid.uuid4().hex + ".ics"
        made_uid = "srv-%s@example.org" % uuid.uuid4().hex
        dav.put(made_href, event(made_uid, "20310312T100000", "Made on the server"))
        doomed_href = dav.collection + uuid.uuid4().hex + ".ics"
        dav.put(doomed_href, event("doomed-%s" % uuid.uuid4().hex, "20310312T140000", "Doomed"))
        notes_href = dav.collection + uuid.uuid4().hex + ".ics"
        dav.put(notes_href, event("notes-%s" % uuid.uuid4().hex, "20310314T090000", "Shared notes"))
        # For the live views: one deleted while the day view shows its day, one the server moves
        # to another day while the month view shows.
        day_doomed_href = dav.collection + uuid.uuid4().hex + ".ics"
        dav.put(day_doomed_href, event("daydoomed-%s" % uuid.uuid4().hex, "20310313T160000", "Day doomed"))
        moving_uid = "moving-%s" % uuid.uuid4().hex
        moving_href = dav.collection + uuid.uuid4().hex + ".ics"
        dav.put(moving_href, event(moving_uid, "20310317T100000", "Moving"))

        # The password never from the command line; a wrong one is told, and nothing is synced.
        script = os.path.join(ROOT, "scripts", "sync-connect")
        env = {k: v for k, v in os.environ.items() if k != "LF_SYNC_PASSWORD"}
        elsewhere = [os.path.join(tmp, n) for n in ("store2", "sync2")]
        r = subprocess.run([script, "--password", PASSWORD, base + "/%s/" % USER, USER], env=env,
                           stdin=subprocess.DEVNULL, capture_output=True, text=True)
        check(r.returncode == 2 and "command line" in r.stderr, "a password argument is refused: %s" % r.stderr)
        r = subprocess.run([script, "--store", elsewhere[0], "--home", elsewhere[1], base + "/%s/" % USER, USER],
                           env=dict(env, LF_SYNC_PASSWORD="wrong"), stdin=subprocess.DEVNULL, capture_output=True,
                           text=True)
        check(r.returncode == 1 and "refused" in r.stderr and not os.listdir(elsewhere[0]),
              "a wrong password: %s" % r.stderr)
        # From the prompt (here a line on the input, as from a pipe), kept for vdirsyncer.
        r = subprocess.run([script, "--store", elsewhere[0], "--home", elsewhere[1], base + "/%s/" % USER, USER],
                           env=env, input=PASSWORD + "\n", capture_output=True, text=True)
        kept = os.path.join(elsewhere[1], "password")
        check(r.returncode == 0 and len(os.listdir(elsewhere[0])) == 5 and open(kept).read() == PASSWORD
              and os.stat(kept).st_mode & 0o777 == 0o600, "the prompted password: %s" % (r.stdout + r.stderr))

        # Connecting: the account's address; the calendar is found. The password from a file
        # written as echo writes it.
        password_file = os.path.join(tmp, "password")
        with open(password_file, "w") as f:
            f.write(PASSWORD + "\n")
        connect = [script, "--store", store, "--home", home, "--password-file", password_file,
                   base + "/%s/" % USER, USER]
        r = subprocess.run(connect, env=env, stdin=subprocess.DEVNULL, capture_output=True, text=True)
        assert r.returncode == 0, r.stdout + r.stderr
        check(r.stdout.count(VDIRSYNCER + " -c") >= 2, "the connect script prints how to keep syncing:\n" + r.stdout)
        check(len([n for n in os.listdir(store) if n.endswith(".ics")]) == 5, "the first sync brought 5 events")

        # A second run with the same arguments changes nothing.
        def state():
            files = {}
            for d in (store, home):
                for dirpath, _, names in os.walk(d):
                    # vdirsyncer's own bookkeeping is rewritten by every sync.
                    if os.path.basename(dirpath) == "status":
                        continue
                    for n in names:
                        if n == "last-sync.log":
                            continue
                        p = os.path.join(dirpath, n)
                        with open(p, "rb") as f:
                            files[p] = (f.read(), os.stat(p).st_mtime_ns)
            return files, dav.resources()
        before = state()
        r = subprocess.run(connect, env=env, stdin=subprocess.DEVNULL, capture_output=True, text=True)
        check(r.returncode == 0, "second connect: " + r.stderr)
        after = state()
        check(before[0] == after[0], "a second connect changed files: %s" %
              sorted(p for p in set(before[0]) | set(after[0]) if before[0].get(p) != after[0].get(p)))
        check(before[1] == after[1], "a second connect changed the server")

        # The program, on the synced store.
        penv = dict(os.environ, LANTERNFIELDS_STORE=windows_path(store), LF_SYNC_TURNS=windows_path(turns))
        program = subprocess.Popen([os.path.join(ROOT, "scripts", "wine-run"), driver], env=penv,
                                   stdout=open(program_log, "w"), stderr=subprocess.STDOUT)

        # What the form made and changed reaches the server.
        done("made")
        sync("made")
        res = dav.resources()
        weekly = [h for h, (_, t) in res.items() if "SUMMARY:Lantern weekly" in t]
        if check(len(weekly) == 1, "the weekly series is one resource: %s" % weekly):
            text = res[weekly[0]][1]
            uid = re.search(r"^UID:(.*?)\r?$", unfolded(text), re.M).group(1)
            check(len(re.findall(r"^UID:", unfolded(text), re.M)) == 2, "series and its override: " + text)
            check("RECURRENCE-ID" in text and "EXDATE" in text and "RRULE:FREQ=WEEKLY" in text,
                  "the series with its override and deleted occurrence: " + text)
            local = [n for n in os.listdir(store) if n.endswith(".ics") and uid in open(os.path.join(store, n)).read()]
            check(len(local) == 1, "one local file for the series: %s" % local)
            if local:
                mine = open(os.path.join(store, local[0]), newline="").read()
                names = ("SUMMARY", "DTSTART", "RRULE")
                check(master_lines(mine, names) == master_lines(text, names),
                      "SUMMARY, DTSTART and RRULE on the server: %s != %s" %
                      (master_lines(mine, names), master_lines(text, names)))
        check("SUMMARY:Made on the server\\, edited" in res.get(made_href, ("", ""))[1],
              "the server's event, edited in the program, under its own name")

        # While the program shows the series' day, the server renames the series (and adds what
        # the program does not know), adds an appointment to the day and deletes one of it.
        done("dayview-open")
        etag, text = res[weekly[0]]
        dav.put(weekly[0], with_summary(text, "Lantern weekly", "Lantern weekly, renamed on the server",
                                        "X-LANTERN-PROBE;X-FROM=server:kept through the program\r\n"), etag)
        dav.put(dav.collection + uuid.uuid4().hex + ".ics",
                event("dayadded-%s" % uuid.uuid4().hex, "20310313T110000", "Added to the day"))
        dav.delete(day_doomed_href, res[day_doomed_href][0])
        sync("renamed")
        go("renamed")

        # The program deletes one and changes the series; the X- property goes back with it.
        done("changed")
        sync("changed")
        res = dav.resources()
        check(made_href not in res, "the program's delete reached the server")
        text = res.get(weekly[0], ("", ""))[1]
        check("LOCATION:Hall" in text and "X-LANTERN-PROBE;X-FROM=server:kept through the program" in text,
              "the program's change with the server's unknown property: " + text)
        # While the month view shows: the server deletes one, moves one to another day and adds
        # one. After the round trip a second sync has nothing to send.
        dav.delete(doomed_href, res[doomed_href][0])
        etag, text = res[moving_href]
        dav.put(moving_href, text.replace("DTSTART:20310317T100000", "DTSTART:20310318T100000"), etag)
        month_added_href = dav.collection + uuid.uuid4().hex + ".ics"
        dav.put(month_added_href, event("monthadded-%s" % uuid.uuid4().hex, "20310319T100000", "Added to the month"))
        sync("deleted")
        go("deleted")

        # A sync while the user edits the same event in the form. The program has read the
        # synced store by now (and must not have written it back): a sync moves nothing.
        done("editing")
        quiet = sync("again")
        check(not re.search(r"Copying|Deleting", quiet), "a sync with no edits moved something: " + quiet)
        res = dav.resources()
        etag, text = res[notes_href]
        dav.put(notes_href, with_summary(text, "Shared notes", "Shared notes, server"), etag)
        sync("while editing")
        go("synced-while-editing")
        done("kept-both")
        sync("copy")
        res = dav.resources()
        summaries = summaries_of(res, "Shared notes")
        check(summaries == ["Shared notes, local", "Shared notes, server"], "both versions on the server: %s" % summaries)

        # Both sides change between two syncs: the server's version wins, the local one is kept.
        etag, text = res[notes_href]
        dav.put(notes_href, with_summary(text, "Shared notes, server", "Shared notes, server again"), etag)
        go("server-changed-again")
        done("local-changed-again")
        out = sync("conflict")
        check("conflict" in out.lower() or "sync-conflict" in out, "the conflict was resolved: " + out)
        sync("conflict copy")
        res = dav.resources()
        check("SUMMARY:Shared notes\\, server again" in res[notes_href][1], "the server's version won")
        summaries = summaries_of(res, "Shared notes")
        check(summaries == ["Shared notes, local", "Shared notes, local again", "Shared notes, server again"],
              "nothing lost: %s" % summaries)
        go("conflict-synced")

        # The user edits one occurrence of the series in the form while a sync brings the server's
        # new name for the series: the series keeps the server's version, and the user's
        # occurrence is kept beside it as an appointment of its own.
        done("editing-occurrence")
        res = dav.resources()
        etag, text = res[weekly[0]]
        dav.put(weekly[0], with_summary(text, "Lantern weekly, renamed on the server", "Lantern weekly, renamed again"),
                etag)
        sync("while editing an occurrence")
        go("synced-while-editing-occurrence")
        done("kept-both-occurrence")
        sync("occurrence copy")
        res = dav.resources()
        text = res.get(weekly[0], ("", ""))[1]
        check("SUMMARY:Lantern weekly\\, renamed again" in text and len(re.findall(r"^UID:", unfolded(text), re.M)) == 2,
              "the series as the server changed it, with its one exception: " + text)
        mine = [t for _, t in res.values() if "SUMMARY:Lantern weekly\\, my April" in t]
        check(len(mine) == 1 and "RRULE" not in mine[0] and "RECURRENCE-ID" not in mine[0]
              and "DTSTART:20310403T" in unfolded(mine[0]), "the user's occurrence as an appointment of its own: %s" % mine)
        go("occurrence-synced")

        # The server deletes an appointment the user is editing in the form: the user's version
        # is kept as a new appointment, which the next sync uploads.
        done("editing-deleted")
        res = dav.resources()
        dav.delete(month_added_href, res[month_added_href][0])
        sync("deleted while editing")
        go("synced-while-editing-deleted")
        done("kept-deleted")
        sync("kept after a delete")
        res = dav.resources()
        check(month_added_href not in res and summaries_of(res, "Added to the month") == ["Added to the month, mine"],
              "the user's version of the appointment the server deleted: %s" % summaries_of(res, "Added"))
        done("finished")
        check(program.wait(60) == 0, "the program's side failed")
    except Exception as e:  # a step that could not run at all
        check(False, "%s: %s" % (type(e).__name__, e))
    finally:
        if program and program.poll() is None:
            program.send_signal(signal.SIGTERM)
            program.wait(10)
        server.send_signal(signal.SIGTERM)
        try:
            server.wait(10)
        except subprocess.TimeoutExpired:
            server.kill()
        if os.path.exists(program_log):
            print(open(program_log, errors="replace").read())
        if failures:
            print("radicale log:\n" + open(os.path.join(tmp, "radicale.log"), errors="replace").read())
        shutil.rmtree(tmp, ignore_errors=True)
    print("wall time: %.1f s" % (time.monotonic() - started))
    print("%d failure(s)" % len(failures))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
