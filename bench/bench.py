#!/usr/bin/env python3
"""Runs brevona-cli and its peer tools on the same files and jobs and prints, per job, the median
wall time, the peak memory (max RSS from GNU time) and the output bytes of every tool, with
Brevona's ratio to each. Started by bench/run, which provides the tools and fixtures."""

import argparse
import json
import math
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time
from concurrent.futures import ThreadPoolExecutor
from dataclasses import dataclass, field
from pathlib import Path

GNU_TIME = "/usr/bin/time"
# A tool is run again only while its runs so far took less than this, so that the slowest peers
# (AVIF at their default effort) run once and the whole benchmark stays near ten minutes.
TOOL_BUDGET_S = 30.0

# Brevona's quality per mode (balanced: 0.80 for JPEG, 0.82 for the other formats) and the
# same figure for the peers on their 0..100 scales.
JPEG_Q = 80
OTHER_Q = 82
# Brevona's AV1 quantizer in balanced mode (avifQuantizer in src/engine/FormatEncoder.cpp), so that
# avifenc, which takes quantizers, runs at the same one.
AVIF_QUANTIZER = 21


@dataclass
class Tool:
    name: str
    settings: str  # what the table shows about how it was run
    argv: list  # with {in} and {out} placeholders; for brevona {outdir}
    ext: str
    runs: int | None = None  # overrides the job's count (for very slow peers)
    brevona: bool = False
    writes: bool = True  # False for a tool that only reads (the decode-only yardstick)


@dataclass
class Job:
    key: str
    title: str
    source: Path
    tools: list
    runs: int
    ssim: bool = False
    note: str = ""


@dataclass
class Measure:
    tool: Tool
    times: list = field(default_factory=list)
    rss_kb: list = field(default_factory=list)
    cpu: list = field(default_factory=list)  # user + system seconds
    out_bytes: int = 0
    output: Path | None = None
    error: str = ""
    ssim: float | None = None

    @property
    def time(self):
        return statistics.median(self.times) if self.times else math.nan

    @property
    def cpu_time(self):
        return statistics.median(self.cpu) if self.cpu else math.nan

    @property
    def rss_mb(self):
        return max(self.rss_kb) / 1024 if self.rss_kb else math.nan


class Runner:
    def __init__(self, args):
        self.args = args
        self.root = Path(args.root)
        self.cli = self.root / "build/bin/brevona-cli"
        self.ssim_tool = self.root / "build/bin/brevona-ssim"
        self.ssimulacra2_tool = self.root / "build/bin/brevona-ssimulacra2"
        self.scratch = Path(tempfile.mkdtemp(prefix="brevona-bench-"))
        # brevona-cli starts from the registered defaults, not from anybody's stored settings.
        self.env = dict(os.environ, XDG_CONFIG_HOME=str(self.scratch / "config"), SHARP_MODULE=args.sharp)

    def close(self):
        shutil.rmtree(self.scratch, ignore_errors=True)

    def run_once(self, tool, source, tag):
        outdir = self.scratch / tag
        shutil.rmtree(outdir, ignore_errors=True)
        outdir.mkdir(parents=True)
        out = outdir / f"out.{tool.ext}"
        argv = [a.format(**{"in": str(source), "out": str(out), "outdir": str(outdir)}) for a in tool.argv]
        time_file = self.scratch / "time"
        start = time.perf_counter()
        proc = subprocess.run([GNU_TIME, "-f", "%M %U %S", "-o", str(time_file)] + argv, env=self.env,
                              capture_output=True, text=True)
        wall = time.perf_counter() - start
        if proc.returncode != 0:
            raise RuntimeError((proc.stderr.strip().splitlines() or ["exit %d" % proc.returncode])[-1])
        rss, user, system = time_file.read_text().split()[-3:]
        if tool.brevona:
            result = json.loads(proc.stdout)["results"][0]
            if result["error"] or not result["output"]:
                raise RuntimeError(result["error"] or "no output")
            out = Path(result["output"])
        if tool.writes and not out.exists():
            raise RuntimeError("no output written")
        return wall, (int(rss), float(user) + float(system)), out

    def measure(self, job, tool):
        m = Measure(tool)
        runs = tool.runs or job.runs
        keep = self.scratch / "keep" / job.key
        keep.mkdir(parents=True, exist_ok=True)
        try:
            for _ in range(runs):
                wall, (rss, cpu), out = self.run_once(tool, job.source, f"{job.key}-{tool.name}")
                m.times.append(wall)
                m.rss_kb.append(rss)
                m.cpu.append(cpu)
                if sum(m.times) > TOOL_BUDGET_S:
                    break
            if tool.writes:
                m.out_bytes = out.stat().st_size
                m.output = keep / f"{tool.name}.{tool.ext}"
                shutil.move(out, m.output)
        except (RuntimeError, json.JSONDecodeError, KeyError, IndexError) as e:
            m.error = str(e)[:80]
        if job.ssim and m.output:
            m.ssim = self.ssim(job.source, m.output)
        return m

    def ssim(self, reference, distorted):
        proc = subprocess.run([str(self.ssim_tool), str(reference), str(distorted)], capture_output=True, text=True)
        return float(proc.stdout) if proc.returncode == 0 else None

    def ssimulacra2(self, reference, distorted):
        proc = subprocess.run([str(self.ssimulacra2_tool), str(reference), str(distorted)], capture_output=True,
                              text=True)
        return float(proc.stdout) if proc.returncode == 0 else None


