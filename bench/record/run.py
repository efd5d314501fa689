#!/usr/bin/env python3
"""Recording benchmark: `quillon record` side by side with streamripper (default
splitting and --xs-none) and `curl -o` (the raw loopback-to-disk copy), all
recording the built-in ICY test station on 127.0.0.1.

Phases (each contender runs against a fresh station of its own):
  a  one connection at --rate max: throughput through the whole pipeline to disk,
     timed to the recorder's last write, to its exit, and to its data being on disk
  b  N connections at real time for T seconds, one process each (and quillon once
     more with all N in one process): CPU per stream-minute, RSS per connection
  c  one long run at --rate max: RSS sampled over time, growth from 5% to 99% written
  d  audio lost at stop: real-time recordings stopped after T seconds by the
     recorder's own duration option, by SIGTERM, by SIGINT (Ctrl-C) and by the
     station's end of stream; the audio on disk (ffprobe-decoded, and bytes less
     tags) against the audio the station delivered, counted by a loopback proxy

--recorders picks the contenders (quillon always runs); each peer is needed only
when chosen.

This reports figures; it asserts nothing. The verdicts it prints compare the
figures of this one run with each other. Every process it starts is stopped by
its pid; every recording folder is removed after its run.
"""

import argparse
import datetime
import json
import os
import platform
import shutil
import selectors
import signal
import socket
import statistics
import subprocess
import sys
import tempfile
import threading
import time

ROOT = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", ".."))
MIB = 1 << 20
GIB = 1 << 30
META_INT = 16000
TITLE_EVERY = 4 * MIB
RELAY_BASE = 31000


# ---- processes ---------------------------------------------------------------


class Proc:
    """A started process, reaped with wait4 so its own rusage is known."""

    def __init__(self, argv, env, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL):
        self.argv = argv
        self.started = time.monotonic()
        self.popen = subprocess.Popen(argv, env=env, stdout=stdout, stderr=stderr)
        self.pid = self.popen.pid
        self.ended = None
        self.status = None
        self.rusage = None
        self.hwm_kib = 0  # highest VmHWM seen while it ran
        self.written = 0  # wchar at the last sample
        self.last_write = None  # when wchar last grew, seconds after the start

    def sample(self):
        """Reads its memory figures and write count now (empty once it has ended)."""
        s = memory_sample(self.pid) if self.ended is None else {}
        self.hwm_kib = max(self.hwm_kib, s.get("VmHWM", 0))
        if s.get("wchar", 0) > self.written:
            self.written = s["wchar"]
            self.last_write = time.monotonic() - self.started
        return s

    def poll(self):
        if self.ended is not None:
            return True
        pid, status, rusage = os.wait4(self.pid, os.WNOHANG)
        if pid == 0:
            return False
        self._reaped(status, rusage)
        return True

    def wait(self, timeout, interval=0.1):
        """Waits for the end, sampling memory every `interval` seconds."""
        deadline = time.monotonic() + timeout
        while not self.poll():
            if time.monotonic() > deadline:
                return False
            self.sample()
            time.sleep(interval)
        return True

    def stop(self):
        """Ends the process if it still runs: SIGTERM, then SIGKILL."""
        if self.ended is not None:
            return
        for sig, grace in ((signal.SIGTERM, 5), (signal.SIGKILL, 5)):
            try:
                os.kill(self.pid, sig)
            except ProcessLookupError:
                pass
            if self.wait(grace, 0.02):
                return

    def _reaped(self, status, rusage):
        self.ended = time.monotonic()
        self.status = os.waitstatus_to_exitcode(status)
        self.rusage = rusage
        self.popen.returncode = self.status  # so Popen does not reap it again

    @property
    def wall(self):
        return (self.ended or time.monotonic()) - self.started

    @property
    def cpu(self):
        return self.rusage.ru_utime + self.rusage.ru_stime

    @property
    def peak_rss_kib(self):
        # Not ru_maxrss: Linux carries the high-water mark of the forking
        # process (this Python) across exec into the child's figure.
        return self.hwm_kib


def proc_fields(pid, name, keys):
    out = {}
    try:
        with open(f"/proc/{pid}/{name}") as f:
            for line in f:
                key, _, rest = line.partition(":")
                if key in keys:
                    out[key] = int(rest.split()[0])
    except (OSError, ValueError, IndexError):
        pass
    return out


def memory_sample(pid, detail=False):
    """RSS figures in KiB and the bytes written so far (wchar) as progress: every
    recorder here writes its files with write(), while recv() does not count in
    rchar. With `detail` also PSS and USS (private pages) from smaps_rollup."""
    sample = proc_fields(pid, "status", {"VmRSS", "VmHWM", "Threads"})
    sample.update(proc_fields(pid, "io", {"wchar"}))
    if detail:
        sample.update(proc_fields(pid, "smaps_rollup", {"Pss", "Private_Clean", "Private_Dirty"}))
        if "Private_Clean" in sample and "Private_Dirty" in sample:
            sample["USS"] = sample["Private_Clean"] + sample["Private_Dirty"]
    return sample


# ---- the station ---------------------------------------------------------------


class Station:
    def __init__(self, quillon, home, *options):
        env = dict(os.environ, QUILLON_HOME=home)
        argv = [quillon, "station", "--port", "0", *map(str, options)]
        self.errors = os.path.join(home, "station.err")
        with open(self.errors, "w") as err:
            self.proc = Proc(argv, env, stdout=subprocess.PIPE, stderr=err)
        line = self.proc.popen.stdout.readline().decode()
        if "listening on" not in line:
            self.stop()
            with open(self.errors) as err:
                raise RuntimeError(f"station did not start: {line} {err.read()}")
        self.url = line.split("listening on", 1)[1].strip()

    def stop(self):
        self.proc.stop()
        self.proc.popen.stdout.close()


# ---- contenders --------------------------------------------------------------


