#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Draws a vandro JSON report: the impedance curve with its resonances, and the
target compensation with the realised five-section response and each section.
The picture's format follows the output's extension (PNG when it has none).
Any failure is one line on stderr and a non-zero status, never a traceback."""
import json
import os
import sys


class PlotError(Exception):
    pass


def picture_format(fig, out):
    supported = fig.canvas.get_supported_filetypes()
    ext = os.path.splitext(out)[1].lower().lstrip(".")
    fmt = ext or "png"
    if fmt not in supported:
        raise PlotError(f"unknown picture format '.{ext}' (use one of: "
                        + ", ".join("." + e for e in sorted(supported)) + ")")
    return fmt


def draw_rig(report, out):
    """A rig check: each capture's deviation from its resistor with the
    resistor test's allowance, the gain mismatch, and each band's level above
    its acceptance thresholds."""
    import matplotlib
    matplotlib.use("Agg")
    import matplotlib.pyplot as plt

    rig = report["rig"]
    fig, (dev, gain, bands) = plt.subplots(3, 1, figsize=(10, 11), gridspec_kw={"height_ratios": [3, 2, 2]})
    fmt = picture_format(fig, out)
    fig.suptitle(f"rig check: {rig['verdict']}", fontsize=11)
    for i, c in enumerate(report["captures"]):
        curve = c.get("device_curve")
        if not curve:
            continue
        shown = [(f, v) for f, v in zip(curve["freq_hz"], c["deviation_ohms"]) if v is not None]
        if not shown:
            continue
        line, = dev.semilogx([p[0] for p in shown], [p[1] for p in shown],
                             label=f"{os.path.basename(c['source']['name'])} ({c['known_ohms']:g} ohm)")
        test = c.get("resistor_test")
        read = set(test["points_hz"]) if test else set()
        pts = [(f, v) for f, v in shown if f in read]
        if pts and None not in (test["allowance_ohms"], test["margin_ohms"]):
            lo, hi = min(p[1] for p in pts), max(p[1] for p in pts)
            mid, half = (lo + hi) / 2, test["allowance_ohms"] / 2
            dev.axhspan(mid - half, mid + half, color=line.get_color(), alpha=0.12,
                        label=f"resistor allowance {test['allowance_ohms']:.3f} ohm, margin {test['margin_ohms']:.3f} ohm")
            dev.plot([p[0] for p in pts], [p[1] for p in pts], ".", color=line.get_color(), ms=3)
    dev.axhline(0, color="black", lw=0.6)
    dev.set_ylabel("curve - known (ohm)")
    dev.set_title("deviation from the known resistor; dots: the points the resistor test reads", fontsize=9)
    dev.legend(fontsize=8)
    if rig["freq_hz"]:
        gain.semilogx(rig["freq_hz"], rig["gain_mismatch_db"], color="tab:green")
    gain.axhline(0, color="black", lw=0.6)
    gain.set_ylabel("gain mismatch (dB re 1 kHz)")
    gain.set_xlabel("frequency (Hz)")
    names = [b["name"] for b in rig["bands"]]
    levels = [b["level_db"] if b["accepted"] and b["level_db"] is not None else 0 for b in rig["bands"]]
    colours = ["tab:red" if not b["accepted"] else ("tab:orange" if lv < 6 else "tab:blue")
               for b, lv in zip(rig["bands"], levels)]
    bands.barh(names, levels, color=colours)
    for y, (b, lv) in enumerate(zip(rig["bands"], levels)):
        bands.annotate("not accepted" if not b["accepted"] else f"{lv:.1f} dB", (max(lv, 0), y),
                       fontsize=8, va="center", ha="left")
    bands.axvline(0, color="black", lw=0.8)
    bands.axvline(6, color="tab:orange", lw=0.8, linestyle=":", label="6 dB: marginal below")
    bands.set_xlabel("level above the acceptance thresholds (dB)")
    bands.legend(fontsize=8, loc="lower right")
    fig.tight_layout()
    fig.savefig(out, format=fmt)


def draw(report, out):
    if report.get("command") == "rig":
        return draw_rig(report, out)
    import matplotlib
    matplotlib.use("Agg")
    import matplotlib.pyplot as plt

    fig, (imp, comp) = plt.subplots(2, 1, figsize=(10, 8.5), sharex=True)
    fmt = picture_format(fig, out)

    title = f"{report['source']['name']}: result {report['result']} ({report['result_meaning']})"
    if report.get("headphone_type") is not None:
        title += (f"\nheadphone type {report['headphone_type_name']} ({report['headphone_type']}),"
                  f" model gain {report['model_gain']:.0f}")
    fig.suptitle(title, fontsize=10)

    shade_coverage(report, imp)
    curve = report.get("device_curve")
    if curve:
        pts = [(f, z) for f, z in zip(curve["freq_hz"], curve["ohms"]) if z is not None]
        imp.semilogx([p[0] for p in pts], [p[1] for p in pts], color="tab:blue", label="device curve")
        if report.get("load_curve"):
            load = report["load_curve"]
            imp.semilogx(load["freq_hz"], load["ohms"], color="tab:gray", lw=0.8, alpha=0.8,
                         label="load |Z| (input)")
        reference = report.get("reference_curve")
        if reference:
            ident = report.get("identification") or {}
            corr = ident.get("correlation")
            label = "reference curve" + (f" (correlation {corr:.3f})" if corr is not None else "")
            imp.semilogx(reference["freq_hz"], reference["ohms"], color="tab:green", lw=1, label=label)
        for i, r in enumerate(report.get("resonances", [])):
            imp.axvline(r["freq_hz"], color="tab:red", alpha=0.35, linestyle="--",
                        label="resonances" if i == 0 else None)
            imp.annotate(f"{r['freq_hz']:.0f} Hz\nQ {r['q']:.1f}", (r["freq_hz"], 1.0),
                         xycoords=("data", "axes fraction"), fontsize=7, va="top", ha="left",
                         color="tab:red")
        if report["result"] == 4:
            imp.axhline(200, color="tab:purple", linestyle=":",
                        label="line-input threshold (200 ohm at the lowest frequency)")
        imp.legend(loc="center right", fontsize=8)
    else:
        imp.text(0.5, 0.92, "no device curve: this run did not reach it", ha="center",
                 transform=imp.transAxes)
    if curve or not report.get("coverage"):
        imp.set_ylabel("impedance (ohm)")
    imp.grid(True, which="both", alpha=0.3)

    target = report.get("target_curve")
    if target:
        pairs = [(f, d) for f, d in zip(target["freq_hz"], target["db"]) if f >= 20 and d is not None]
        comp.semilogx([p[0] for p in pairs], [p[1] for p in pairs], color="black", lw=2, label="target")
    realised = report.get("realised")
    if realised:
        dev = report.get("deviation") or {}
        offset = dev.get("level_offset_db", 0.0)
        comp.semilogx(realised["freq_hz"], [v - offset for v in realised["db"]], color="tab:orange",
                      lw=1.5, label=f"realised cascade (moved {-offset:+.1f} dB onto the target)")
        for k, sec in enumerate(realised["sections_db"]):
            comp.semilogx(realised["freq_hz"], sec, lw=0.8, alpha=0.6, label=f"section {k}")
        if dev:
            comp.set_title(f"realised vs target: RMS {dev['rms_db']:.3f} dB", fontsize=10)
    if not target and not realised:
        reason = report.get("reason") or report["result_meaning"]
        comp.text(0.5, 0.5, "no target curve: " + reason, ha="center", wrap=True,
                  transform=comp.transAxes)
    comp.set_xlabel("frequency (Hz)")
    comp.set_ylabel("gain (dB)")
    comp.set_xlim(20, 20000)
    comp.grid(True, which="both", alpha=0.3)
    if target or realised:
        comp.legend(loc="lower left", fontsize=8, ncol=2)
    fig.tight_layout()
    with open(out, "wb") as f:
        fig.savefig(f, format=fmt, dpi=110)


def shade_coverage(report, ax):
    """Bands short of data: shaded behind a device curve, or, when the run
    built none, drawn as how much of what the library needs each band has."""
    bands = report.get("coverage") or []
    alone = not report.get("device_curve")
    colours = {"full": "tab:orange", "decimated": "tab:purple"}
    for i, b in enumerate(bands):
        lo, hi = b["from_hz"], b["to_hz"]
        if hi <= lo:
            hi = lo * 1.02
        label = f"{b['path']} path short of data" if i == 0 or bands[i - 1]["path"] != b["path"] else None
        share = 100.0 * b["accepted"] / b["needed"]
        if alone:
            ax.fill_between([lo, hi], 0, share, color=colours.get(b["path"], "tab:orange"), alpha=0.45,
                            step="post", label=label)
            ax.annotate(f"{b['accepted']}/{b['needed']}", ((lo * hi) ** 0.5, share),
                        fontsize=8, ha="center", va="bottom")
        else:
            ax.axvspan(lo, hi, color=colours.get(b["path"], "tab:orange"), alpha=0.2, label=label)
    if bands and alone:
        ax.set_xscale("log")
        ax.set_ylim(0, 110)
        ax.axhline(100, color="black", lw=0.8, linestyle=":", label="what the library needs")
        ax.set_ylabel("data gathered (% of need)")
        ax.legend(loc="upper right", fontsize=8)


def main():
    if len(sys.argv) != 3:
        print("plot: usage: plot.py REPORT.json OUT.png", file=sys.stderr)
        return 2
    try:
        with open(sys.argv[1]) as f:
            report = json.load(f)
    except (OSError, ValueError) as e:
        print(f"cannot read {sys.argv[1]}: {e}", file=sys.stderr)
        return 1
    try:
        draw(report, sys.argv[2])
    except ImportError:
        print("matplotlib is not installed (Debian: apt-get install python3-matplotlib)", file=sys.stderr)
        return 1
    except PlotError as e:
        print(str(e), file=sys.stderr)
        return 1
    except OSError as e:
        print(f"cannot write {sys.argv[2]}: {e.strerror}", file=sys.stderr)
        return 1
    except Exception as e:  # a report this script does not understand
        print(f"cannot draw {sys.argv[1]}: {type(e).__name__}: {e}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