def ratio(a, b):
    if not (a and b) or math.isnan(a) or math.isnan(b):
        return "–"
    return f"{a / b:.2f}x"


def fmt(value, pattern):
    return "–" if value is None or (isinstance(value, float) and math.isnan(value)) else pattern.format(value)


def table(job, measures):
    ours = next((m for m in measures if m.tool.brevona and not m.error), None)
    head = ["tool", "settings", "runs", "median s", "cpu s", "peak MB", "bytes"]
    if job.ssim:
        head.append("SSIM")
    head += ["Brevona time", "Brevona mem", "Brevona bytes"]
    lines = [f"### {job.title}", "", f"Input: `{job.source.name}`. {job.note}".rstrip(), "",
             "| " + " | ".join(head) + " |", "|" + "---|" * len(head)]
    for m in measures:
        if m.error:
            row = [m.tool.name, m.tool.settings, "0", "failed: " + m.error.replace("|", "/"), "", "", ""]
            row += [""] * (len(head) - len(row))
        else:
            row = [m.tool.name, m.tool.settings, str(len(m.times)), f"{m.time:.2f}", f"{m.cpu_time:.2f}", f"{m.rss_mb:.0f}",
                   f"{m.out_bytes:,}"]
            if job.ssim:
                row.append(fmt(m.ssim, "{:.4f}"))
            if ours:
                row += [ratio(ours.time, m.time), ratio(ours.rss_mb, m.rss_mb), ratio(ours.out_bytes, m.out_bytes)]
            else:
                row += ["–"] * 3
        lines.append("| " + " | ".join(row) + " |")
    return lines


def bytes_at_ssim(points, target):
    """Interpolates log(bytes) linearly in SSIM between the two nearest (ssim, bytes) points."""
    pts = sorted(p for p in points if p[0] is not None)
    if len(pts) < 2 or target is None:
        return None
    lo, hi = pts[0], pts[1]
    for a, b in zip(pts, pts[1:]):
        lo, hi = a, b
        if target <= b[0]:
            break
    if hi[0] == lo[0]:
        return lo[1]
    t = (target - lo[0]) / (hi[0] - lo[0])
    return math.exp(math.log(lo[1]) + t * (math.log(hi[1]) - math.log(lo[1])))


