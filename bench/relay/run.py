#!/usr/bin/env python3
"""Relay benchmark: `quillon record URL --relay-only` side by side with
streamripper's relay (-r, -R 0, -A), each fed by one real-time connection to the
built-in ICY test station on 127.0.0.1 and serving 1, 10 and 100 listeners.

For each point (relay x listener count) a fresh station and a fresh relay are
started; once the relay serves, the listeners connect ("Icy-MetaData: 1"), a
warm-up passes, and then for --seconds the relaying process's CPU
(utime + stime from /proc/PID/stat) and its peak RSS (VmHWM) are read, and every
listener counts the audio bytes it receives (metadata blocks parsed out). A
listener's rate is the slope of its received audio over the window, relative to
the stream's nominal rate (bitrate * 125 B/s).

This reports figures; it asserts nothing. The verdicts it prints compare the
figures of this one run with each other. Every process it starts is stopped by
its pid; every temporary folder is removed after its run.
"""

import argparse
import importlib.util
import os
import selectors
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time

ROOT = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", ".."))


def _load_record_driver():
    # The recording benchmark's helpers (Proc, Context with its station, ...)
    # are reused as they are; bench/record is not a package, so load it by path.
    path = os.path.join(ROOT, "bench", "record", "run.py")
    spec = importlib.util.spec_from_file_location("bench_record", path)
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


record = _load_record_driver()
Proc, log, fmt_ratio = record.Proc, record.log, record.fmt_ratio

META_INT = 16000
BITRATE = 128
CLK_TCK = os.sysconf("SC_CLK_TCK")


# ---- the relaying process ------------------------------------------------------


def cpu_seconds(pid):
    """utime + stime of a live process, in seconds (None once it is gone)."""
    try:
        with open(f"/proc/{pid}/stat") as f:
            fields = f.read().rsplit(")", 1)[1].split()
    except OSError:
        return None
    # Fields after the command name start at field 3 (state); utime is 14, stime 15.
    return (int(fields[11]) + int(fields[12])) / CLK_TCK


def threads_of(pid):
    return record.proc_fields(pid, "status", {"Threads"}).get("Threads", 0)


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def wait_for_audio(port, proc, timeout):
    """True once a probe listener gets the header and some audio from the relay:
    a relay may accept before it has anything to serve, and listeners that
    connect then are turned away."""
    deadline = time.monotonic() + timeout
    while time.monotonic() < deadline:
        if proc.poll():
            return False
        try:
            with socket.create_connection(("127.0.0.1", port), timeout=2) as s:
                s.sendall(Listener.REQUEST)
                got = b""
                while len(got) < 1024 and time.monotonic() < deadline:
                    data = s.recv(4096)
                    if not data:
                        break
                    got += data
                if len(got) >= 1024:
                    return True
        except OSError:
            pass
        time.sleep(0.2)
    return False


class Relay:
    """How one relay is started; `start` returns once it accepts listeners."""

    def __init__(self, name, label):
        self.name, self.label = name, label