class Contender:
    """How one recorder is started: with `seconds` it records that long,
    otherwise until the station hangs up."""

    def __init__(self, name, label):
        self.name = name
        self.label = label

    def argv(self, ctx, url, out, seconds=None):
        raise NotImplementedError

    def env(self, home):
        return dict(os.environ, HOME=home, QUILLON_HOME=home)

    # Sets up a fresh home for recorder number `index` of a run.
    def prepare(self, ctx, home, index):
        pass

    # Files a cleaner may delete while the recorder runs (finished tracks only).
    def finished_files(self, out):
        return []


class Quillon(Contender):
    def __init__(self, name, label, connections=1):
        super().__init__(name, label)
        self.connections = connections

    def argv(self, ctx, url, out, seconds=None):
        # Several connections in one process need locations that differ; the
        # station serves the same stream on every path.
        urls = [url] if self.connections == 1 else [f"{url}s{i}" for i in range(self.connections)]
        argv = [ctx.quillon, "record", *urls, "--to", out, "-q"]
        if seconds:
            argv += ["--for", f"{seconds}s"]
        return argv

    def prepare(self, ctx, home, index):
        # Every connection serves a relay; recorders running side by side get
        # ports apart, or all but the first would run without one.
        port = RELAY_BASE + index * 64
        # A folder per connection: connections of one process that record the
        # same titles into one folder would find each track's file taken.
        for key, value in (("relayPort", str(port)), ("subFolders", "YES")):
            subprocess.run([ctx.quillon, "prefs", "set", key, value], env=self.env(home), check=True,
                           stdout=subprocess.DEVNULL)

    def finished_files(self, out):
        # Every file but the newest two (the one written and the next announced).
        files = []
        for base, _dirs, names in os.walk(out):
            for n in names:
                p = os.path.join(base, n)
                try:
                    files.append((os.stat(p).st_mtime_ns, p))
                except OSError:
                    pass
        files.sort()
        return [p for _, p in files[:-2]]


class Streamripper(Contender):
    def __init__(self, name, label, extra):
        super().__init__(name, label)
        self.extra = extra

    def argv(self, ctx, url, out, seconds=None):
        # -c: no reconnecting once the station hangs up; -M: a cap on what one
        # run may write, whatever happens.
        cap = int(ctx.cap_bytes / MIB) + 64
        argv = ["streamripper", url, "-d", out, "--quiet", "-c", "-M", str(cap), *self.extra]
        if seconds:
            argv += ["-l", str(seconds)]
        return argv

    def finished_files(self, out):
        # Finished tracks are moved out of "incomplete"; only those are deleted.
        files = []
        for base, dirs, names in os.walk(out):
            dirs[:] = [d for d in dirs if d != "incomplete"]
            files += [os.path.join(base, n) for n in names]
        return files


class Curl(Contender):
    def argv(self, ctx, url, out, seconds=None):
        # The station answers "ICY 200 OK", which curl takes as HTTP/0.9. The same
        # request header as the recorders, so the same bytes (metadata included).
        argv = ["curl", "--http0.9", "-sS", "-H", "Icy-MetaData: 1", "-o", os.path.join(out, "stream.bin")]
        if seconds:
            argv += ["--max-time", str(seconds)]
        return argv + [url]


CONTENDERS = [
    Quillon("quillon", "quillon record"),
    Streamripper("sr", "streamripper (default)", []),
    Streamripper("sr-xs-none", "streamripper --xs-none", ["--xs-none"]),
    Curl("curl", "curl -o (raw copy)"),
]


# ---- helpers -----------------------------------------------------------------


def bytes_on_disk(folder):
    total = 0
    for base, _dirs, names in os.walk(folder):
        for n in names:
            try:
                total += os.lstat(os.path.join(base, n)).st_size
            except OSError:
                pass
    return total


def free_bytes(folder):
    st = os.statvfs(folder)
    return st.f_bavail * st.f_frsize


def require_free(folder, needed):
    free = free_bytes(folder)
    if free < needed + 5 * GIB:
        sys.exit(f"bench: {free / GIB:.1f} GiB free under {folder}, need {needed / GIB:.1f} GiB + 5 GiB margin")


class Cleaner(threading.Thread):
    """Deletes finished track files while a long run goes on, so the disk holds
    only a few tracks at a time. Deleting a file that is still open is harmless:
    its blocks are freed when the writer closes it."""

    def __init__(self, contender, out):
        super().__init__(daemon=True)
        self.contender, self.out = contender, out
        self.deleted = 0
        self.halt = threading.Event()

    def run(self):
        while not self.halt.wait(0.5):
            for path in self.contender.finished_files(self.out):
                try:
                    self.deleted += os.lstat(path).st_size
                    os.unlink(path)
                except OSError:
                    pass

    def stop(self):
        self.halt.set()
        if self.is_alive():
            self.join()


def median(values):
    return statistics.median(values) if values else float("nan")


def fmt_ratio(x, y):
    return f"{x / y:.2f}x" if y else "n/a"


class Context:
    """One benchmark run: its options, the quillon under test, a scratch folder and the results."""

    def __init__(self, args, prefix="quillon-bench-"):
        self.args = args
        self.quillon = os.path.join(args.build_dir, "quillon")
        self.work = tempfile.mkdtemp(prefix=prefix, dir=args.tmp)
        self.cap_bytes = 0
        # The relay benchmark names its contenders --relays.
        self.recorders = getattr(args, "recorders", getattr(args, "relays", "quillon")).split(",")
        self.contenders = [c for c in CONTENDERS if c.name in self.recorders]
        peers = {name.split("-")[0] for name in self.recorders}
        self.results = {"machine": machine(peers), "started": datetime.datetime.now().isoformat(timespec="seconds")}

    def fresh(self, name):
        path = os.path.join(self.work, name)
        shutil.rmtree(path, ignore_errors=True)
        os.makedirs(path)
        return path

    def station(self, *options):
        return Station(self.quillon, self.fresh("station-home"), *options)