def main():
    ap = argparse.ArgumentParser(description=__doc__)
    ap.add_argument("--root", required=True)
    ap.add_argument("--corpus", required=True)
    ap.add_argument("--cache", required=True)
    ap.add_argument("--sharp", required=True, help="path of the sharp module")
    ap.add_argument("--oxipng", default="", help="path of the @jsquash/oxipng module (empty: none)")
    ap.add_argument("--only", help="comma-separated job keys to run")
    ap.add_argument("--runs", type=int, help="runs per tool for every job (default: per job)")
    ap.add_argument("--results", help="also write the tables to this Markdown file")
    ap.add_argument("--missing", default="", help="comma-separated peers that could not be installed (left out)")
    args = ap.parse_args()

    corpus = Path(args.corpus)
    camera = corpus / "photos/camera"
    kodak = corpus / "photos/kodak"
    big_png = Path(args.cache) / "altai-5120x2880.png"
    sharp = ["node", str(Path(__file__).with_name("sharp-job.js"))]

    def brevona(fmt_, mode="balanced", *extra):
        return Tool("brevona", " ".join(["--format", fmt_, "--mode", mode, *extra]),
                    ["build/bin/brevona-cli", "compress", "--format", fmt_, "--mode", mode, *extra,
                     "--out", "{outdir}", "--json", "{in}"], ext="", brevona=True)

    def fix_cli(tool):
        tool.argv[0] = str(Path(args.root) / tool.argv[0])
        return tool

    jpeg_opts = f"[Q={JPEG_Q},optimize_coding,strip]"
    q = str(AVIF_QUANTIZER)

    def avif_tools():
        return [
            Tool("avifenc", f"--min {q} --max {q} -y 420 -j all (speed 6)",
                 ["avifenc", "-j", "all", "-y", "420", "--min", q, "--max", q, "{in}", "{out}"], "avif"),
            Tool("vips", f"heifsave Q={OTHER_Q} (effort 4)", ["vips", "copy", "{in}", f"{{out}}[Q={OTHER_Q},strip]"],
                 "avif", runs=1),
            Tool("imagemagick", f"-quality {OTHER_Q}", ["convert", "{in}", "-strip", "-quality", str(OTHER_Q), "{out}"],
                 "avif"),
            Tool("sharp", f"avif quality {OTHER_Q}", sharp + ["avif", str(OTHER_Q), "{in}", "{out}"], "avif"),
            fix_cli(brevona("avif")),
        ]

    jobs = [
        Job("jpeg", "JPEG to JPEG, 24 MP, balanced (Q 80)", camera / "craft-beer.jpg", [
            Tool("vips", f"copy {jpeg_opts}", ["vips", "copy", "{in}", "{out}" + jpeg_opts], "jpg"),
            Tool("imagemagick", f"-quality {JPEG_Q} -strip", ["convert", "{in}", "-strip", "-quality", str(JPEG_Q),
                                                               "{out}"], "jpg"),
            Tool("sharp", f"jpeg quality {JPEG_Q}", sharp + ["jpeg", str(JPEG_Q), "{in}", "{out}"], "jpg"),
            fix_cli(brevona("jpeg")),
        ], runs=5),
        Job("jpeg2048", "JPEG to JPEG, 24 MP, longest edge 2048, balanced", camera / "craft-beer.jpg", [
            Tool("vips", f"thumbnail 2048 {jpeg_opts}", ["vips", "thumbnail", "{in}", "{out}" + jpeg_opts, "2048"],
                 "jpg"),
            Tool("imagemagick", "-resize 2048x2048>", ["convert", "{in}", "-resize", "2048x2048>", "-strip",
                                                       "-quality", str(JPEG_Q), "{out}"], "jpg"),
            Tool("sharp", "resize inside 2048", sharp + ["jpeg", str(JPEG_Q), "{in}", "{out}", "2048"], "jpg"),
            fix_cli(brevona("jpeg", "balanced", "--max-edge", "2048")),
        ], runs=5, note="The vips tool and sharp shrink while decoding (shrink-on-load)."),
        Job("webp", f"PNG to WebP, 5120x2880, balanced (Q {OTHER_Q})", big_png, [
            Tool("cwebp", f"-q {OTHER_Q}", ["cwebp", "-quiet", "-q", str(OTHER_Q), "{in}", "-o", "{out}"], "webp"),
            Tool("vips", f"copy [Q={OTHER_Q},strip]", ["vips", "copy", "{in}", f"{{out}}[Q={OTHER_Q},strip]"], "webp"),
            Tool("imagemagick", f"-quality {OTHER_Q}", ["convert", "{in}", "-strip", "-quality", str(OTHER_Q),
                                                         "{out}"], "webp"),
            Tool("sharp", f"webp quality {OTHER_Q}", sharp + ["webp", str(OTHER_Q), "{in}", "{out}"], "webp"),
            fix_cli(brevona("webp")),
        ], runs=3),
        Job("avif8", "JPEG to AVIF, 8 MP, balanced", camera / "jolla.jpg", avif_tools(), runs=3, ssim=True,
            note=f"Quantizer {q}, Brevona's balanced one; avifenc with 4:2:0 chroma, Brevona with 4:4:4. "
                 "SSIM on luma against the source."),
        Job("avif12", "JPEG to AVIF, 12 MP, balanced", camera / "42_IndexError.jpg",
            [t for t in avif_tools() if t.name not in ("vips", "sharp")], runs=3, ssim=True,
            note="The vips tool and sharp are left out here: at their default effort one 8 MP encode takes "
                 "them close to a minute or more."),
        Job("png", "PNG to PNG, lossless", kodak / "kodim23.png", [
            Tool("vips", "copy (compression 6)", ["vips", "copy", "{in}", "{out}"], "png"),
            Tool("imagemagick", "defaults", ["convert", "{in}", "-strip", "{out}"], "png"),
            Tool("sharp", "png defaults", sharp + ["png", "100", "{in}", "{out}"], "png"),
            fix_cli(brevona("png", "lossless")),
        ], runs=5),
        Job("limit", "JPEG under a 500 KB limit, 24 MP", camera / "craft-beer.jpg", [
            Tool("imagemagick", "-define jpeg:extent=500KB", ["convert", "{in}", "-strip", "-define",
                                                              "jpeg:extent=500KB", "{out}"], "jpg"),
            fix_cli(brevona("jpeg", "balanced", "--max-size", "500")),
        ], runs=3),
    ]
    if args.only:
        keys = args.only.split(",")
        jobs = [j for j in jobs if j.key in keys]
    missing = [name for name in args.missing.split(",") if name]
    for job in jobs:
        job.tools = [t for t in job.tools if t.name not in missing]
    have_cli = os.access(Path(args.root) / "build/bin/brevona-cli", os.X_OK)

    runner = Runner(args)
    out_lines = [f"# Brevona benchmark, {time.strftime('%Y-%m-%d %H:%M UTC', time.gmtime())}", "",
                 f"{os.cpu_count()} cores. Median wall time over the runs; peak memory is the largest max RSS "
                 "(sharp's includes node); cpu is user + system time. Ratios are Brevona's figure divided by the peer's. "
                 f"Load average at the start: {os.getloadavg()[0]:.1f}.", ""]
    if missing:
        out_lines += [f"Missing peers, left out of every table: {', '.join(missing)}.", ""]
        print(out_lines[-2] + "\n", flush=True)
    results = {}
    extras = {}
    try:
        for job in jobs:
            if args.runs:
                job.runs = args.runs
            measures = []
            for tool in job.tools:
                if tool.brevona and not have_cli:
                    continue
                print(f"bench: {job.key} / {tool.name}", file=sys.stderr, flush=True)
                measures.append(runner.measure(job, tool))
            results[job.key] = measures
            lines = table(job, measures)
            lines += extra_lines(runner, job, measures, extras.setdefault(job.key, {}))
            print("\n".join(lines) + "\n", flush=True)
            out_lines += lines + [""]
        if have_cli and (not args.only or "quality" in args.only.split(",")):
            lines = quality_report(runner, args, lambda f, m: fix_cli(brevona(f, m)))
            print("\n".join(lines) + "\n", flush=True)
            out_lines += lines + [""]
        if not args.only or "pngset" in args.only.split(","):
            lines = png_set_table(runner, png_set_files(corpus), args.oxipng, have_cli)
            print("\n".join(lines) + "\n", flush=True)
            out_lines += lines + [""]
        if not args.only or "batch" in args.only.split(","):
            lines = batch_section(runner, camera, sharp[:1] + [str(Path(__file__).with_name("sharp-batch.js"))],
                                  args.runs or 3, extras.setdefault("batch", {}))
            print("\n".join(lines) + "\n", flush=True)
            out_lines += lines + [""]
        summary = targets(results, extras)
        print("\n".join(summary))
        out_lines += summary
    finally:
        runner.close()
    if args.results:
        Path(args.results).parent.mkdir(parents=True, exist_ok=True)
        Path(args.results).write_text("\n".join(out_lines) + "\n")


