#!/usr/bin/env python3
"""HTTPS benchmark: `quillon record` of the built-in test station served over TLS
(`quillon station --tls`, a throw-away certificate for 127.0.0.1 made with the
openssl command line and trusted through SSL_CERT_FILE), side by side with
`curl -o` over the same TLS station, and with Quillon over plain HTTP.

Phases (each recorder runs against a fresh station of its own):
  a  one connection at --rate max: throughput to the recorder's last write, to its
     exit and to its data being on disk; quillon over https, curl over https,
     quillon over http (median of --repeat runs)
  b  N connections in one quillon process at 128 kbit/s for T seconds, over https
     and over http: CPU per stream-minute, and what TLS adds

This reports figures; it asserts nothing. Every process it starts is stopped by
its pid; every recording folder is removed after its run.
"""

import argparse
import os
import shutil
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "record"))
import run as rec  # noqa: E402  the record benchmark's processes, station and helpers

MIB, GIB = rec.MIB, rec.GIB


def make_certificate(folder):
    """A self-signed certificate for 127.0.0.1: the station's chain and the recorders' trust anchor."""
    cert, key = os.path.join(folder, "station.pem"), os.path.join(folder, "station.key")
    subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1",
                    "-nodes", "-keyout", key, "-out", cert, "-days", "2", "-subj", "/CN=127.0.0.1",
                    "-addext", "subjectAltName=IP:127.0.0.1"],
                   check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    return cert, key


class Recorder:
    def __init__(self, name, label, tls):
        self.name, self.label, self.tls = name, label, tls

    def env(self, ctx, home):
        env = dict(os.environ, HOME=home, QUILLON_HOME=home)
        if self.tls:
            # Only the benchmark's certificate: the machine's own store plays no part.
            env["SSL_CERT_FILE"] = ctx.cert
            env["SSL_CERT_DIR"] = ctx.empty_dir
        return env


class QuillonRecorder(Recorder):
    def argv(self, ctx, url, out, connections=1, seconds=None):
        urls = [url] if connections == 1 else [f"{url}s{i}" for i in range(connections)]
        argv = [ctx.quillon, "record", *urls, "--to", out, "-q"]
        return argv + (["--for", f"{seconds}s"] if seconds else [])

    def prepare(self, ctx, home):
        for key, value in (("relayPort", str(rec.RELAY_BASE)), ("subFolders", "YES")):
            subprocess.run([ctx.quillon, "prefs", "set", key, value], env=self.env(ctx, home), check=True,
                           stdout=subprocess.DEVNULL)


class CurlRecorder(Recorder):
    def argv(self, ctx, url, out, connections=1, seconds=None):
        # The station answers "ICY 200 OK", which curl takes as HTTP/0.9.
        argv = ["curl", "--http0.9", "-sS", "--cacert", ctx.cert, "-H", "Icy-MetaData: 1",
                "-o", os.path.join(out, "stream.bin")]
        return argv + (["--max-time", str(seconds)] if seconds else []) + [url]

    def prepare(self, ctx, home):
        pass


RECORDERS = [
    QuillonRecorder("quillon-https", "quillon record, https", True),
    CurlRecorder("curl-https", "curl -o, https (raw copy)", True),
    QuillonRecorder("quillon-http", "quillon record, http", False),
]


class Context(rec.Context):
    def __init__(self, args):
        super().__init__(args, prefix="quillon-bench-tls-")
        self.contenders = RECORDERS
        self.empty_dir = self.fresh("no-ca-dir")
        self.cert, self.key = make_certificate(self.fresh("certificate"))

    def tls_station(self, recorder, *options):
        tls = ("--tls", self.cert, self.key) if recorder.tls else ()
        return self.station(*options, *tls)


