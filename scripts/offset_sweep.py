#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Runs loads through the vandro program at many start offsets between the
played stimulus and the capture, and tells per load whether every start
finishes, how many buffers it takes, and how far the device curves of the
different starts lie apart. Any failure is one line on stderr and status 1.

    offset_sweep.py --vandro PROGRAM [--full | --step FRAMES] [--csv FILE] [--plot FILE]
                    [--before CSV] [--snr DB] [--rotate DIR] LOAD...
    offset_sweep.py --from CSV --plot FILE [--before CSV]     (draw a sweep again)

A LOAD is a preset name or a measured curve file (.csv, .txt, .zma). By
default each start is simulated by the program (measure --offset). With
--rotate, for a program without --offset, each load's capture is simulated
once from the stimulus's start (--save-wav into DIR), then cut at every
offset by rotating its first 8192 frames, and replayed: the same captures for
a stimulus that repeats every buffer, as the one before the turning tones did."""
import argparse
import csv
import json
import os
import subprocess
import sys
import wave

BUFFER = 8192             # frames the library analyses at a time
PERIOD = 38 * BUFFER      # frames of one stimulus period
MAX_BUFFERS = 120         # the library answers 2 after this many
# 16 (--full: 64) starts across a period, each at another place in a buffer
# and in a 512-frame block.
def grid_step(span, full):
    return span // 64 + BUFFER // 1024 if full else span // 16 + BUFFER // 256


class SweepError(Exception):
    pass


def run_program(args):
    proc = subprocess.run(args, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    if proc.returncode == 1:
        raise SweepError(f"{' '.join(args[:3])}: {proc.stderr.strip().splitlines()[-1] if proc.stderr.strip() else 'failed'}")
    try:
        return json.loads(proc.stdout)
    except json.JSONDecodeError:
        raise SweepError(f"{' '.join(args[:3])}: no JSON report on standard output")


def source_args(load):
    return ["--load", load] if os.path.exists(load) else ["--preset", load]


def rotated_capture(period_frames, offset, path):
    """Writes MAX_BUFFERS buffers of a periodic 2-channel capture started offset frames in."""
    n = len(period_frames) // 4
    start = offset % n
    one = period_frames[4 * start:] + period_frames[:4 * start]
    with wave.open(path, "wb") as w:
        w.setnchannels(2)
        w.setsampwidth(2)
        w.setframerate(44100)
        w.writeframes(one * (MAX_BUFFERS * BUFFER // n))


def sweep_load(vandro, load, offsets, mode_args, rotate_dir):
    rows = []
    period = None
    if rotate_dir is not None:
        wav = os.path.join(rotate_dir, os.path.basename(load) + ".wav")
        run_program([vandro, "measure", *source_args(load), *mode_args, "--json", "-", "--save-wav", wav])
        with wave.open(wav, "rb") as w:
            period = w.readframes(BUFFER)
    for offset in offsets:
        if period is not None:
            cut = os.path.join(rotate_dir, "cut.wav")
            rotated_capture(period, offset, cut)
            report = run_program([vandro, "replay", cut, "--mode", "curve", "--json", "-"])
        else:
            report = run_program([vandro, "measure", *source_args(load), *mode_args, "--offset", str(offset),
                                  "--json", "-"])
        curve = (report.get("device_curve") or {}).get("ohms")
        rows.append({"load": load, "offset": offset, "result": report["result"], "buffers": report["buffers"],
                     "type": report.get("headphone_type"), "curve": curve})
        progress(f"{load}: offset {offset}")
    return rows


def progress(text):
    if sys.stderr.isatty():
        sys.stderr.write("\r\033[K" + text)
        sys.stderr.flush()


def summarise(rows):
    finished = [r for r in rows if r["result"] not in (0, 2)]
    curves = [r["curve"] for r in finished if r["curve"]]
    # Points a run could not compute (JSON null: the library overflowed) take no part.
    points = [i for i in range(len(curves[0]))
              if all(c[i] is not None and c[i] > 0 for c in curves)] if curves else []
    s = {"runs": len(rows), "finished": len(finished),
         "best": min((r["buffers"] for r in finished), default=None),
         "worst": max((r["buffers"] for r in finished), default=None),
         "results": sorted({r["result"] for r in rows}),
         "types": sorted({r["type"] for r in finished if r["type"] is not None}),
         "spread": None}
    if len(curves) > 1:
        s["spread"] = 100 * max(((max(c[i] for c in curves) - min(c[i] for c in curves)) / min(c[i] for c in curves)
                                 for i in points), default=0.0)
        median = {i: sorted(c[i] for c in curves)[len(curves) // 2] for i in points}
        for r in finished:
            if r["curve"]:
                r["deviation"] = 100 * max((abs(r["curve"][i] - m) / m for i, m in median.items()), default=0.0)
    return s


def print_summary(load, s):
    agree = "yes" if len(s["results"]) == 1 and len(s["types"]) <= 1 else "NO"
    spread = "-" if s["spread"] is None else f"{s['spread']:.3f} %"
    print(f"{load:34s} {s['finished']:3d}/{s['runs']:<3d} {str(s['best']):>5s} {str(s['worst']):>5s} "
          f"{spread:>10s}  {agree:5s} results {s['results']} types {s['types']}")


def write_csv(path, rows):
    with open(path + ".part", "w", newline="") as f:
        w = csv.writer(f)
        w.writerow(["load", "offset", "result", "buffers", "headphone_type", "deviation_pct"])
        for r in rows:
            dev = r.get("deviation")
            w.writerow([r["load"], r["offset"], r["result"], r["buffers"],
                        "" if r["type"] is None else r["type"], "" if dev is None else f"{dev:.4f}"])
    os.replace(path + ".part", path)


def read_csv(path):
    with open(path, newline="") as f:
        return [{"load": r["load"], "offset": int(r["offset"]), "buffers": int(r["buffers"]),
                 "result": int(r["result"]),
                 "deviation": float(r["deviation_pct"]) if r["deviation_pct"] else None}
                for r in csv.DictReader(f)]


def plot(path, rows, before):
    import matplotlib
    matplotlib.use("Agg")
    import matplotlib.pyplot as plt
    fig, (buf, dev) = plt.subplots(2, 1, figsize=(12.5, 8), sharex=True)
    loads = list(dict.fromkeys(r["load"] for r in rows))
    for n, load in enumerate(loads):
        c = plt.cm.tab20(2 * n % 20 + (n >= 10))
        name = os.path.basename(load)
        for data, style, tag in ((before, ":", " (before)"), (rows, "-", "")):
            pts = [r for r in data if r["load"] == load]
            if not pts:
                continue
            pts.sort(key=lambda r: r["offset"] % BUFFER)
            buf.plot([r["offset"] % BUFFER for r in pts],
                     [r["buffers"] if r["result"] not in (0, 2) else MAX_BUFFERS + 1 for r in pts],
                     style, marker=".", color=c, label=name + tag)
            d = [r for r in pts if r.get("deviation") is not None]
            dev.plot([r["offset"] % BUFFER for r in d], [r["deviation"] for r in d], style, marker=".", color=c)
    buf.axhline(48, color="grey", lw=0.8)
    buf.axhline(38, color="grey", lw=0.8, ls="--")
    buf.set_ylabel(f"buffers to the answer\n({MAX_BUFFERS + 1}: never)")
    buf.legend(fontsize=7, loc="upper left", bbox_to_anchor=(1.01, 1.0))
    dev.axhline(1.0, color="grey", lw=0.8)
    dev.set_yscale("log")
    dev.set_ylabel("device curve: worst point's distance\nfrom the median start, %")
    dev.set_xlabel(f"start offset of the capture modulo {BUFFER} frames (its place in a buffer)")
    fig.suptitle("The same load at every start offset between playback and capture")
    fig.tight_layout()
    fig.savefig(path + ".part.png")
    os.replace(path + ".part.png", path)


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("loads", nargs="*")
    ap.add_argument("--vandro")
    ap.add_argument("--from", dest="source", metavar="CSV", help="draw this sweep's CSV instead of running one")
    ap.add_argument("--step", type=int, help="frames between starts (default: 16 starts across a period)")
    ap.add_argument("--full", action="store_true", help="64 starts across a period")
    ap.add_argument("--snr", type=float, help="noise on each channel, dB below its RMS")
    ap.add_argument("--csv")
    ap.add_argument("--plot")
    ap.add_argument("--before", help="a CSV of an earlier sweep, drawn dotted")
    ap.add_argument("--rotate", metavar="DIR")
    a = ap.parse_args()
    before = read_csv(a.before) if a.before else []
    if a.source:
        if not a.plot:
            raise SweepError("--from needs --plot")
        plot(a.plot, read_csv(a.source), before)
        return
    if not a.vandro or not a.loads:
        raise SweepError("give --vandro PROGRAM and at least one load")
    if a.step is not None and a.step < 1:
        raise SweepError("--step must be at least 1 frame")
    span = BUFFER if a.rotate else PERIOD  # the stimulus before the turning tones repeated every buffer
    offsets = list(range(0, span, a.step or grid_step(span, a.full)))
    mode_args = ["--mode", "curve"] + (["--snr", str(a.snr)] if a.snr is not None else [])
    everything = []
    print(f"{'load':34s} {'finished':7s} {'best':>5s} {'worst':>5s} {'spread':>10s}  agree")
    for load in a.loads:
        rows = sweep_load(a.vandro, load, offsets, mode_args, a.rotate)
        progress("")
        print_summary(load, summarise(rows))
        everything += rows
    if a.csv:
        write_csv(a.csv, everything)
    if a.plot:
        plot(a.plot, everything, before)


if __name__ == "__main__":
    try:
        main()
    except (SweepError, OSError, ImportError) as e:
        sys.stderr.write(f"offset-sweep: {e}\n")
        sys.exit(1)