def find(measures, name):
    return next((m for m in measures if m.tool.name == name and not m.error), None)


def extra_lines(runner, job, measures, extra):
    lines = []
    ours = find(measures, "brevona")
    if job.ssim and ours and ours.ssim:
        # avifenc around the same quantizer, untimed, to read its bytes at Brevona's SSIM.
        points = []
        peer = find(measures, "avifenc")
        if peer:
            points.append((peer.ssim, peer.out_bytes))
        for dq in (-3, 3):
            qq = str(AVIF_QUANTIZER + dq)
            probe = Tool(f"avifenc-q{qq}", "", ["avifenc", "-j", "all", "-y", "420", "--min", qq, "--max", qq, "{in}",
                                                "{out}"], "avif")
            m = runner.measure(Job(job.key, "", job.source, [], 1, ssim=True), probe)
            if not m.error:
                points.append((m.ssim, m.out_bytes))
        at = bytes_at_ssim(points, ours.ssim)
        if at:
            extra["matched"] = ours.out_bytes / at
            lines += ["", f"avifenc at Brevona's SSIM {ours.ssim:.4f}: {at:,.0f} bytes (interpolated over "
                      f"quantizers {AVIF_QUANTIZER - 3}, {AVIF_QUANTIZER}, {AVIF_QUANTIZER + 3}); "
                      f"Brevona's bytes are {ours.out_bytes / at:.3f}x that."]
    if job.key == "png" and ours:
        extra["kodak"] = kodak_sweep(runner, job)
        parts = [f"{name} {total:,}" for name, total in extra["kodak"].items() if total]
        lines += ["", "All 24 Kodak PNGs, total output bytes: " + ", ".join(parts) + "."]
    if job.key == "limit" and ours:
        found = limit_multiple(runner, job, ours)
        if found:
            extra["multiple"] = found[0]
            lines += ["", found[1]]
    return lines


def kodak_sweep(runner, job):
    """Output bytes over all 24 Kodak images, one run each: the lossless size comparison."""
    totals = {}
    for tool in (t for t in job.tools if t.name in ("brevona", "imagemagick", "vips")):
        total = 0
        for src in sorted(job.source.parent.glob("kodim*.png")):
            try:
                _, _, out = runner.run_once(tool, src, "kodak")
                total += out.stat().st_size
            except RuntimeError:
                total = None
                break
        totals[tool.name] = total
    return totals


def limit_multiple(runner, job, ours):
    """The size-limited run's time as a multiple of one encode: (limited - decode) / (single - decode),
    with the single encode measured by the same CLI without a limit and the decode by `vips avg`."""
    single_tool = Tool("brevona", "", [a for a in ours.tool.argv if a not in ("--max-size", "500")], "", brevona=True)
    single = runner.measure(Job(job.key + "-single", "", job.source, [], 5), single_tool)
    decode = runner.measure(Job(job.key + "-decode", "", job.source, [], 5),
                            Tool("decode", "", ["vips", "avg", "{in}"], "", writes=False))
    if single.error or decode.error:
        return None
    dec = statistics.median(decode.times) if decode.times else 0.0
    enc = single.time - dec
    multiple = (ours.time - dec) / enc if enc > 0 else math.nan
    return multiple, (f"One unlimited Brevona compress of the same file: {single.time:.2f} s; decoding alone "
                      f"(`vips avg`): {dec:.2f} s. The size-limited search costs {multiple:.1f} encodes at the mode's "
                      f"quality ({ours.time / single.time:.1f}x the unlimited compress); when the photo fits at full "
                      "size it makes 8 encodes, one per bisection round, the first at quality 0.425.")


