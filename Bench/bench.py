#!/usr/bin/env python3
"""bench.py [--quick]: what ./bench.sh measures, printed as tables. Every figure that is judged is a ratio of
runs that were made in turn, so that the machine's speed and load cancel out."""
import os
import shutil
import socket
import statistics
import subprocess
import sys
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
SCRATCH = os.path.join(ROOT, "build", "bench")
MIB = 1 << 20
QUICK = "--quick" in sys.argv
SIZES = [1, 16, 256] if QUICK else [1, 16, 256, 1024]
TOOLS = ["bare loop", "engine, 1 stream", "engine, 2 streams", "curl"]


def rounds(size):
    return 2 if QUICK else 3 if size >= 1024 else 5


def program(arch, name):
    return os.path.join(ROOT, "build", f"{arch}-release", "Bench", name + ".exe")


def windows(path):
    return "Z:" + path.replace("/", "\\")


def wine(arch, name, *arguments):
    result = subprocess.run(["wine", program(arch, name), *map(str, arguments)], stdout=subprocess.PIPE,
                            stderr=subprocess.DEVNULL, timeout=600, check=False)
    return result.stdout.decode("ascii", "replace").replace("\r", "")


def measure(arch, *arguments):
    """The "name=value" pairs that DownloadBench prints."""
    for _ in range(3):
        text = wine(arch, "DownloadBench", *arguments)
        for line in text.splitlines():
            if line.startswith("bench:"):
                return {name: float(value) for name, value in (pair.split("=") for pair in line.split()[1:])}
        if "could not be started" not in text:  # what Wine says, now and then, of any program
            break
    raise RuntimeError(f"DownloadBench {arguments}: {text}")


def clear(path):
    for suffix in ("", ".cache", ".downloadstate", ".0", ".1"):
        if os.path.exists(path + suffix):
            os.remove(path + suffix)


class Server:
    """nginx on 127.0.0.1, serving files of random bytes."""

    def __enter__(self):
        shutil.rmtree(SCRATCH, ignore_errors=True)
        files = os.path.join(SCRATCH, "files")
        os.makedirs(files)
        os.chmod(SCRATCH, 0o755)
        for size in SIZES:
            with open(os.path.join(files, f"{size}.bin"), "wb") as file:
                for _ in range(size):
                    file.write(os.urandom(MIB))
        with socket.socket() as free:
            free.bind(("127.0.0.1", 0))
            self.port = free.getsockname()[1]
        config = os.path.join(SCRATCH, "nginx.conf")
        with open(config, "w", encoding="ascii") as file:
            file.write(f"""daemon off; master_process off; pid {SCRATCH}/pid; error_log {SCRATCH}/error.log;
events {{}}
http {{ access_log off; sendfile on; keepalive_requests 1000000;
  client_body_temp_path {SCRATCH}/t1; proxy_temp_path {SCRATCH}/t2; fastcgi_temp_path {SCRATCH}/t3;
  uwsgi_temp_path {SCRATCH}/t4; scgi_temp_path {SCRATCH}/t5;
  server {{ listen 127.0.0.1:{self.port}; root {files}; }} }}
""")
        self.process = subprocess.Popen(["/usr/sbin/nginx", "-c", config])
        for _ in range(500):
            with socket.socket() as probe:
                if probe.connect_ex(("127.0.0.1", self.port)) == 0:
                    return self
            time.sleep(0.02)
        raise RuntimeError("nginx doesn't listen")

    def __exit__(self, *_):
        self.process.terminate()
        self.process.wait()
        shutil.rmtree(SCRATCH, ignore_errors=True)

    def url(self, size):
        return f"http://127.0.0.1:{self.port}/{size}.bin"


def run(tool, arch, url, path, size):
    clear(path)
    if tool == "bare loop":
        return measure(arch, "bare", url, windows(path))
    if tool == "curl":
        before = os.times()
        seconds = subprocess.run(["curl", "-s", "-o", path, "-w", "%{time_total}", url], check=True,
                                 stdout=subprocess.PIPE).stdout
        after = os.times()
        return {"seconds": float(seconds), "peak": float("nan"),
                "cpu": after.children_user + after.children_system - before.children_user - before.children_system}
    return measure(arch, "engine", url, windows(path), 2 if "2" in tool else 1, size * MIB)


def refetched(arch, streams, url, path, size):
    """Bytes that came twice because of a kill at half."""
    clear(path)
    first = measure(arch, "die", url, windows(path), streams, size * MIB)
    second = measure(arch, "engine", url, windows(path), streams, size * MIB)
    # A block can be on disk without being counted when the process dies: that isn't less than nothing.
    return max(0, first["received"] + second["received"] - size * MIB)