def phase_a(ctx):
    a = ctx.args
    total = int(a.a_gib * GIB)
    rec.require_free(ctx.work, total * 1.1)
    runs = {r.name: [] for r in RECORDERS}
    for rep in range(a.repeat):
        for r in RECORDERS:
            station = ctx.tls_station(r, "--rate", "max", "--payload", "mp3", "--metaint", rec.META_INT,
                                      "--title-every", rec.TITLE_EVERY, "--close-after", total)
            out, home = ctx.fresh("out"), ctx.fresh("home")
            p = None
            try:
                r.prepare(ctx, home)
                os.sync()
                p = rec.Proc(r.argv(ctx, station.url, out), r.env(ctx, home))
                if not p.wait(a.a_timeout, 0.05):
                    rec.log(f"  {r.name}: did not finish within {a.a_timeout} s; stopped")
                    p.stop()
                sync_start = time.monotonic()
                os.sync()
                run = {"wall": p.wall, "wall_sync": p.wall + time.monotonic() - sync_start, "cpu": p.cpu,
                       "last_write": p.last_write or p.wall, "disk": rec.bytes_on_disk(out), "exit": p.status}
            finally:
                if p:
                    p.stop()
                station.stop()
                shutil.rmtree(out, ignore_errors=True)
            runs[r.name].append(run)
            rec.log(f"  a[{rep + 1}/{a.repeat}] {r.name:14} {total / MIB / run['last_write']:8.1f} MiB/s  "
                    f"exit {run['wall']:.2f} s, cpu {run['cpu']:.2f} s, disk {run['disk'] / MIB:.0f} MiB, "
                    f"exit {run['exit']}")
    summary = {}
    for r in RECORDERS:
        x = runs[r.name]
        summary[r.name] = {
            "label": r.label,
            "mib_s": total / MIB / rec.median([y["last_write"] for y in x]),
            "mib_s_exit": total / MIB / rec.median([y["wall"] for y in x]),
            "mib_s_sync": total / MIB / rec.median([y["wall_sync"] for y in x]),
            "cpu": rec.median([y["cpu"] for y in x]),
            "disk_mib": rec.median([y["disk"] for y in x]) / MIB,
            "exits": sorted({y["exit"] for y in x}),
        }
    ctx.results["a"] = {"bytes": total, "repeat": a.repeat, "recorders": summary}


def phase_b(ctx):
    a = ctx.args
    n, seconds = a.b_streams, a.b_seconds
    summary = {}
    for r in (x for x in RECORDERS if x.name.startswith("quillon")):
        station = ctx.tls_station(r, "--rate", "realtime", "--bitrate", 128, "--payload", "mp3", "--metaint",
                                  rec.META_INT, "--title-every", a.b_title_every)
        out, home = ctx.fresh("out"), ctx.fresh("home")
        p = None
        try:
            r.prepare(ctx, home)
            p = rec.Proc(r.argv(ctx, station.url, out, n, seconds), r.env(ctx, home))
            if not p.wait(seconds + 60, 1):
                rec.log(f"  {r.name}: still running {seconds + 60} s after the start; stopped")
                p.stop()
            disk = rec.bytes_on_disk(out)
        finally:
            if p:
                p.stop()
            station.stop()
            shutil.rmtree(out, ignore_errors=True)
        stream_minutes = p.wall * n / 60
        summary[r.name] = {"label": r.label, "cpu": p.cpu, "stream_minutes": stream_minutes,
                           "cpu_per_stream_minute": p.cpu / stream_minutes, "peak_rss_kib": p.peak_rss_kib,
                           "disk_mib": disk / MIB, "exit": p.status}
        rec.log(f"  b {r.name:14} cpu {p.cpu:.2f} s = {p.cpu / stream_minutes * 1000:.1f} ms/stream-min, "
                f"peak RSS {p.peak_rss_kib / 1024:.1f} MiB, disk {disk / MIB:.1f} MiB, exit {p.status}")
    ctx.results["b"] = {"streams": n, "seconds": seconds, "recorders": summary}