def png_set_files(corpus):
    """The lossless PNG set: the 24 Kodak photos and the screenshots."""
    return sorted((corpus / "photos/kodak").glob("kodim*.png")) + sorted((corpus / "png/screenshots").glob("*.png"))


def png_set_tools(runner, oxipng):
    # "today": libpng at zlib level 9 with every filter tried per row, which is what Brevona's PNG
    # writer was before it reduced pixels and deflated with libdeflate; these files are all 8-bit
    # RGB or RGBA sRGB without a profile, so the vips tool sees the same pixels as that writer did.
    tools = [
        Tool("today", "vips copy [compression=9,filter=all,strip] (the previous encoder)",
             ["vips", "copy", "{in}", "{out}[compression=9,filter=all,strip]"], "png"),
        Tool("vips", "copy (compression 6)", ["vips", "copy", "{in}", "{out}[strip]"], "png"),
        Tool("imagemagick", "defaults", ["convert", "{in}", "-strip", "{out}"], "png"),
        Tool("optipng", "-o2 -strip all", ["optipng", "-quiet", "-o2", "-strip", "all", "-out", "{out}", "{in}"],
             "png"),
    ]
    if oxipng:
        tools.append(Tool("oxipng", "level 2 (WebAssembly build, one thread)",
                          ["node", str(Path(__file__).with_name("oxipng-job.mjs")), "2", "{in}", "{out}"], "png"))
    tools.append(Tool("brevona", "--format png --mode lossless",
                      [str(runner.cli), "compress", "--format", "png", "--mode", "lossless", "--out", "{outdir}", "--json", "{in}"], "",
                      brevona=True))
    return tools


def png_set_table(runner, files, oxipng, have_cli):
    """Total bytes and time of each tool over the PNG set, one run per file, and whether Brevona
    makes an optipng -o2 output any larger."""
    runner.env["OXIPNG_MODULE"] = oxipng
    totals = {}
    optimised = runner.scratch / "optipng-outputs"
    optimised.mkdir(parents=True, exist_ok=True)
    lines = [f"### PNG set, lossless: {len(files)} files (24 Kodak photos, screenshots)", "",
             "One run per file and tool; times are summed over the files.", "",
             "| tool | settings | bytes | wall s | cpu s | Brevona bytes | Brevona cpu |", "|---|---|---|---|---|---|---|"]
    if not oxipng:
        lines[2] += " oxipng: @jsquash/oxipng did not install, and the npm `oxipng` package ships no Linux binary, so it is left out."
    for tool in png_set_tools(runner, oxipng):
        if tool.brevona and not have_cli:
            continue
        print(f"bench: pngset / {tool.name}", file=sys.stderr, flush=True)
        total, wall, cpu, error = 0, 0.0, 0.0, ""
        for src in files:
            try:
                w, (_, c), out = runner.run_once(tool, src, "pngset")
            except (RuntimeError, json.JSONDecodeError, KeyError, IndexError) as e:
                error = f"{src.name}: {e}"[:80]
                break
            total, wall, cpu = total + out.stat().st_size, wall + w, cpu + c
            if tool.name == "optipng":
                shutil.copy(out, optimised / src.name)
        totals[tool.name] = None if error else (total, wall, cpu)
    ours = totals.get("brevona")
    for name, row in totals.items():
        tool = next(t for t in png_set_tools(runner, oxipng) if t.name == name)
        if row is None:
            lines.append(f"| {name} | {tool.settings} | failed | | | | |")
            continue
        total, wall, cpu = row
        lines.append(f"| {name} | {tool.settings} | {total:,} | {wall:.2f} | {cpu:.2f} | "
                     f"{ratio(ours[0], total) if ours else '–'} | {ratio(ours[2], cpu) if ours else '–'} |")
    grown = []
    if ours and totals.get("optipng"):
        tool = png_set_tools(runner, oxipng)[-1]
        for src in sorted(optimised.glob("*.png")):
            _, _, out = runner.run_once(tool, src, "pngset-again")
            if out.stat().st_size > src.stat().st_size:
                grown.append(f"{src.name} {src.stat().st_size:,} -> {out.stat().st_size:,}")
        lines += ["", f"optipng -o2 outputs compressed again by Brevona: {len(grown)} of "
                  f"{len(list(optimised.glob('*.png')))} grew" + (": " + "; ".join(grown) if grown else ".")]
    today = totals.get("today")
    if ours and today:
        lines += ["", "PNG set targets:",
                  f"- bytes ≤ 0.92x today's ({ours[0] / today[0]:.3f}x): {'met' if ours[0] <= 0.92 * today[0] else 'NOT met'}",
                  f"- CPU time ≤ today's ({ours[2] / today[2]:.2f}x, wall {ours[1] / today[1]:.2f}x): "
                  f"{'met' if ours[2] <= today[2] else 'NOT met'}",
                  f"- no optipng -o2 output grows ({len(grown)} grew): {'met' if not grown else 'NOT met'}"]
    return lines