def machine(peers):
    """The machine and the versions of the programs that run (a peer not run is not asked)."""
    def run(argv):
        try:
            return subprocess.run(argv, capture_output=True, text=True, timeout=10).stdout.strip()
        except OSError:
            return "?"

    model = "?"
    with open("/proc/cpuinfo") as f:
        for line in f:
            if line.startswith("model name"):
                model = line.split(":", 1)[1].strip()
                break
    mem = 0
    with open("/proc/meminfo") as f:
        for line in f:
            if line.startswith("MemTotal:"):
                mem = int(line.split()[1])
    return {
        "cpus": os.cpu_count(),
        "cpu": model,
        "memory_gib": round(mem / MIB, 1),
        "kernel": platform.release(),
        "quillon": run(["git", "-C", ROOT, "rev-parse", "--short", "HEAD"])
        + (" with local changes" if run(["git", "-C", ROOT, "status", "--porcelain", "--", "src", "tools"]) else ""),
        "streamripper": (run(["streamripper", "-v"]).splitlines() or ["?"])[0] if "sr" in peers else "not run",
        "curl": run(["curl", "--version"]).splitlines()[0].split(" (")[0] if "curl" in peers else "curl not run",
        "load_at_start": [round(x, 2) for x in os.getloadavg()],
    }


def build(args):
    subprocess.run(["cmake", "-S", ROOT, "-B", args.build_dir, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release",
                    "-DQUILLON_TESTS=OFF"], check=True, stdout=subprocess.DEVNULL)
    subprocess.run(["cmake", "--build", args.build_dir, "--target", "quillon", "-j2"], check=True)


def log(text):
    print(text, file=sys.stderr, flush=True)


# ---- phase a: throughput -------------------------------------------------------


def phase_a(ctx):
    a = ctx.args
    total = int(a.a_gib * GIB)
    ctx.cap_bytes = total
    require_free(ctx.work, total * 1.1)
    runs = {c.name: [] for c in ctx.contenders}
    for rep in range(a.repeat):
        for c in ctx.contenders:
            station = ctx.station("--rate", "max", "--payload", "mp3", "--metaint", META_INT, "--title-every",
                                  TITLE_EVERY, "--close-after", total)
            out, home = ctx.fresh("out"), ctx.fresh("home")
            p = None
            try:
                c.prepare(ctx, home, 0)
                os.sync()
                p = Proc(c.argv(ctx, station.url, out), c.env(home))
                if not p.wait(a.a_timeout, 0.05):
                    log(f"  {c.name}: did not finish within {a.a_timeout} s; stopped")
                    p.stop()
                sync_start = time.monotonic()
                os.sync()
                sync_time = time.monotonic() - sync_start
                run = {"wall": p.wall, "wall_sync": p.wall + sync_time, "cpu": p.cpu,
                       "last_write": p.last_write or p.wall,
                       "peak_rss_kib": p.peak_rss_kib, "disk": bytes_on_disk(out), "exit": p.status}
            finally:
                if p:
                    p.stop()
                station.stop()
                shutil.rmtree(out, ignore_errors=True)
            runs[c.name].append(run)
            log(f"  a[{rep + 1}/{a.repeat}] {c.name:11} {total / MIB / run['last_write']:8.1f} MiB/s  "
                f"last write {run['last_write']:.2f} s, exit {run['wall']:.2f} s, on disk {run['wall_sync']:.2f} s  "
                f"cpu {run['cpu']:.2f} s  "
                f"disk {run['disk'] / MIB:.0f} MiB  exit {run['exit']}")
    summary = {}
    for c in ctx.contenders:
        r = runs[c.name]
        wall = median([x["wall"] for x in r])
        summary[c.name] = {
            "runs": r,
            "wall": wall,
            "mib_s": total / MIB / median([x["last_write"] for x in r]),
            "mib_s_exit": total / MIB / wall,
            "mib_s_sync": total / MIB / median([x["wall_sync"] for x in r]),
            "cpu": median([x["cpu"] for x in r]),
            "disk_mib": median([x["disk"] for x in r]) / MIB,
            "peak_rss_kib": max(x["peak_rss_kib"] for x in r),
        }
    ctx.results["a"] = {"bytes": total, "repeat": a.repeat, "contenders": summary}


# ---- phase b: many real-time connections ---------------------------------------