def report(ctx):
    r = ctx.results
    m = r["machine"]
    lines = [f"Run {r['started']}: {m['cpus']} cores ({m['cpu']}), Linux {m['kernel']}; quillon {m['quillon']}, "
             f"{m['curl']}; load at start {m['load_at_start']}", ""]
    if "a" in r:
        a = r["a"]["recorders"]
        q = a["quillon-https"]
        lines += rec.table(f"(a) one connection, --rate max, {r['a']['bytes'] / GIB:g} GiB of audio, median of "
                           f"{r['a']['repeat']} runs",
                           ["recorder", "MiB/s to last write", "quillon https is", "MiB/s to exit",
                            "quillon https is", "MiB/s to on disk", "quillon https is", "CPU s", "on disk MiB"])
        for s in a.values():
            lines.append(f"| {s['label']} | {s['mib_s']:.0f} | {rec.fmt_ratio(q['mib_s'], s['mib_s'])} | "
                         f"{s['mib_s_exit']:.0f} | {rec.fmt_ratio(q['mib_s_exit'], s['mib_s_exit'])} | "
                         f"{s['mib_s_sync']:.0f} | {rec.fmt_ratio(q['mib_s_sync'], s['mib_s_sync'])} | "
                         f"{s['cpu']:.2f} | {s['disk_mib']:.0f} |")
        lines.append("")
    if "b" in r:
        b = r["b"]["recorders"]
        lines += rec.table(f"(b) {r['b']['streams']} connections in one process at 128 kbit/s for "
                           f"{r['b']['seconds']} s",
                           ["recorder", "CPU ms / stream-min", "peak RSS MiB", "on disk MiB", "exit"])
        for s in b.values():
            lines.append(f"| {s['label']} | {s['cpu_per_stream_minute'] * 1000:.1f} | "
                         f"{s['peak_rss_kib'] / 1024:.1f} | {s['disk_mib']:.1f} | {s['exit']} |")
        lines.append("")
    lines.append("Targets (this run):")
    if "a" in r:
        a = r["a"]["recorders"]
        ratio = a["quillon-https"]["mib_s"] / a["curl-https"]["mib_s"]
        lines.append(f"- https throughput >= 0.8x curl over the same TLS station: {ratio:.2f}x to the last write, "
                     f"{rec.verdict(ratio >= 0.8)}")
    if "b" in r:
        b = r["b"]["recorders"]
        https, http = b["quillon-https"]["cpu_per_stream_minute"], b["quillon-http"]["cpu_per_stream_minute"]
        lines.append(f"- CPU per real-time https stream: {https / http:.2f}x plain http "
                     f"(+{(https - http) * 1000:.1f} ms per stream-minute)")
    return "\n".join(lines) + "\n"


def main():
    p = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    p.add_argument("--phases", default="ab", help="which phases to run (default: ab)")
    p.add_argument("--build-dir", default=os.path.join(rec.ROOT, "build-bench"))
    p.add_argument("--no-build", action="store_true", help="use the quillon already built in --build-dir")
    p.add_argument("--tmp", default=tempfile.gettempdir(), help="folder for the recordings")
    p.add_argument("--repeat", type=int, default=3, help="runs per recorder in phase a (median reported)")
    p.add_argument("--a-gib", type=float, default=1)
    p.add_argument("--a-timeout", type=float, default=600)
    p.add_argument("--b-streams", type=int, default=20)
    p.add_argument("--b-seconds", type=int, default=60)
    p.add_argument("--b-title-every", type=int, default=480000, help="audio bytes between titles in phase b")
    p.add_argument("--json", help="also write every figure here")
    p.add_argument("--quick", action="store_true", help="0.25 GiB once, 5 streams for 15 s: a try-out")
    args = p.parse_args()
    args.recorders = "quillon,curl"
    if args.quick:
        args.a_gib, args.repeat, args.b_streams, args.b_seconds = 0.25, 1, 5, 15
    for tool, package in (("curl", "curl"), ("openssl", "openssl")):
        if not shutil.which(tool):
            sys.exit(f"bench: {tool} is not installed (apt-get install {package})")
    if not args.no_build:
        rec.build(args)
    ctx = Context(args)
    try:
        for phase, fn in (("a", phase_a), ("b", phase_b)):
            if phase in args.phases:
                rec.log(f"phase {phase}")
                fn(ctx)
    finally:
        shutil.rmtree(ctx.work, ignore_errors=True)
    rec.publish(report(ctx), ctx.results, args.json)


if __name__ == "__main__":
    main()