BATCH_BUDGET_MB = 1000  # the engine's memory budget for decoded images in flight


def batch_section(runner, camera, sharp_batch, runs, extra):
    """Every camera photo in one batch, to JPEG and to WebP: brevona-cli one job at a time and with
    its default (one per core), sharp in one node process, the vips tool under xargs -P."""
    files = sorted(str(p) for p in camera.iterdir() if p.suffix.lower() in (".jpg", ".jpeg", ".png"))
    cores = os.cpu_count()
    lines = []
    for fmt_, q, ext in (("jpeg", JPEG_Q, "jpg"), ("webp", OTHER_Q, "webp")):
        cli = [str(runner.cli), "compress", "--format", fmt_, "--mode", "balanced", "--json"]
        listing = runner.scratch / "batch-files"
        listing.write_text("\n".join(files) + "\n")

        def vips_argv(out):
            script = f'vips copy "$1" "{out}/$(basename "${{1%.*}}").{ext}[Q={q},strip]"'
            return ["xargs", "-a", str(listing), "-d", "\\n", "-P", str(cores), "-n", "1", "sh", "-c", script, "sh"]

        tools = [
            ("brevona --jobs 1", lambda out: cli + ["--jobs", "1", "--out", out] + files),
            ("brevona", lambda out: cli + ["--out", out] + files),
            ("sharp", lambda out: sharp_batch + [fmt_, str(q), out] + files),
            (f"vips, xargs -P {cores}", vips_argv),
        ]
        # Round robin, so that a change in the machine's load falls on every tool alike.
        measures = {name: {"times": [], "cpus": [], "rss": []} for name, _ in tools}
        for run in range(runs):
            for index, (name, argv) in enumerate(tools):
                if measures[name].get("error"):
                    continue
                print(f"bench: batch {fmt_} / {name} ({run + 1}/{runs})", file=sys.stderr, flush=True)
                batch_run(runner, runner.scratch / f"batch-{fmt_}-{index}", argv, measures[name])
        one, many = measures["brevona --jobs 1"], measures["brevona"]
        identical = bool(one.get("digests")) and one.get("digests") == many.get("digests")
        speedup = one["time"] / many["time"] if one.get("time") and many.get("time") else math.nan
        extra[fmt_] = {"speedup": speedup, "identical": identical, "rss": many.get("peak", math.nan)}
        lines += [f"### Batch: {len(files)} camera photos to {fmt_.upper()}, balanced", "",
                  "| tool | runs | median s | cpu s | peak MB | outputs | bytes |", "|---|---|---|---|---|---|---|"]
        for name, m in measures.items():
            if m.get("error"):
                lines.append(f"| {name} | {len(m['times'])} | failed: {m['error']} | | | | |")
                continue
            lines.append(f"| {name} | {m['runs']} | {m['time']:.2f} | {m['cpu']:.2f} | {m['peak']:.0f} | "
                         f"{len(m['digests'])} | {m['bytes']:,} |")
        lines += ["", f"Default jobs against `--jobs 1`: {speedup:.2f}x faster; outputs byte-identical: "
                      f"{'yes' if identical else 'NO'}. Peak memory of the xargs row is its largest single "
                      "process, not the sum of the processes running at once."]
    return lines


def batch_run(runner, outdir, argv, m):
    """One run into a fresh `outdir`: appends wall and cpu time and peak RSS to `m` and sets the
    medians, the largest peak and the outputs' names and digests, or `m["error"]`."""
    import hashlib
    shutil.rmtree(outdir, ignore_errors=True)
    outdir.mkdir(parents=True)
    time_file = runner.scratch / "time"
    start = time.perf_counter()
    proc = subprocess.run([GNU_TIME, "-f", "%M %U %S", "-o", str(time_file)] + argv(str(outdir)),
                          env=runner.env, capture_output=True, text=True)
    wall = time.perf_counter() - start
    if proc.returncode != 0:
        m["error"] = (proc.stderr.strip().splitlines() or ["exit %d" % proc.returncode])[-1][:80].replace("|", "/")
        return
    kb, user, system = time_file.read_text().split()[-3:]
    m["times"].append(wall)
    m["cpus"].append(float(user) + float(system))
    m["rss"].append(int(kb))
    outputs = sorted(p for p in outdir.iterdir() if p.is_file())
    m.update(runs=len(m["times"]), time=statistics.median(m["times"]), cpu=statistics.median(m["cpus"]),
             peak=max(m["rss"]) / 1024, bytes=sum(p.stat().st_size for p in outputs),
             digests={p.name: hashlib.sha256(p.read_bytes()).hexdigest() for p in outputs})