def phase_b(ctx):
    a = ctx.args
    seconds, n = a.b_seconds, a.b_streams
    ctx.cap_bytes = 64 * MIB
    # One process per connection for every recorder, as the peers can do no
    # other; then quillon once more with all connections in one process.
    plan = [(c, n) for c in ctx.contenders] + [(Quillon("quillon-1proc", f"quillon record, {n} in one process", n), 1)]
    summary = {}
    for c, processes in plan:
        connections = n // processes
        station = ctx.station("--rate", "realtime", "--bitrate", 128, "--payload", "mp3", "--metaint", META_INT,
                              "--title-every", a.b_title_every)
        outs = [ctx.fresh(f"out-{i}") for i in range(processes)]
        homes = [ctx.fresh(f"home-{i}") for i in range(processes)]
        procs = []
        detail = {}
        try:
            for i, home in enumerate(homes):
                c.prepare(ctx, home, i)
            for out, home in zip(outs, homes):
                procs.append(Proc(c.argv(ctx, station.url, out, seconds), c.env(home)))
            # PSS and USS are read once, when buffers and delay lines are full.
            detail_at = time.monotonic() + max(0.0, seconds - 8)
            deadline = time.monotonic() + seconds + 60
            while not all(p.poll() for p in procs):
                if detail_at and time.monotonic() >= detail_at:
                    detail = {p.pid: memory_sample(p.pid, detail=True) for p in procs}
                    detail_at = None
                for p in procs:
                    p.sample()
                if time.monotonic() > deadline:
                    log(f"  {c.name}: still running {seconds + 60} s after the start; stopped")
                    break
                time.sleep(1)
            disk = sum(bytes_on_disk(o) for o in outs)
        finally:
            for p in procs:
                p.stop()
            station.stop()
            for o in outs + homes:
                shutil.rmtree(o, ignore_errors=True)
        cpu = sum(p.cpu for p in procs)
        stream_minutes = sum(p.wall for p in procs) * connections / 60
        per_connection = [p.peak_rss_kib / connections for p in procs]
        live = [s for s in detail.values() if "USS" in s]
        summary[c.name] = {
            "label": c.label,
            "processes": processes,
            "connections": n,
            "cpu_total": cpu,
            "stream_minutes": stream_minutes,
            "cpu_per_stream_minute": cpu / stream_minutes,
            "peak_rss_mean_kib": statistics.mean(per_connection),
            "peak_rss_max_kib": max(per_connection),
            "pss_mean_kib": statistics.mean(s["Pss"] for s in live) / connections if live else 0,
            "uss_mean_kib": statistics.mean(s["USS"] for s in live) / connections if live else 0,
            "threads": max((s.get("Threads", 0) for s in live), default=0),
            "disk_mib": disk / MIB,
            "exits": sorted({p.status for p in procs}),
        }
        s = summary[c.name]
        log(f"  b {c.name:13} cpu {cpu:.2f} s over {stream_minutes:.1f} stream-min = "
            f"{s['cpu_per_stream_minute'] * 1000:.1f} ms/stream-min; peak RSS per connection "
            f"{s['peak_rss_mean_kib'] / 1024:.2f} MiB (max {s['peak_rss_max_kib'] / 1024:.2f}), PSS "
            f"{s['pss_mean_kib'] / 1024:.2f} MiB, USS {s['uss_mean_kib'] / 1024:.2f} MiB; threads {s['threads']}; "
            f"disk {s['disk_mib']:.1f} MiB; exits {s['exits']}")
    ctx.results["b"] = {"streams": n, "seconds": seconds, "title_every": a.b_title_every, "contenders": summary}


# ---- phase c: RSS over a long run ---------------------------------------------