class QuillonRelay(Relay):
    def start(self, ctx, station_url, home):
        env = dict(os.environ, HOME=home, QUILLON_HOME=home)
        base = free_port()
        # The relay turns away players over relayMaxPlayers (64 unless set); room for
        # every listener of the run and the probe that checks for audio.
        for key, value in (("relayPort", str(base)), ("relayMaxPlayers", str(max(ctx.args.listeners) + 1))):
            subprocess.run([ctx.quillon, "prefs", "set", key, value], env=env, check=True,
                           stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        proc = Proc([ctx.quillon, "record", station_url, "--relay-only", "-q"], env, stderr=subprocess.PIPE)
        # "Relay: http://127.0.0.1:PORT/  (name)" on stderr once streaming starts;
        # the rest of stderr is drained to a file so the relay never blocks on it.
        seen = []
        for raw in proc.popen.stderr:
            line = raw.decode(errors="replace")
            seen.append(line)
            if line.startswith("Relay:"):
                break
        else:
            proc.stop()
            raise RuntimeError(f"quillon relay did not start: {''.join(seen)!r}")
        self.errors = open(os.path.join(home, "relay.err"), "w")
        threading.Thread(target=shutil.copyfileobj, args=(proc.popen.stderr, self.errors.buffer), daemon=True).start()
        port = int(line.split("http://127.0.0.1:", 1)[1].split("/", 1)[0])
        if not wait_for_audio(port, proc, 30):
            proc.stop()
            raise RuntimeError("quillon relay serves no audio")
        return proc, port


class StreamripperRelay(Relay):
    def start(self, ctx, station_url, home):
        env = dict(os.environ, HOME=home)
        port = free_port()
        # -A: no track files; -R 0: no cap on listeners; -z: this port or none.
        argv = ["streamripper", station_url, "-d", home, "--quiet", "-A", "-r", str(port), "-R", "0", "-z",
                "-c"]
        self.errors = open(os.path.join(home, "relay.err"), "w")
        proc = Proc(argv, env, stderr=self.errors)
        if not wait_for_audio(port, proc, 30):
            proc.stop()
            raise RuntimeError("streamripper relay did not start")
        return proc, port


RELAYS = [QuillonRelay("quillon", "quillon record --relay-only"), StreamripperRelay("sr", "streamripper -r -R 0 -A")]


# ---- listeners -----------------------------------------------------------------


class Listener:
    """One player: sends the request, then parses the ICY stream it receives
    (header, audio in meta-interval blocks, each followed by a metadata block)
    and counts the audio bytes."""

    REQUEST = b"GET / HTTP/1.0\r\nHost: 127.0.0.1\r\nUser-Agent: relay-bench\r\nIcy-MetaData: 1\r\n\r\n"

    def __init__(self, port):
        self.sock = socket.create_connection(("127.0.0.1", port), timeout=10)
        self.sock.sendall(self.REQUEST)
        self.sock.setblocking(False)
        self.stream = record.IcyStream()  # the recording benchmark's parser
        self.total = 0
        self.closed = False
        self.hung_up = False  # the relay closed the connection while measuring
        self.samples = []  # (time, audio bytes so far)

    @property
    def audio(self):
        return self.stream.audio

    @property
    def metaint(self):
        return self.stream.metaint

    def feed(self, data):
        self.total += len(data)
        self.stream.feed(data)

    def close(self):
        if not self.closed:
            self.closed = True
            self.sock.close()


def slope(points):
    """Least-squares slope of (t, bytes): the rate, robust to block-sized steps."""
    if len(points) < 2:
        return 0.0
    n = len(points)
    mt = sum(t for t, _ in points) / n
    mb = sum(b for _, b in points) / n
    var = sum((t - mt) ** 2 for t, _ in points)
    return sum((t - mt) * (b - mb) for t, b in points) / var if var else 0.0


def listen(listeners, seconds, warmup, on_window_start):
    """Reads every listener for warmup + seconds; samples the audio counts every
    0.1 s during the window. Returns the window's (start, end)."""
    sel = selectors.DefaultSelector()
    for li in listeners:
        sel.register(li.sock, selectors.EVENT_READ, li)
    start = time.monotonic()
    window_start = start + warmup
    end = window_start + seconds
    next_sample = window_start
    started = False
    buf = bytearray(1 << 16)
    while True:
        now = time.monotonic()
        if now >= end:
            break
        if not started and now >= window_start:
            started = True
            on_window_start()
        if started and now >= next_sample:
            for li in listeners:
                li.samples.append((now, li.audio))
            next_sample += 0.1
        timeout = max(0.0, min(end, next_sample if started else window_start) - now)
        for key, _ in sel.select(timeout):
            li = key.data
            try:
                got = li.sock.recv_into(buf)
            except (BlockingIOError, InterruptedError):
                continue
            except OSError:
                got = 0
            if not got:
                sel.unregister(li.sock)
                li.hung_up = True
                li.close()
                continue
            li.feed(memoryview(buf)[:got])
    for li in listeners:
        li.samples.append((time.monotonic(), li.audio))
    sel.close()
    return window_start, end


# ---- one point -----------------------------------------------------------------


def run_point(ctx, relay, n):
    a = ctx.args
    nominal = BITRATE * 125
    station = ctx.station("--rate", "realtime", "--bitrate", BITRATE, "--payload", "mp3", "--metaint", META_INT,
                          "--title-every", a.title_every)
    home = ctx.fresh("relay-home")
    proc, listeners = None, []
    try:
        proc, port = relay.start(ctx, station.url, home)
        for _ in range(n):
            listeners.append(Listener(port))
        cpu = {}

        def window_start():
            cpu["start"] = cpu_seconds(proc.pid)

        window = listen(listeners, a.seconds, a.warmup, window_start)
        cpu["end"] = cpu_seconds(proc.pid)
        mem = record.memory_sample(proc.pid)
        threads = threads_of(proc.pid)
        alive = not proc.poll()
    finally:
        for li in listeners:
            li.close()
        if proc:
            proc.stop()
        station.stop()
        if getattr(relay, "errors", None):
            relay.errors.close()
        shutil.rmtree(home, ignore_errors=True)
    wall = window[1] - window[0]
    used = (cpu["end"] - cpu["start"]) if cpu.get("start") is not None and cpu.get("end") is not None else float("nan")
    rates = [slope(li.samples) / nominal for li in listeners]
    dropped = sum(1 for li in listeners if li.hung_up)
    point = {
        "listeners": n,
        "seconds": wall,
        "cpu_s": used,
        "cpu_pct": 100 * used / wall,
        "cpu_ms_per_listener_min": 1000 * used / (wall / 60) / n,
        "vmhwm_kib": mem.get("VmHWM", 0),
        "vmrss_kib": mem.get("VmRSS", 0),
        "threads": threads,
        "rate_min": min(rates),
        "rate_max": max(rates),
        "rate_mean": sum(rates) / len(rates),
        "dropped": dropped,
        "alive": alive,
        "metaint_seen": sorted({li.metaint for li in listeners}),
    }
    log(f"  {relay.name:8} {n:3} listeners: cpu {used:.2f} s / {wall:.0f} s ({point['cpu_pct']:.2f}%), "
        f"VmHWM {point['vmhwm_kib'] / 1024:.1f} MiB, {threads} threads, rate min {point['rate_min']:.4f} "
        f"max {point['rate_max']:.4f} of nominal, dropped {dropped}, metaint {point['metaint_seen']}")
    return point


# ---- report --------------------------------------------------------------------


def verdict(ok):
    return "met" if ok else "MISSED"


def report(ctx):
    r = ctx.results
    m = r["machine"]
    label = {x.name: x.label for x in RELAYS}
    lines = [f"Run {r['started']}: {m['cpus']} cores ({m['cpu']}), {m['memory_gib']} GiB, Linux {m['kernel']}; "
             f"quillon {m['quillon']}, {m['streamripper']}; load at start {m['load_at_start']}", "",
             f"One station connection at {BITRATE} kbit/s (nominal {BITRATE * 125} B/s, metaint {META_INT}), "
             f"relayed to N listeners; {ctx.args.seconds} s measured after {ctx.args.warmup} s warm-up", "",
             "| N | relay | CPU s | CPU % of one core | quillon is | ms CPU / listener-min | VmHWM MiB | quillon is |"
             " threads | listener rate min | max | dropped |",
             "|---:|---|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|"]
    points = r["points"]
    for n in ctx.args.listeners:
        q = points.get(f"quillon/{n}")
        for relay in RELAYS:
            p = points.get(f"{relay.name}/{n}")
            if not p:
                continue
            cpu_ratio = fmt_ratio(q["cpu_s"], p["cpu_s"]) if q else "n/a"
            mem_ratio = fmt_ratio(q["vmhwm_kib"], p["vmhwm_kib"]) if q else "n/a"
            lines.append(f"| {n} | {label[relay.name]} | {p['cpu_s']:.2f} | {p['cpu_pct']:.2f} | {cpu_ratio} | "
                         f"{p['cpu_ms_per_listener_min']:.1f} | {p['vmhwm_kib'] / 1024:.1f} | {mem_ratio} | "
                         f"{p['threads']} | {p['rate_min']:.4f} | {p['rate_max']:.4f} | {p['dropped']} |")
    lines += ["", "Targets (this run):"]
    top = max(ctx.args.listeners)
    q, s = points.get(f"quillon/{top}"), points.get(f"sr/{top}")
    if q and s:
        x = q["cpu_s"] / s["cpu_s"] if s["cpu_s"] else float("inf")
        lines.append(f"- CPU at {top} listeners <= 0.5x streamripper's: {x:.2f}x, {verdict(x <= 0.5)}")
    if q:
        worst = max(abs(q["rate_min"] - 1), abs(q["rate_max"] - 1))
        lines.append(f"- every listener within 1% of the stream's rate at {top} listeners: min {q['rate_min']:.4f}, "
                     f"max {q['rate_max']:.4f}, {verdict(worst <= 0.01 and q['dropped'] == 0)}")
    return "\n".join(lines) + "\n"


def main():
    p = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    p.add_argument("--build-dir", default=os.path.join(ROOT, "build-benchrelay"))
    p.add_argument("--no-build", action="store_true", help="use the quillon already built in --build-dir")
    p.add_argument("--tmp", default=tempfile.gettempdir())
    p.add_argument("--listeners", default="1,10,100", help="listener counts (default: 1,10,100)")
    p.add_argument("--relays", default="quillon,sr", help="which relays (default: quillon,sr)")
    p.add_argument("--seconds", type=int, default=60, help="measured seconds per point")
    p.add_argument("--warmup", type=int, default=5, help="seconds between connecting and measuring")
    p.add_argument("--title-every", type=int, default=480000, help="audio bytes between titles")
    p.add_argument("--json", help="also write every figure here")
    p.add_argument("--quick", action="store_true", help="short try-out: 15 s per point")
    args = p.parse_args()
    # A TERM (or an INT where the shell ignores it for background jobs) still
    # unwinds through the finally blocks that stop the station and the relay.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    args.listeners = [int(x) for x in args.listeners.split(",")]
    if args.quick:
        args.seconds = 15
    if "sr" in args.relays.split(",") and not shutil.which("streamripper"):
        sys.exit("bench: streamripper is not installed (apt-get install streamripper)")
    if not args.no_build:
        record.build(args)
    ctx = record.Context(args, prefix="quillon-relay-bench-")
    chosen = [x for x in RELAYS if x.name in args.relays.split(",")]
    ctx.results["points"] = {}
    try:
        for n in args.listeners:
            for relay in chosen:  # side by side: both relays at each count before the next count
                ctx.results["points"][f"{relay.name}/{n}"] = run_point(ctx, relay, n)
    finally:
        shutil.rmtree(ctx.work, ignore_errors=True)
    record.publish(report(ctx), ctx.results, args.json)


if __name__ == "__main__":
    main()