def batch_targets(batch):
    lines = []
    for fmt_, goal in (("webp", 1.6), ("jpeg", 1.35)):
        m = batch.get(fmt_)
        if not m:
            continue
        lines.append(f"- {fmt_.upper()} batch ≥ {goal}x faster with the default jobs than --jobs 1 "
                     f"({m['speedup']:.2f}x): {'met' if m['speedup'] >= goal else 'NOT met'}")
        lines.append(f"- {fmt_.upper()} batch outputs byte-identical: {'met' if m['identical'] else 'NOT met'}")
        lines.append(f"- {fmt_.upper()} batch peak memory within the {BATCH_BUDGET_MB} MB budget "
                     f"({m['rss']:.0f} MB): {'met' if m['rss'] <= BATCH_BUDGET_MB else 'NOT met'}")
    return lines


def targets(results, extras):
    lines = ["## Targets", ""]

    def line(text, ok):
        lines.append(f"- {text}: {'met' if ok else 'NOT met'}")

    def get(key, name):
        return find(results.get(key, []), name)

    ours = get("jpeg", "brevona")
    if ours:
        vips, im, sh = get("jpeg", "vips"), get("jpeg", "imagemagick"), get("jpeg", "sharp")
        if vips:
            line(f"JPEG 24 MP time ≤ 1.2x vips ({ours.time / vips.time:.2f}x)", ours.time <= 1.2 * vips.time)
            line(f"JPEG 24 MP peak memory ≤ 2x vips ({ours.rss_mb / vips.rss_mb:.2f}x)", ours.rss_mb <= 2 * vips.rss_mb)
            line(f"JPEG 24 MP bytes ≤ vips at the same Q ({ours.out_bytes / vips.out_bytes:.3f}x)",
                 ours.out_bytes <= vips.out_bytes)
        if im:
            line(f"JPEG 24 MP faster than ImageMagick ({ours.time / im.time:.2f}x)", ours.time < im.time)
        if sh:
            line(f"JPEG 24 MP faster than sharp ({ours.time / sh.time:.2f}x)", ours.time < sh.time)
    for key, label in (("avif8", "AVIF 8 MP"), ("avif12", "AVIF 12 MP")):
        ours, peer = get(key, "brevona"), get(key, "avifenc")
        if ours and peer:
            line(f"{label} no slower than avifenc ({ours.time / peer.time:.2f}x)", ours.time <= peer.time)
            matched = extras.get(key, {}).get("matched")
            text = (f"{label} bytes within 5 % of avifenc at the same SSIM "
                    f"({fmt(matched, '{:.3f}')}x; at the same quantizer {ours.out_bytes / peer.out_bytes:.3f}x, "
                    f"SSIM {fmt(ours.ssim, '{:.4f}')} vs {fmt(peer.ssim, '{:.4f}')})")
            line(text, matched is not None and matched <= 1.05)
    ours, peer = get("webp", "brevona"), get("webp", "cwebp")
    if ours and peer:
        line(f"PNG to WebP time ≤ 1.1x cwebp ({ours.time / peer.time:.2f}x)", ours.time <= 1.1 * peer.time)
    ours, peer = get("png", "brevona"), get("png", "imagemagick")
    if ours and peer:
        line(f"PNG lossless bytes ≤ ImageMagick on kodim23 ({ours.out_bytes / peer.out_bytes:.3f}x)",
             ours.out_bytes <= peer.out_bytes)
    kodak = extras.get("png", {}).get("kodak", {})
    if kodak.get("brevona") and kodak.get("imagemagick"):
        line(f"PNG lossless bytes ≤ ImageMagick over all 24 Kodak ({kodak['brevona'] / kodak['imagemagick']:.3f}x)",
             kodak["brevona"] <= kodak["imagemagick"])
    lines += batch_targets(extras.get("batch", {}))
    multiple = extras.get("limit", {}).get("multiple")
    if multiple is not None:
        lines.append(f"- Size-limited search: {multiple:.1f}x one encode")
    return lines


# ---- Quality at equal perceptual metric: JPEG per mode against the peers, AVIF beside it ----

# (mode, JPEG quality, quality of the other formats), Brevona's figures on the peers' 0..100 scale.
QUALITY_MODES = [("lossless", 95, 100), ("balanced", 80, 82), ("aggressive", 65, 65)]
# Each peer's quality curve, along which its bytes are interpolated at Brevona's metric.
PEER_QUALITIES = [50, 60, 65, 70, 80, 85, 90, 95, 98]  # includes every mode's JPEG quality


def quality_set(corpus):
    """The bench set for the quality table: every third Kodak image and one 8 MP camera photo."""
    kodak = corpus / "photos/kodak"
    return [kodak / f"kodim{i:02d}.png" for i in range(1, 25, 3)] + [corpus / "photos/camera/jolla.jpg"]


