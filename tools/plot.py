#!/usr/bin/env python3
"""Draws a vandro JSON report: the impedance curve with its resonances, and the
target compensation with the realised five-section response and each section."""
import json
import sys


def main():
    if len(sys.argv) != 3:
        print("usage: plot.py REPORT.json OUT.png", file=sys.stderr)
        return 1
    try:
        import matplotlib
        matplotlib.use("Agg")
        import matplotlib.pyplot as plt
    except ImportError:
        print("plot: matplotlib is not installed (Debian: apt-get install python3-matplotlib)",
              file=sys.stderr)
        return 2
    try:
        with open(sys.argv[1]) as f:
            report = json.load(f)
    except (OSError, ValueError) as e:
        print(f"plot: cannot read {sys.argv[1]}: {e}", file=sys.stderr)
        return 1

    fig, (imp, comp) = plt.subplots(2, 1, figsize=(10, 8.5))
    title = f"{report['source']['name']}: result {report['result']} ({report['result_meaning']})"
    fig.suptitle(title, fontsize=11)

    curve = report.get("device_curve")
    if curve:
        imp.semilogx(curve["freq_hz"], curve["ohms"], color="tab:blue", label="device curve")
        for i, r in enumerate(report.get("resonances", [])):
            imp.axvline(r["freq_hz"], color="tab:red", alpha=0.4, linestyle="--",
                        label="resonances" if i == 0 else None)
        imp.legend(loc="upper right")
    else:
        imp.text(0.5, 0.5, "no device curve", ha="center", transform=imp.transAxes)
    imp.set_xlabel("frequency (Hz)")
    imp.set_ylabel("impedance (ohm)")
    imp.set_xlim(40, 20000)
    imp.grid(True, which="both", alpha=0.3)

    target = report.get("target_curve")
    if target:
        pairs = [(f, d) for f, d in zip(target["freq_hz"], target["db"]) if f >= 20]
        comp.semilogx([p[0] for p in pairs], [p[1] for p in pairs], color="black", lw=2,
                      label="target")
    realised = report.get("realised")
    if realised:
        offset = report["deviation"]["level_offset_db"]
        comp.semilogx(realised["freq_hz"], [v - offset for v in realised["db"]], color="tab:orange",
                      lw=1.5, label=f"realised cascade (moved {-offset:+.1f} dB onto the target)")
        for k, sec in enumerate(realised["sections_db"]):
            comp.semilogx(realised["freq_hz"], sec, lw=0.8, alpha=0.6, label=f"section {k}")
        dev = report["deviation"]
        comp.set_title(f"realised vs target: RMS {dev['rms_db']:.3f} dB", fontsize=10)
    if not target and not realised:
        comp.text(0.5, 0.5, "no target curve (the load was rejected or the search failed)",
                  ha="center", transform=comp.transAxes)
    comp.set_xlabel("frequency (Hz)")
    comp.set_ylabel("gain (dB)")
    comp.set_xlim(20, 20000)
    comp.grid(True, which="both", alpha=0.3)
    if target or realised:
        comp.legend(loc="lower left", fontsize=8, ncol=2)
    fig.tight_layout()
    fig.savefig(sys.argv[2], dpi=110)
    return 0


if __name__ == "__main__":
    sys.exit(main())