def same(a, b):
    return subprocess.run(["cmp", "-s", a, b], check=False).returncode == 0


def downloads(server):
    path = os.path.join(SCRATCH, "patch.bin")
    per_byte = {}
    peaks = {}
    throughput = {}
    print("## Downloads\n")
    print("Median of rounds that take the tools in turn; the ratio is the median of the pairs within a round.\n")
    print("| program | MiB | tool | MB/s | of the bare loop | CPU s | peak MiB | fetched again after a kill at half |")
    print("|---|--:|---|--:|--:|--:|--:|--:|")
    for arch in ("x86", "x64"):
        for size in SIZES:
            results = {tool: [] for tool in TOOLS}
            for _ in range(rounds(size)):
                for tool in TOOLS:
                    results[tool].append(run(tool, arch, server.url(size), path, size))
                    if not same(path, os.path.join(SCRATCH, "files", f"{size}.bin")):
                        raise RuntimeError(f"{tool} brought a wrong file")
            for tool in TOOLS:
                def median(of):
                    return statistics.median(of(result) for result in results[tool])
                seconds = median(lambda r: r["seconds"])
                ratio = statistics.median(b["seconds"] / o["seconds"]
                                          for b, o in zip(results["bare loop"], results[tool]))
                peak = median(lambda r: r["peak"]) / MIB
                again = ""
                if tool.startswith("engine"):
                    streams = 2 if "2" in tool else 1
                    again = f"{refetched(arch, streams, server.url(size), path, size) / 1024:.0f} KiB"
                    per_byte[arch, tool, size] = seconds / size
                    peaks[arch, tool, size] = peak
                    throughput[arch, tool, size] = ratio
                shown = "" if peak != peak else f"{peak:.1f}"
                print(f"| {arch} | {size} | {tool} | {size * MIB / 1e6 / seconds:.0f} | {ratio:.2f} "
                      f"| {median(lambda r: r['cpu']):.2f} | {shown} | {again} |", flush=True)
    clear(path)

    print("\n| promise | x86 | x64 |")
    print("|---|--:|--:|")
    one, two = TOOLS[1], TOOLS[2]
    largest = SIZES[-1]

    def row(text, value):
        print(f"| {text} | {value('x86')} | {value('x64')} |")
    row("256 MiB, 1 stream, of the bare loop (at least 0.55)", lambda a: f"{throughput[a, one, 256]:.2f}")
    row("256 MiB, time of 2 streams over 1 (at most 1.10)",
        lambda a: f"{per_byte[a, two, 256] / per_byte[a, one, 256]:.2f}")
    row(f"peak memory, {largest} MiB less 1 MiB (at most 2 MiB)",
        lambda a: f"{max(peaks[a, t, largest] - peaks[a, t, 1] for t in (one, two)):.1f} MiB")
    row(f"time per byte, {largest} MiB over 16 MiB, 1 stream (at most 1.15)",
        lambda a: f"{per_byte[a, one, largest] / per_byte[a, one, 16]:.2f}")

    print("\n## Where a stream's time goes\n")
    print("Microseconds per block of 64 KiB, each step by itself; the writer's three run beside the reading.\n")
    print("| program | read | hand-over | write | record | callback |")
    print("|---|--:|--:|--:|--:|--:|")
    for arch in ("x86", "x64"):
        parts = [measure(arch, "parts", server.url(256), windows(path)) for _ in range(3)]
        print("| " + arch + " | " + " | ".join(
            f"{statistics.median(part[name] for part in parts):.1f}"
            for name in ("read", "handover", "write", "record", "callback")) + " |", flush=True)


def queue():
    print("\n## Analytics queue\n")
    for arch in ("x86",) if QUICK else ("x86", "x64"):
        print(f"| {arch} | time | |\n|---|--:|---|")
        lines = [line for line in wine(arch, "QueueBench").splitlines() if line.startswith("|")]
        print("\n".join(lines) + "\n", flush=True)


def start():
    print("\n## Start and end of a run without an update\n")
    for arch in ("x86", "x64"):
        print(f"| {arch} | takes | must wait for |\n|---|--:|---|")
        lines = wine(arch, "StartBench", windows(os.path.join(ROOT, "out", arch, "Updater.exe"))).splitlines()
        print("\n".join(line for line in lines if line.startswith("|")) + "\n", flush=True)


def main():
    print("# Measurements\n")
    start()
    with Server() as server:
        downloads(server)
    queue()


main()