def quality_peers(sharp):
    def vips(q):
        return Tool("vips", f"Q={q}", ["vips", "copy", "{in}", f"{{out}}[Q={q},optimize_coding,strip]"], "jpg")

    def magick(q):
        return Tool("imagemagick", f"-quality {q}", ["convert", "{in}", "-strip", "-quality", str(q), "{out}"], "jpg")

    def moz(q):
        return Tool("sharp", f"mozjpeg {q}", sharp + ["mozjpeg", str(q), "{in}", "{out}"], "jpg")

    return {"vips": vips, "imagemagick": magick, "sharp (mozjpeg)": moz}


def quality_point(runner, tool, sources):
    """Total bytes, mean SSIMULACRA2, mean luma SSIM and total wall time of one tool over the set."""
    def one(src):
        tag = f"quality-{tool.name}-{src.stem}".replace(" ", "_")
        wall, _, out = runner.run_once(tool, src, tag)
        return out.stat().st_size, runner.ssimulacra2(src, out), runner.ssim(src, out), wall

    with ThreadPoolExecutor(2) as pool:
        rows = list(pool.map(one, sources))
    if any(r[1] is None for r in rows):
        raise RuntimeError("metric failed")
    return (sum(r[0] for r in rows), statistics.mean(r[1] for r in rows),
            statistics.mean(r[2] for r in rows if r[2] is not None), sum(r[3] for r in rows))


def quality_report(runner, args, brevona):
    """The JPEG and AVIF quality tables and their target lines."""
    sources = quality_set(Path(args.corpus))
    sharp = ["node", str(Path(__file__).with_name("sharp-job.js"))]
    peers = quality_peers(sharp)
    print("bench: quality / peer curves", file=sys.stderr, flush=True)
    curves = {}
    for name, make in peers.items():
        try:
            curves[name] = {q: quality_point(runner, make(q), sources) for q in PEER_QUALITIES}
        except RuntimeError as e:
            print(f"bench: {name} failed: {e}", file=sys.stderr)
    ours = {}
    for mode, _, _ in QUALITY_MODES:
        print(f"bench: quality / brevona {mode}", file=sys.stderr, flush=True)
        ours[mode] = {fmt_: quality_point(runner, brevona(fmt_, mode), sources) for fmt_ in ("jpeg", "avif")}

    lines = ["### Quality at equal SSIMULACRA2, JPEG and AVIF per mode", "",
             f"Set: {', '.join(s.name for s in sources)}. Totals over the set; metrics are means "
             "(SSIMULACRA2, 100 is identical; SSIM on luma). Each peer's bytes at Brevona's SSIMULACRA2 "
             f"are interpolated along its quality curve ({', '.join(map(str, PEER_QUALITIES))}).", "",
             "| mode | tool | settings | bytes | SSIMULACRA2 | SSIM | Brevona bytes at equal SSIMULACRA2 |",
             "|---|---|---|---|---|---|---|"]
    ratios = {}
    for mode, jq, _ in QUALITY_MODES:
        b, s2, ss, _ = ours[mode]["jpeg"]
        lines.append(f"| {mode} | brevona | jpeg | {b:,} | {s2:.2f} | {ss:.4f} | |")
        for name, curve in curves.items():
            at = bytes_at_ssim([(p[1], p[0]) for p in curve.values()], s2)
            ratios[(mode, name)] = b / at if at else None
            same = (f"{curve[jq][0]:,} | {curve[jq][1]:.2f} | {curve[jq][2]:.4f}" if jq in curve
                    else "– | – | –")
            lines.append(f"| {mode} | {name} | Q {jq} | {same} | {fmt(ratios[(mode, name)], '{:.3f}x')} |")
        ab, as2, ass, _ = ours[mode]["avif"]
        lines.append(f"| {mode} | brevona | avif | {ab:,} ({ab / b:.2f}x JPEG) | {as2:.2f} | {ass:.4f} | |")
    lines += ["", "Targets (quality):"]

    def line(text, ok):
        lines.append(f"- {text}: {'met' if ok else 'NOT met'}")

    for mode, _, _ in QUALITY_MODES:
        r = ratios.get((mode, "vips"))
        limit = 0.97 if mode == "lossless" else 0.87
        line(f"JPEG {mode} bytes at equal SSIMULACRA2 ≤ {limit}x vips ({fmt(r, '{:.3f}x')})",
             r is not None and r <= limit)
    for mode, jq, _ in QUALITY_MODES:
        jb, js2, _, jt = ours[mode]["jpeg"]
        ab, as2, _, _ = ours[mode]["avif"]
        line(f"AVIF {mode} SSIMULACRA2 within 2 of JPEG's ({as2:.2f} vs {js2:.2f})", abs(as2 - js2) <= 2)
        line(f"AVIF {mode} bytes ≤ 0.65x JPEG's ({ab / jb:.3f}x)", ab <= 0.65 * jb)
        if jq in curves.get("vips", {}):
            vt = curves["vips"][jq][3]
            line(f"JPEG {mode} time over the set ≤ 1.5x the vips tool's libjpeg-turbo path, today's encoder "
                 f"({jt / vt:.2f}x)", jt <= 1.5 * vt)
    return lines


if __name__ == "__main__":
    main()