def phase_c(ctx):
    a = ctx.args
    total = int(a.c_gib * GIB)
    ctx.cap_bytes = total
    summary = {}
    for c in ctx.contenders:
        # curl writes one file that cannot be trimmed while it grows.
        require_free(ctx.work, total * 1.05 if isinstance(c, Curl) else 2 * GIB)
        station = ctx.station("--rate", "max", "--payload", "mp3", "--metaint", META_INT, "--title-every",
                              TITLE_EVERY, "--close-after", total)
        out, home = ctx.fresh("out"), ctx.fresh("home")
        cleaner = Cleaner(c, out)
        series = []
        p = None
        try:
            c.prepare(ctx, home, 0)
            p = Proc(c.argv(ctx, station.url, out), c.env(home))
            cleaner.start()
            deadline = time.monotonic() + a.c_timeout
            while not p.poll():
                s = p.sample()
                if "VmRSS" in s and "wchar" in s:
                    series.append((time.monotonic() - p.started, s["wchar"], s["VmRSS"]))
                if time.monotonic() > deadline:
                    log(f"  {c.name}: did not finish within {a.c_timeout} s; stopped")
                    p.stop()
                    break
                time.sleep(a.c_interval)
            cleaner.stop()
            written = cleaner.deleted + bytes_on_disk(out)
        finally:
            if p:
                p.stop()
            cleaner.stop()
            station.stop()
            shutil.rmtree(out, ignore_errors=True)

        def rss_at(fraction):
            for _t, done, rss in series:
                if done >= fraction * total:
                    return rss
            return series[-1][2] if series else 0

        # The end of the run is the last sample before 99% is written: later
        # ones may fall into the recorder's shut-down, which is no growth over
        # the run.
        early = rss_at(0.05)
        steady = [rss for _t, done, rss in series if 0.05 * total <= done <= 0.99 * total]
        late = steady[-1] if steady else 0
        mid = rss_at(0.5)
        summary[c.name] = {
            "rss_early_kib": early,
            "growth_second_half_kib": late - mid,
            "rss_mid_kib": mid,
            "rss_end_kib": late,
            "rss_steady_max_kib": max(steady) if steady else 0,
            "peak_rss_kib": p.peak_rss_kib,
            "growth_kib": late - early,
            "samples": len(series),
            "wall": p.wall,
            "written_mib": written / MIB,
            "exit": p.status,
            "series": [(round(t, 2), done, rss) for t, done, rss in series[:: max(1, len(series) // 200)]],
        }
        s = summary[c.name]
        log(f"  c {c.name:11} RSS at 5% {early / 1024:.2f} MiB, 50% {s['rss_mid_kib'] / 1024:.2f} MiB, "
            f"end {late / 1024:.2f} MiB (steady max {s['rss_steady_max_kib'] / 1024:.2f}, peak "
            f"{s['peak_rss_kib'] / 1024:.2f}); {s['samples']} samples over {s['wall']:.1f} s; "
            f"wrote {s['written_mib']:.0f} MiB; exit {s['exit']}")
    ctx.results["c"] = {"bytes": total, "contenders": summary}


# ---- phase d: audio lost at stop -------------------------------------------------


class IcyStream:
    """Parses an ICY response as it arrives (header, then audio in meta-interval
    blocks, each followed by a metadata block), counts its audio bytes and, when
    given a file, copies the audio there."""

    def __init__(self, audio_file=None):
        self.audio_file = audio_file
        self.head = b""
        self.in_header = True
        self.metaint = 0
        self.left_audio = 0
        self.left_meta = -1  # -1: the length byte comes next
        self.audio = 0

    def feed(self, data):
        data = bytes(data)
        if self.in_header:
            self.head += data
            end = self.head.find(b"\r\n\r\n")
            if end < 0:
                if len(self.head) > 65536:
                    raise RuntimeError("no end of header")
                return
            data = self.head[end + 4:]
            for line in self.head[:end].decode("latin-1").split("\r\n"):
                key, _, value = line.partition(":")
                if key.strip().lower() == "icy-metaint":
                    self.metaint = int(value.strip())
            self.in_header = False
            self.left_audio = self.metaint
        i, n = 0, len(data)
        while i < n:
            if not self.metaint or self.left_audio:
                take = n - i if not self.metaint else min(self.left_audio, n - i)
                self._audio(data[i:i + take])
                self.left_audio -= take if self.metaint else 0
                i += take
            elif self.left_meta < 0:
                self.left_meta = data[i] * 16
                i += 1
                if self.left_meta == 0:
                    self.left_meta, self.left_audio = -1, self.metaint
            else:
                take = min(self.left_meta, n - i)
                self.left_meta -= take
                i += take
                if self.left_meta == 0:
                    self.left_meta, self.left_audio = -1, self.metaint

    def _audio(self, chunk):
        self.audio += len(chunk)
        if self.audio_file:
            self.audio_file.write(chunk)


class CountingProxy(threading.Thread):
    """A loopback hop between one recorder and its station that knows what the
    station delivered: every byte it hands to the recorder's socket is parsed
    (audio counted and copied to `audio_path`, metadata left out) and stamped with
    the time. Bytes the kernel accepted for the recorder count as delivered, read
    or not. Connections are served one after another and summed."""

    def __init__(self, station_url, audio_path):
        super().__init__(daemon=True)
        hostport = station_url.split("://", 1)[1].split("/", 1)[0]
        host, _, port = hostport.rpartition(":")
        self.upstream = (host, int(port))
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.listener.settimeout(0.2)
        self.url = f"http://127.0.0.1:{self.listener.getsockname()[1]}/"
        self.audio_file = open(audio_path, "wb")
        self.audio = 0  # audio bytes delivered over all connections
        self.connections = 0
        self.stamps = []  # (time, audio delivered so far), one per chunk handed on
        self.client_closed = None  # when the recorder last hung up
        self.halt = threading.Event()
        self.failure = None

    def run(self):
        try:
            while not self.halt.is_set():
                try:
                    client, _ = self.listener.accept()
                except TimeoutError:
                    continue
                with client, socket.create_connection(self.upstream, timeout=10) as station:
                    self.connections += 1
                    self._pump(client, station, IcyStream(self.audio_file))
        except Exception as e:  # reported with the figures, not lost in a thread
            self.failure = repr(e)
        finally:
            self.audio_file.close()

    def _pump(self, client, station, icy):
        base = self.audio
        client.settimeout(10)
        sel = selectors.DefaultSelector()
        sel.register(client, selectors.EVENT_READ, "client")
        sel.register(station, selectors.EVENT_READ, "station")
        try:
            while not self.halt.is_set():
                for key, _ in sel.select(0.2):
                    try:
                        data = key.fileobj.recv(65536)
                    except OSError:
                        data = b""
                    if key.data == "client":
                        if not data:
                            self.client_closed = time.monotonic()
                            return
                        station.sendall(data)
                        continue
                    if not data:
                        # The station hung up: pass that on and wait for the recorder to close.
                        sel.unregister(station)
                        client.shutdown(socket.SHUT_WR)
                        continue
                    view = memoryview(data)
                    while view:
                        try:
                            sent = client.send(view)
                        except OSError:
                            self.client_closed = time.monotonic()
                            return
                        icy.feed(view[:sent])
                        view = view[sent:]
                        self.audio = base + icy.audio
                        self.stamps.append((time.monotonic(), self.audio))
        finally:
            sel.close()

    def delivered_by(self, moment):
        """Audio bytes delivered up to `moment` (a time.monotonic() value)."""
        upto = [audio for t, audio in self.stamps if t <= moment]
        return upto[-1] if upto else 0

    def stop(self):
        self.halt.set()
        if self.is_alive():
            self.join()
        self.listener.close()


def mp3_audio(path):
    """A file's bytes less its ID3v2 tag at the front and its ID3v1 tag at the end."""
    with open(path, "rb") as f:
        data = f.read()
    start, end = 0, len(data)
    if len(data) >= 10 and data[:3] == b"ID3":
        start = 10 + ((data[6] << 21) | (data[7] << 14) | (data[8] << 7) | data[9])
        start += 10 if data[5] & 0x10 else 0  # a footer
    if end - start >= 128 and data[end - 128:end - 125] == b"TAG":
        end -= 128
    return data[min(start, end):end]


def decoded_seconds(path):
    """Seconds of audio ffprobe reads from an MPEG audio file: the sum of its
    frames' durations (not the size-based estimate it reports as the duration)."""
    out = subprocess.run(["ffprobe", "-v", "error", "-select_streams", "a:0", "-show_entries",
                          "packet=duration_time", "-of", "csv=p=0", path], capture_output=True, text=True)
    total = 0.0
    for line in out.stdout.split():
        try:
            total += float(line.strip(","))
        except ValueError:
            pass
    return total


def audio_files(folder):
    return sorted(os.path.join(base, n) for base, _dirs, names in os.walk(folder) for n in names)


class StopCase:
    """One recorder stopped one way: by its own duration option, a signal, or the
    station's end of stream."""

    def __init__(self, contender, how, label):
        self.contender, self.how, self.label = contender, how, label


STOP_CASES = [
    StopCase(Quillon("quillon", "quillon record"), "duration", "`--for {}s`"),
    StopCase(Quillon("quillon", "quillon record"), "SIGTERM", "SIGTERM"),
    StopCase(Quillon("quillon", "quillon record"), "SIGINT", "SIGINT (Ctrl-C)"),
    StopCase(Quillon("quillon", "quillon record"), "end", "end of stream"),
    StopCase(Streamripper("sr", "streamripper (default)", []), "duration", "`-l {}`"),
    StopCase(Streamripper("sr", "streamripper (default)", []), "SIGTERM", "SIGTERM"),
    StopCase(Streamripper("sr", "streamripper (default)", []), "SIGINT", "SIGINT (Ctrl-C)"),
    StopCase(Streamripper("sr", "streamripper (default)", []), "end", "end of stream"),
    StopCase(Curl("curl", "curl -o (raw copy)"), "duration", "`--max-time {}`"),
    StopCase(Curl("curl", "curl -o (raw copy)"), "SIGTERM", "SIGTERM"),
    StopCase(Curl("curl", "curl -o (raw copy)"), "end", "end of stream"),
]


def on_disk_audio(case, out, scratch):
    """(decoded seconds, the audio of each file) a recorder left in `out`."""
    files = audio_files(out)
    if isinstance(case.contender, Curl):
        # One file holding the response as received: header, audio and metadata.
        stripped = os.path.join(scratch, "curl-audio.mp3")
        with open(stripped, "wb") as f:
            icy = IcyStream(f)
            for path in files:
                with open(path, "rb") as g:
                    while chunk := g.read(1 << 16):
                        icy.feed(chunk)
        with open(stripped, "rb") as f:
            return decoded_seconds(stripped), [f.read()]
    return sum(decoded_seconds(p) for p in files), [mp3_audio(p) for p in files]


def gaps(delivered, pieces):
    """Audio missing ahead of the first file and after the last one, in bytes:
    each file's audio is located in what was delivered. Within one title the
    station loops a tone of about 2 s, so a gap longer than a loop could be
    placed a loop off; the total lost does not depend on this."""
    found = [(delivered.find(p), delivered.rfind(p), len(p)) for p in pieces if p]
    if not found or any(first < 0 for first, _last, _n in found):
        return None, None
    return min(first for first, _last, _n in found), len(delivered) - max(last + n for _f, last, n in found)


def phase_d(ctx):
    """Every case at once, each with a station and a counting proxy of its own:
    real-time audio for `seconds`, then the stop; audio delivered against audio
    on disk once every recorder has exited."""
    a = ctx.args
    seconds = a.d_seconds
    rate = 128 * 125
    cases = [c for c in STOP_CASES if c.contender.name in ctx.recorders]
    runs = []
    try:
        for i, case in enumerate(cases):
            c = case.contender
            options = ["--rate", "realtime", "--bitrate", 128, "--payload", "mp3", "--metaint", META_INT,
                       "--title-every", a.b_title_every]
            if case.how == "end":
                options += ["--close-after", seconds * rate]
            run = {"case": case, "out": ctx.fresh(f"stop-out-{i}"), "home": ctx.fresh(f"stop-home-{i}"),
                   "scratch": ctx.fresh(f"stop-scratch-{i}"), "stop_sent": None}
            run["station"] = Station(ctx.quillon, ctx.fresh(f"stop-station-{i}"), *options)
            runs.append(run)
            run["proxy"] = CountingProxy(run["station"].url, os.path.join(run["scratch"], "delivered.mp3"))
            run["proxy"].start()
            c.prepare(ctx, run["home"], i)
        for run in runs:
            case = run["case"]
            limit = seconds if case.how == "duration" else None
            argv = case.contender.argv(ctx, run["proxy"].url, run["out"], limit)
            run["proc"] = Proc(argv, case.contender.env(run["home"]))
        deadline = time.monotonic() + seconds + 60
        while not all(r["proc"].poll() for r in runs):
            now = time.monotonic()
            for r in runs:
                how, p = r["case"].how, r["proc"]
                if how.startswith("SIG") and r["stop_sent"] is None and now - p.started >= seconds:
                    os.kill(p.pid, getattr(signal, how))
                    r["stop_sent"] = time.monotonic()
            if now > deadline:
                log(f"  d: recorders still running {seconds + 60} s after the start; stopped")
                break
            time.sleep(0.05)
    finally:
        for r in runs:
            if "proc" in r:
                r["proc"].stop()
            if "proxy" in r:
                r["proxy"].stop()
            r["station"].stop()
    summary = []
    for r in runs:
        case, proxy, p = r["case"], r["proxy"], r["proc"]
        disk_s, pieces = on_disk_audio(case, r["out"], r["scratch"])
        disk_bytes, files = sum(len(x) for x in pieces), len(pieces)
        delivered_path = os.path.join(r["scratch"], "delivered.mp3")
        sent_s = decoded_seconds(delivered_path)
        with open(delivered_path, "rb") as f:
            head_gap, tail_gap = gaps(f.read(), pieces)
        after_stop = proxy.audio - proxy.delivered_by(r["stop_sent"]) if r["stop_sent"] else None
        row = {
            "recorder": case.contender.label,
            "stopped_by": case.label.format(seconds),
            "how": case.how,
            "delivered_bytes": proxy.audio,
            "delivered_s": sent_s,
            "disk_bytes": disk_bytes,
            "disk_s": disk_s,
            "lost_bytes": proxy.audio - disk_bytes,
            "lost_s": sent_s - disk_s,
            "lost_s_by_bytes": (proxy.audio - disk_bytes) / rate,
            "lost_ahead_bytes": head_gap,
            "lost_after_bytes": tail_gap,
            "after_stop_s": after_stop / rate if after_stop is not None else None,
            "files": files,
            "connections": proxy.connections,
            "exit": p.status,
            "wall": p.wall,
            "proxy_failure": proxy.failure,
        }
        summary.append(row)
        log(f"  d {row['recorder']:18} {row['how']:8} delivered {row['delivered_s']:.2f} s "
            f"({row['delivered_bytes']} B), on disk {row['disk_s']:.2f} s ({row['disk_bytes']} B in {files} files), "
            f"lost {row['lost_s']:.2f} s decoded / {row['lost_s_by_bytes']:.3f} s by bytes (ahead of the first "
            f"file {head_gap} B, after the last {tail_gap} B); exit {row['exit']}"
            + (f"; proxy: {proxy.failure}" if proxy.failure else ""))
        for key in ("out", "home", "scratch"):
            shutil.rmtree(r[key], ignore_errors=True)
    ctx.results["d"] = {"seconds": seconds, "title_every": a.b_title_every, "cases": summary}


# ---- report ------------------------------------------------------------------


def verdict(ok):
    return "met" if ok else "MISSED"


def opt(x, form="{}"):
    """A figure that may be missing."""
    return form.format(x) if x is not None else "-"


def table(caption, columns):
    """A caption and the head of a Markdown table: the first column left, the figures right."""
    return [caption, "", "| " + " | ".join(columns) + " |", "|---|" + "---:|" * (len(columns) - 1)]


def report(ctx):
    r = ctx.results
    m = r["machine"]
    lines = [f"Run {r['started']}: {m['cpus']} cores ({m['cpu']}), {m['memory_gib']} GiB, Linux {m['kernel']}; "
             f"quillon {m['quillon']}, {m['streamripper']}, {m['curl']}; load at start {m['load_at_start']}", ""]
    label = {c.name: c.label for c in CONTENDERS}
    if "a" in r:
        a = r["a"]["contenders"]
        q = a["quillon"]
        lines += table(f"(a) one connection, --rate max, {r['a']['bytes'] / GIB:g} GiB of audio, median of "
                       f"{r['a']['repeat']} runs",
                       ["recorder", "MiB/s to last write", "quillon is", "MiB/s to exit", "quillon is",
                        "MiB/s to on disk", "quillon is", "CPU s", "peak RSS MiB", "on disk MiB"])
        for name, s in a.items():
            lines.append(f"| {label[name]} | {s['mib_s']:.0f} | {fmt_ratio(q['mib_s'], s['mib_s'])} | "
                         f"{s['mib_s_exit']:.0f} | {fmt_ratio(q['mib_s_exit'], s['mib_s_exit'])} | "
                         f"{s['mib_s_sync']:.0f} | {fmt_ratio(q['mib_s_sync'], s['mib_s_sync'])} | {s['cpu']:.2f} | "
                         f"{s['peak_rss_kib'] / 1024:.1f} | {s['disk_mib']:.0f} |")
        lines.append("")
    if "b" in r:
        b = r["b"]["contenders"]
        q = b["quillon"]
        lines += table(f"(b) {r['b']['streams']} connections at 128 kbit/s for {r['b']['seconds']} s; one process "
                       f"per connection (per-connection RSS = process RSS) unless said otherwise; titles every "
                       f"{r['b']['title_every']} bytes",
                       ["recorder", "CPU ms / stream-min", "quillon is", "peak RSS MiB / conn", "quillon is",
                        "PSS MiB / conn", "USS MiB / conn", "on disk MiB"])
        for name, s in b.items():
            lines.append(f"| {s['label']} | {s['cpu_per_stream_minute'] * 1000:.1f} | "
                         f"{fmt_ratio(q['cpu_per_stream_minute'], s['cpu_per_stream_minute'])} | "
                         f"{s['peak_rss_mean_kib'] / 1024:.2f} | "
                         f"{fmt_ratio(q['peak_rss_mean_kib'], s['peak_rss_mean_kib'])} | "
                         f"{s['pss_mean_kib'] / 1024:.2f} | {s['uss_mean_kib'] / 1024:.2f} | {s['disk_mib']:.1f} |")
        lines.append("")
    if "c" in r:
        c = r["c"]["contenders"]
        lines += table(f"(c) one connection, --rate max, {r['c']['bytes'] / GIB:g} GiB: RSS sampled every "
                       f"{ctx.args.c_interval} s",
                       ["recorder", "RSS at 5% MiB", "at 50%", "at end", "growth 5%-end KiB", "50%-end KiB",
                        "max 5%-99%", "peak", "wall s"])
        for name, s in c.items():
            lines.append(f"| {label[name]} | {s['rss_early_kib'] / 1024:.2f} | {s['rss_mid_kib'] / 1024:.2f} | "
                         f"{s['rss_end_kib'] / 1024:.2f} | {s['growth_kib']:+d} | {s['growth_second_half_kib']:+d} | "
                         f"{s['rss_steady_max_kib'] / 1024:.2f} | {s['peak_rss_kib'] / 1024:.2f} | {s['wall']:.1f} |")
        lines.append("")
    if "d" in r:
        lines += table(f"(d) audio lost at stop: 128 kbit/s in real time, stopped after {r['d']['seconds']} s, "
                       f"titles every {r['d']['title_every']} bytes; delivered = audio the station handed to the "
                       f"recorder's socket",
                       ["recorder", "stopped by", "delivered s", "on disk s", "lost s", "lost bytes",
                        "of which ahead of the first file", "after the last file", "delivered after the signal s",
                        "files", "exit"])
        for s in r["d"]["cases"]:
            lines.append(f"| {s['recorder']} | {s['stopped_by']} | {s['delivered_s']:.2f} | {s['disk_s']:.2f} | "
                         f"{s['lost_s']:.2f} | {s['lost_bytes']} | {opt(s['lost_ahead_bytes'])} | "
                         f"{opt(s['lost_after_bytes'])} | {opt(s['after_stop_s'], '{:.2f}')} | {s['files']} | "
                         f"{s['exit']} |")
        lines.append("")
    lines += ["Targets (this run):"]
    if "a" in r:
        a = r["a"]["contenders"]
        for peer, goal, what in (("sr-xs-none", 2, "streamripper --xs-none"), ("curl", 0.5, "raw copy")):
            if peer not in a:
                lines.append(f"- throughput >= {goal:g}x {what}: not measured ({peer} not run)")
                continue
            ratios = [a["quillon"][k] / a[peer][k] for k in ("mib_s", "mib_s_exit", "mib_s_sync")]
            lines.append(f"- throughput >= {goal:g}x {what}: {ratios[0]:.2f}x to the last write, "
                         f"{verdict(ratios[0] >= goal)}; {ratios[1]:.2f}x to exit, {verdict(ratios[1] >= goal)}; "
                         f"{ratios[2]:.2f}x to on disk, {verdict(ratios[2] >= goal)}")
    if "b" in r:
        b = r["b"]["contenders"]
        q = b["quillon"]["cpu_per_stream_minute"]
        modes = [b[k]["cpu_per_stream_minute"] for k in ("sr", "sr-xs-none") if k in b]
        if modes:
            lines.append(f"- CPU per stream <= 0.5x streamripper's (its cheaper mode): {q / min(modes):.2f}x, "
                         f"{verdict(q / min(modes) <= 0.5)}")
        else:
            lines.append("- CPU per stream <= 0.5x streamripper's: not measured (streamripper not run)")
        rss = b["quillon"]["peak_rss_mean_kib"] / 1024
        lines.append(f"- RSS per connection <= 1.5 MiB, one process per connection: {rss:.2f} MiB, "
                     f"{verdict(rss <= 1.5)}")
        if "quillon-1proc" in b:
            one = b["quillon-1proc"]
            rss = one["peak_rss_mean_kib"] / 1024
            lines.append(f"- RSS per connection <= 1.5 MiB, {one['connections']} in one process (process peak / "
                         f"{one['connections']}): {rss:.2f} MiB, {verdict(rss <= 1.5)}")
    if "c" in r:
        q = r["c"]["contenders"]["quillon"]
        g, h = q["growth_kib"], q["growth_second_half_kib"]
        lines.append(f"- no RSS growth over the long run: {g:+d} KiB from 5% to the end ({verdict(g <= 0)}), "
                     f"{h:+d} KiB over the second half ({verdict(h <= 0)})")
    if "d" in r:
        for s in r["d"]["cases"]:
            if s["recorder"].startswith("quillon"):
                # Audio handed on after the signal may have come too late to be read.
                after = s["lost_after_bytes"]
                late = round(s["after_stop_s"] * 16000) if s["after_stop_s"] is not None else 0
                ok = after is not None and after <= late
                lines.append(f"- no audio lost at stop ({s['stopped_by']}): {opt(after)} bytes missing after the "
                             f"last file, {late} of them delivered after the signal, {verdict(ok)}; lost in all "
                             f"{s['lost_s']:.2f} s decoded, {s['lost_bytes']} bytes")
    return "\n".join(lines) + "\n"


def publish(text, results, json_path):
    """Prints the report and, when asked, writes every figure as JSON."""
    print(text)
    if json_path:
        with open(json_path, "w") as f:
            json.dump(results, f, indent=1)


def main():
    p = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    p.add_argument("--phases", default="abcd", help="which phases to run (default: abcd)")
    p.add_argument("--recorders", default="quillon,sr,sr-xs-none,curl",
                   help="which recorders (default: quillon,sr,sr-xs-none,curl; quillon always runs)")
    p.add_argument("--build-dir", default=os.path.join(ROOT, "build-bench"))
    p.add_argument("--no-build", action="store_true", help="use the quillon already built in --build-dir")
    p.add_argument("--tmp", default=tempfile.gettempdir(), help="folder for the recordings (same disk as /tmp)")
    p.add_argument("--repeat", type=int, default=3, help="runs per contender in phase a (median reported)")
    p.add_argument("--a-gib", type=float, default=2)
    p.add_argument("--a-timeout", type=float, default=600)
    p.add_argument("--b-streams", type=int, default=50)
    p.add_argument("--b-seconds", type=int, default=60)
    p.add_argument("--b-title-every", type=int, default=480000, help="audio bytes between titles in phase b")
    p.add_argument("--c-gib", type=float, default=10)
    p.add_argument("--c-interval", type=float, default=0.1)
    p.add_argument("--c-timeout", type=float, default=1800)
    p.add_argument("--d-seconds", type=int, default=60, help="seconds recorded before the stop in phase d")
    p.add_argument("--json", help="also write every figure (and the RSS series of phase c) here")
    p.add_argument("--quick", action="store_true",
                   help="small sizes for a try-out: 0.25 GiB, 5 x 15 s, 1 GiB, stop after 15 s")
    args = p.parse_args()
    if args.quick:
        args.a_gib, args.repeat, args.b_streams, args.b_seconds, args.c_gib, args.d_seconds = 0.25, 1, 5, 15, 1, 15
    if "quillon" not in args.recorders.split(","):
        args.recorders += ",quillon"
    chosen = set(args.recorders.split(","))
    tools = [(t, t) for t, names in (("streamripper", {"sr", "sr-xs-none"}), ("curl", {"curl"})) if names & chosen]
    tools += [("ffprobe", "ffmpeg")] if "d" in args.phases else []
    for tool, package in tools:
        if not shutil.which(tool):
            sys.exit(f"bench: {tool} is not installed (apt-get install {package})")
    if not args.no_build:
        build(args)
    ctx = Context(args)
    try:
        for phase, fn in (("a", phase_a), ("b", phase_b), ("c", phase_c), ("d", phase_d)):
            if phase in args.phases:
                log(f"phase {phase}")
                fn(ctx)
    finally:
        shutil.rmtree(ctx.work, ignore_errors=True)
    publish(report(ctx), ctx.results, args.json)


if __name__ == "__main__":
    main()
