"""Runs the programs of the benchmark against one nginx, and writes their figures as a table and a picture.

The server runs on one core and the client on another. In each round, every program runs once. The results are the medians
of all rounds. On a shared machine, only the ratio of two programs in the same run is meaningful, not a single number.
"""

import base64
import json
import os
import re
import shutil
import socket
import statistics
import subprocess
import sys
import tempfile
import time

programs, smoke = sys.argv[1], "--smoke" in sys.argv[2:]
root = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
rounds = 1 if smoke else 7
names = {"bare": "bare libcurl", "halvern": "HalvernApi", "httplib": "cpp-httplib", "cpprest": "cpprestsdk"}
clients = [client for client in names if os.path.exists(f"{programs}/bench-{client}")]
levels = [1, 16, 64, 256]
scratch = tempfile.mkdtemp()
answer = json.dumps({
    "isSuccessful": True, "isEmailConfirmed": True, "accessToken": "0123456789abcdef" * 2,
    "refreshToken": "fedcba9876543210" * 2, "dateOfBirth": "1980-05-17T00:00:00", "sex": "Female",
    "email": "somebody@example.com"}, separators=(",", ":"))
configuration_bytes = 3 << 18  # one mebibyte in Base64


def progress(text):
    if sys.stderr.isatty():
        sys.stderr.write(f"\r\033[K{text}")
        sys.stderr.flush()


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def start_server():
    port, tls_port = free_port(), free_port()
    certificate, key = f"{scratch}/certificate.pem", f"{scratch}/key.pem"
    subprocess.run(
        ["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-days", "2",
         "-subj", "/CN=127.0.0.1", "-addext", "subjectAltName=IP:127.0.0.1", "-keyout", key, "-out", certificate],
        check=True, capture_output=True)
    with open(f"{scratch}/configuration", "w") as file:
        json.dump({"leftConfiguration": base64.b64encode(os.urandom(configuration_bytes)).decode(),
                   "rightConfiguration": None}, file)
    configuration = f"{scratch}/nginx.conf"
    with open(configuration, "w") as file:
        file.write(f"""
            worker_processes 1; daemon off; pid {scratch}/pid; error_log {scratch}/error.log;
            events {{ worker_connections 4096; }}
            http {{
              access_log off; keepalive_requests 1000000000; default_type application/json;
              client_body_temp_path {scratch}; proxy_temp_path {scratch}; fastcgi_temp_path {scratch};
              uwsgi_temp_path {scratch}; scgi_temp_path {scratch};
              server {{
                listen 127.0.0.1:{port}; listen 127.0.0.1:{tls_port} ssl;
                ssl_certificate {certificate}; ssl_certificate_key {key};
                location / {{ return 200 '{answer}'; }}
                location = /api/v1/account/personalize-hearing-aids {{ error_page 405 =200 /configuration; return 405; }}
                location = /configuration {{ root {scratch}; }}
              }}
            }}""")
    server = subprocess.Popen(["taskset", "-c", "1", "nginx", "-c", configuration],
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    os.chmod(scratch, 0o755)  # the worker runs as another user
    deadline = time.monotonic() + 10
    while time.monotonic() < deadline:
        with socket.socket() as probe:
            if probe.connect_ex(("127.0.0.1", port)) == 0:
                return server, f"http://127.0.0.1:{port}", f"https://127.0.0.1:{tls_port}", certificate
    sys.exit("nginx did not start")


def run(client, *arguments):
    """Runs a client once. Returns the figures that the client prints, by name."""
    result = subprocess.run(["taskset", "-c", "0", f"{programs}/bench-{client}", *map(str, arguments)],
                            stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True, timeout=120)
    if result.returncode != 0:
        sys.exit(f"bench-{client} {' '.join(map(str, arguments))}: {result.stderr}")
    words = result.stderr.split()
    return dict(zip(words[::2], map(float, words[1::2])))


def measure(name, who, *arguments):
    """Runs the clients one after the other, for several rounds. Returns the medians: client -> figure -> median."""
    samples = {client: [] for client in who}
    for turn in range(rounds):
        for client in who:
            progress(f"{name}: {client}, round {turn + 1} of {rounds}")
            samples[client].append(run(client, *arguments))
    return {client: {figure: statistics.median(sample[figure] for sample in taken) for figure in taken[0]}
            for client, taken in samples.items()}


def work_of(client, url):
    """Returns the allocations and instructions of a login, with 16 in flight. They hardly depend on the machine."""
    def counted(tool, pattern, calls):
        progress(f"{client}: {tool}")
        result = subprocess.run(["valgrind", f"--tool={tool}", *([f"--callgrind-out-file={scratch}/callgrind"] if tool == "callgrind" else []),
                                 f"{programs}/bench-{client}", "login", url, "16", str(calls)],
                                stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True, check=True)
        return int(re.search(pattern, result.stderr)[1].replace(",", ""))

    def of_one(tool, pattern):
        return (counted(tool, pattern, 3000) - counted(tool, pattern, 1000)) / 2200  # 3300 - 1100, with warm-ups

    return {"allocations": of_one("memcheck", r"total heap usage: ([\d,]+) allocs"),
            "instructions": of_one("callgrind", r"Collected : (\d+)")}


def codecs():
    """Returns medians of several processes, because the memory layout of a process changes the times by ten percent."""
    command = ["taskset", "-c", "0", f"{programs}/bench-codecs", "--benchmark_format=json",
               f"--benchmark_min_time={0.001 if smoke else 0.05}"]
    samples = {}
    for turn in range(rounds):
        progress(f"codecs, round {turn + 1} of {rounds}")
        report = json.loads(subprocess.run(command, check=True, capture_output=True, text=True).stdout)
        for entry in report["benchmarks"]:
            samples.setdefault(entry["name"], []).append(entry["cpu_time"])
    return {name: statistics.median(times) for name, times in samples.items()}


def umbrella_seconds(text):
    """Returns the time to compile `text`: the minimum of several runs, because the machine is shared."""
    source = f"{scratch}/header.cpp"
    with open(source, "w") as file:
        file.write(text)
    times = []
    for _ in range(rounds):
        begun = time.monotonic()
        subprocess.run(["c++", "-std=c++20", "-Isrc", "-c", source, "-o", f"{scratch}/header.o"], check=True, cwd=root)
        times.append(time.monotonic() - begun)
    return min(times)


def library_size():
    """Returns the size of both stripped shared libraries in bytes."""
    build = os.path.join(os.path.dirname(programs.rstrip("/")) + "-shared")
    subprocess.run(["cmake", "--preset", "release", "-B", build, "-DBUILD_SHARED_LIBS=ON", "-DBUILD_TESTING=OFF"],
                   check=True, capture_output=True, cwd=root)
    subprocess.run(["cmake", "--build", build, "--target", "HalvernApi"], check=True, capture_output=True, cwd=root)
    total = 0
    for library in ["libHalvernApi.so", "libHalvernApiPlatform.so"]:
        subprocess.run(["strip", "-o", f"{scratch}/{library}", f"{build}/{library}"], check=True)
        total += os.path.getsize(f"{scratch}/{library}")
    return total


def picture(load):
    """Draws the CPU per call, with a bar for each client. Leaves out cpprestsdk: its bars would be too high."""
    colours = {"bare": "#888888", "halvern": "#1f6fb4", "httplib": "#d98032"}
    highest = max(load[level][client]["cpu"] for level in levels for client in colours)
    parts = ['<svg xmlns="http://www.w3.org/2000/svg" width="640" height="320" font-family="sans-serif" font-size="12">',
             '<rect width="640" height="320" fill="white"/>',
             '<text x="20" y="24" font-size="14">CPU microseconds per login, by calls in flight (less is better)</text>']
    for place, level in enumerate(levels):
        left = 60 + place * 145
        for index, client in enumerate(colours):
            value = load[level][client]["cpu"]
            height = 200 * value / highest
            x, y = left + index * 38, 270 - height
            parts.append(f'<rect x="{x}" y="{y:.1f}" width="34" height="{height:.1f}" fill="{colours[client]}"/>')
            parts.append(f'<text x="{x + 17}" y="{y - 5:.1f}" text-anchor="middle" font-size="11">{value:.1f}</text>')
        parts.append(f'<text x="{left + 55}" y="288" text-anchor="middle">{level}</text>')
    for index, client in enumerate(colours):
        parts.append(f'<rect x="{60 + index * 150}" y="300" width="12" height="12" fill="{colours[client]}"/>')
        parts.append(f'<text x="{78 + index * 150}" y="310">{names[client]}</text>')
    return "\n".join(parts + ["</svg>", ""])


def main():
    server, plain, tls, certificate = start_server()
    try:
        calls = 300 if smoke else 20000
        load = {level: measure(f"{level} in flight", clients, "login", plain, level, calls if level > 1 else calls // 3)
                for level in levels}
        ours = ["bare", "halvern"]
        blocking = measure("blocking", ours, "login", plain, 0, calls // 3)
        secure = measure("over TLS, 64 in flight", ours, "login", tls, 64, calls, certificate)
        cold = measure("cold", ours, "login", plain, 1, 10)
        large = measure("configuration", [*ours, "httplib"], "configuration", plain, 1, 10 if smoke else 500)
        with socket.socket() as silent:
            silent.bind(("127.0.0.1", 0))
            silent.listen(64)
            memory = measure("memory", ours, "login", f"http://127.0.0.1:{silent.getsockname()[1]}",
                             100 if smoke else 10000, 0)
        work = {client: work_of(client, plain) for client in ours} if not smoke else None
        codec = codecs()
        base = "".join(f"#include <{name}>\n" for name in
                       ["string", "vector", "functional", "chrono", "memory", "optional"])
        compiling = {name: umbrella_seconds(text)
                     for name, text in {"base": base, "umbrella": base + "#include <HalvernApi/HalvernApi.hpp>\n"}.items()}
        size = None if smoke else library_size()
    finally:
        server.terminate()
        server.wait()
        shutil.rmtree(scratch)
    progress("")

    columns = ["in flight", "figure", *(names[client] for client in clients), "HalvernApi to bare"]
    lines = [f"| {' | '.join(columns)} |", "|---" * len(columns) + "|"]

    def row(level, label, figure, of, digits=1):
        cells = [f"{of[client][figure]:,.{digits}f}" if client in of else "" for client in clients]
        ratio = of["halvern"][figure] / of["bare"][figure]
        lines.append(f"| {level} | {label} | {' | '.join(cells)} | {ratio:.2f} |")

    for level in levels:
        row(level, "CPU per call, us", "cpu", load[level])
        row(level, "calls per second", "rate", load[level], 0)
    row(1, "median latency, us", "p50", load[1])
    row(1, "99th percentile, us", "p99", load[1])
    row("1, by get()", "CPU per call, us", "cpu", blocking)
    row("64, over TLS", "CPU per call, us", "cpu", secure)
    row("cold", "first answer, us", "first", cold, 0)
    row("1, 1 MiB answer", "CPU per call, us", "cpu", large)
    row("1, 1 MiB answer", "median latency, us", "p50", large)
    row("10,000 held", "memory per call, bytes", "bytes", memory, 0)
    if work:
        row(16, "heap allocations per call", "allocations", work)
        row(16, "instructions per call", "instructions", work, 0)
    lines += ["", "| record | parse, ns | decode, ns | ratio | serialise, ns | encode, ns | ratio |", "|---|---|---|---|---|---|---|"]
    for name in codec:
        if match := re.fullmatch("parse/(.*)", name):
            times = [codec[f"{kind}/{match[1]}"] for kind in ["parse", "decode", "serialize", "encode"]]
            lines.append(f"| {match[1]} | {times[0]:,.0f} | {times[1]:,.0f} | {times[1] / times[0]:.2f} "
                         f"| {times[2]:,.0f} | {times[3]:,.0f} | {times[3] / times[2]:.2f} |")
    lines += ["", f"- Base64: {(1 << 20) / codec['base64']:.1f} GB/s of text.",
              f"- Compiling the umbrella header: {compiling['umbrella']:.2f} s; the standard headers alone, "
              f"{compiling['base']:.2f} s."]
    if size:
        lines.append(f"- Both shared libraries, stripped: {size / 1024:,.0f} KiB.")
    table = "\n".join(lines) + "\n"
    print(table)
    if not smoke:
        folder = os.path.join(root, "docs", "performance")
        os.makedirs(folder, exist_ok=True)
        with open(os.path.join(folder, "figures.md"), "w") as file:
            file.write("# Figures\n\nMeasured by `bench/run`; what they mean is in [performance](../performance.md).\n\n"
                       "![CPU per login](figures.svg)\n\n" + table)
        with open(os.path.join(folder, "figures.svg"), "w") as file:
            file.write(picture(load))


main()
